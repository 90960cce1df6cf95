// The whole management tree: the client's own nodes and the trees of plug-ins, under one address
// space and the rules that the DM protocol has for its commands.
#pragma once

#include "access_control.h"
#include "device_tree.h"
#include "dmnative/dmt_tree.h"
#include "expected.h"
#include "node_description.h"
#include "node_uri.h"
#include "node_value.h"
#include "property_store.h"

#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace client {

/// A node that exists. It stays usable until the tree changes it or is unmounted.
class TreeNode {
public:
    const NodeUri &uri() const { return m_uri; }
    bool isLeaf() const { return m_node->IsLeaf(); }
    /// Type of the value that the node was made with; Node for an interior one.
    signed char valueType() const;

private:
    friend class ManagementTree;
    friend class TreeView;

    /// Whether it can be neither deleted nor renamed.
    bool isPermanent() const { return !m_isChangeable || m_path.isEmpty(); }
    /// Whether a plug-in takes it for another node, because its name has a slash.
    bool isOnlyListed() const { return m_uri.name().contains('/'); }
    /// Path of a child in m_tree.
    QByteArray childPath(const QByteArray &name) const;

    NodeUri m_uri;
    DmtTree *m_tree = nullptr; ///< held by its mount
    QByteArray m_path;         ///< relative to the root of m_tree
    JemSmartPtr<DmtNode> m_node;
    bool m_isChangeable = false; ///< its value may be replaced, nodes may be added beneath it
};

/// One node of a listing.
struct ListedNode {
    TreeNode node;
    int depth = 0; ///< below the node that the listing began with
    /// The leaf's value, or why it cannot be read; none for interior nodes and when values were not
    /// asked for.
    std::optional<Result<DmtData>> value;
};

/// Properties of a node that a server can name.
enum class Property { Acl, Format, Name, Size, Title, TStamp, Type, VerNo };

/// The property of that name, compared byte for byte.
std::optional<Property> propertyNamed(const QString &name);
/// "ACL", "Format" and so on.
QString nameOf(Property property);
/// Whether the property can be given another value.
bool isReplaceable(Property property);
/// Names of all properties.
std::vector<QString> propertyNames();

/// What a mounted tree brings along beside its nodes.
struct MountTerms {
    /// Access control list of the root until somebody replaces it; an empty one inherits.
    AccessControlList acl = {};
    /// That of each node directly beneath the root until it has one of its own; an empty one
    /// inherits.
    AccessControlList profileAcl = {};
    /// Reads the numbers of the profiles that the nodes directly beneath the root show at this
    /// moment, by node name. None when they show no profiles.
    std::function<std::map<QString, quint32>()> profileNumbers = {};
    /// The same nodes as the device's owner has them, who may change what a server may not; null
    /// when there is no difference.
    JemSmartPtr<DmtTree> ownersTree = {};
};

/// The trees that are mounted and what is kept of their nodes. Somebody uses it through a TreeView.
class ManagementTree {
public:
    explicit ManagementTree(const DeviceInfo &info);

    /// Hangs a tree in at a root, whose name is new beneath its parent. The root becomes permanent.
    ///
    /// Two nodes with one number, beneath whichever roots, show the same profile: the list that one
    /// of them has of its own goes for the other as well, until that one has a list of its own.
    void mount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree, const MountTerms &terms = {});

    /// Puts other trees in the place of those that are mounted at that root. Properties of nodes
    /// that are gone are forgotten.
    void remount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree,
                 const JemSmartPtr<DmtTree> &ownersTree);

    const UriLimits &uriLimits() const { return m_deviceInfo.uriLimits; }
    const QByteArray &deviceId() const { return m_deviceInfo.deviceId; }

    /// Time of a change, UTC; the system's as long as no other clock is set.
    using Clock = std::function<QDateTime()>;
    void setClock(Clock clock) { m_clock = std::move(clock); }

    // ---- Keeping properties

    /// Names the store that the numbers of profiles come from, as PropertyStore::ProfileNumbers has
    /// it.
    void setProfileStore(const QString &name) { m_profileStore = name; }
    const PropertyStore &properties() const { return m_properties; }
    /// Numbers of the profiles that are mounted, by the names that their nodes have now.
    PropertyStore::ProfileNumbers profileNumbers() const;
    /// Takes properties over, as far as their nodes exist.
    void setProperties(PropertyStore properties);
    /// Writes the properties to a file when they have changed.
    support::Expected<void, QString> saveProperties(const QString &file);
    /// Says that the properties that were kept are lost. Reading or replacing one then ends with
    /// 510 and this reason; everything else goes on.
    void losePropertiesFor(const QString &reason) { m_propertiesFault = reason; }
    /// Takes every right from a server whose account is gone.
    void forgetServer(const QByteArray &server);

    // ---- Nodes, whoever asks

    /// The child of a mounted root that the node is, or belongs to, whether they exist or not; none
    /// for the roots and for the client's own nodes.
    std::optional<NodeUri> objectOf(const NodeUri &uri) const;
    /// MIME type of a leaf; Management Object id of an interior node, or empty.
    QString type(const TreeNode &node) const;

