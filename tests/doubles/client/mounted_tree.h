// A management tree with one small tree in memory mounted in it.
#pragma once

#include "memory_tree.h"
#include "tree_view.h"

#include <gtest/gtest.h>

namespace client {

/// The mounted tree is, with every right for every server on its root,
///
///     Office
///         Addr     chr   "internet"
///         Linger   int   30
///         Enabled  bool  true
///         Port     int   (no value)
///         Auth
///             AuthPw  chr  "secret"
///     Home
///         Addr     chr   "home.example"
class MountedTree : public testing::Test {
protected:
    static constexpr char mountRoot[] = "./Ext/Profiles";

    MountedTree();

    static NodeUri uri(const char *text);
    static AccessControlList acl(const char *text);
    static QByteArray profileUri(const char *path) { return QByteArray(mountRoot) + '/' + path; }
    static NodeUri profile(const char *path) { return uri(profileUri(path).constData()); }
    /// "200", "404" ...
    static int code(const Outcome &outcome) { return static_cast<int>(outcome.status); }
    /// From here on, `tree` is the tree of that principal.
    void useAs(const Principal &principal) { tree = TreeView(managementTree, principal); }
    TreeView ownersTree() { return {managementTree, Principal::owner()}; }
    /// The value of a leaf, or the code that reading it ends with.
    std::string read(const NodeUri &leaf) const;
    /// Names of the children, separated by blanks.
    std::string childrenOf(const NodeUri &node) const;

    static TreeView::NewValue text(const char *data);
    static TreeView::NewValue typed(const char *format, const char *data);

    JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    ManagementTree managementTree;
    TreeView tree{managementTree, Principal::owner()}; ///< as the owner has it, see useAs
};

} // namespace client
