// The whole management tree: the client's own nodes and the trees of plug-ins, under one address
// space and the rules that the DM protocol has for its commands.
#pragma once

#include "access_control.h"
#include "command_watch.h"
#include "device_tree.h"
#include "dmnative/dmt_tree.h"
#include "expected.h"
#include "node_uri.h"
#include "property_store.h"

#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace client {

class ChangeObserver;

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
    bool isPermanent() const { return !m_isChangeable || isTop(); }
    /// Whether it is the root of m_tree.
    bool isTop() const { return m_pathBegin == m_uri.joinedNames().size(); }
    /// Whether a plug-in takes it for another node, because its name has a slash.
    bool isOnlyListed() const;
    /// Path in m_tree, of the node and of a child of it.
    QByteArray path() const;
    QByteArray childPath(const QByteArray &name) const;

    NodeUri m_uri;
    qsizetype m_pathBegin = 0; ///< in the joined names: those beneath the root of m_tree
    DmtTree *m_tree = nullptr; ///< held by its mount
    JemSmartPtr<DmtNode> m_node;
    bool m_isChangeable = false; ///< its value may be replaced, nodes may be added beneath it
};

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

    /// Makes a tree, or says in a sentence why there is none.
    using TreeSource = std::function<support::Expected<JemSmartPtr<DmtTree>, QString>()>;
    /// Hangs in a root whose tree is made and mounted when something first needs it, after the
    /// trees of all roots of its group that were hung in before. When that fails, nothing of the
    /// group is mounted any more, and whatever needs one of its trees ends with 510 and the reason.
    /// @param group  of roots that one plug-in serves, and of no others
    void mountWhenNeeded(const NodeUri &root, TreeSource source, const MountTerms &terms,
                         int group = 0);
    /// What is done with a node.
    enum class Use {
        Read,    ///< the node is found and read, or its children are listed
        ReadAll, ///< the same with everything beneath it
        Change,
    };
    /// Mounts what an operation of the owner will need.
    /// @return the reason why something cannot be mounted, now or since an earlier operation
    support::Expected<void, QString> mountFor(const NodeUri &uri, Use use);
    /// Why mounting failed, a sentence for each group that could not be mounted, in the order in
    /// which they were needed.
    QStringList mountFaults() const;
    /// The roots that nothing has needed yet.
    std::vector<NodeUri> unmountedRoots() const;

    /// Puts other trees in the place of those that are mounted at that root. Properties of nodes
    /// that are gone are forgotten.
    void remount(const NodeUri &root, const JemSmartPtr<DmtTree> &tree,
                 const JemSmartPtr<DmtTree> &ownersTree);

    /// Has every change told to the observer, which outlives the tree or is taken away with null.
    void setChangeObserver(ChangeObserver *observer) { m_changeObserver = observer; }
    ChangeObserver *changeObserver() const { return m_changeObserver; }

    const UriLimits &uriLimits() const { return m_deviceInfo.uriLimits; }
    const QByteArray &deviceId() const { return m_deviceInfo.deviceId; }

    /// Time of a change, UTC; the system's as long as no other clock is set.
    using Clock = std::function<QDateTime()>;
    void setClock(Clock clock) { m_clock = std::move(clock); }

    /// Has whoever runs a command on the tree tell the watch when it begins and ends. Not owned;
    /// null when nobody watches.
    void setCommandWatch(CommandWatch *watch) { m_commandWatch = watch; }
    CommandWatch *commandWatch() const { return m_commandWatch; }

    // ---- Keeping properties

    /// Names the store that the numbers of profiles come from, as PropertyStore::ProfileNumbers has
    /// it.
    void setProfileStore(const QString &name) { m_profileStore = name; }
    const PropertyStore &properties() const { return m_properties; }
    /// Numbers of the profiles that are mounted, by the names that their nodes have now.
    PropertyStore::ProfileNumbers profileNumbers() const;
    /// Takes properties over, as far as their nodes exist, or are where only a plug-in that is not
    /// there now could have them. What they keep beneath roots that are not mounted must be left
    /// for later, as PropertyStore::load does.
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
        bool isProfile(QByteArrayView joinedNames) const;
        /// The tree as somebody has it, once it is mounted.
        DmtTree &treeFor(const Principal &principal) const;

        NodeUri root;
        JemSmartPtr<DmtTree> tree; ///< null before it is needed
        MountTerms terms;
        PropertyStore::ProfileNumbers profileNumbers;
        std::multimap<quint32, NodeUri> nodesByProfile; ///< the same the other way round
        TreeSource source = {};                         ///< of a tree that comes when it is needed
        int group = 0;
    };

    struct MountFault {
        int group;
        QString reason;
    };

    /// A list, and the joined names of the node that it was found on, which are part of those that
    /// it was looked for with, or of a mount's.
    struct EffectiveAcl {
        QByteArrayView holder;
        AccessControlList acl;
    };

    const Mount &mountOf(const NodeUri &uri) const { return mountOf(uri.joinedNames()); }
    const Mount &mountOf(QByteArrayView joinedNames) const;
    /// Mounts the root, and before it those of its group that were hung in before it. 510 when that
    /// fails.
    Outcome need(const Mount &mount);
    /// Null as long as all that was needed of the group could be mounted.
    const MountFault *faultOf(int group) const;
    /// The same, and with it whatever shows the same profiles: who may do what with a profile
    /// depends on all of its nodes, and a plug-in that changes one looks for the others.
    Outcome needTwinsOf(const Mount &mount);
    void mountNow(Mount &mount, const JemSmartPtr<DmtTree> &tree);
    static void readProfileNumbers(Mount &mount);
    /// Is to be called when a node was added, deleted or renamed.
    void noteProfiles(const NodeUri &uri);
    /// The nodes that show the same profile, without the node itself.
    std::vector<NodeUri> twinsOf(const NodeUri &uri) { return twinsOf(uri.joinedNames()); }
    std::vector<NodeUri> twinsOf(QByteArrayView joinedNames);
    Result<TreeNode> find(const NodeUri &uri, const Principal &principal);
    bool exists(const NodeUri &uri);
    std::vector<TreeNode> children(const TreeNode &node, const Principal &principal);

    // ---- Access control
    AccessControlList ownAcl(const TreeNode &node);
    /// The list that the device or somebody has given to a node; none where its tree has the say.
    std::optional<AccessControlList> givenAcl(const Mount &mount, QByteArrayView joinedNames);
    /// The list that a node's tree gives it.
    static AccessControlList treesAcl(const DmtNode &node);
    /// The list that another node of the same profile was given; none when no other was.
    std::optional<AccessControlList> aclOfTwin(QByteArrayView joinedNames);
    /// Hands the list of a node that was deleted to another one of the same profile that has none.
    void handOnAcl(const std::optional<AccessControlList> &acl, const std::vector<NodeUri> &twins);
    /// Of a node that exists.
    EffectiveAcl effectiveAcl(const TreeNode &node)
    {
        return effectiveAcl(node.uri().joinedNames(), node.m_node);
    }
    /// @param node  null where it has not been looked for
    EffectiveAcl effectiveAcl(QByteArrayView joinedNames, JemSmartPtr<DmtNode> node = {});

    // ---- Changes
    /// Forgets the properties of nodes beneath a mounted root that are not there any more.
    void forgetMissing(const NodeUri &root);
    /// Notes that the node was changed.
    void touch(const NodeUri &uri);
    void noteNewNode(const TreeNode &parent, const NodeUri &uri, const QString &type,
                     const std::optional<AccessControlList> &acl);

    DeviceInfo m_deviceInfo;
    JemSmartPtr<DeviceTree> m_deviceTree;
    std::vector<Mount> m_mounts; ///< longer roots first; the client's own tree is the last
    int m_unmounted = 0;         ///< those of them that nothing has needed yet
    PropertyStore m_properties;
    QString m_profileStore;
    QString m_propertiesFault;             ///< empty when they could be read
    std::vector<MountFault> m_mountFaults; ///< in the order in which they came
    CommandWatch *m_commandWatch = nullptr;
    ChangeObserver *m_changeObserver = nullptr;
    Clock m_clock = [] { return QDateTime::currentDateTimeUtc(); };
};

} // namespace client