private:
    friend class TreeView;

    struct Mount {
        /// Whether it is one of the trees that others bring. Nobody changes the client's own.
        bool isChangeable() const { return !root.isRoot(); }
        /// Whether the node is directly beneath the root, where a tree of profiles has them.
        bool isProfile(const NodeUri &uri) const;

        NodeUri root;
        JemSmartPtr<DmtTree> tree;
        MountTerms terms;
        PropertyStore::ProfileNumbers profileNumbers;
    };

    /// A list, and the node that it was found on.
    struct EffectiveAcl {
        NodeUri holder;
        AccessControlList acl;
    };

    const Mount &mountOf(const NodeUri &uri) const;
    static void readProfileNumbers(Mount &mount);
    /// Is to be called when a node was added, deleted or renamed.
    void noteProfiles(const NodeUri &uri);
    /// The nodes that show the same profile, without the node itself.
    std::vector<NodeUri> twinsOf(const NodeUri &uri) const;
    Result<TreeNode> find(const NodeUri &uri, const Principal &principal) const;
    bool exists(const NodeUri &uri) const;
    std::vector<TreeNode> children(const TreeNode &node, const Principal &principal) const;

    // ---- Access control
    AccessControlList ownAcl(const TreeNode &node) const;
    /// The list that another node of the same profile was given; none when no other was.
    std::optional<AccessControlList> aclOfTwin(const NodeUri &uri) const;
    /// Hands the list of a node that was deleted to another one of the same profile that has none.
    void handOnAcl(const std::optional<AccessControlList> &acl, const std::vector<NodeUri> &twins);
    EffectiveAcl effectiveAcl(const NodeUri &uri) const;

    // ---- Changes
    /// Notes that the node was changed.
    void touch(const NodeUri &uri);
    void noteNewNode(const TreeNode &parent, const NodeUri &uri, const QString &type,
                     const std::optional<AccessControlList> &acl);

    DeviceInfo m_deviceInfo;
    JemSmartPtr<DeviceTree> m_deviceTree;
    std::vector<Mount> m_mounts; ///< longer roots first; the client's own tree is the last
    PropertyStore m_properties;
    QString m_profileStore;
    QString m_propertiesFault; ///< empty when they could be read
    Clock m_clock = [] { return QDateTime::currentDateTimeUtc(); };
};

/// The management tree as one principal uses it.
///
/// Operations check in this order and stop at the first check that fails: the node, or for a new
/// one its parent, exists (404); the command may be used on it (405); the server on whose behalf
/// the tree is used has the right (425); a new node or a new name is not there yet (418); the value
/// has the right format (415); then the plug-in decides. Nothing is changed unless the plug-in is
/// reached.
class TreeView {
public:
    /// @param tree  has to outlive the view
    TreeView(ManagementTree &tree, Principal principal)
        : m_tree(&tree), m_principal(std::move(principal))
    {
    }

    ManagementTree &tree() const { return *m_tree; }
    const UriLimits &uriLimits() const { return m_tree->uriLimits(); }

    // ---- Reading

    /// 404 for a node that does not exist. 405 for one whose name has a slash, and beneath it: a
    /// plug-in that splits paths at slashes takes it for another node. It is listed among the
    /// children of its parent, and that is all.
    Result<TreeNode> find(const NodeUri &uri) const;
    /// As find, for a command that reads: 405 for the Inbox and what is beneath it, which can only
    /// be added to, whether it is there or not.
    Result<TreeNode> findToRead(const NodeUri &uri) const;
    /// Children in the order in which the tree lists them; none for a leaf.
    std::vector<TreeNode> children(const TreeNode &node) const;
    /// Whether the names of the node's children, and its properties, may be read: 425 if not.
    Outcome mayGet(const TreeNode &node) const;
    /// Whether the node may be given another name: 405 if its name is fixed, 425 without the right.
    Outcome mayRename(const TreeNode &node) const;
    /// The value of a leaf; 405 for an interior node.
    Result<DmtData> value(const TreeNode &node) const;
    /// 406 for the size of an interior node.
    Result<QByteArray> property(const TreeNode &node, Property property) const;
    QString type(const TreeNode &node) const { return m_tree->type(node); }
    enum class Values { Omit, Read };
    /// The node and everything beneath it, parents before their children, without the nodes that
    /// may not be read. The leaves of a node are read in one call; when that fails, one by one, so
    /// that one unreadable leaf hides no other.
    std::vector<ListedNode> list(const TreeNode &start, Values values) const;
    /// @param room  bytes that the listing may take, addresses and values counted and
    ///              bytesBesideTexts for each node; becomes what is left of them
    /// @return none when it would take more; no more than that is read then
    std::optional<std::vector<ListedNode>> list(const TreeNode &start, Values values,
                                                qsizetype &room) const;

