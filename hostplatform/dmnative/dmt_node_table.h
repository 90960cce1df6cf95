// The table of a tree's nodes.
#pragma once

#include "dmnative/dmt_tree.h"

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

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
    void Set(const DMString &path, const JemSmartPtr<DmtNode> &node,
             const DMStringVector &listedChildren);

    /// Removes the node, everything beneath it and the parent's mention. @return false when no node
    /// is registered there.
    bool Remove(std::string_view path);

    /// Gives the node a new last segment and calls moved with each node and its new path, from the
    /// node down. @return 0, DMT_NOT_FOUND or DMT_ALREADY_EXISTS.
    int Rename(std::string_view path, std::string_view newName,
               const std::function<void(DmtNode *, const DMString &newPath)> &moved);

    /// The last segment of a path as a string that shares its text with equal names of late: most
    /// nodes of a tree have one of a few names.
    DMString NameOf(std::string_view path);

    /// How many children are listed there, registered or not.
    int CountListedChildren(std::string_view path) const;
    /// Visits the registered children in listed order.
    void ForEachChild(std::string_view path, const std::function<void(DmtNode *)> &visit) const;

private:
    /// The ordered names of one node's children. Looking one up takes a step for each of a few
    /// names, and one step in all where there are more.
    class ChildNames {
    public:
        int Count() const { return static_cast<int>(m_names.size() - m_gaps); }
        bool Lists(std::string_view name) const { return Find(name) != NOWHERE; }
        void Append(const DMString &name);
        void Forget(std::string_view name);
        void Replace(std::string_view name, const DMString &newName);
        /// Brings the names to the front, in their order.
        void PutFirst(const DMStringVector &names);

        template <class Visit>
        void ForEach(Visit visit) const
        {
            for (const DMString &name : m_names)
                if (name.c_str())
                    visit(std::string_view(name.c_str()));
        }

    private:
        static constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

        std::size_t Find(std::string_view name) const;
        bool StartWith(const DMStringVector &names) const;
        void CloseGaps();

        std::vector<DMString> m_names; // null where one was forgotten
        std::size_t m_gaps = 0;
        // Of a long list. The keys view into m_names: a text stays where it is while it has
        // holders.
        std::unique_ptr<std::unordered_map<std::string_view, std::size_t>> m_places;
    };

    /// A path that has a node, or that is known only as the parent of one.
    struct Entry {
        JemSmartPtr<DmtNode> node;
        ChildNames children;
    };

    // Both let a look-up do without a copy of the path.
    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const
        {
            return std::hash<std::string_view>()(path);
        }
        std::size_t operator()(const DMString &path) const
        {
            return (*this)(std::string_view(path.text()));
        }
    };
    struct PathEqual {
        using is_transparent = void;
        bool operator()(const DMString &left, const DMString &right) const { return left == right; }
        bool operator()(std::string_view left, const DMString &right) const
        {
            return left == right.text();
        }
    };

    void RemoveBeneath(const std::string &path);
    void MoveBeneath(const std::string &path, const std::string &newPath,
                     const std::function<void(DmtNode *, const DMString &)> &moved);

    std::unordered_map<DMString, Entry, PathHash, PathEqual>
        m_entries;                        // keys share the nodes' texts
    std::array<DMString, 64> m_lateNames; // by the hash of the name
};
