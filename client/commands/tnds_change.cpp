#include "tnds_change.h"

#include "node_description.h"

#include <span>

namespace client {

namespace {

Outcome at(const NodeUri &node, const Outcome &outcome)
{
    if (outcome)
        return outcome;
    return {outcome.status,
            QStringLiteral("%1 of the serialised tree: %2").arg(node.toDisplay(), outcome.reason)};
}

/// The one name that an escaped NodeName stands for.
Result<QByteArray> parseName(const QString &escaped, const UriLimits &limits)
{
    const Result<Address> address = parseAddress(escaped, limits);
    if (escaped.contains(u'/') || (address && address->query != Address::Query::None))
        return Outcome{DmStatus::NotAllowed,
                       QStringLiteral("\"%1\" cannot be the name of a node").arg(escaped)};
    if (!address)
        return address.outcome();
    const QByteArray name = address->node.name();
    if (const Outcome allowed = checkNewName(name, limits); !allowed)
        return allowed;
    return name;
}

} // namespace

// ---- Placing -------------------------------------------------------------------------------------

Result<TndsChange> TndsChange::plan(TreeView &tree, const NodeUri &target,
                                    const std::vector<TndsNode> &nodes)
{
    if (target.isRoot())
        return notAllowed(target, "is the root");
    TndsChange change(tree, target);
    if (Outcome planned = change.plan(nodes); !planned)
        return planned;
    return change;
}

Outcome TndsChange::plan(const std::vector<TndsNode> &nodes)
{
    const UriLimits &limits = m_tree->uriLimits();
    std::vector<NodeUri> open; // the node before and those above it
    std::set<NodeUri> places;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const TndsNode &node = nodes[i];
        open.resize(static_cast<std::size_t>(node.depth));
        if (open.empty()) {
            Result<NodeUri> place = placeOf(node);
            if (!place)
                return at(m_target, place.outcome());
            open.push_back(*std::move(place));
        } else {
            const Result<QByteArray> name = parseName(node.name, limits);
            if (!name)
                return at(open.back(), name.outcome());
            open.push_back(open.back().child(*name));
        }
        const NodeUri &uri = open.back();
        if (const auto valid = parseAddress(QString::fromLatin1(uri.toUri()), limits); !valid)
            return at(m_target, valid.outcome());
        if (!places.insert(uri).second)
            return at(uri, {DmStatus::AlreadyExists, QStringLiteral("it stands there twice")});
        const bool hasChildren = i + 1 < nodes.size() && nodes[i + 1].depth > node.depth;
        Result<TreeView::NewValue> value = valueOf(uri, node, hasChildren);
        if (!value)
            return at(uri, value.outcome());
        m_nodes.push_back({uri, *std::move(value), node.acl, node.title});
    }
    return {};
}

Result<NodeUri> TndsChange::placeOf(const TndsNode &topNode) const
{
    const UriLimits &limits = m_tree->uriLimits();
    QByteArray name = m_target.name();
    if (!topNode.name.isEmpty()) {
        const Result<QByteArray> parsed = parseName(topNode.name, limits);
        if (!parsed)
            return parsed.outcome();
        name = *parsed;
    }
    if (topNode.path.isEmpty())
        return name == m_target.name() ? m_target : m_target.child(name);
    const Result<Address> path = parseAddress(topNode.path, limits);
    if (!path)
        return path.outcome();
    if (path->query != Address::Query::None)
        return Outcome{DmStatus::NotFound,
                       QStringLiteral("the Path %1 is not that of a node").arg(topNode.path)};
    const NodeUri fromRoot = path->node.child(name);
    return m_target.contains(fromRoot) ? fromRoot : m_target.beneath(path->node).child(name);
}

// ---- Formats and values --------------------------------------------------------------------------

namespace {

/// The format that a node has, or will have for sure.
std::optional<DmtData::Type> knownFormat(const TreeView &tree, const NodeUri &uri)
{
    if (const NodeDescription *const description = descriptionOf(uri))
        return description->format;
    const Result<TreeNode> node = tree.find(uri);
    if (!node)
        return std::nullopt;
    return node->isLeaf() ? static_cast<DmtData::Type>(node->valueType()) : DmtData::Node;
}

} // namespace

Result<TreeView::NewValue> TndsChange::valueOf(const NodeUri &uri, const TndsNode &node,
                                               bool hasChildren) const
{
    const auto known = knownFormat(*m_tree, uri);
    const bool isInteriorByItsLook = hasChildren || !node.value;
    QString format = node.format;
    if (format.isEmpty() && (known || isInteriorByItsLook))
        format = formatName(known.value_or(DmtData::Node));
    const auto type = typeOfFormat(format);
    if (!type)
        return unsupportedFormat(
            format.isEmpty() ? QStringLiteral("a new node needs a format")
                             : QStringLiteral("no node here can have the format %1").arg(format));
    if (hasChildren && *type != DmtData::Node)
        return unsupportedFormat(
            QStringLiteral("a node of the format %1 has none beneath it").arg(format));
    if (*type == DmtData::Node) {
        if (known && *known != DmtData::Node)
            return unsupportedFormat(
                QStringLiteral("the format is %1, not %2").arg(formatName(*known), format));
        if (node.value && !node.value->trimmed().isEmpty())
            return unsupportedFormat(QStringLiteral("an interior node has no value"));
        return TreeView::NewValue{format, node.type, std::nullopt};
    }
    const Result<DmtData> value = parseValue(*type, node.value);
    if (!value)
        return value.outcome();
    // A text that XML cannot carry comes in base64.
    if (*type == DmtData::Bin && known == DmtData::String) {
        const QByteArray text = valueBytes(*value);
        if (const Result<DmtData> valid = parseValue(DmtData::String, text); !valid)
            return valid.outcome();
        return TreeView::NewValue{formatName(DmtData::String), node.type, text};
    }
    if (known && *known != *type)
        return unsupportedFormat(
            QStringLiteral("the format is %1, not %2").arg(formatName(*known), format));
    return TreeView::NewValue{format, node.type, node.value};
}

