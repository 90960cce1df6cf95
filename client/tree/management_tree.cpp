// What is mounted, and what is kept of the nodes.
//
// A tree is found by the longest root that the address begins with; beneath it, paths are the
// engine's. What a tree does not keep (lists, titles, time stamps, versions) is in the
// PropertyStore, and follows each change that has succeeded. Nodes that show one profile share
// their list.

#include "management_tree.h"

#include "media_type.h"
#include "node_description.h"

#include <QVarLengthArray>
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
bool listsChild(const DmtNode &parent, const QByteArray &parentPath, QByteArrayView name)
{
    DMVector<JemSmartPtr<DmtNode>> children;
    if (parent.GetChildNodes(children) != DMT_OK)
        return false;
    return std::any_of(children.begin(), children.end(), [&](const JemSmartPtr<DmtNode> &child) {
        return childName(parentPath, *child) == name;
    });
}

bool hasSlash(QByteArrayView text)
{
    return std::ranges::find(text, '/') != text.end();
}

bool isSame(QByteArrayView left, QByteArrayView right)
{
    return std::ranges::equal(left, right);
}

/// A path in a tree, which grows or shrinks by a name at a time.
class EnginePath {
public:
    /// Only the first of the names is in the path.
    /// @param joinedNames  of a node, beneath the root of the tree
    explicit EnginePath(QByteArrayView joinedNames) : m_text(joinedNames.size() + 1)
    {
        *std::ranges::copy(joinedNames, m_text.begin()).out = '\0';
    }

    const char *text() const { return m_text.data(); }
    /// Takes the next name into the path, which ends there so far.
    void growAt(qsizetype size) { m_text[size] = '/'; }
    void growToEnd() { std::replace(m_text.begin(), m_text.end() - 1, '\0', '/'); }
    void cutAt(qsizetype size) { m_text[size] = '\0'; }

private:
    static_assert(NodeUri::separator == '\0');

    QVarLengthArray<char, 256> m_text;
};

} // namespace

signed char TreeNode::valueType() const
{
    DmtAttributes attributes;
    m_node->GetAttributes(attributes);
    return attributes.type;
}

bool TreeNode::isOnlyListed() const
{
    const QByteArrayView names = m_uri.joinedNames();
    return !names.isEmpty() && hasSlash(names.sliced(NodeUri::above(names).size()));
}

QByteArray TreeNode::path() const
{
    QByteArray path = m_uri.joinedNames().sliced(m_pathBegin).toByteArray();
    path.replace(NodeUri::separator, '/');
    return path;
}

QByteArray TreeNode::childPath(const QByteArray &name) const
{
    return isTop() ? name : path() + '/' + name;
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
                                     const MountTerms &terms, int group)
{
    m_deviceTree->addNodesAbove(root);
    m_mounts.insert(m_mounts.end() - 1, {root, {}, terms, {}, {}, std::move(source), group});
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
        if (next->tree || next->group != mount.group)
            continue;
        const MountFault *fault = faultOf(mount.group);
        if (!fault) {
            const auto tree = next->source();
            if (tree)
                mountNow(*next, *tree);
            else
                fault = &m_mountFaults.emplace_back(MountFault{mount.group, tree.error()});
        }
        if (fault)
            return {DmStatus::DataStoreFailure, fault->reason};
    }
    return {};
}

const ManagementTree::MountFault *ManagementTree::faultOf(int group) const
{
    const auto fault = std::ranges::find(m_mountFaults, group, &MountFault::group);
    return fault == m_mountFaults.end() ? nullptr : &*fault;
}

QStringList ManagementTree::mountFaults() const
{
    QStringList reasons;
    for (const MountFault &fault : m_mountFaults)
        reasons += fault.reason;
    return reasons;
}

void ManagementTree::mountNow(Mount &mount, const JemSmartPtr<DmtTree> &tree)
{
    mount.tree = tree;
    --m_unmounted;
    readProfileNumbers(mount);
    m_properties.resolve(mount.root, profileNumbers());
    forgetMissing(mount.root);
}

void ManagementTree::forgetMissing(const NodeUri &root)
{
    m_properties.keepOnly(
        [&](const NodeUri &node) { return !root.contains(node) || exists(node); });
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
    forgetMissing(root);
}

const ManagementTree::Mount &ManagementTree::mountOf(QByteArrayView joinedNames) const
{
    return *std::find_if(m_mounts.begin(), m_mounts.end(), [joinedNames](const Mount &mount) {
        return mount.root.contains(joinedNames);
    });
}

bool ManagementTree::Mount::isProfile(QByteArrayView joinedNames) const
{
    return !joinedNames.isEmpty() && isSame(NodeUri::above(joinedNames), root.joinedNames());
}

