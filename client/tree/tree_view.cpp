// What the commands of a DM server do to the tree, on behalf of somebody.
//
// An operation looks at the same things in the same order, so that a refusal says the first thing
// that is wrong: the form of the address (414, 404), whether the node exists (404), what the node
// takes from anybody (405), the rights of the principal (425), a target that exists already (418),
// the format and type (415). Only then is the tree asked that the node belongs to, which is a
// plug-in's or the client's own, and has the last word.
//
// Nothing here is undone: that is the undo log's, by the same operations.

#include "tree_view.h"

#include "answer_size.h"
#include "media_type.h"
#include "node_description.h"
#include "secret_leaf.h"
#include "tree_change.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace client {

// ---- Properties by name --------------------------------------------------------------------------

namespace {

/// In the order of Property.
constexpr QStringView propertyTexts[] = {u"ACL",   u"Format", u"Name", u"Size",
                                         u"Title", u"TStamp", u"Type", u"VerNo"};

} // namespace

QString nameOf(Property property)
{
    return propertyTexts[static_cast<std::size_t>(property)].toString();
}

std::optional<Property> propertyNamed(const QString &name)
{
    const auto *const found = std::find(std::begin(propertyTexts), std::end(propertyTexts), name);
    if (found == std::end(propertyTexts))
        return std::nullopt;
    return static_cast<Property>(found - std::begin(propertyTexts));
}

bool isReplaceable(Property property)
{
    return property == Property::Acl || property == Property::Name || property == Property::Title;
}

std::vector<QString> propertyNames()
{
    std::vector<QString> names;
    for (const QStringView text : propertyTexts)
        names.push_back(text.toString());
    return names;
}

// ---- Outcomes ------------------------------------------------------------------------------------

namespace {

Outcome alreadyThere(const NodeUri &uri)
{
    return {DmStatus::AlreadyExists, QStringLiteral("%1 is there already").arg(uri.toDisplay())};
}

/// Whether the device takes the command on that node from anybody at all.
bool hasAccessType(const NodeUri &uri, AccessType access)
{
    const NodeDescription *const description = descriptionOf(uri);
    return !description || (description->access & access) != 0;
}

Outcome tooLong(const char *property, qsizetype limit)
{
    return {
        DmStatus::TooLarge,
        QStringLiteral("%1 of more than %2 bytes").arg(QString::fromLatin1(property)).arg(limit)};
}

const Outcome treePayloadRefused =
    unsupportedFormat(QStringLiteral("serialised trees are not supported"));

} // namespace

// ---- Reading -------------------------------------------------------------------------------------

Result<TreeNode> TreeView::find(const NodeUri &uri) const
{
    return m_tree->find(uri, m_principal);
}

Result<TreeNode> TreeView::findToChange(const NodeUri &uri) const
{
    if (Outcome needed = m_tree->needTwinsOf(m_tree->mountOf(uri)); !needed)
        return needed;
    return find(uri);
}

Result<TreeNode> TreeView::findToRead(const NodeUri &uri) const
{
    static const NodeUri inbox = nodeAt(inboxAddress);
    return inbox.contains(uri) ? Result<TreeNode>(notAllowed(uri, "cannot be read")) : find(uri);
}

std::vector<TreeNode> TreeView::children(const TreeNode &node) const
{
    return m_tree->children(node, m_principal);
}

Outcome TreeView::mayGet(const TreeNode &node) const
{
    return permit(Right::Get, node);
}

Result<DmtData> TreeView::value(const TreeNode &node) const
{
    if (!node.isLeaf())
        return notAllowed(node.uri(), "is an interior node and has no value");
    if (node.isOnlyListed() || !hasAccessType(node.uri(), AccessGet))
        return notAllowed(node.uri(), "cannot be read");
    if (const Outcome right = permit(Right::Get, node); !right)
        return right;
    DmtData value;
    if (const int status = node.m_node->GetValue(value))
        return outcomeOfEngineCall(status);
    return value;
}

