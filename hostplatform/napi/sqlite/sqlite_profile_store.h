// Profiles in an SQLite database.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "profile_store.h"

/// One row a profile in a file of its own, in write-ahead-log mode, so that readers and a writer of
/// other processes do not wait for each other. Each operation is one transaction. A power cut can
/// undo the last changes and never damages the file (synchronous=NORMAL).
class SqliteProfileStore : public ProfileStore {
public:
    /// How long an operation waits for another process that has the store locked, in milliseconds.
    static constexpr int kBusyTimeoutMs = 2000;

    /// Opens the store and creates it, mode 0600, when there is no file of that name. A file that
    /// is no profile store is never changed.
    static StoreResult open(const std::string &path, std::unique_ptr<ProfileStore> &store);

    ~SqliteProfileStore() override;
    SqliteProfileStore(const SqliteProfileStore &) = delete;
    SqliteProfileStore &operator=(const SqliteProfileStore &) = delete;

    StoreResult count(unsigned int &profiles) override;
    StoreResult list(unsigned int limit, std::vector<std::string> &names) override;
    StoreResult read(std::string_view name, NAP_PROFILE_S &record) override;
    StoreResult modify(std::string_view name, const NAP_PROFILE_S &record) override;
    StoreResult create(std::string_view name, const NAP_PROFILE_S &record,
                       unsigned int maximum) override;
    StoreResult readMaximum(unsigned int &maximum) override;
    StoreResult storeMaximum(unsigned int maximum) override;
    StoreResult remove(std::string_view name) override;
    StoreResult idByName(std::string_view name, std::uint32_t &id) override;
    StoreResult nameById(std::uint32_t id, std::string &name) override;

private:
    enum Statement {
        Begin,
        Commit,
        Rollback,
        Count,
        List,
        Read,
        Modify,
        Create,
        Remove,
        IdByName,
        NameById,
        WithoutProfileName,
        StatementCount
    };
    static const std::array<const char *, StatementCount> kSql;

    class Query;
    class Transaction;

    explicit SqliteProfileStore(std::string path) : m_path(std::move(path)) {}

    /// What tells a profile store from a new file and from the databases of other programs.
    struct Identity {
        std::int64_t tables = 0;
        std::int64_t applicationId = 0;
        std::int64_t version = 0;

        bool isNewFile() const { return tables == 0 && applicationId == 0 && version == 0; }
    };

    /// A profile of a database that was made when names could have a slash.
    struct Renamed {
        std::int64_t id;
        std::string storedName;
        std::string name; ///< under which it is listed
    };

    StoreResult openDatabase();
    StoreResult openSchema();
    StoreResult tryOpenSchema();
    StoreResult createSchema();
    StoreResult prepareStatements();
    StoreResult readIdentity(Identity &identity);
    StoreResult readNumber(const char *sql, std::int64_t &value);
    StoreResult execute(const char *sql);
    StoreResult failure(const char *action);
    StoreResult failure(NAPI_STATUS status, const std::string &reason) const;
    std::string quickCheck();

    /// Fills in all profiles that are listed under other names than theirs, in the order of their
    /// IDs.
    StoreResult readRenamed(std::vector<Renamed> &profiles);
    /// Runs an operation on the stored name of the profile that is listed under that name.
    template <typename Operation>
    StoreResult runOnStoredName(std::string_view name, Operation operation);
    StoreResult idByStoredName(std::string_view name, std::uint32_t &id);
    /// Turns the stored name of a profile, whose row a query is on, into the one under which it is
    /// listed. @param renamed  is filled when it is needed, for the next names of the same query
    StoreResult listedName(std::int64_t id, std::string_view storedName,
                           std::vector<Renamed> &renamed, std::string &name);

    std::string m_path;
    sqlite3 *m_database = nullptr;
    std::array<sqlite3_stmt *, StatementCount> m_statements{};
};
