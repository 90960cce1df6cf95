// The device as a DM client sees it: a locked state directory, the plug-ins, the accounts
// and the management tree.
#pragma once

#include "accounts.h"
#include "device_observer.h"
#include "expected.h"
#include "plugin_description.h"
#include "plugin_host.h"
#include "plugin_log.h"
#include "plugin_watch.h"
#include "profile_numbers.h"
#include "state_directory.h"
#include "stored_node.h"
#include "tree_view.h"

#include <QStringList>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace client {

/// Everything that one run of the client holds. A state file that is damaged does not stop it: the
/// owner's commands go on without what is in it, servers are kept out, and the file stays as it is.
class DmDevice {
public:
    struct Options {
        QString stateDirectory;
        /// Where files describe the plug-ins; empty: where those of the program's installation are.
        QString pluginFolder = {};
        /// The library to load in place of that of the plug-in that has the profiles; empty: as it
        /// is described.
        QString profilePlugin = {};
        bool pluginMessagesToStandardError = false;
        /// Where the host's profile service keeps its profiles, "sqlite" or "networkmanager"; empty
        /// leaves it to KUB_NAPI_BACKEND.
        QString profileBackend = {};
    };

    /// Opens the state directory and reads the accounts.
    /// @return never null; the error is a sentence that says what cannot be used and why
    static support::Expected<std::unique_ptr<DmDevice>, QString> open(const Options &options);

    /// Makes the tree and reads the properties. A plug-in is loaded when something first needs one
    /// of its roots, which is mounted afresh then.
    /// Fails as open does.
    support::Expected<void, QString> makeTree();

    /// What is wrong with state files and descriptions of plug-ins, a sentence each with the file,
    /// the place, and how to go on.
    QStringList damage() const;
    /// Why no server may do anything with the device, because what it has to prove or what it must
    /// not do is lost; empty when servers may.
    QString reasonAgainstServers() const;

    /// Only once it is made.
    ManagementTree &tree() { return *m_tree; }
    /// The tree as the owner of the device uses it.
    TreeView ownersView() { return {*m_tree, Principal::owner()}; }
    /// Why mounting has failed, a sentence each, as far as that was not said before.
    QStringList takeMountFaults();
    /// Has what happens beneath the tree told to the observer, which has to outlive the device or
    /// to be taken away with null. Nobody listens at first.
    void setObserver(DeviceObserver *observer) { m_watch.setObserver(observer); }
    /// Whether somebody sees why commands ended as they did, as is usual. If not, the libraries
    /// beneath the plug-in write their reasons to standard error.
    void setReasonsShown(bool areShown) { m_watch.setReasonsShown(areShown); }
    /// The path of the library that the profiles come from, which need not be loaded yet. As it is
    /// described or was asked for when it cannot be loaded; empty when none is described.
    QString profilePlugin() const;
    /// Name of the store that the profile service is asked to use, "sqlite" or another.
    QString profileStore() const;
    /// The type of the alert that tells a server how an Exec of the node has ended, where a plug-in
    /// says that it takes long; null for all other nodes.
    const QString *longExecAt(const NodeUri &node) const;
    const StateDirectory &state() const { return *m_state; }
    /// The DM accounts.
    AccountStore &accounts() { return *m_accounts; }
    /// Each keeps or takes away an account as the store does. A server that no account is of any
    /// more loses every right, and an account that is new has nothing of one that had its name.
    support::Expected<void, QString> putAccount(const QString &name, const Account &account);
    support::Expected<void, QString> removeAccount(const QString &name);

    // ---- A copy of the state

    /// The options of a device on a copy of this one's state.
    Options optionsFor(const QString &folder) const;
    /// Whether the profiles are in the state directory, so that a copy can have them.
    bool hasProfilesInState() const;
    /// Copies the client's files and the mapping files, as they are now, into an empty folder of
    /// this user alone.
    support::Expected<void, QString> copyFilesTo(const QString &folder) const;
    /// Copies the profiles as they are now. Only when their plug-in is loaded.
    support::Expected<void, QString> copyProfilesTo(const QString &folder) const;
    /// What is stored for a node beneath one of the profile roots, as it is now. The plug-in is not
    /// asked, nor hears of it whoever listens to its calls. Fails when it cannot be loaded.
    support::Expected<StoredNode, QString> storedFor(const NodeUri &node);
    bool isProfilePluginLoaded() const;
    /// Has the listener called once, when the plug-in of the profiles is loaded and before it is
    /// asked for anything.
    void setLoadListener(std::function<void()> listener) { m_loadListener = std::move(listener); }

    /// Keeps the properties of the nodes for the next run, as far as they have changed.
    support::Expected<void, QString> saveProperties();

private:
    explicit DmDevice(Options options) : m_options(std::move(options)) {}

    /// A plug-in, and its library once something needed one of its roots.
    struct Plugin {
        PluginDescription description;
        std::unique_ptr<PluginHost> host = {};
    };

    support::Expected<QByteArray, QString> readDeviceId();
    support::Expected<void, QString> readDescriptions();
    void hangInRoots();
    support::Expected<StoredProfile, QString> profileOf(const NodeUri &node) const;
    std::map<QString, quint32> profileNumbersOf(const MappingFile &mapping);
    support::Expected<JemSmartPtr<DmtTree>, QString> mountedTree(Plugin &plugin,
                                                                 const QByteArray &root);
    support::Expected<JemSmartPtr<DmtTree>, QString> treeFor(Plugin &plugin,
                                                             const QByteArray &root);
    QString mountFault(const QString &fault) const;
    QString logFile() const;
    support::Expected<void, QString> openLog();
    support::Expected<void, QString> load(Plugin &plugin);
    void loadProperties();
    support::Expected<void, QString> writeProperties();
    QString propertiesFile() const;
    /// Takes the rights of a server that has no account any more, and what the account's nodes
    /// have.
    support::Expected<void, QString> forget(const QString &account, const QByteArray &serverId);
    bool hasAccountOf(const QByteArray &serverId) const;
    void showAccounts();

    const Options m_options;
    QString m_deviceIdDamage;
    QString m_propertiesDamage;
    QStringList m_descriptionFaults;
    qsizetype m_mountFaultsTaken = 0;
    PluginWatch m_watch;
    std::function<void()> m_loadListener;

    // In the order of making. They go in the reverse order, so that the trees are dropped while
    // their plug-in is still loaded, and the lock is given up last.
    std::unique_ptr<StateDirectory> m_state;
    std::unique_ptr<PluginLog> m_log;
    std::vector<Plugin> m_plugins;     ///< as they were described, from makeTree() on
    Plugin *m_profilePlugin = nullptr; ///< of them; null when none is described
    std::optional<AccountStore> m_accounts;
    std::unique_ptr<ManagementTree> m_tree;
};

/// Where the profiles are: one node each beneath these.
std::vector<NodeUri> profileRoots();

} // namespace client