Result<QByteArray> TreeView::property(const TreeNode &node, Property property) const
{
    if (property == Property::Size && !node.isLeaf())
        return Outcome{
            DmStatus::FeatureNotSupported,
            QStringLiteral("%1 is an interior node and has no size").arg(node.uri().toDisplay())};
    if (const Outcome right = permit(Right::Get, node); !right)
        return right;
    const bool isKept =
        property != Property::Format && property != Property::Name && property != Property::Size;
    if (isKept && !m_tree->m_propertiesFault.isEmpty())
        return Outcome{DmStatus::DataStoreFailure, m_tree->m_propertiesFault};
    const PropertyStore::Properties &kept = m_tree->m_properties.get(node.uri());
    DmtAttributes attributes;
    node.m_node->GetAttributes(attributes);
    switch (property) {
    case Property::Acl:
        if (Outcome needed = m_tree->needTwinsOf(m_tree->mountOf(node.uri())); !needed)
            return needed;
        return m_tree->ownAcl(node).toText();
    case Property::Format:
        return formatName(attributes.type).toLatin1();
    case Property::Name:
        return node.uri().name();
    case Property::Size: {
        const Result<DmtData> value = this->value(node);
        if (!value)
            return value.outcome();
        return QByteArray::number(valueBytes(*value).size());
    }
    case Property::Title:
        return kept.title.isEmpty() ? QByteArray(attributes.title.text()) : kept.title;
    case Property::TStamp:
        return kept.changed.toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")).toLatin1();
    case Property::Type:
        return type(node).toUtf8();
    case Property::VerNo:
        break;
    }
    return QByteArray::number(kept.version);
}

std::map<QByteArray, DmtData> TreeView::leafValues(const TreeNode &interior)
{
    std::map<QByteArray, DmtData> values;
    DmtChildValuesMap map;
    interior.m_tree->GetChildValuesMap(interior.path().constData(), map);
    // After a failure the map holds what was read before it; the rest is read one by one.
    for (int i = 0; i < map.size(); ++i)
        values.emplace(QByteArray(map.keys()[i].text()), map.values()[i]);
    return values;
}

/// A listing that is being made, and what may still be added.
class TreeView::Listing {
public:
    explicit Listing(qsizetype room) : m_room(room) {}

    void add(ListedNode node)
    {
        m_room -= bytesBesideTexts + node.node.uri().toUri().size();
        if (node.value && *node.value)
            m_room -= valueText(**node.value).size();
        if (!isFull())
            m_nodes.push_back(std::move(node));
    }
    bool isFull() const { return m_room < 0; }
    qsizetype room() const { return std::max<qsizetype>(m_room, 0); }
    std::vector<ListedNode> &nodes() { return m_nodes; }

private:
    std::vector<ListedNode> m_nodes;
    qsizetype m_room;
};

std::vector<ListedNode> TreeView::list(const TreeNode &start, Values values) const
{
    qsizetype room = std::numeric_limits<qsizetype>::max();
    return *list(start, values, room);
}

std::optional<std::vector<ListedNode>> TreeView::list(const TreeNode &start, Values values,
                                                      qsizetype &room) const
{
    Listing listing(room);
    const AccessControlList acl = m_tree->effectiveAcl(start).acl;
    if (acl.permits(Right::Get, m_principal)) {
        ListedNode top{start, 0, std::nullopt};
        if (start.isLeaf() && values == Values::Read)
            top.value = value(start);
        listing.add(std::move(top));
    }
    listBeneath(start, acl, 1, values, listing);
    room = listing.room();
    return listing.isFull() ? std::nullopt : std::optional(std::move(listing.nodes()));
}

void TreeView::listBeneath(const TreeNode &node, const AccessControlList &acl, int depth,
                           Values values, Listing &listing) const
{
    if (node.isLeaf() || node.isOnlyListed() || listing.isFull())
        return;
    const std::map<QByteArray, DmtData> bulk =
        values == Values::Read ? leafValues(node) : std::map<QByteArray, DmtData>();
    for (const TreeNode &child : children(node)) {
        if (listing.isFull())
            return;
        const AccessControlList own = m_tree->ownAcl(child);
        const AccessControlList &childAcl = own.isEmpty() ? acl : own;
        ListedNode entry{child, depth, std::nullopt};
        if (child.isLeaf() && values == Values::Read) {
            const auto known = bulk.find(child.uri().name());
            entry.value = known == bulk.end() || child.isOnlyListed()
                              ? value(child)
                              : Result<DmtData>(known->second);
        }
        if (childAcl.permits(Right::Get, m_principal))
            listing.add(std::move(entry));
        listBeneath(child, childAcl, depth + 1, values, listing);
    }
}

