// Changes of the management tree, for whoever wants to repeat them elsewhere.
#pragma once

#include "tree_view.h"

namespace client {

/// An operation of a TreeView that changes something, or was to.
struct TreeChange {
    enum class Kind {
        Add,
        Replace,
        ReplaceChildren,
        ReplaceProperty,
        Remove,
        Copy,
        AtomicBegins,    ///< what follows may be taken back
        AtomicTakenBack, ///< by the changes before this one; the properties are as at its beginning
    };

    Kind kind = Kind::Add;
    Principal principal = Principal::owner();
    NodeUri node = {};
    NodeUri source = {};                             ///< of a Copy
    Property property = Property::Name;              ///< of ReplaceProperty
    TreeView::NewValue value = {};                   ///< of Add and Replace; the property's
    std::vector<TreeView::ChildValue> children = {}; ///< of ReplaceChildren
    Outcome outcome = {};

    /// Whether it only says where an Atomic begins, or that it was taken back.
    bool isMarker() const { return kind == Kind::AtomicBegins || kind == Kind::AtomicTakenBack; }
    /// The address that a node has after it was renamed; none when this renames none.
    std::optional<NodeUri> renamedTo() const;
};

/// Hears of every change of a management tree, in their order.
class ChangeObserver {
public:
    virtual ~ChangeObserver() = default;

    /// The node is about to be changed, if there is one. Nothing was looked for or mounted yet.
    virtual void beforeChange(const NodeUri &node) = 0;
    /// It was, or was refused.
    virtual void changed(const TreeChange &change) = 0;
};

} // namespace client