    // ---- Changing

    /// What a server says about a new node, or about a new value.
    struct NewValue {
        QString format; ///< Meta Format; empty when the server gave none
        QString type;   ///< Meta Type; empty when the server gave none
        std::optional<QByteArray> data;
    };

    /// Adds a leaf, or an interior node when the format is "node". Missing ancestors are not
    /// created. A new node inherits its access control list; but when the server lacks Replace on
    /// the parent, an interior one gets a list of its own, with Add, Delete, Get and Replace for
    /// the server, and Get for those who have it on the parent.
    Outcome add(const NodeUri &uri, const NewValue &value);
    /// Replaces the value of a leaf. Without a format the value is read in the leaf's own.
    Outcome replace(const NodeUri &uri, const NewValue &value);
    struct ChildValue {
        QByteArray name;
        QByteArray text;
    };
    /// Replaces the values of several leaves of one interior node in one call of its tree, in the
    /// given order. The tree stops at the first value that it refuses; those before it stay.
    Outcome replaceChildren(const NodeUri &uri, const std::vector<ChildValue> &values);
    /// Replaces the ACL (at most 16 KiB, else 413), the Title (at most 255 bytes), or the Name,
    /// which renames the node; 405 for other properties, and for the ACL of the root unless the
    /// owner replaces it. A malformed ACL is answered with 500, and nothing is stored.
    Outcome replaceProperty(const NodeUri &uri, Property property, const QByteArray &value);
    Outcome remove(const NodeUri &uri);
    /// Copies the value of one leaf to another, which is added when it is missing.
    Outcome copy(const NodeUri &source, const NodeUri &target);
    /// Nothing here can be executed: 404 or 405.
    Outcome execute(const NodeUri &uri) const;

private:
    /// The values of the leaves directly beneath a node, as far as one call yields them.
    static std::map<QByteArray, DmtData> leafValues(const TreeNode &interior);
    class Listing;
    /// @param acl  in effect on the node
    void listBeneath(const TreeNode &node, const AccessControlList &acl, int depth, Values values,
                     Listing &listing) const;

    // ---- Access control
    /// 425, with the rule and the list that say no, when the server lacks the right.
    /// @param elsewhere  where else the right would have been enough, for the rule
    Outcome permit(Right right, const NodeUri &uri, const char *elsewhere = "") const;
    /// Whether a leaf may be given another value: 405, 425.
    Outcome permitReplace(const TreeNode &leaf) const;
    Outcome permitAclChange(const TreeNode &node) const;
    Outcome permitCopy(const TreeNode &source, Right right, const NodeUri &target) const;
    /// The list that a new interior node needs beside what it inherits; none when it needs nothing.
    std::optional<AccessControlList> aclForNewInterior(const TreeNode &parent) const;

    // ---- Changes
    Outcome replaceAcl(const TreeNode &node, const QByteArray &text);
    Outcome replaceTitle(const TreeNode &node, const QByteArray &title);
    /// The parent of a node that is to be added, once every rule allows the node.
    Result<TreeNode> parentForNewNode(const NodeUri &uri) const;
    Outcome copyToNewLeaf(const TreeNode &source, const NodeUri &target);
    Result<DmtData> valueToCopy(const TreeNode &source) const;
    Outcome rename(const TreeNode &node, const QByteArray &newName);
    /// Whether the node can be given these properties: 413 for one that is too long, 420 when all
    /// properties together leave no room.
    Outcome canKeep(const NodeUri &uri, const PropertyStore::Properties &properties) const;
    Outcome keep(const NodeUri &uri, PropertyStore::Properties properties);

    ManagementTree *m_tree;
    Principal m_principal;
};

} // namespace client