// ---- Access control ------------------------------------------------------------------------------

Outcome TreeView::permit(Right right, const TreeNode &node, const char *elsewhere) const
{
    if (m_principal.isOwner())
        return {};
    return permit(right, node.uri(), m_tree->effectiveAcl(node), elsewhere);
}

Outcome TreeView::permitOnParent(Right right, const NodeUri &uri) const
{
    if (m_principal.isOwner())
        return {};
    const NodeUri parent = uri.parent();
    return permit(right, parent, m_tree->effectiveAcl(parent.joinedNames()));
}

Outcome TreeView::permit(Right right, const NodeUri &uri,
                         const ManagementTree::EffectiveAcl &effective, const char *elsewhere) const
{
    if (effective.acl.permits(right, m_principal))
        return {};
    return {DmStatus::PermissionDenied,
            QStringLiteral("%1 needs %2 on %3%4, and the ACL of %5 is \"%6\"")
                .arg(m_principal.toDisplay(), QString::fromLatin1(nameOf(right)), uri.toDisplay(),
                     QString::fromLatin1(elsewhere),
                     NodeUri::fromJoinedNames(effective.holder.toByteArray()).toDisplay(),
                     QString::fromUtf8(effective.acl.toText()))};
}

Outcome TreeView::permitReplace(const TreeNode &leaf) const
{
    if (!leaf.isLeaf())
        return notAllowed(leaf.uri(), "is an interior node and has no value");
    if (!leaf.m_isChangeable || !hasAccessType(leaf.uri(), AccessReplace))
        return notAllowed(leaf.uri(), "is read-only");
    return permit(Right::Replace, leaf);
}

/// The list of a leaf belongs to its parent, that of an interior node to itself and its parent.
Outcome TreeView::permitAclChange(const TreeNode &node) const
{
    const NodeUri &uri = node.uri();
    if (uri.isRoot())
        return m_principal.isOwner() ? Outcome()
                                     : notAllowed(uri, "keeps the ACL that the device gave it");
    const Outcome ofParent = permitOnParent(Right::Replace, uri);
    return node.isLeaf() || ofParent ? ofParent : permit(Right::Replace, node, " or on its parent");
}

std::optional<AccessControlList> TreeView::aclForNewInterior(const TreeNode &parent) const
{
    // No list can name a server without an account: what it adds belongs to it no more than to any
    // other.
    const std::optional<QByteArray> creator = m_principal.serverId();
    if (!creator)
        return std::nullopt;
    const AccessControlList inherited = m_tree->effectiveAcl(parent).acl;
    if (inherited.permits(Right::Replace, m_principal))
        return std::nullopt;
    AccessControlList acl;
    for (const QByteArray &server : inherited.servers(Right::Get))
        acl.grant(Right::Get, server);
    for (const Right right : {Right::Add, Right::Delete, Right::Get, Right::Replace})
        acl.grant(right, *creator);
    return acl;
}

// ---- Changes, observed ---------------------------------------------------------------------------

std::optional<NodeUri> TreeChange::renamedTo() const
{
    if (kind != Kind::ReplaceProperty || property != Property::Name || node.isRoot() || !outcome ||
        !value.data)
        return std::nullopt;
    return node.parent().child(*value.data);
}

template <class Operation, class Describe>
Outcome TreeView::observed(Operation operation, Describe describe)
{
    ChangeObserver *const observer = m_tree->changeObserver();
    if (!observer)
        return operation();
    TreeChange change = describe();
    observer->beforeChange(change.node);
    change.principal = m_principal;
    change.outcome = operation();
    observer->changed(change);
    return change.outcome;
}

