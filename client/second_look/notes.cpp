#include "notes.h"

#include "node_description.h"
#include "secret_leaf.h"

#include <algorithm>
#include <utility>

namespace client {

using Kind = TreeChange::Kind;

// ---- What counts ---------------------------------------------------------------------------------

namespace {

/// Where a node is after a change of a name above it, or of its own.
NodeUri moved(const NodeUri &node, const NodeUri &from, const NodeUri &to)
{
    NodeUri there = to;
    const std::vector<QByteArray> names = node.names();
    for (auto level = static_cast<std::size_t>(from.depth()); level < names.size(); ++level)
        there = there.child(names[level]);
    return there;
}

/// Whether a later change, no rename, has the say about what an earlier one was about.
bool touches(const TreeChange &later, const NodeUri &address)
{
    switch (later.kind) {
    case Kind::Remove:
        return later.node.contains(address);
    case Kind::ReplaceChildren:
        return std::ranges::any_of(later.children, [&](const TreeView::ChildValue &child) {
            return later.node.child(child.name) == address;
        });
    default:
        return later.node == address;
    }
}

bool isOfOtherProperty(const TreeChange &change)
{
    return change.kind == Kind::ReplaceProperty && change.property != Property::Name;
}

} // namespace

std::vector<bool> changesThatCount(const std::vector<TreeChange> &changes)
{
    std::vector<bool> counts(changes.size());
    std::size_t begin = 0;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        counts[i] = changes[i].outcome && !changes[i].isMarker() && !isOfOtherProperty(changes[i]);
        if (changes[i].kind == Kind::AtomicBegins)
            begin = i;
        if (changes[i].kind == Kind::AtomicTakenBack)
            std::fill(counts.begin() + static_cast<std::ptrdiff_t>(begin),
                      counts.begin() + static_cast<std::ptrdiff_t>(i) + 1, false);
    }
    const std::vector<bool> endedWell = counts;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const std::optional<NodeUri> renamed = changes[i].renamedTo();
        NodeUri address = renamed.value_or(changes[i].node);
        for (std::size_t later = i + 1; later < changes.size() && counts[i]; ++later) {
            if (!endedWell[later])
                continue;
            const std::optional<NodeUri> to = changes[later].renamedTo();
            const bool isOfName = renamed && changes[later].node == address;
            counts[i] = to ? !isOfName : !touches(changes[later], address);
            if (to && changes[later].node.contains(address))
                address = moved(address, changes[later].node, *to);
        }
    }
    return counts;
}

// ---- Now -----------------------------------------------------------------------------------------

namespace {

/// A value in a sentence.
QString shown(const NodeUri &leaf, const QByteArray &value)
{
    if (isMasked(leaf.name(), value))
        return QString::fromLatin1(secretMask);
    return value.isEmpty() ? QStringLiteral("\"\"") : QString::fromUtf8(value);
}

QByteArray masked(const NodeUri &leaf, const QByteArray &value)
{
    return isMasked(leaf.name(), value) ? QByteArray(secretMask) : value;
}

/// "reads 4464", "reads its first 44 bytes, 012…"
QString readsInstead(const SeenNode &leaf, const QByteArray &asked)
{
    const QByteArray reads = leaf.value.value_or(QByteArray());
    const QString text = shown(leaf.uri, reads);
    const bool isCut =
        leaf.format == formatName(DmtData::String) && !reads.isEmpty() && asked.startsWith(reads);
    return !isCut              ? QStringLiteral("reads %1").arg(text)
           : reads.size() == 1 ? QStringLiteral("reads its first byte, %1").arg(text)
                               : QStringLiteral("reads its first %1 bytes, %2")
                                     .arg(QString::number(reads.size()), text);
}

/// In a change of several leaves a note says which it is about.
QString leafPrefix(const TreeChange &change, const NodeUri &leaf)
{
    return change.kind == Kind::ReplaceChildren
               ? QString::fromUtf8(leaf.name()) + QStringLiteral(" ")
               : QString();
}

} // namespace

std::vector<DifferenceNote> notesNow(std::size_t place, const TreeChange &change,
                                     const SeenChange &seen)
{
    std::vector<DifferenceNote> notes;
    if (!change.outcome || isOfOtherProperty(change))
        return notes;
    const auto add = [&](const QString &text, std::optional<QByteArray> reads = std::nullopt) {
        notes.push_back({place, text, std::move(reads), false});
    };
    const auto isAsked = [&](const NodeUri &node) {
        return std::ranges::any_of(seen.asked,
                                   [&](const AskedValue &asked) { return asked.leaf == node; });
    };
    for (const AskedValue &asked : seen.asked) {
        const QString leaf = leafPrefix(change, asked.leaf);
        if (!asked.reads)
            add(leaf + QStringLiteral("is not there"));
        else if (asked.reads->value && *asked.reads->value != asked.value)
            add(leaf + readsInstead(*asked.reads, asked.value),
                masked(asked.leaf, *asked.reads->value));
    }
    if (!seen.overwritten.isEmpty())
        add(seen.overwritten);
    if (!seen.asked.empty())
        for (const auto &[before, node] : seen.difference.changed)
            if (!isAsked(node.uri) && node.value && !before.value_or(QByteArray()).isEmpty())
                add(QStringLiteral("%1 changed as well and reads %2")
                        .arg(node.uri.toDisplay(), shown(node.uri, *node.value)));
    return notes;
}

// ---- At the next mount ---------------------------------------------------------------------------

