// Profiles that are NetworkManager's connections of type gsm.
#pragma once

#include "connection_database.h"
#include "connection_settings.h"
#include "networkmanager_bus.h"
#include "profile_store.h"
#include "record_conversion.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Each operation asks the daemon, so it sees what other programs have changed, and reads a
/// connection again before it changes it. What is kept between two operations, names and object
/// paths, is only used to find a connection and is checked against the connection that is found.
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
    StoreResult idByName(std::string_view name, std::uint32_t &id) override;
    StoreResult nameById(std::uint32_t id, std::string &name) override;
    SqliteFile &database() override { return m_database->file(); }

private:
    /// A connection as it was when it was last seen.
    struct Entry {
        QString path;
        std::string connectionId;
        std::string uuid;
        std::uint32_t number = 0;
        std::string name;
    };
    using Matches = std::function<bool(const Entry &)>;
    static Matches hasName(std::string_view name);
    using Operation = std::function<BusReply(const Entry &, const ConnectionSettings &)>;

    NetworkManagerProfileStore() = default;

    StoreResult refresh();
    StoreResult readConnections(std::vector<Entry> &entries);
    StoreResult nameEntries(std::vector<Entry> &entries);
    const Entry *findEntry(const Matches &matches) const;
    /// Runs an operation on the settings of the connection that an entry matches.
    StoreResult runOnConnection(const Matches &matches, const Operation &operation);
    BusReply runOnEntry(const Entry &entry, const Operation &operation);
    BusReply readSecrets(const Entry &entry, GsmConnection &connection);
    BusReply readProfile(const Entry &entry, const ConnectionSettings &settings,
                         GsmConnection &connection, NAP_PROFILE_S &record);
    /// Reads what is kept beside the connection, and moves there what is found in its user data.
    BusReply readKeptSecrets(const Entry &entry, GsmConnection &connection);
    /// Changes the connection and what is kept beside it.
    BusReply update(const Entry &entry, const GsmConnection &before, const GsmConnection &after,
                    const ConnectionChange &change);
    BusReply updateConnection(const Entry &entry, const GsmConnection &before,
                              const GsmConnection &after, const ConnectionChange &change);
    BusReply sendUpdate(const Entry &entry, const GsmConnection &connection);
    StoreResult refuseTakenName(std::string_view name) const;
    BusReply removeEntry(const Entry &entry);
    StoreResult add(const QString &id, const NAP_PROFILE_S &record);

    NetworkManagerBus m_bus;
    std::unique_ptr<ConnectionDatabase> m_database;
    std::vector<Entry> m_entries; ///< in the order of the numbers
    bool m_isFresh = false;
};
