#include "management_tree.h"

#include <algorithm>
#include <iterator>

namespace client {

// ---- Properties by name --------------------------------------------------------------------------

namespace {

struct PropertyRow {
    Property property;
    const char *name;
    bool isReadable;
};

constexpr PropertyRow propertyRows[] = {
    {Property::Acl, "ACL", true},      {Property::Format, "Format", true},
    {Property::Name, "Name", true},    {Property::Size, "Size", false},
    {Property::Title, "Title", false}, {Property::TStamp, "TStamp", false},
    {Property::Type, "Type", true},    {Property::VerNo, "VerNo", false},
};

QString nameOf(Property property)
{
    const auto *const row =
        std::find_if(std::begin(propertyRows), std::end(propertyRows),
                     [property](const PropertyRow &entry) { return entry.property == property; });
    return QString::fromLatin1(row->name);
}

} // namespace

std::optional<Property> propertyNamed(const QString &name)
{
    for (const PropertyRow &row : propertyRows)
        if (name == QLatin1String(row.name))
            return row.property;
    return std::nullopt;
}

std::vector<QString> readableProperties()
{
    std::vector<QString> names;
    for (const PropertyRow &row : propertyRows)
        if (row.isReadable)
            names.push_back(QString::fromLatin1(row.name));
    return names;
}

// ---- Outcomes and engine paths -------------------------------------------------------------------

namespace {

constexpr char defaultLeafType[] = "text/plain";

Outcome missing(const NodeUri &uri)
{
    return {DmStatus::NotFound, QStringLiteral("no node %1").arg(uri.toDisplay())};
}

Outcome notAllowed(const NodeUri &uri, const char *rule)
{
    return {DmStatus::NotAllowed,
            QStringLiteral("%1 %2").arg(uri.toDisplay(), QString::fromLatin1(rule))};
}

Outcome alreadyThere(const NodeUri &uri)
{
    return {DmStatus::AlreadyExists, QStringLiteral("%1 is there already").arg(uri.toDisplay())};
}

Outcome unsupportedFormat(const QString &reason)
{
    return {DmStatus::UnsupportedFormat, reason};
}

Outcome outcomeOfEngineCall(int engineStatus)
{
    const DmStatus status = statusOfEngineCall(engineStatus);
    if (succeeded(status))
        return {};
    return {status, QStringLiteral("the plug-in refused it")};
}

QByteArray joinedPath(const QByteArray &parentPath, const QByteArray &name)
{
    return parentPath.isEmpty() ? name : parentPath + '/' + name;
}

/// The child's name beneath the node at the path. It is taken from the child's own path, since a
/// name can hold a slash.
QByteArray childName(const QByteArray &parentPath, const DmtNode &child)
{
    DMString path;
    child.GetPath(path);
    return QByteArray(path.text()).mid(parentPath.isEmpty() ? 0 : parentPath.size() + 1);
}

/// Whether the node has a child of that very name. The path of a child "A/B" is also the path of a
/// child B of a child A, so for such a name finding a node at the path says too little.
bool listsChild(const DmtNode &parent, const QByteArray &parentPath, const QByteArray &name)
{
    DMVector<JemSmartPtr<DmtNode>> children;
    if (parent.GetChildNodes(children) != DMT_OK)
        return false;
    return std::any_of(children.begin(), children.end(), [&](const JemSmartPtr<DmtNode> &child) {
        return childName(parentPath, *child) == name;
    });
}

bool isTreePayload(const ManagementTree::NewValue &value)
{
    return value.type.startsWith(u"application/vnd.syncml.dmtnds", Qt::CaseInsensitive);
}

const Outcome treePayloadRefused{DmStatus::UnsupportedFormat,
                                 QStringLiteral("serialised trees are not supported")};

} // namespace

signed char TreeNode::valueType() const
{
    DmtAttributes attributes;
    m_node->GetAttributes(attributes);
    return attributes.type;
}

// ---- Mounts --------------------------------------------------------------------------------------

ManagementTree::ManagementTree(const DeviceDescription &device)
    : m_device(device), m_deviceTree(DeviceTree::create(device))
{
    m_mounts.push_back({NodeUri(), m_deviceTree, Content::Permanent});
    m_properties.set(NodeUri({"DevInfo"}), {QStringLiteral("urn:oma:mo:oma-dm-devinfo:1.0")});
    m_properties.set(NodeUri({"DevDetail"}), {QStringLiteral("urn:oma:mo:oma-dm-devdetail:1.0")});
}

void ManagementTree::mount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree)
{
    m_deviceTree->addNodesAbove(root);
    m_mounts.insert(m_mounts.end() - 1, {root, tree, Content::Changeable});
}

