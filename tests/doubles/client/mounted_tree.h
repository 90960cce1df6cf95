// A management tree with one small tree in memory mounted in it.
#pragma once

#include "management_tree.h"
#include "memory_tree.h"

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
    /// The value of a leaf, or the code that reading it ends with.
    std::string read(const NodeUri &leaf) const;
    /// Names of the children, separated by blanks.
    std::string childrenOf(const NodeUri &node) const;

    static ManagementTree::NewValue text(const char *data);
    static ManagementTree::NewValue typed(const char *format, const char *data);

    JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    ManagementTree tree;
};

} // namespace client