DmtTree &ManagementTree::Mount::treeFor(const Principal &principal) const
{
    return principal.isOwner() && terms.ownersTree ? *terms.ownersTree : *tree;
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
        std::ranges::find_if(m_mounts, [names = uri.joinedNames()](const Mount &entry) {
            return entry.isProfile(names);
        });
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

std::vector<NodeUri> ManagementTree::twinsOf(QByteArrayView joinedNames)
{
    std::vector<NodeUri> twins;
    const Mount &mountOfNode = mountOf(joinedNames);
    // Where it fails, nobody but the owner has found a node beneath the root.
    static_cast<void>(needTwinsOf(mountOfNode));
    const PropertyStore::ProfileNumbers &siblings = mountOfNode.profileNumbers;
    const auto own = siblings.find(joinedNames);
    if (own == siblings.end())
        return twins;
    for (const Mount &mount : m_mounts) {
        const auto [first, last] = mount.nodesByProfile.equal_range(own->second);
        for (auto entry = first; entry != last; ++entry)
            if (entry->second.joinedNames() != joinedNames)
                twins.push_back(entry->second);
    }
    return twins;
}

// ---- Keeping properties --------------------------------------------------------------------------

void ManagementTree::setProperties(PropertyStore properties)
{
    properties.keepOnly(
        [this](const NodeUri &node) { return mountOf(node).root.isRoot() || exists(node); });
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

Result<TreeNode> ManagementTree::find(const NodeUri &uri, const Principal &principal)
{
    const Mount &mount = mountOf(uri);
    if (m_unmounted > 0)
        if (Outcome needed = principal.isOwner() ? need(mount) : needTwinsOf(mount); !needed)
            return needed;
    TreeNode node;
    node.m_uri = uri;
    node.m_pathBegin = uri.beginBeneath(mount.root);
    node.m_tree = &mount.treeFor(principal);
    node.m_isChangeable = mount.isChangeable();
    if (const int status = node.m_tree->GetNode("", node.m_node))
        return outcomeOfEngineCall(status);
    // Every node on the way has to exist: a tree that registered A/B without A has no node A/B
    // here.
    const QByteArrayView names = uri.joinedNames().sliced(node.m_pathBegin);
    EnginePath path(names);
    for (qsizetype begin = 0; begin < names.size();) {
        const QByteArrayView name = NodeUri::first(names.sliced(begin));
        if (hasSlash(name))
            return listsChild(*node.m_node, begin > 0 ? path.text() : "", name)
                       ? notAllowed(uri, "has a slash in a name, and such a node is only listed")
                       : missing(uri);
        if (begin > 0)
            path.growAt(begin - 1);
        const int status = node.m_tree->GetNode(path.text(), node.m_node);
        if (status == DMT_NOT_FOUND)
            return missing(uri);
        if (status)
            return outcomeOfEngineCall(status);
        begin += name.size() + 1;
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
    const QByteArrayView names = uri.joinedNames();
    const qsizetype end = names.indexOf(NodeUri::separator, uri.beginBeneath(mount.root));
    return NodeUri::fromJoinedNames(names.first(end < 0 ? names.size() : end).toByteArray());
}

std::vector<TreeNode> ManagementTree::children(const TreeNode &node, const Principal &principal)
{
    std::vector<TreeNode> found;
    if (node.isLeaf() || node.isOnlyListed())
        return found;
    DMVector<JemSmartPtr<DmtNode>> listed;
    node.m_node->GetChildNodes(listed);
    const QByteArray path = node.path();
    for (const JemSmartPtr<DmtNode> &child : listed) {
        TreeNode &added = found.emplace_back();
        added.m_uri = node.uri().child(childName(path, *child));
        added.m_pathBegin = node.isTop() ? added.m_uri.beginBeneath(node.uri()) : node.m_pathBegin;
        added.m_tree = node.m_tree;
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
    const auto given = givenAcl(mountOf(node.uri()), node.uri().joinedNames());
    return given ? *given : treesAcl(*node.m_node);
}

std::optional<AccessControlList> ManagementTree::givenAcl(const Mount &mount,
                                                          QByteArrayView joinedNames)
{
    if (const auto &kept = m_properties.get(joinedNames).acl)
        return kept;
    if (!mount.terms.acl.isEmpty() && isSame(mount.root.joinedNames(), joinedNames))
        return mount.terms.acl;
    if (mount.isProfile(joinedNames)) {
        if (auto shared = aclOfTwin(joinedNames))
            return shared;
        if (!mount.terms.profileAcl.isEmpty())
            return mount.terms.profileAcl;
    }
    return std::nullopt;
}

AccessControlList ManagementTree::treesAcl(const DmtNode &node)
{
    DmtAttributes attributes;
    node.GetAttributes(attributes);
    if (attributes.acl.text.empty())
        return {};
    // A malformed list of the tree's own says nothing, and the node inherits.
    const auto own = AccessControlList::parse(QByteArray(attributes.acl.text.text()));
    return own ? *own : AccessControlList();
}

std::optional<AccessControlList> ManagementTree::aclOfTwin(QByteArrayView joinedNames)
{
    for (const NodeUri &twin : twinsOf(joinedNames))
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

ManagementTree::EffectiveAcl ManagementTree::effectiveAcl(QByteArrayView joinedNames,
                                                          JemSmartPtr<DmtNode> node)
{
    const Mount &mount = mountOf(joinedNames);
    const NodeUri &root = mount.root;
    const qsizetype begin = root.isRoot() ? 0 : root.joinedNames().size() + 1;
    EnginePath path(joinedNames.sliced(std::min(begin, joinedNames.size())));
    path.growToEnd();
    if (need(mount)) {
        DmtTree &tree = mount.treeFor(Principal::owner());
        for (QByteArrayView names = joinedNames;; names = NodeUri::above(names)) {
            const qsizetype pathSize = std::max<qsizetype>(names.size() - begin, 0);
            path.cutAt(pathSize);
            std::optional<AccessControlList> own = givenAcl(mount, names);
            if (!own && (node || tree.GetNode(path.text(), node) == DMT_OK))
                own = treesAcl(*node);
            if (own && !own->isEmpty())
                return {names, *std::move(own)};
            if (pathSize == 0)
                break;
            node.reset();
        }
    }
    return root.isRoot() ? EffectiveAcl() : effectiveAcl(NodeUri::above(root.joinedNames()));
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
                           .acl = aclOfTwin(uri.joinedNames()) ? std::nullopt : acl,
                           .changed = m_clock(),
                           .version = 0});
    touch(parent.uri());
}

void ManagementTree::touch(const NodeUri &uri)
{
    m_properties.noteChange(uri, m_clock());
}

} // namespace client