const ManagementTree::Mount &ManagementTree::mountOf(const NodeUri &uri) const
{
    return *std::find_if(m_mounts.begin(), m_mounts.end(),
                         [&uri](const Mount &mount) { return mount.root.contains(uri); });
}

TreeNode ManagementTree::makeNode(const Mount &mount, const NodeUri &uri, const QByteArray &path,
                                  const JemSmartPtr<DmtNode> &node) const
{
    TreeNode found;
    found.m_uri = uri;
    found.m_tree = mount.tree.get();
    found.m_path = path;
    found.m_node = node;
    found.m_isChangeable = mount.content == Content::Changeable;
    found.m_isPermanent = !found.m_isChangeable || path.isEmpty();
    return found;
}

// ---- Reading -------------------------------------------------------------------------------------

Result<TreeNode> ManagementTree::find(const NodeUri &uri) const
{
    const Mount &mount = mountOf(uri);
    QByteArray path;
    JemSmartPtr<DmtNode> node;
    if (const int status = mount.tree->GetNode("", node))
        return outcomeOfEngineCall(status);
    // Every node on the way has to exist: a tree that registered A/B without A has no node A/B
    // here.
    const std::vector<QByteArray> &names = uri.names();
    for (std::size_t depth = mount.root.names().size(); depth < names.size(); ++depth) {
        const bool isReached = !names[depth].contains('/') || listsChild(*node, path, names[depth]);
        path = joinedPath(path, names[depth]);
        const int status =
            isReached ? mount.tree->GetNode(path.constData(), node) : int(DMT_NOT_FOUND);
        if (status == DMT_NOT_FOUND)
            return missing(uri);
        if (status)
            return outcomeOfEngineCall(status);
    }
    return makeNode(mount, uri, path, node);
}

std::vector<TreeNode> ManagementTree::children(const TreeNode &node) const
{
    std::vector<TreeNode> found;
    if (node.isLeaf())
        return found;
    const Mount &mount = mountOf(node.uri());
    DMVector<JemSmartPtr<DmtNode>> listed;
    node.m_node->GetChildNodes(listed);
    for (const JemSmartPtr<DmtNode> &child : listed) {
        const QByteArray name = childName(node.m_path, *child);
        found.push_back(
            makeNode(mount, node.uri().child(name), joinedPath(node.m_path, name), child));
    }
    for (const Mount &candidate : m_mounts) {
        if (candidate.root.isRoot() || candidate.root.parent() != node.uri())
            continue;
        if (const Result<TreeNode> root = find(candidate.root))
            found.push_back(*root);
    }
    return found;
}

Result<DmtData> ManagementTree::value(const TreeNode &node) const
{
    if (!node.isLeaf())
        return notAllowed(node.uri(), "is an interior node and has no value");
    DmtData value;
    if (const int status = node.m_node->GetValue(value))
        return outcomeOfEngineCall(status);
    return value;
}

QString ManagementTree::type(const TreeNode &node) const
{
    const QString given = m_properties.get(node.uri()).type;
    return given.isEmpty() && node.isLeaf() ? QString::fromLatin1(defaultLeafType) : given;
}

Result<QByteArray> ManagementTree::property(const TreeNode &node, Property property) const
{
    DmtAttributes attributes;
    node.m_node->GetAttributes(attributes);
    switch (property) {
    case Property::Acl:
        return QByteArray(attributes.acl.text.text());
    case Property::Format:
        return formatName(attributes.type).toLatin1();
    case Property::Name:
        return node.uri().name();
    case Property::Type:
        return type(node).toUtf8();
    case Property::Size:
    case Property::Title:
    case Property::TStamp:
    case Property::VerNo:
        break;
    }
    return Outcome{DmStatus::FeatureNotSupported,
                   QStringLiteral("the property %1 is not kept").arg(nameOf(property))};
}

std::map<QByteArray, DmtData> ManagementTree::leafValues(const TreeNode &interior) const
{
    std::map<QByteArray, DmtData> values;
    DmtChildValuesMap map;
    interior.m_tree->GetChildValuesMap(interior.m_path.constData(), map);
    // After a failure the map holds what was read before it; the rest is read one by one.
    for (int i = 0; i < map.size(); ++i)
        values.emplace(QByteArray(map.keys()[i].text()), map.values()[i]);
    return values;
}