namespace {

bool isProfile(const NodeUri &node)
{
    const std::vector<NodeUri> roots = profileRoots();
    return !node.isRoot() && std::ranges::find(roots, node.parent()) != roots.end();
}

/// Where a node of a change is after all of them.
NodeUri afterAll(NodeUri node, const std::vector<TreeChange> &changes, std::size_t place)
{
    for (std::size_t later = place + 1; later < changes.size(); ++later)
        if (const auto to = changes[later].renamedTo(); to && changes[later].node.contains(node))
            node = moved(node, changes[later].node, *to);
    return node;
}

/// Where a node is at the next mount, when the names that servers gave to what is above it are
/// gone.
NodeUri withoutNewNames(NodeUri node, const std::vector<TreeChange> &changes, const Picture &next)
{
    for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
        const std::optional<NodeUri> renamed = change->renamedTo();
        if (!renamed || !renamed->contains(node) || next.contains(*renamed))
            continue;
        node = moved(node, *renamed, change->node);
    }
    return node;
}

/// Why a node that was added is gone.
QString reasonForGone(const NodeUri &node, const Picture &next)
{
    if (isProfile(node))
        return QStringLiteral(": no leaf of the profile is set, and it still counts among the "
                              "profiles that can be stored");
    if (!descriptionOf(node))
        return QStringLiteral(": a profile has no such node");
    if (!next.contains(node.parent()))
        return QStringLiteral(": the profile is");
    return QStringLiteral(": it has no value");
}

struct NextLook {
    const std::vector<TreeChange> &changes;
    const NextMount &looks;

    /// Where a node that the change has made or written is at the next mount.
    NodeUri placeOf(std::size_t change, const NodeUri &node) const
    {
        return withoutNewNames(afterAll(node, changes, change), changes, looks.next);
    }

    /// What the next mount says of a leaf that was written; none when it is what it says now.
    std::optional<DifferenceNote> noteOnValue(std::size_t change, const AskedValue &asked) const
    {
        const QString leaf = leafPrefix(changes[change], asked.leaf);
        const NodeUri place = placeOf(change, asked.leaf);
        const auto then = looks.next.find(place);
        if (then == looks.next.end())
            return DifferenceNote{change, leaf + gone(place), std::nullopt, true};
        const auto now = looks.now.find(afterAll(asked.leaf, changes, change));
        const std::optional<QByteArray> expected =
            now == looks.now.end() ? std::optional(asked.value) : now->second.value;
        const std::optional<QByteArray> &value = then->second.value;
        if (!value || !expected || *value == *expected)
            return std::nullopt;
        return DifferenceNote{change,
                              leaf + readsInstead(then->second, *expected) +
                                  QStringLiteral(" at the next mount"),
                              masked(asked.leaf, *value), true};
    }

    QString gone(const NodeUri &node) const
    {
        return QStringLiteral("gone at the next mount") + reasonForGone(node, looks.next);
    }

    /// The same of a node that was added, renamed or deleted; empty when it is as it is now.
    QString noteOnNode(std::size_t place) const
    {
        const TreeChange &change = changes[place];
        if (change.kind == Kind::Remove)
            return noteOnRemoved(withoutNewNames(change.node, changes, looks.next));
        if (const auto renamed = change.renamedTo()) {
            const NodeUri first = withoutNewNames(*renamed, changes, looks.next);
            return looks.next.contains(*renamed) ? QString()
                   : looks.next.contains(first)
                       ? QStringLiteral("%1 again at the next mount").arg(displayName(first.name()))
                       : gone(*renamed);
        }
        const NodeUri node = placeOf(place, change.node);
        return looks.next.contains(node) ? QString() : gone(node);
    }

    QString noteOnRemoved(const NodeUri &node) const
    {
        if (!looks.next.contains(node))
            return {};
        const QString back = QStringLiteral("back at the next mount");
        return isProfile(node) ? back + QStringLiteral(": another bearer or the proxies of the "
                                                       "profile remain")
                               : back;
    }
};

/// What a change asked for where nothing could be made once more.
std::vector<AskedValue> askedWithoutMirror(const TreeChange &change, const Picture &next)
{
    std::vector<AskedValue> asked;
    const auto ask = [&](const NodeUri &leaf, const QByteArray &given) {
        const auto then = next.find(leaf);
        const auto type = then == next.end() ? std::nullopt : typeOfFormat(then->second.format);
        const Result<DmtData> value =
            type ? parseValue(*type, given) : Result<DmtData>(Outcome{DmStatus::NotFound, {}});
        asked.push_back({leaf, value ? valueText(*value) : given, std::nullopt});
    };
    if ((change.kind == Kind::Add || change.kind == Kind::Replace) && change.value.data)
        ask(change.node, *change.value.data);
    for (const TreeView::ChildValue &child : change.children)
        ask(change.node.child(child.name), child.text);
    return asked;
}

} // namespace

std::vector<DifferenceNote> notesAtNextMount(const std::vector<TreeChange> &changes,
                                             const std::vector<SeenChange> &seen,
                                             const NextMount &looks)
{
    std::vector<DifferenceNote> notes;
    const NextLook look{changes, looks};
    const std::vector<bool> counts = changesThatCount(changes);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const TreeChange &change = changes[i];
        if (!counts[i])
            continue;
        const std::vector<AskedValue> asked =
            seen.empty() ? askedWithoutMirror(change, looks.next) : seen[i].asked;
        for (const AskedValue &value : asked) {
            if (auto note = look.noteOnValue(i, value))
                notes.push_back(*std::move(note));
        }
        if (asked.empty())
            if (const QString text = look.noteOnNode(i); !text.isEmpty())
                notes.push_back({i, text, std::nullopt, true});
    }
    return notes;
}

} // namespace client
