// The table of a tree's nodes.
#pragma once

#include "dmnative/dmt_tree.h"

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

/// Nodes by path, kept as a tree of entries: one entry for every path that is registered or that a
/// registered parent lists. Finding, adding and removing an entry takes one hash look-up a segment;
/// removing or renaming an entry touches what stands beneath it and nothing else.
class DmtPluginTree::NodeTable {
public:
    /// @return the registered node, or null.
    DmtNode *Find(std::string_view path) const;

    /// Registers the node, or replaces the one at the path, and brings the children into the order
    /// that the node lists; children that it does not list keep their order behind those.
    void Set(std::string_view path, const JemSmartPtr<DmtNode> &node,
             const DMStringVector &listedChildren);

    /// Removes the node, everything beneath it and the parent's mention. @return false when no node
    /// is registered there.
    bool Remove(std::string_view path);

    /// Gives the entry a new last segment and calls moved with each node and its new path, from the
    /// entry down. @return 0, DMT_NOT_FOUND or DMT_ALREADY_EXISTS.
    int Rename(std::string_view path, std::string_view newName,
               const std::function<void(DmtNode *, const char *newPath)> &moved);

    /// Visits the registered children in listed order.
    void ForEachChild(std::string_view path, const std::function<void(DmtNode *)> &visit) const;

private:
    struct Entry {
        std::string name;
        Entry *parent = nullptr;
        JemSmartPtr<DmtNode> node; // null: listed by its parent, but not registered
        std::list<std::unique_ptr<Entry>> children;
        // Keys view into the names of the children, which never move.
        std::unordered_map<std::string_view, std::list<std::unique_ptr<Entry>>::iterator> byName;

        Entry *Child(std::string_view childName) const;
        Entry *ChildOrNew(std::string_view childName);
        void Drop(std::string_view childName); // which must exist
    };

    Entry *Locate(std::string_view path) const;
    Entry *LocateOrNew(std::string_view path);

    // The root is the empty path; unique_ptr so that look-ups in a const table can hand it out.
    std::unique_ptr<Entry> m_root = std::make_unique<Entry>();
};
