// What is mounted, and what is kept of the nodes.
//
// A tree is found by the longest root that the address begins with; beneath it, paths are the
// engine's. What a tree does not keep (lists, titles, time stamps, versions) is in the
// PropertyStore, and follows each change that has succeeded. Nodes that show one profile share
// their list.

#include "management_tree.h"

#include "media_type.h"
#include "node_description.h"

#include <algorithm>

namespace client {

namespace {

Outcome missing(const NodeUri &uri)
{
    return {DmStatus::NotFound, QStringLiteral("no node %1").arg(uri.toDisplay())};
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

} // namespace

signed char TreeNode::valueType() const
{
    DmtAttributes attributes;
    m_node->GetAttributes(attributes);
    return attributes.type;
}

QByteArray TreeNode::childPath(const QByteArray &name) const
{
    return m_path.isEmpty() ? name : m_path + '/' + name;
}

// ---- Mounts --------------------------------------------------------------------------------------

ManagementTree::ManagementTree(const DeviceInfo &info)
    : m_deviceInfo(info), m_deviceTree(DeviceTree::create(info))
{
    m_mounts.push_back({NodeUri(), m_deviceTree, {}, {}, {}});
}

void ManagementTree::mount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree,
                           const MountTerms &terms)
{
    m_deviceTree->addNodesAbove(root);
    Mount mount{root, tree, terms, {}, {}};
    readProfileNumbers(mount);
    m_mounts.insert(m_mounts.end() - 1, std::move(mount));
}

void ManagementTree::mountWhenNeeded(const NodeUri &root, TreeSource source,
                                     const MountTerms &terms)
{
    m_deviceTree->addNodesAbove(root);
    m_mounts.insert(m_mounts.end() - 1, {root, {}, terms, {}, {}, std::move(source)});
    ++m_unmounted;
}

std::vector<NodeUri> ManagementTree::unmountedRoots() const
{
    std::vector<NodeUri> roots;
    for (const Mount &mount : m_mounts)
        if (!mount.tree)
            roots.push_back(mount.root);
    return roots;
}

Outcome ManagementTree::need(const Mount &mount)
{
    for (auto next = m_mounts.begin(); !mount.tree; ++next) {
        if (next->tree)
            continue;
        if (m_mountFault.isEmpty()) {
            const auto tree = next->source();
            if (tree)
                mountNow(*next, *tree);
            else
                m_mountFault = tree.error();
        }
        if (!m_mountFault.isEmpty())
            return {DmStatus::DataStoreFailure, m_mountFault};
    }
    return {};
}

void ManagementTree::mountNow(Mount &mount, const JemSmartPtr<DmtTree> &tree)
{
    mount.tree = tree;
    --m_unmounted;
    readProfileNumbers(mount);
    m_properties.resolve(mount.root, profileNumbers());
    m_properties.keepOnly(
        [&](const NodeUri &node) { return !mount.root.contains(node) || exists(node); });
}

Outcome ManagementTree::needTwinsOf(const Mount &mount)
{
    if (!mount.terms.profileNumbers)
        return need(mount);
    for (const Mount &other : m_mounts)
        if (other.terms.profileNumbers)
            if (const Outcome needed = need(other); !needed)
                return needed;
    return {};
}

support::Expected<void, QString> ManagementTree::mountFor(const NodeUri &uri, Use use)
{
    for (const Mount &mount : m_mounts) {
        const bool isListed = use == Use::Read && !mount.tree && mount.root.parent() == uri;
        const bool isListedBeneath = use == Use::ReadAll && uri.contains(mount.root);
        if (!mount.root.contains(uri) && !isListed && !isListedBeneath)
            continue;
        const Outcome needed = use == Use::Read ? need(mount) : needTwinsOf(mount);
        if (!needed)
            return support::Unexpected(needed.reason);
    }
    return {};
}

void ManagementTree::remount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree,
                             const JemSmartPtr<DmtTree> &ownersTree)
{
    const auto mount = std::ranges::find(m_mounts, root, &Mount::root);
    mount->tree = tree;
    mount->terms.ownersTree = ownersTree;
    m_properties.keepOnly(
        [&](const NodeUri &node) { return !root.contains(node) || exists(node); });
}

const ManagementTree::Mount &ManagementTree::mountOf(const NodeUri &uri) const
{
    return *std::find_if(m_mounts.begin(), m_mounts.end(),
                         [&uri](const Mount &mount) { return mount.root.contains(uri); });
}

bool ManagementTree::Mount::isProfile(const NodeUri &uri) const
{
    return root.contains(uri) && uri.names().size() == root.names().size() + 1;
}

// ---- Profiles and their nodes --------------------------------------------------------------------