std::vector<ListedNode> ManagementTree::list(const TreeNode &start, Values values) const
{
    std::vector<ListedNode> listed;
    listed.push_back({start, 0, std::nullopt});
    if (start.isLeaf() && values == Values::Read)
        listed.back().value = value(start);
    listBeneath(start, 1, values, listed);
    return listed;
}

void ManagementTree::listBeneath(const TreeNode &node, int depth, Values values,
                                 std::vector<ListedNode> &listed) const
{
    if (node.isLeaf())
        return;
    const std::map<QByteArray, DmtData> bulk =
        values == Values::Read ? leafValues(node) : std::map<QByteArray, DmtData>();
    for (const TreeNode &child : children(node)) {
        ListedNode entry{child, depth, std::nullopt};
        if (child.isLeaf() && values == Values::Read) {
            const auto known = bulk.find(child.uri().name());
            entry.value = known == bulk.end() ? value(child) : Result<DmtData>(known->second);
        }
        listed.push_back(std::move(entry));
        listBeneath(child, depth + 1, values, listed);
    }
}

// ---- Adding --------------------------------------------------------------------------------------

Result<TreeNode> ManagementTree::parentForNewNode(const NodeUri &uri) const
{
    if (uri.isRoot())
        return notAllowed(uri, "is the root");
    const Result<TreeNode> parent = find(uri.parent());
    if (!parent)
        return parent;
    if (parent->isLeaf())
        return notAllowed(parent->uri(), "is a leaf and has no children");
    if (!parent->m_isChangeable)
        return notAllowed(parent->uri(), "takes no new nodes");
    if (const Outcome name = checkNewName(uri.name(), uriLimits()); !name)
        return name;
    if (find(uri))
        return alreadyThere(uri);
    return parent;
}

Outcome ManagementTree::addLeaf(const TreeNode &parent, const QByteArray &name,
                                const DmtData &value) const
{
    JemSmartPtr<DmtNode> created;
    const QByteArray path = joinedPath(parent.m_path, name);
    return outcomeOfEngineCall(parent.m_tree->CreateLeafNode(path.constData(), created, value));
}

Outcome ManagementTree::add(const NodeUri &uri, const NewValue &value)
{
    const Result<TreeNode> parent = parentForNewNode(uri);
    if (!parent)
        return parent.outcome();
    if (isTreePayload(value))
        return treePayloadRefused;
    if (value.format.isEmpty())
        return unsupportedFormat(QStringLiteral("a new node needs a format"));
    const auto type = typeOfFormat(value.format);
    if (!type)
        return unsupportedFormat(
            QStringLiteral("no node here can have the format %1").arg(value.format));

    Outcome outcome;
    if (*type == DmtData::Node) {
        JemSmartPtr<DmtNode> created;
        const QByteArray path = joinedPath(parent->m_path, uri.name());
        outcome =
            outcomeOfEngineCall(parent->m_tree->CreateInteriorNode(path.constData(), created));
    } else {
        const Result<DmtData> data = parseValue(*type, value.data);
        if (!data)
            return data.outcome();
        outcome = addLeaf(*parent, uri.name(), *data);
    }
    if (outcome && !value.type.isEmpty())
        m_properties.set(uri, {value.type});
    return outcome;
}

// ---- Replacing values ----------------------------------------------------------------------------

namespace {

/// The value in the format of the leaf; 415 when the server gave another one.
Result<DmtData> valueForLeaf(const TreeNode &leaf, const ManagementTree::NewValue &value)
{
    if (isTreePayload(value))
        return treePayloadRefused;
    const auto leafType = static_cast<DmtData::Type>(leaf.valueType());
    if (!value.format.isEmpty() && typeOfFormat(value.format) != leafType)
        return unsupportedFormat(
            QStringLiteral("%1 has the format %2, not %3")
                .arg(leaf.uri().toDisplay(), formatName(leafType), value.format));
    return parseValue(leafType, value.data);
}

} // namespace

Outcome ManagementTree::replace(const NodeUri &uri, const NewValue &value)
{
    const Result<TreeNode> node = find(uri);
    if (!node)
        return node.outcome();
    if (!node->isLeaf())
        return notAllowed(uri, "is an interior node and has no value");
    if (!node->m_isChangeable)
        return notAllowed(uri, "is read-only");
    const Result<DmtData> data = valueForLeaf(*node, value);
    if (!data)
        return data.outcome();
    return outcomeOfEngineCall(node->m_node->SetValue(*data));
}

