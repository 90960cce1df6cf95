// What a serialised tree of a server does to the management tree.
#pragma once

#include "tnds_reader.h"
#include "tree_view.h"
#include "undo_log.h"

#include <set>
#include <vector>

namespace client {

/// The nodes of a serialised tree at their addresses in the management tree.
///
/// Each node is added, and given its value, its title and its list, by the operations of a
/// TreeView, so that the rules are those of single commands. The lists come last, from the bottom
/// up: one that its server is not in must not keep the rest of the tree out.
///
/// A failure names the node. What was done before it stays done: it stands in the undo log.
class TndsChange {
public:
    /// Places the nodes and looks at their formats and values; nothing is changed.
    ///
    /// A Node without a Path is the target when it has no name or the target's, and is beneath it
    /// otherwise. A Path is the address of the node above, from the root if the Node is at or
    /// beneath the target then, and relative to the target otherwise.
    ///
    /// A Node without a format has that of the existing or described node at its address, or is an
    /// interior node if it has no value.
    /// @param tree  has to outlive the change
    static Result<TndsChange> plan(TreeView &tree, const NodeUri &target,
                                   const std::vector<TndsNode> &nodes);

    /// Adds the nodes: 418 for one that was there before. Missing nodes above one are added where
    /// the device describes them as interior nodes.
    Outcome add(UndoLog &undoLog);
    /// Makes the target as the tree has it: 404 when it is not there, 400 when the first Node is
    /// not the target. Whatever is beneath it is deleted, unless something of it may not be.
    Outcome replace(UndoLog &undoLog);

private:
    struct PlannedNode {
        NodeUri uri;
        TreeView::NewValue value;
        std::optional<QByteArray> acl;
        std::optional<QByteArray> title;
    };

    TndsChange(TreeView &tree, const NodeUri &target) : m_tree(&tree), m_target(target) {}

    Outcome plan(const std::vector<TndsNode> &nodes);
    Result<NodeUri> placeOf(const TndsNode &topNode) const;
    Result<TreeView::NewValue> valueOf(const NodeUri &uri, const TndsNode &node,
                                       bool hasChildren) const;

    void note(const NodeUri &node, UndoLog &undoLog);
    Outcome addFrom(std::size_t first);
    Outcome addNode(const PlannedNode &node);
    Outcome addMissingAbove(const NodeUri &node);
    bool isOfThisChange(const NodeUri &node) const;
    Outcome replaceContents(const TreeNode &interior, UndoLog &undoLog);
    Outcome setTitle(const PlannedNode &node);
    Outcome setLists();

    TreeView *m_tree;
    NodeUri m_target;
    std::vector<PlannedNode> m_nodes;
    std::set<NodeUri> m_added;
    std::set<NodeUri> m_notedObjects;
};

} // namespace client