// ---- Carrying out --------------------------------------------------------------------------------

void TndsChange::note(const NodeUri &node, UndoLog &undoLog)
{
    const std::optional<NodeUri> object = m_tree->tree().objectOf(node);
    if (object && m_notedObjects.insert(*object).second)
        undoLog.note(node);
}

Outcome TndsChange::add(UndoLog &undoLog)
{
    for (const PlannedNode &node : m_nodes)
        note(node.uri, undoLog);
    return addFrom(0);
}

Outcome TndsChange::addFrom(std::size_t first)
{
    for (const PlannedNode &node : std::span(m_nodes).subspan(first)) {
        if (Outcome added = addNode(node); !added)
            return at(node.uri, added);
        if (Outcome titled = setTitle(node); !titled)
            return at(node.uri, titled);
    }
    return setLists();
}

Outcome TndsChange::addNode(const PlannedNode &node)
{
    const Result<TreeNode> existing = m_tree->find(node.uri);
    if (existing && isOfThisChange(node.uri))
        return existing->isLeaf() ? m_tree->replace(node.uri, node.value) : Outcome();
    if (!existing)
        if (Outcome above = addMissingAbove(node.uri); !above)
            return above;
    Outcome outcome = m_tree->add(node.uri, node.value);
    if (outcome)
        m_added.insert(node.uri);
    return outcome;
}

/// A device may bring nodes along with one that is added.
bool TndsChange::isOfThisChange(const NodeUri &node) const
{
    for (NodeUri above = node; !above.isRoot(); above = above.parent())
        if (m_added.contains(above))
            return true;
    return false;
}

Outcome TndsChange::addMissingAbove(const NodeUri &node)
{
    std::vector<NodeUri> missing;
    for (NodeUri above = node.parent(); !above.isRoot() && !m_tree->find(above);
         above = above.parent()) {
        const NodeDescription *const description = descriptionOf(above);
        if (!description || description->format != DmtData::Node)
            return {};
        missing.push_back(above);
    }
    for (auto above = missing.rbegin(); above != missing.rend(); ++above) {
        if (Outcome added = m_tree->add(*above, {formatName(DmtData::Node), {}, {}}); !added)
            return added;
        m_added.insert(*above);
    }
    return {};
}

Outcome TndsChange::setTitle(const PlannedNode &node)
{
    return node.title ? m_tree->replaceProperty(node.uri, Property::Title, *node.title) : Outcome();
}

Outcome TndsChange::setLists()
{
    for (auto node = m_nodes.rbegin(); node != m_nodes.rend(); ++node) {
        if (!node->acl)
            continue;
        if (Outcome set = m_tree->replaceProperty(node->uri, Property::Acl, *node->acl); !set)
            return at(node->uri, set);
    }
    return {};
}

// ---- Replacing -----------------------------------------------------------------------------------

Outcome TndsChange::replace(UndoLog &undoLog)
{
    const PlannedNode &top = m_nodes.front();
    if (top.uri != m_target)
        return at(top.uri, {DmStatus::BadRequest,
                            QStringLiteral("a Replace begins with the node that it replaces, %1")
                                .arg(m_target.toDisplay())});
    const Result<TreeNode> node = m_tree->findToChange(m_target);
    if (!node)
        return node.outcome();
    for (const PlannedNode &planned : m_nodes)
        note(planned.uri, undoLog);
    if (node->isLeaf()) {
        if (Outcome replaced = m_tree->replace(m_target, top.value); !replaced)
            return at(m_target, replaced);
    } else if (Outcome replaced = replaceContents(*node, undoLog); !replaced) {
        return replaced;
    }
    if (Outcome titled = setTitle(top); !titled)
        return at(m_target, titled);
    return addFrom(1);
}

/// Deletes what is beneath the node.
Outcome TndsChange::replaceContents(const TreeNode &interior, UndoLog &undoLog)
{
    if (Outcome allowed = m_tree->mayReplaceContents(interior); !allowed)
        return at(interior.uri(), allowed);
    const std::vector<TreeNode> children = m_tree->children(interior);
    for (const TreeNode &child : children)
        if (Outcome allowed = m_tree->mayRemove(child); !allowed)
            return at(child.uri(), allowed);
    for (const TreeNode &child : children)
        note(child.uri(), undoLog);
    for (const TreeNode &child : children)
        if (Outcome removed = m_tree->remove(child.uri()); !removed)
            return at(child.uri(), removed);
    return {};
}

} // namespace client
