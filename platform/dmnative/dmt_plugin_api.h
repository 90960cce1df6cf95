/// @file
/// The two functions that a plug-in library exports. An engine looks them up by name after loading
/// the library with all its symbols bound.
#pragma once

#include "dmt_tree.h"

/// Interface version that both sides must agree on: major 1, minor 1.
inline constexpr int DMT_PLUGIN_API_VERSION = 0x10001;

/// Name of the exported DmtPluginGetApiVersion.
inline constexpr char DMT_PLUGIN_API_VERSION_SYMBOL[] = "DMT_PluginLib_GetAPIVersion";
/// Name of the exported DmtPluginGetTree.
inline constexpr char DMT_PLUGIN_TREE_SYMBOL[] = "DMT_PluginLib_Data_GetPluginTree";

/// @return the interface version of the plug-in.
using DmtPluginGetApiVersion = int();

/// Builds the tree that serves a root path.
/// @param rootPath  NUL-terminated mount path, compared byte for byte
/// @param context   the engine's; a plug-in may ignore it
/// @param tree      receives the new tree, and drops what it held before; left alone on failure
/// @return 0 on success; 406 when the plug-in does not serve the root; 1 when it cannot load it
using DmtPluginGetTree = int(const char *rootPath, void *context, JemSmartPtr<DmtPluginTree> &tree);
