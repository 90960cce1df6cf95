// Fixture of every test that runs the plug-in's own sources on the doubles.
#pragma once

#include "DM_Napi_PluginNode.h"
#include "DM_Napi_PluginTree.h"
#include "dmnative/dmt_plugin_api.h"
#include "dmnative_control.h"
#include "handset_doubles.h"
#include "plugin_tree_probe.h"
#include "setup_set_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

extern "C" {
DmtPluginGetApiVersion DMT_PluginLib_GetAPIVersion;
DmtPluginGetTree DMT_PluginLib_Data_GetPluginTree;
}

namespace doubles {

using Lines = std::vector<std::string>;
using Mapping = std::vector<std::pair<std::string, std::string>>;

inline constexpr char CONN_ROOT[] = "./DevDetail/Ext/Conf/Conn/Profiles";
inline constexpr char INTPROFS_ROOT[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";
inline constexpr char NAPDEF_GROUP[] = "NAPIDEF_Profile";
inline constexpr char PROXY_GROUP[] = "PROXY_Profile";
inline constexpr char CONN_GROUP[] = "PROXY_Conn";

/// A message of each module, as LogCapture has it.
inline std::string EntryMessage(const std::string &text)
{
    return "(DM_Napi_Plugin.cpp:#)" + text;
}
inline std::string TreeMessage(const std::string &text)
{
    return "(DM_Napi_PluginTree.cpp:#)" + text;
}
inline std::string NodeMessage(const std::string &text)
{
    return "(DM_Napi_PluginNode.cpp:#)" + text;
}

/// A record with these bearer addresses, all else zero. A text that is too long fills its array.
NAP_PROFILE_S Record(const std::string &gprs, const std::string &csd = "",
                     const std::string &csd2 = "");

/// Copies a text into an array of a record: zeroes after it, no terminator when it fills the
/// array.
template <std::size_t Size>
void SetText(char (&field)[Size], const std::string &text)
{
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy_n(text.data(), std::min(text.size(), Size), field);
}

/// Text of a string value; a reminder of the type otherwise.
std::string StringOf(const DmtData &value);
/// Number of an int value; fails the test for any other type.
int IntOf(const DmtData &value);
bool BoolOf(const DmtData &value);

using TreePtr = JemSmartPtr<DM_NAPI_PluginTree>;

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override;
    /// Nothing of the plug-in outlives a test: no engine block, no open settings file.
    void TearDown() override;

    /// A tree as the entry point constructs it, before it is loaded.
    static TreePtr NewTree(const char *root) { return TreePtr(new DM_NAPI_PluginTree(root)); }

    /// A loaded tree; fails the test when it cannot be loaded. The journal and log start again
    /// after it.
    TreePtr LoadTree(const char *root);

    /// The node at the path; null when there is none. The look-up is not journaled.
    JemSmartPtr<DmtNode> Node(const TreePtr &tree, const std::string &path);

    /// The value of the leaf; fails the test when it is not there or cannot be read.
    DmtData Value(const TreePtr &tree, const std::string &path);

    /// Names of the children of the node, in order.
    Lines Children(const TreePtr &tree, const std::string &path);

    /// What was logged since the last look. Where level 8 prints too, the messages must be among
    /// the others in this order.
    void ExpectLogged(const Lines &expected);
    /// As ExpectLogged, for nothing.
    void ExpectNothingLogged() { ExpectLogged({}); }

    /// The calls since the last look, engine calls left out.
    Lines TakeOutsideCalls();

    HandsetDoubles handset;

private:
    std::size_t m_blocksBefore = 0;
};

} // namespace doubles
