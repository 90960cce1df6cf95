// Profiles in an SQLite database.
#pragma once

#include "profile_store.h"
#include "sqlite_file.h"

#include <memory>
#include <string>
#include <vector>

/// One row a profile in a file of its own, in write-ahead-log mode, so that readers and a writer of
/// other processes do not wait for each other. Each operation is one transaction. A power cut can
/// undo the last changes and never damages the file (synchronous=NORMAL).
class SqliteProfileStore : public ProfileStore {
public:
    /// Opens the store and creates it, mode 0600, when there is no file of that name. A file that
    /// is not a profile store is never changed.
    static StoreResult open(const std::string &path, std::unique_ptr<ProfileStore> &store);

    StoreResult count(unsigned int &profiles) override;
    StoreResult list(unsigned int limit, std::vector<std::string> &names) override;
    StoreResult read(std::string_view name, NAP_PROFILE_S &record) override;
    StoreResult modify(std::string_view name, const NAP_PROFILE_S &record) override;
    StoreResult create(std::string_view name, const NAP_PROFILE_S &record,
                       unsigned int maximum) override;
    StoreResult remove(std::string_view name) override;
    StoreResult rename(std::string_view name, std::string_view newName) override;
    StoreResult idByName(std::string_view name, std::uint32_t &id) override;
    StoreResult nameById(std::uint32_t id, std::string &name) override;
    StoreResult copyTo(const std::string &folder) override { return m_file.copyTo(folder); }
    SqliteFile &database() override { return m_file; }

private:
    explicit SqliteProfileStore(std::string path);

    /// A profile of a database that was made when names could have a slash.
    struct Renamed {
        std::int64_t id;
        std::string storedName;
        std::string name; ///< under which it is listed
    };

    /// Fills in all profiles that are listed under other names than theirs, in the order of their
    /// IDs.
    StoreResult readRenamed(std::vector<Renamed> &profiles);
    /// Runs an operation on the stored name of the profile that is listed under that name.
    template <typename Operation>
    StoreResult runOnStoredName(std::string_view name, Operation operation);
    StoreResult idByStoredName(std::string_view name, std::uint32_t &id);
    StoreResult refuseTakenName(std::string_view name);
    /// Goes to the one row of a query. @param noRow  what to say when it has none: NOT_FOUND
    StoreResult toRow(SqliteQuery &query, const char *action, const char *noRow);
    /// Runs a query that changes one profile.
    StoreResult change(SqliteQuery &query, const char *action);
    /// Turns the stored name of a profile, whose row a query is on, into the one under which it is
    /// listed. @param renamed  is filled when it is needed, for the next names of the same query
    StoreResult listedName(std::int64_t id, std::string_view storedName,
                           std::vector<Renamed> &renamed, std::string &name);

    SqliteFile m_file;
};