Outcome TreeView::add(const NodeUri &uri, const NewValue &value)
{
    return observed(
        [&] { return addNode(uri, value); },
        [&] { return TreeChange{.kind = TreeChange::Kind::Add, .node = uri, .value = value}; });
}

Outcome TreeView::replace(const NodeUri &uri, const NewValue &value)
{
    return observed(
        [&] { return replaceValue(uri, value); },
        [&] { return TreeChange{.kind = TreeChange::Kind::Replace, .node = uri, .value = value}; });
}

Outcome TreeView::replaceChildren(const NodeUri &uri, const std::vector<ChildValue> &values)
{
    return observed([&] { return replaceValues(uri, values); },
                    [&] {
                        return TreeChange{.kind = TreeChange::Kind::ReplaceChildren,
                                          .node = uri,
                                          .children = values};
                    });
}

Outcome TreeView::replaceProperty(const NodeUri &uri, Property property, const QByteArray &value)
{
    return observed([&] { return replacePropertyOf(uri, property, value); },
                    [&] {
                        return TreeChange{.kind = TreeChange::Kind::ReplaceProperty,
                                          .node = uri,
                                          .property = property,
                                          .value = {{}, {}, value}};
                    });
}

Outcome TreeView::remove(const NodeUri &uri)
{
    return observed([&] { return removeNode(uri); },
                    [&] { return TreeChange{.kind = TreeChange::Kind::Remove, .node = uri}; });
}

Outcome TreeView::copy(const NodeUri &source, const NodeUri &target)
{
    return observed([&] { return copyLeaf(source, target); },
                    [&] {
                        return TreeChange{
                            .kind = TreeChange::Kind::Copy, .node = target, .source = source};
                    });
}

// ---- Adding --------------------------------------------------------------------------------------

Result<TreeNode> TreeView::parentForNewNode(const NodeUri &uri) const
{
    if (uri.isRoot())
        return notAllowed(uri, "is the root");
    const Result<TreeNode> parent = findToChange(uri.parent());
    if (!parent)
        return parent;
    if (parent->isLeaf())
        return notAllowed(parent->uri(), "is a leaf and has no children");
    if (!parent->m_isChangeable || !hasAccessType(parent->uri(), AccessAdd))
        return notAllowed(parent->uri(), "takes no new nodes");
    if (const Outcome name = checkNewName(uri.name(), uriLimits()); !name)
        return name;
    if (const Outcome right = permit(Right::Add, *parent); !right)
        return right;
    if (find(uri))
        return alreadyThere(uri);
    return parent;
}

namespace {

/// 415 for a type that the leaf does not have.
Outcome checkType(const QString &leafType, const QString &given)
{
    if (given.isEmpty() || syncml::withoutParameters(given) == syncml::withoutParameters(leafType))
        return {};
    return unsupportedFormat(QStringLiteral("the type is %1, not %2").arg(leafType, given));
}

} // namespace

Outcome TreeView::addNode(const NodeUri &uri, const NewValue &value)
{
    const Result<TreeNode> parent = parentForNewNode(uri);
    if (!parent)
        return parent.outcome();
    if (syncml::isSerialisedTree(value.type))
        return treePayloadRefused;
    if (value.format.isEmpty())
        return unsupportedFormat(QStringLiteral("a new node needs a format"));
    const auto type = typeOfFormat(value.format);
    if (!type)
        return unsupportedFormat(
            QStringLiteral("no node here can have the format %1").arg(value.format));

    const bool isLeaf = *type != DmtData::Node;
    const NodeDescription *const description = descriptionOf(uri);
    if (description && isLeaf)
        if (const Outcome allowed = checkType(QString::fromLatin1(description->type), value.type);
            !allowed)
            return allowed;

    PropertyStore::Properties properties;
    properties.type = value.type;
    if (!isLeaf)
        properties.acl = aclForNewInterior(*parent);
    if (const Outcome room = canKeep(uri, properties); !room)
        return room;

    const QByteArray path = parent->childPath(uri.name());
    JemSmartPtr<DmtNode> created;
    int status = 0;
    if (isLeaf) {
        const Result<DmtData> data = parseValue(*type, value.data);
        if (!data)
            return data.outcome();
        tellOfSecret(isSecretLeaf(uri.name()), *data);
        status = parent->m_tree->CreateLeafNode(path.constData(), created, *data);
    } else {
        status = parent->m_tree->CreateInteriorNode(path.constData(), created);
    }
    m_tree->noteNewNode(*parent, uri, properties.type, properties.acl);
    return outcomeOfEngineCall(status);
}

