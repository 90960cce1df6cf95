// The slots of nodes and trees that are called with plain arguments: a row for each.
#pragma once

#include "dmnative/dmt_tree.h"

#include <span>

/// One slot of a node or of the tree, with plain arguments.
struct Operation {
    const char *slot;
    bool isRead; ///< so that it changes nothing, and may be repeated
    int (*run)(DmtPluginTree &tree, DmtNode &node, const char *path);
};

/// A value that every leaf could have.
inline const DmtData plainValue("plain");

/// Those that read first, those that remove nodes last.
std::span<const Operation> allOperations();
