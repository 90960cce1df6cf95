#include "undo_log.h"

#include <algorithm>

namespace client {

namespace {

template <class Picture>
auto find(const Picture &picture, const NodeUri &node)
{
    return std::ranges::find(picture, node, &Picture::value_type::first);
}

} // namespace

UndoLog::UndoLog(ManagementTree &tree)
    : m_tree(tree, Principal::owner()), m_properties(tree.properties())
{
    tell(TreeChange::Kind::AtomicBegins);
}

void UndoLog::tell(TreeChange::Kind kind)
{
    if (ChangeObserver *const observer = m_tree.tree().changeObserver())
        observer->changed(TreeChange{.kind = kind});
}

// ---- Before a change -----------------------------------------------------------------------------

void UndoLog::note(const NodeUri &node, const std::optional<NodeUri> &renamedTo)
{
    Note note{node, std::nullopt, m_tree.tree().objectOf(node), {}, false};
    if (m_tree.find(node))
        note.renamedTo = renamedTo;
    if (note.object) {
        note.before = pictureOf(*note.object);
        const auto changed = find(note.before, node);
        note.isLost = changed != note.before.end() && changed->second && !changed->second->value;
    }
    m_notes.push_back(std::move(note));
}

UndoLog::Picture UndoLog::pictureOf(const NodeUri &object) const
{
    Picture picture;
    const Result<TreeNode> node = m_tree.find(object);
    if (!node)
        return picture;
    for (const ListedNode &listed : m_tree.list(*node, TreeView::Values::Read)) {
        std::optional<Leaf> leaf;
        if (listed.value) {
            leaf.emplace();
            leaf->format = formatName(listed.node.valueType());
            if (*listed.value) {
                leaf->value = valueText(**listed.value);
                leaf->hasValue = (*listed.value)->GetType() != DmtData::Null;
            }
        }
        picture.emplace_back(listed.node.uri(), std::move(leaf));
    }
    return picture;
}

// ---- After a failure -----------------------------------------------------------------------------

std::vector<bool> UndoLog::rollBack()
{
    std::vector<bool> isBack(m_notes.size());
    for (std::size_t i = m_notes.size(); i-- > 0;)
        isBack[i] = takeBack(m_notes[i]);
    m_tree.tree().setProperties(std::move(m_properties));
    tell(TreeChange::Kind::AtomicTakenBack);
    return isBack;
}

bool UndoLog::takeBack(const Note &note)
{
    if (note.renamedTo && !m_tree.find(note.node)) {
        m_tree.replaceProperty(*note.renamedTo, Property::Name, note.node.name());
        if (!m_tree.find(note.node)) {
            m_properties.move(note.node, *note.renamedTo);
            return false;
        }
    }
    if (!note.object)
        return true;
    const bool isMadeAgain = !note.before.empty() && !m_tree.find(*note.object);
    return restore(*note.object, note.before) && !isMadeAgain && !note.isLost;
}

bool UndoLog::restore(const NodeUri &object, const Picture &picture)
{
    // One value can depend on another, whose turn comes later.
    constexpr int mostRounds = 3;
    const auto sorted = [](Picture nodes) {
        std::ranges::sort(nodes, {}, &Picture::value_type::first);
        return nodes;
    };
    for (int round = 0;; ++round) {
        const Picture now = pictureOf(object);
        if (sorted(now) == sorted(picture))
            return true;
        if (round == mostRounds)
            return false;
        removeAdded(now, picture);
        addMissing(now, picture);
        writeDiffering(now, picture);
    }
}

void UndoLog::removeAdded(const Picture &now, const Picture &picture)
{
    for (const auto &[node, leaf] : now)
        if (find(picture, node) == picture.end() && m_tree.find(node))
            m_tree.remove(node);
}

void UndoLog::addMissing(const Picture &now, const Picture &picture)
{
    for (const auto &[node, leaf] : picture) {
        if (find(now, node) != now.end())
            continue;
        TreeView::NewValue value;
        value.format = leaf ? leaf->format : formatName(DmtData::Node);
        if (leaf && leaf->hasValue)
            value.data = leaf->value;
        m_tree.add(node, value);
    }
}

void UndoLog::writeDiffering(const Picture &now, const Picture &picture)
{
    for (const auto &[node, leaf] : picture) {
        const auto current = find(now, node);
        if (leaf && leaf->hasValue && current != now.end() && current->second != leaf)
            m_tree.replace(node, {{}, {}, leaf->value});
    }
}

} // namespace client