// ---- Replacing values ----------------------------------------------------------------------------

namespace {

/// The value in the format of the leaf; 415 when the server gave another one.
Result<DmtData> valueForLeaf(const TreeNode &leaf, const TreeView::NewValue &value)
{
    if (syncml::isSerialisedTree(value.type))
        return treePayloadRefused;
    const auto leafType = static_cast<DmtData::Type>(leaf.valueType());
    if (!value.format.isEmpty() && typeOfFormat(value.format) != leafType)
        return unsupportedFormat(
            QStringLiteral("%1 has the format %2, not %3")
                .arg(leaf.uri().toDisplay(), formatName(leafType), value.format));
    return parseValue(leafType, value.data);
}

} // namespace

void TreeView::tellOfSecret(bool isSecret, const DmtData &value) const
{
    if (CommandWatch *const watch = m_tree->commandWatch(); watch && isSecret)
        watch->secretIsWritten(valueBytes(value));
}

Outcome TreeView::replaceValue(const NodeUri &uri, const NewValue &value)
{
    const Result<TreeNode> node = findToChange(uri);
    if (!node)
        return node.outcome();
    if (!node->isLeaf() && syncml::isSerialisedTree(value.type))
        return treePayloadRefused;
    if (const Outcome right = permitReplace(*node); !right)
        return right;
    const Result<DmtData> data = valueForLeaf(*node, value);
    if (!data)
        return data.outcome();
    if (const Outcome allowed = checkType(type(*node), value.type); !allowed)
        return allowed;
    tellOfSecret(isSecretLeaf(uri.name()), *data);
    const Outcome outcome = outcomeOfEngineCall(node->m_node->SetValue(*data));
    if (outcome)
        m_tree->touch(uri);
    return outcome;
}

Outcome TreeView::mayReplaceContents(const TreeNode &interior) const
{
    if (!interior.m_isChangeable || !hasAccessType(interior.uri(), AccessReplace))
        return notAllowed(interior.uri(), "cannot be replaced");
    return permit(Right::Replace, interior);
}

Outcome TreeView::replaceValues(const NodeUri &uri, const std::vector<ChildValue> &values)
{
    const Result<TreeNode> parent = findToChange(uri);
    if (!parent)
        return parent.outcome();
    DmtChildValuesMap map;
    for (const ChildValue &value : values) {
        const Result<TreeNode> child = find(uri.child(value.name));
        if (!child)
            return child.outcome();
        if (const Outcome right = permitReplace(*child); !right)
            return right;
        const Result<DmtData> data = valueForLeaf(*child, {{}, {}, value.text});
        if (!data)
            return data.outcome();
        tellOfSecret(isSecretLeaf(value.name), *data);
        map.put(DMString(value.name.constData()), *data);
    }
    const Outcome outcome =
        outcomeOfEngineCall(parent->m_tree->SetChildValuesMap(parent->path().constData(), map));
    // After a failure nobody knows which of them have changed.
    for (const ChildValue &value : values)
        m_tree->touch(uri.child(value.name));
    return outcome;
}

// ---- Properties and names ------------------------------------------------------------------------

Outcome TreeView::replacePropertyOf(const NodeUri &uri, Property property, const QByteArray &value)
{
    const Result<TreeNode> node = findToChange(uri);
    if (!node)
        return node.outcome();
    if (!isReplaceable(property))
        return {DmStatus::NotAllowed,
                QStringLiteral("the property %1 is read-only").arg(nameOf(property))};
    if (property == Property::Acl)
        return replaceAcl(*node, value);
    return property == Property::Name ? rename(*node, value) : replaceTitle(*node, value);
}