void ManagementTree::readProfileNumbers(Mount &mount)
{
    mount.profileNumbers.clear();
    mount.nodesByProfile.clear();
    if (!mount.terms.profileNumbers)
        return;
    const std::map<QString, quint32> numbers = mount.terms.profileNumbers();
    JemSmartPtr<DmtNode> root;
    DMVector<JemSmartPtr<DmtNode>> children;
    if (mount.tree->GetNode("", root) != DMT_OK || root->GetChildNodes(children) != DMT_OK)
        return;
    for (const JemSmartPtr<DmtNode> &child : children) {
        const QByteArray name = childName({}, *child);
        const auto number = numbers.find(QString::fromUtf8(name));
        if (number == numbers.end())
            continue;
        const NodeUri node = mount.root.child(name);
        mount.profileNumbers.emplace(node, number->second);
        mount.nodesByProfile.emplace(number->second, node);
    }
}

void ManagementTree::noteProfiles(const NodeUri &uri)
{
    const auto mount =
        std::ranges::find_if(m_mounts, [&uri](const Mount &entry) { return entry.isProfile(uri); });
    if (mount != m_mounts.end())
        readProfileNumbers(*mount);
}

PropertyStore::ProfileNumbers ManagementTree::profileNumbers() const
{
    PropertyStore::ProfileNumbers all;
    all.store = m_profileStore;
    for (const Mount &mount : m_mounts)
        all.insert(mount.profileNumbers.begin(), mount.profileNumbers.end());
    return all;
}

std::vector<NodeUri> ManagementTree::twinsOf(const NodeUri &uri)
{
    std::vector<NodeUri> twins;
    // Where it fails, nobody but the owner has found a node beneath the root.
    static_cast<void>(needTwinsOf(mountOf(uri)));
    const PropertyStore::ProfileNumbers &siblings = mountOf(uri).profileNumbers;
    const auto own = siblings.find(uri);
    if (own == siblings.end())
        return twins;
    for (const Mount &mount : m_mounts) {
        const auto [first, last] = mount.nodesByProfile.equal_range(own->second);
        for (auto entry = first; entry != last; ++entry)
            if (entry->second != uri)
                twins.push_back(entry->second);
    }
    return twins;
}

// ---- Keeping properties --------------------------------------------------------------------------

void ManagementTree::setProperties(PropertyStore properties)
{
    properties.keepOnly([this](const NodeUri &node) { return exists(node); });
    m_properties = std::move(properties);
}

support::Expected<void, QString> ManagementTree::saveProperties(const QString &file)
{
    return m_properties.save(file, profileNumbers());
}

void ManagementTree::forgetServer(const QByteArray &server)
{
    m_properties.forgetServer(server, *AccessControlList::parse(factoryRootAcl));
}

// ---- Nodes ---------------------------------------------------------------------------------------

Result<TreeNode> ManagementTree::find(const NodeUri &uri, const Principal &principal,
                                      NodesOnTheWay *way)
{
    const Mount &mount = mountOf(uri);
    if (m_unmounted > 0)
        if (Outcome needed = principal.isOwner() ? need(mount) : needTwinsOf(mount); !needed)
            return needed;
    const bool hasOwnersTree = principal.isOwner() && mount.terms.ownersTree;
    TreeNode node;
    node.m_uri = uri;
    node.m_tree = hasOwnersTree ? mount.terms.ownersTree.get() : mount.tree.get();
    node.m_isChangeable = mount.isChangeable();
    if (const int status = node.m_tree->GetNode("", node.m_node))
        return outcomeOfEngineCall(status);
    if (way)
        way->push_back(node.m_node);
    // Every node on the way has to exist: a tree that registered A/B without A has no node A/B
    // here.
    const std::vector<QByteArray> &names = uri.names();
    for (std::size_t depth = mount.root.names().size(); depth < names.size(); ++depth) {
        if (names[depth].contains('/'))
            return listsChild(*node.m_node, node.m_path, names[depth])
                       ? notAllowed(uri, "has a slash in a name, and such a node is only listed")
                       : missing(uri);
        if (!node.m_path.isEmpty())
            node.m_path += '/';
        node.m_path += names[depth];
        const int status = node.m_tree->GetNode(node.m_path.constData(), node.m_node);
        if (status == DMT_NOT_FOUND)
            return missing(uri);
        if (status)
            return outcomeOfEngineCall(status);
        if (way)
            way->push_back(node.m_node);
    }
    return node;
}

bool ManagementTree::exists(const NodeUri &uri)
{
    return bool(find(uri, Principal::owner()));
}

std::optional<NodeUri> ManagementTree::objectOf(const NodeUri &uri) const
{
    const Mount &mount = mountOf(uri);
    if (!mount.isChangeable() || mount.root == uri)
        return std::nullopt;
    return mount.root.child(uri.names()[mount.root.names().size()]);
}