Outcome ManagementTree::replaceChildren(const NodeUri &uri, const std::vector<ChildValue> &values)
{
    const Result<TreeNode> parent = find(uri);
    if (!parent)
        return parent.outcome();
    DmtChildValuesMap map;
    for (const ChildValue &value : values) {
        const NodeUri childUri = uri.child(value.name);
        const Result<TreeNode> child = find(childUri);
        if (!child)
            return child.outcome();
        if (!child->isLeaf())
            return notAllowed(childUri, "is an interior node and has no value");
        if (!child->m_isChangeable)
            return notAllowed(childUri, "is read-only");
        const Result<DmtData> data = valueForLeaf(*child, {{}, {}, value.text});
        if (!data)
            return data.outcome();
        map.put(DMString(value.name.constData()), *data);
    }
    return outcomeOfEngineCall(parent->m_tree->SetChildValuesMap(parent->m_path.constData(), map));
}

// ---- Properties and names ------------------------------------------------------------------------

Outcome ManagementTree::replaceProperty(const NodeUri &uri, Property property,
                                        const QByteArray &value)
{
    const Result<TreeNode> node = find(uri);
    if (!node)
        return node.outcome();
    switch (property) {
    case Property::Name:
        return rename(*node, value);
    case Property::Format:
    case Property::Type:
        return {DmStatus::NotAllowed,
                QStringLiteral("the property %1 is read-only").arg(nameOf(property))};
    case Property::Acl:
    case Property::Size:
    case Property::Title:
    case Property::TStamp:
    case Property::VerNo:
        break;
    }
    return {DmStatus::FeatureNotSupported,
            QStringLiteral("the property %1 cannot be replaced").arg(nameOf(property))};
}

Outcome ManagementTree::rename(const TreeNode &node, const QByteArray &newName)
{
    if (node.m_isPermanent)
        return notAllowed(node.uri(), "is permanent");
    if (const Outcome name = checkNewName(newName, uriLimits()); !name)
        return name;
    const NodeUri renamed = node.uri().parent().child(newName);
    if (find(renamed))
        return alreadyThere(renamed);
    const Outcome outcome =
        outcomeOfEngineCall(node.m_tree->RenameNode(node.m_path.constData(), newName.constData()));
    // A plug-in may report a failure although its node has moved; the properties follow the node.
    if (!find(node.uri()))
        m_properties.move(node.uri(), renamed);
    return outcome;
}

// ---- Deleting, copying, executing ----------------------------------------------------------------

Outcome ManagementTree::remove(const NodeUri &uri)
{
    const Result<TreeNode> node = find(uri);
    if (!node)
        return node.outcome();
    if (node->m_isPermanent)
        return notAllowed(uri, "is permanent");
    const Outcome outcome = outcomeOfEngineCall(node->m_tree->DeleteNode(node->m_path.constData()));
    if (!find(uri))
        m_properties.remove(uri);
    return outcome;
}

Outcome ManagementTree::copy(const NodeUri &source, const NodeUri &target)
{
    const Outcome leavesOnly{DmStatus::FeatureNotSupported,
                             QStringLiteral("only leaves can be copied")};
    const Result<TreeNode> from = find(source);
    if (!from)
        return from.outcome();
    if (!from->isLeaf())
        return leavesOnly;
    const Result<TreeNode> to = find(target);
    if (!to)
        return copyToNewLeaf(*from, target);
    if (!to->isLeaf())
        return leavesOnly;
    if (!to->m_isChangeable)
        return notAllowed(target, "is read-only");
    if (to->valueType() != from->valueType())
        return unsupportedFormat(QStringLiteral("the two leaves have different formats"));
    const Result<DmtData> value = valueToCopy(*from);
    if (!value)
        return value.outcome();
    return outcomeOfEngineCall(to->m_node->SetValue(*value));
}

Outcome ManagementTree::copyToNewLeaf(const TreeNode &source, const NodeUri &target) const
{
    const Result<TreeNode> parent = parentForNewNode(target);
    if (!parent)
        return parent.outcome();
    const Result<DmtData> value = valueToCopy(source);
    if (!value)
        return value.outcome();
    return addLeaf(*parent, target.name(), *value);
}

Result<DmtData> ManagementTree::valueToCopy(const TreeNode &source) const
{
    const Result<DmtData> value = this->value(source);
    if (value && value->GetType() == DmtData::Null && source.valueType() != DmtData::Null)
        return Outcome{DmStatus::Forbidden,
                       QStringLiteral("%1 has no value").arg(source.uri().toDisplay())};
    return value;
}

Outcome ManagementTree::execute(const NodeUri &uri) const
{
    const Result<TreeNode> node = find(uri);
    return node ? notAllowed(uri, "cannot be executed") : node.outcome();
}

} // namespace client