Outcome TreeView::replaceAcl(const TreeNode &node, const QByteArray &text)
{
    if (const Outcome right = permitAclChange(node); !right)
        return right;
    if (text.size() > PropertyStore::longestAcl)
        return tooLong("an ACL", PropertyStore::longestAcl);
    const auto acl = AccessControlList::parse(text);
    if (!acl)
        return {DmStatus::CommandFailed, QStringLiteral("malformed ACL: %1").arg(acl.error())};
    if (node.uri().isRoot() && acl->isEmpty())
        return {DmStatus::CommandFailed, QStringLiteral("the root always has an ACL")};
    PropertyStore::Properties properties = m_tree->m_properties.get(node.uri());
    properties.acl = *acl;
    return keep(node.uri(), std::move(properties));
}

Outcome TreeView::replaceTitle(const TreeNode &node, const QByteArray &title)
{
    if (const Outcome right = permit(Right::Replace, node); !right)
        return right;
    if (title.size() > PropertyStore::longestTitle)
        return tooLong("a title", PropertyStore::longestTitle);
    if (const Result<DmtData> text = parseValue(DmtData::String, title); !text)
        return text.outcome();
    PropertyStore::Properties properties = m_tree->m_properties.get(node.uri());
    properties.title = title;
    return keep(node.uri(), std::move(properties));
}

Outcome TreeView::canKeep(const NodeUri &uri, const PropertyStore::Properties &properties) const
{
    if (properties.type.toUtf8().size() > PropertyStore::longestType)
        return tooLong("a type", PropertyStore::longestType);
    if (properties.acl && properties.acl->toText().size() > PropertyStore::longestAcl)
        return tooLong("an ACL", PropertyStore::longestAcl);
    if (!m_tree->m_properties.hasRoomFor(uri, properties))
        return {DmStatus::StoreFull, QStringLiteral("the nodes have too many properties")};
    return {};
}

Outcome TreeView::keep(const NodeUri &uri, PropertyStore::Properties properties)
{
    if (!m_tree->m_propertiesFault.isEmpty())
        return {DmStatus::DataStoreFailure, m_tree->m_propertiesFault};
    if (const Outcome room = canKeep(uri, properties); !room)
        return room;
    m_tree->m_properties.set(uri, std::move(properties));
    m_tree->touch(uri);
    return {};
}

Outcome TreeView::mayRename(const TreeNode &node) const
{
    if (node.isPermanent())
        return notAllowed(node.uri(), "is permanent");
    const NodeDescription *const description = descriptionOf(node.uri());
    const bool hasFixedName = description && description->name[0] != '\0';
    if (hasFixedName || !hasAccessType(node.uri(), AccessReplace))
        return notAllowed(node.uri(), "keeps its name");
    return permit(Right::Replace, node);
}

Outcome TreeView::rename(const TreeNode &node, const QByteArray &newName)
{
    if (const Outcome allowed = mayRename(node); !allowed)
        return allowed;
    if (const Outcome name = checkNewName(newName, uriLimits()); !name)
        return name;
    const NodeUri renamed = node.uri().parent().child(newName);
    if (find(renamed))
        return alreadyThere(renamed);
    const Outcome outcome =
        outcomeOfEngineCall(node.m_tree->RenameNode(node.path().constData(), newName.constData()));
    // A plug-in may report a failure although its node has moved; the properties follow the node.
    if (!find(node.uri())) {
        m_tree->noteProfiles(renamed);
        m_tree->m_properties.move(node.uri(), renamed);
        m_tree->touch(renamed);
        m_tree->touch(renamed.parent());
    }
    return outcome;
}

// ---- Deleting, copying, executing ----------------------------------------------------------------

Outcome TreeView::mayRemove(const TreeNode &node) const
{
    if (node.isPermanent())
        return notAllowed(node.uri(), "is permanent");
    if (!hasAccessType(node.uri(), AccessDelete))
        return notAllowed(node.uri(), "cannot be deleted");
    return permit(Right::Delete, node);
}

