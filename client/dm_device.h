// The device as a DM client sees it: a locked state directory, the plug-in, the accounts
// and the management tree.
#pragma once

#include "management_tree.h"
#include "plugin_host.h"
#include "plugin_log.h"
#include "session/accounts.h"
#include "state_directory.h"

#include <memory>
#include <optional>

namespace client {

/// Everything that one run of the client holds. Making it mounts the plug-in's roots afresh.
class DmDevice {
public:
    struct Options {
        QString stateDirectory;
        QString pluginFile = QString::fromLatin1(PluginHost::defaultFile);
        bool pluginMessagesToStandardError = false;
        /// Where the host's profile service keeps its profiles, "sqlite" or "networkmanager"; empty
        /// leaves it to KUB_NAPI_BACKEND.
        QString profileBackend = {};
    };

    /// @return null on failure, with a sentence that says what cannot be used and why in error
    static std::unique_ptr<DmDevice> open(const Options &options, QString &error);

    ManagementTree &tree() { return *m_tree; }
    const StateDirectory &state() const { return *m_state; }
    /// The DM accounts; the tree has those that were there when the device was opened.
    AccountStore &accounts() { return *m_accounts; }
    /// Each keeps or takes away an account as the store does. A server that no account is of any
    /// more loses every right.
    bool putAccount(const QString &name, const Account &account, QString &error);
    bool removeAccount(const QString &name, QString &error);

    /// Keeps the properties of the nodes for the next run, as far as they have changed.
    bool saveProperties(QString &error);

private:
    DmDevice() = default;

    bool loadAccounts(QString &error);
    bool mountRoots(QString &error);
    bool loadProperties(QString &error);
    QString propertiesFile() const;
    bool forgetServerWithoutAccount(const QByteArray &serverId, QString &error);

    // In the order of making. They go in the reverse order, so that the trees are dropped while
    // their plug-in is still loaded, and the lock is given up last.
    std::unique_ptr<StateDirectory> m_state;
    std::unique_ptr<PluginLog> m_log;
    std::unique_ptr<PluginHost> m_plugin;
    std::optional<AccountStore> m_accounts;
    std::unique_ptr<ManagementTree> m_tree;
};

} // namespace client
