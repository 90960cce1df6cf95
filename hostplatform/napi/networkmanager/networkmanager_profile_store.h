// Profiles that are NetworkManager's connections of type gsm.
#pragma once

#include "connection_database.h"
#include "connection_settings.h"
#include "networkmanager_bus.h"
#include "profile_store.h"
#include "record_conversion.h"

#include <QHash>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

/// What was read of the connections is kept until the daemon signals that one has come, changed or
/// gone, or is another daemon. An operation looks first at what has been signalled, and reads again
/// what it is about; so it sees what other programs have changed, as if it asked the daemon each
/// time. A connection that is to be changed is read again all the same, right before that.
///
/// NetworkManager offers no way to change a connection on the condition that nobody else has: a
/// change by another program within the millisecond between reading and writing is lost.
class NetworkManagerProfileStore : public ProfileStore {
public:
    /// Finds the daemon and opens the database beside it, a file of that path.
    static StoreResult open(const std::string &databasePath, std::unique_ptr<ProfileStore> &store);

    StoreResult count(unsigned int &profiles) override;
    StoreResult list(unsigned int limit, std::vector<std::string> &names) override;
    StoreResult read(std::string_view name, NAP_PROFILE_S &record) override;
    /// Writes only what differs from the connection as it is, nothing at all when nothing does.
    StoreResult modify(std::string_view name, const NAP_PROFILE_S &record) override;
    StoreResult create(std::string_view name, const NAP_PROFILE_S &record,
                       unsigned int maximum) override;
    StoreResult remove(std::string_view name) override;
    StoreResult rename(std::string_view name, std::string_view newName) override;
    StoreResult idByName(std::string_view name, std::uint32_t &id) override;
    StoreResult nameById(std::uint32_t id, std::string &name) override;
    StoreResult copyTo(const std::string &) override
    {
        return {NAPI_ERROR_UNAVAILABLE, "the profiles are connections of NetworkManager"};
    }
    SqliteFile &database() override { return m_database->file(); }

private:
    /// A connection as it was when it was last read.
    struct Entry {
        QString path;
        std::string connectionId;
        std::string uuid;
        std::string name;
        std::optional<NAP_PROFILE_S> record; ///< none when the connection has to be read for it
        bool isPasswordKept = false;         ///< as the function of that name says
        /// The secrets beside the connection that are in the record, when it has its secrets.
        std::optional<KeptSecrets> keptSecrets;
    };
    struct Connection {
        std::uint32_t number = notAProfile;
        bool isUnread = false; ///< is to be read, or to be read again
    };
    static constexpr std::uint32_t notAProfile = 0; ///< where a number stands; none is given as 0
    using Entries = std::map<std::uint32_t, Entry>;
    using Numbered = Entries::value_type;
    using Operation = std::function<BusReply(Entry &)>;
    /// A connection that is read again: its settings, none when it is not a profile or is gone.
    struct Seen {
        QString path;
        std::optional<ConnectionSettings> settings;
    };
    struct Added {
        std::uint32_t number;
        Entry entry;
    };
    enum class Asked { WhatIsNew, WhichThereAre };

    NetworkManagerProfileStore() = default;

    /// Brings what is kept up to date.
    /// @param asked  WhichThereAre asks the daemon even when all connections are known
    StoreResult refresh(Asked asked = Asked::WhatIsNew);
    void takeNews();
    /// Has the next refresh read a connection, or read it again.
    void forget(const QString &path);
    void forgetEverything();
    StoreResult listConnections();
    StoreResult readConnections();
    StoreResult readSettings(std::vector<Seen> &seen);
    StoreResult keep(std::vector<Seen> &seen);
    void drop(const QString &path);
    void nameEntries();
    Numbered *findEntry(std::string_view name);
    /// Runs an operation on the connection of that name.
    StoreResult runOnConnection(std::string_view name, const Operation &operation);
    BusReply readAgain(const Entry &entry, ConnectionSettings &settings);
    BusReply readSecrets(const Entry &entry, GsmConnection &connection);
    BusReply readProfile(const Entry &entry, GsmConnection &connection, NAP_PROFILE_S &record);
    BusReply readEntry(Entry &entry, NAP_PROFILE_S &record);
    BusReply completeRecord(const Entry &entry, GsmConnection &secrets, NAP_PROFILE_S &record);
    BusReply modifyEntry(const Entry &entry, const NAP_PROFILE_S &record);
    /// Reads what is kept beside the connection, and moves there what is found in its user data.
    BusReply readKeptSecrets(const Entry &entry, GsmConnection &connection);
    /// Changes the connection and what is kept beside it.
    BusReply update(const Entry &entry, const GsmConnection &before, const GsmConnection &after,
                    const ConnectionChange &change);
    BusReply updateConnection(const Entry &entry, const GsmConnection &before,
                              const GsmConnection &after, const ConnectionChange &change);
    BusReply sendUpdate(const Entry &entry, const GsmConnection &connection);
    StoreResult refuseTakenName(std::string_view name);
    StoreResult createInTransaction(const QString &id, const NAP_PROFILE_S &record,
                                    unsigned int maximum);
    StoreResult add(const QString &id, const NAP_PROFILE_S &record, Added &added);
    BusReply removeEntry(const Entry &entry);
    BusReply deleteConnection(QString path);

    NetworkManagerBus m_bus;
    std::unique_ptr<ConnectionDatabase> m_database;
    Entries m_entries;                                        ///< the profiles, by their numbers
    std::unordered_map<std::string, std::uint32_t> m_numbers; ///< of the profiles, by their names
    QHash<QString, Connection> m_connections;                 ///< of all types, by their paths
    QStringList m_unread;            ///< paths of those to be read, in order
    bool m_isListed = false;         ///< whether these are all connections that there are
    bool m_hasSubstitutes = false;   ///< whether a profile has another name than its connection
    bool m_hasUnkeptNumbers = false; ///< given in a transaction that can still fail
};
