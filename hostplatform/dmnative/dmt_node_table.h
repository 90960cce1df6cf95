// The table of a tree's nodes.
#pragma once

#include "dmnative/dmt_tree.h"

#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

/// Nodes by path. Finding a node takes one hash look-up; removing or renaming one touches what is
/// listed beneath it and nothing else.
///
/// Each entry keeps the ordered list of its children's names. A listed name is looked up as the
/// path with a slash and the name after it, so a name that itself holds a slash is found as well.
class DmtPluginTree::NodeTable {
public:
    /// @return the registered node, or null.
    DmtNode *Find(std::string_view path) const;

    /// Registers the node, or replaces the one at the path; its parent lists it from then on. The
    /// children come into the order that the node lists; those that it does not list keep their
    /// order after the others.
    void Set(std::string_view path, const JemSmartPtr<DmtNode> &node,
             const DMStringVector &listedChildren);

    /// Removes the node, everything beneath it and the parent's mention. @return false when no node
    /// is registered there.
    bool Remove(std::string_view path);

    /// Gives the node a new last segment and calls moved with each node and its new path, from the
    /// node down. @return 0, DMT_NOT_FOUND or DMT_ALREADY_EXISTS.
    int Rename(std::string_view path, std::string_view newName,
               const std::function<void(DmtNode *, const char *newPath)> &moved);

    /// How many children are listed there, registered or not.
    int CountListedChildren(std::string_view path) const;
    /// Visits the registered children in listed order.
    void ForEachChild(std::string_view path, const std::function<void(DmtNode *)> &visit) const;

private:
    /// A path that has a node, or that is known only as the parent of one.
    class Entry {
    public:
        JemSmartPtr<DmtNode> node;

        const std::list<std::string> &Children() const { return m_children; }
        bool Lists(std::string_view child) const { return m_places.contains(child); }
        void Append(std::string_view child);
        void Forget(std::string_view child);
        void Replace(std::string_view child, std::string_view newName);
        void PutFirst(const DMStringVector &children);

    private:
        std::list<std::string> m_children;
        // Keys view into m_children, whose elements never move.
        std::unordered_map<std::string_view, std::list<std::string>::iterator> m_places;
    };

    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const
        {
            return std::hash<std::string_view>()(path);
        }
    };

    void RemoveBeneath(const std::string &path);
    void MoveBeneath(const std::string &path, const std::string &newPath,
                     const std::function<void(DmtNode *, const char *)> &moved);

    std::unordered_map<std::string, Entry, PathHash, std::equal_to<>> m_entries;
};
