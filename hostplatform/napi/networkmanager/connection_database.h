// What is kept of connections outside NetworkManager: numeric IDs, and secrets that it has no place
// for.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "connection_settings.h"
#include "profile_store.h"

/// A database that only its owner can read, of UUIDs with their numbers and secrets.
///
/// A UUID gets a number when it is first asked for. That stays with it for ever and is never given
/// to another one, also when nothing of that UUID exists any more. A new number is on the disk
/// before it is handed out.
class ConnectionDatabase {
public:
    /// How long a call waits for another process that has the database locked, in milliseconds.
    static constexpr int kBusyTimeoutMs = 2000;

    /// Opens the database and creates it, mode 0600, when there is none.
    static StoreResult open(const std::string &path, std::unique_ptr<ConnectionDatabase> &numbers);

    ~ConnectionDatabase();
    ConnectionDatabase(const ConnectionDatabase &) = delete;
    ConnectionDatabase &operator=(const ConnectionDatabase &) = delete;

    /// Fills numbers with the number of each UUID, from 1. New ones get theirs in that order.
    StoreResult numbersOf(const std::vector<std::string> &uuids,
                          std::vector<std::uint32_t> &numbers);

    /// The number of profiles at which the service counts as full.
    StoreResult readMaximum(unsigned int &maximum);
    StoreResult storeMaximum(unsigned int maximum);

    /// Fills in the secrets of a UUID, none when none are kept.
    StoreResult secretsOf(const std::string &uuid, KeptSecrets &secrets);
    /// Replaces the secrets of a UUID. They are on the disk when it returns, or with the commit of
    /// the lock that is held; what they replace is overwritten there.
    StoreResult setSecrets(const std::string &uuid, const KeptSecrets &secrets);

    /// Keeps other processes out until it is committed or dropped. What was changed meanwhile is
    /// on the disk with the commit, and never was when the lock is dropped.
    class Lock {
    public:
        explicit Lock(ConnectionDatabase &numbers) : m_numbers(numbers) {}
        ~Lock();
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

        StoreResult take();
        StoreResult commit();

    private:
        ConnectionDatabase &m_numbers;
    };

private:
    struct Finalize {
        void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;
    using NumberByUuid = std::map<std::string, std::uint32_t>;

    explicit ConnectionDatabase(std::string path) : m_path(std::move(path)) {}

    StoreResult createFile();
    StoreResult openDatabase();
    StoreResult openSchema();
    StoreResult makeSchema();
    StoreResult readPragma(const char *sql, std::int64_t &value);
    StoreResult execute(const char *sql);
    /// Fills number with the number of a UUID, with 0 when it has none.
    StoreResult find(const std::string &uuid, std::uint32_t &number);
    StoreResult insert(const std::string &uuid, std::uint32_t &number);
    /// Gives a number to each UUID that has 0.
    StoreResult insertMissing(const std::vector<std::string> &uuids, NumberByUuid &numbers);
    bool isLocked() const;
    /// A statement of the secrets, with the UUID bound.
    StoreResult prepare(const char *sql, const std::string &uuid, Statement &statement);
    StoreResult failure(NAPI_STATUS status, const std::string &reason) const;
    StoreResult failure() const;

    std::string m_path;
    sqlite3 *m_database = nullptr;
    sqlite3_stmt *m_find = nullptr;
    sqlite3_stmt *m_insert = nullptr;
    NumberByUuid m_known; ///< what is on the disk for good
};
