// The table of a tree's nodes.
#pragma once

#include "dmnative/dmt_tree.h"
#include "dmstring_view.h"

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// Nodes by path. Finding a node takes one hash look-up; removing or renaming one touches what is
/// listed beneath it and nothing else.
///
/// The children of a node are an ordered list of names. A listed name is looked up as the path with
/// a slash and the name after it, so a name that itself holds a slash is found as well. Leaves,
/// which most nodes are, have no list.
class DmtPluginTree::NodeTable {
public:
    /// @return the registered node, or null.
    DmtNode *Find(std::string_view path) const;

    /// Registers the node, or replaces the one at the path; its parent lists it from then on. The
    /// children come into the order that the node lists; those that it does not list keep their
    /// order after the others.
    /// @param name  the last segment of the path, as NameOf says it
    void Set(const DMString &path, const DMString &name, const JemSmartPtr<DmtNode> &node,
             const DMStringVector &listedChildren);

    /// Removes the node, everything beneath it and the parent's mention. @return false when no node
    /// is registered there.
    bool Remove(std::string_view path);

    /// Gives the node a new last segment and calls moved with each node and its new path, from the
    /// node down. @return 0, DMT_NOT_FOUND or DMT_ALREADY_EXISTS.
    int Rename(std::string_view path, std::string_view newName,
               const std::function<void(DmtNode *, const DMString &newPath)> &moved);

    /// The last segment of a path as a string that shares its text with equal names of late: most
    /// nodes of a tree have one of a few names. A path that is its own name is shared.
    DMString NameOf(const DMString &path);

    /// How many children are listed there, registered or not.
    int CountListedChildren(std::string_view path) const;
    /// Visits the registered children in listed order.
    void ForEachChild(std::string_view path, const std::function<void(DmtNode *)> &visit) const;

private:
    /// Has containers live in the engine's memory.
    template <class T>
    struct Allocator {
        using value_type = T;

        Allocator() = default;
        template <class U>
        Allocator(const Allocator<U> &)
        {
        }
        bool operator==(const Allocator &) const = default;

        T *allocate(std::size_t count)
        {
            void *const block = DmtMemAllocEx(count * sizeof(T), "dmt_node_table", __LINE__);
            if (!block)
                throw std::bad_alloc();
            return static_cast<T *>(block);
        }
        void deallocate(T *block, std::size_t) { DmtMemFree(block); }
    };

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
                    visit(ViewOf(name));
        }

    private:
        static constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

        std::size_t Find(std::string_view name) const;
        bool StartWith(const DMStringVector &names) const;
        void CloseGaps();

        std::vector<DMString, Allocator<DMString>> m_names; // null where one was forgotten
        std::size_t m_gaps = 0;
        mutable std::size_t m_next = 0; // after the name that was found last
        // Of a long list. The keys view into m_names: a text stays where it is while it has
        // holders.
        std::unique_ptr<std::unordered_map<std::string_view, std::size_t>> m_places;
    };

    // Both let a look-up do without a copy of the path.
    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const
        {
            return std::hash<std::string_view>()(path);
        }
        std::size_t operator()(const DMString &path) const { return (*this)(ViewOf(path)); }
    };
    struct PathEqual {
        using is_transparent = void;
        bool operator()(const DMString &left, const DMString &right) const
        {
            return ViewOf(left) == ViewOf(right);
        }
        bool operator()(std::string_view left, const DMString &right) const
        {
            return left == ViewOf(right);
        }
    };
    template <class Value>
    using ByPath = std::unordered_map<DMString, Value, PathHash, PathEqual,
                                      Allocator<std::pair<const DMString, Value>>>;

    /// What the node at a path lists, registered or not; an empty list when there is none yet.
    ChildNames &ListOf(std::string_view path);

    void RemoveBeneath(const std::string &path);
    void MoveBeneath(const std::string &path, const std::string &newPath,
                     const std::function<void(DmtNode *, const DMString &)> &moved);

    // The keys share the nodes' texts.
    ByPath<JemSmartPtr<DmtNode>> m_nodes;
    ByPath<ChildNames> m_lists;
    // Siblings are registered one after the other. Null when the list may be gone.
    std::pair<const DMString, ChildNames> *m_lateList = nullptr;
    std::array<DMString, 64> m_lateNames; // by what their first and last characters make
};