std::vector<TreeNode> ManagementTree::children(const TreeNode &node, const Principal &principal)
{
    std::vector<TreeNode> found;
    if (node.isLeaf() || node.isOnlyListed())
        return found;
    DMVector<JemSmartPtr<DmtNode>> listed;
    node.m_node->GetChildNodes(listed);
    for (const JemSmartPtr<DmtNode> &child : listed) {
        const QByteArray name = childName(node.m_path, *child);
        TreeNode &added = found.emplace_back();
        added.m_uri = node.uri().child(name);
        added.m_tree = node.m_tree;
        added.m_path = node.childPath(name);
        added.m_node = child;
        added.m_isChangeable = node.m_isChangeable;
    }
    for (const Mount &mount : m_mounts)
        if (!mount.root.isRoot() && mount.root.parent() == node.uri())
            if (const Result<TreeNode> root = find(mount.root, principal))
                found.push_back(*root);
    return found;
}

QString ManagementTree::type(const TreeNode &node) const
{
    const QString given = m_properties.get(node.uri()).type;
    if (!given.isEmpty())
        return given;
    static const QString plainText = QString::fromLatin1(syncml::media_type::plainText);
    const NodeDescription *const description = descriptionOf(node.uri());
    if (!description)
        return node.isLeaf() ? plainText : QString();
    return plainText == QLatin1String(description->type) ? plainText
                                                         : QString::fromLatin1(description->type);
}

// ---- Access control ------------------------------------------------------------------------------

AccessControlList ManagementTree::ownAcl(const TreeNode &node)
{
    return ownAcl(mountOf(node.uri()), node.uri(), *node.m_node);
}

AccessControlList ManagementTree::ownAcl(const Mount &mount, const NodeUri &uri,
                                         const DmtNode &node)
{
    if (const auto &kept = m_properties.get(uri).acl)
        return *kept;
    if (mount.root == uri && !mount.terms.acl.isEmpty())
        return mount.terms.acl;
    if (mount.isProfile(uri)) {
        if (const auto shared = aclOfTwin(uri))
            return *shared;
        if (!mount.terms.profileAcl.isEmpty())
            return mount.terms.profileAcl;
    }
    DmtAttributes attributes;
    node.GetAttributes(attributes);
    // A malformed list of the tree's own says nothing, and the node inherits.
    const auto own = AccessControlList::parse(QByteArray(attributes.acl.text.text()));
    return own ? *own : AccessControlList();
}

std::optional<AccessControlList> ManagementTree::aclOfTwin(const NodeUri &uri)
{
    for (const NodeUri &twin : twinsOf(uri))
        if (const auto &kept = m_properties.get(twin).acl)
            return kept;
    return std::nullopt;
}

void ManagementTree::handOnAcl(const std::optional<AccessControlList> &acl,
                               const std::vector<NodeUri> &twins)
{
    if (!acl)
        return;
    for (const NodeUri &twin : twins) {
        PropertyStore::Properties properties = m_properties.get(twin);
        if (properties.acl)
            continue;
        properties.acl = acl;
        m_properties.set(twin, std::move(properties));
    }
}

ManagementTree::EffectiveAcl ManagementTree::effectiveAcl(const NodeUri &uri)
{
    const Mount &mount = mountOf(uri);
    NodesOnTheWay way;
    static_cast<void>(find(uri, Principal::owner(), &way)); // a node that is missing has no list
    for (std::size_t depth = way.size(); depth-- > 0;) {
        const NodeUri holder = uri.ancestor(mount.root.names().size() + depth);
        AccessControlList own = ownAcl(mount, holder, *way[depth]);
        if (!own.isEmpty())
            return {holder, std::move(own)};
    }
    return mount.root.isRoot() ? EffectiveAcl() : effectiveAcl(mount.root.parent());
}

// ---- Changes -------------------------------------------------------------------------------------

void ManagementTree::noteNewNode(const TreeNode &parent, const NodeUri &uri, const QString &type,
                                 const std::optional<AccessControlList> &acl)
{
    // A plug-in may keep the node although it refused the node's value.
    if (!exists(uri))
        return;
    noteProfiles(uri);
    // A profile that another node shows already stays with whoever has made it his own.
    m_properties.set(uri, {.type = type,
                           .title = {},
                           .acl = aclOfTwin(uri) ? std::nullopt : acl,
                           .changed = m_clock(),
                           .version = 0});
    touch(parent.uri());
}

void ManagementTree::touch(const NodeUri &uri)
{
    m_properties.noteChange(uri, m_clock());
}

} // namespace client
