// A writable tree in memory, in the place of a plug-in's.
#pragma once

#include "dmnative/dmt_tree.h"

#include <map>
#include <set>
#include <string>
#include <vector>

/// Keeps what is written to it, notes the calls that a client makes, and fails the ones that it is
/// told to fail. Paths are relative to its root.
class MemoryTree final : public DmtRWPluginTree {
public:
    static JemSmartPtr<MemoryTree> create();

    void addInterior(const char *path);
    void addLeaf(const char *path, const DmtData &value);

    /// Status of the next calls on a path: "get PATH", "set PATH", "create PATH", "delete PATH",
    /// "rename PATH", "read all PATH", "write all PATH". 0 by default. "keep PATH" fails the
    /// creation of a leaf that is there afterwards all the same.
    std::map<std::string, int> failures;
    /// As failures, for every call but the first.
    std::map<std::string, int> failuresLater;
    /// Leaves whose read succeeds without yielding a value, always or until they are given one.
    std::set<std::string> withoutValue;
    std::set<std::string> withoutValueUntilSet;
    /// Nodes that can be executed; "execute PATH ARGUMENT" among the calls and the failures.
    /// Each deletes the node that it is mapped to, unless that is empty.
    std::map<std::string, std::string> executables;
    /// Another leaf that a call gives a value.
    std::map<std::string, std::pair<std::string, DmtData>> sideEffects;
    /// The calls that reached the tree, in the words of failures.
    std::vector<std::string> calls;

    int DeleteNode(const char *path) override;
    int RenameNode(const char *path, const char *newName) override;
    int GetChildValuesMap(const char *path, DmtChildValuesMap &values) override;
    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) override;
    int CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                   const DMStringVector &childNames) override;
    int CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                               const DmtData &value) override;

private:
    friend class MemoryNode;

    MemoryTree() = default;

    int note(const std::string &call, const char *path);
};