Outcome TreeView::removeNode(const NodeUri &uri)
{
    const Result<TreeNode> node = findToChange(uri);
    if (!node)
        return node.outcome();
    if (const Outcome allowed = mayRemove(*node); !allowed)
        return allowed;
    const std::vector<NodeUri> twins = m_tree->twinsOf(uri);
    const Outcome outcome = outcomeOfEngineCall(node->m_tree->DeleteNode(node->path().constData()));
    if (!find(uri)) {
        m_tree->noteProfiles(uri);
        m_tree->handOnAcl(m_tree->m_properties.get(uri).acl, twins);
        m_tree->m_properties.remove(uri);
        m_tree->touch(uri.parent());
    }
    return outcome;
}

Outcome TreeView::copyLeaf(const NodeUri &source, const NodeUri &target)
{
    const Outcome leavesOnly{DmStatus::FeatureNotSupported,
                             QStringLiteral("only leaves can be copied")};
    const Result<TreeNode> from = find(source);
    if (!from)
        return from.outcome();
    if (!from->isLeaf())
        return leavesOnly;
    const Result<TreeNode> to = findToChange(target);
    if (!to)
        return copyToNewLeaf(*from, target);
    if (!to->isLeaf())
        return leavesOnly;
    if (!to->m_isChangeable || !hasAccessType(target, AccessReplace))
        return notAllowed(target, "is read-only");
    if (!hasAccessType(source, AccessGet))
        return notAllowed(source, "cannot be read");
    if (const Outcome get = permit(Right::Get, *from); !get)
        return get;
    if (const Outcome replace = permit(Right::Replace, *to); !replace)
        return replace;
    if (to->valueType() != from->valueType())
        return unsupportedFormat(QStringLiteral("the two leaves have different formats"));
    const Result<DmtData> value = valueToCopy(*from);
    if (!value)
        return value.outcome();
    tellOfSecret(isSecretLeaf(source.name()) || isSecretLeaf(target.name()), *value);
    const Outcome outcome = outcomeOfEngineCall(to->m_node->SetValue(*value));
    if (outcome)
        m_tree->touch(target);
    return outcome;
}

Outcome TreeView::copyToNewLeaf(const TreeNode &source, const NodeUri &target)
{
    const Result<TreeNode> parent = parentForNewNode(target);
    if (!parent)
        return parent.outcome();
    const Result<DmtData> value = valueToCopy(source);
    if (!value)
        return value.outcome();
    tellOfSecret(isSecretLeaf(source.uri().name()) || isSecretLeaf(target.name()), *value);
    const QByteArray path = parent->childPath(target.name());
    JemSmartPtr<DmtNode> created;
    const int status = parent->m_tree->CreateLeafNode(path.constData(), created, *value);
    m_tree->noteNewNode(*parent, target, m_tree->m_properties.get(source.uri()).type, std::nullopt);
    return outcomeOfEngineCall(status);
}

Result<DmtData> TreeView::valueToCopy(const TreeNode &source) const
{
    const Result<DmtData> value = this->value(source);
    if (value && value->GetType() == DmtData::Null && source.valueType() != DmtData::Null)
        return Outcome{DmStatus::Forbidden,
                       QStringLiteral("%1 has no value").arg(source.uri().toDisplay())};
    return value;
}

namespace {

constexpr char cannotBeExecuted[] = "cannot be executed";

} // namespace

Result<TreeNode> TreeView::findToExecute(const NodeUri &uri) const
{
    Result<TreeNode> node = findToChange(uri);
    if (!node)
        return node;
    if (!node->m_isChangeable || !hasAccessType(uri, AccessExec))
        return notAllowed(uri, cannotBeExecuted);
    if (Outcome right = permit(Right::Exec, *node); !right)
        return right;
    return node;
}

Outcome TreeView::mayExecute(const NodeUri &uri) const
{
    return findToExecute(uri).outcome();
}

Outcome TreeView::execute(const NodeUri &uri, const QByteArray &argument)
{
    const Result<TreeNode> node = findToExecute(uri);
    if (!node)
        return node.outcome();
    DMString result; // the protocol has no way to send it
    const int status = node->m_node->Execute(argument.constData(), result);
    m_tree->forgetMissing(m_tree->mountOf(uri).root);
    return status == DMT_NOT_ALLOWED ? notAllowed(uri, cannotBeExecuted)
                                     : outcomeOfEngineCall(status);
}

} // namespace client
