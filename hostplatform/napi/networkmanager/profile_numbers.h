// The numeric IDs of profiles that their store knows by UUIDs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "profile_store.h"

/// A database of UUIDs, each with the number that it got when it was first asked for. A number
/// stays with its UUID for ever and is never given to another one, also when nothing of that UUID
/// exists any more. A new number is on the disk before it is handed out.
class ProfileNumbers {
public:
    /// How long a call waits for another process that has the database locked, in milliseconds.
    static constexpr int kBusyTimeoutMs = 2000;

    /// Opens the database and creates it, mode 0600, when there is none.
    static StoreResult open(const std::string &path, std::unique_ptr<ProfileNumbers> &numbers);

    ~ProfileNumbers();
    ProfileNumbers(const ProfileNumbers &) = delete;
    ProfileNumbers &operator=(const ProfileNumbers &) = delete;

    /// Fills numbers with the number of each UUID, from 1. New ones get theirs in that order.
    StoreResult numbersOf(const std::vector<std::string> &uuids,
                          std::vector<std::uint32_t> &numbers);

    /// Keeps other processes out until it is committed or dropped. Numbers given meanwhile are on
    /// the disk with the commit; when the lock is dropped, they were never given.
    class Lock {
    public:
        explicit Lock(ProfileNumbers &numbers) : m_numbers(numbers) {}
        ~Lock();
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

        StoreResult take();
        StoreResult commit();

    private:
        ProfileNumbers &m_numbers;
    };

private:
    using NumberByUuid = std::map<std::string, std::uint32_t>;

    explicit ProfileNumbers(std::string path) : m_path(std::move(path)) {}

    StoreResult createFile();
    StoreResult openDatabase();
    StoreResult openSchema();
    StoreResult readPragma(const char *sql, std::int64_t &value);
    StoreResult execute(const char *sql);
    /// Fills number with the number of a UUID, with 0 when it has none.
    StoreResult find(const std::string &uuid, std::uint32_t &number);
    StoreResult insert(const std::string &uuid, std::uint32_t &number);
    /// Gives a number to each UUID that has 0.
    StoreResult insertMissing(const std::vector<std::string> &uuids, NumberByUuid &numbers);
    bool isLocked() const;
    StoreResult failure(NAPI_STATUS status, const std::string &reason) const;
    StoreResult failure() const;

    std::string m_path;
    sqlite3 *m_database = nullptr;
    sqlite3_stmt *m_find = nullptr;
    sqlite3_stmt *m_insert = nullptr;
    NumberByUuid m_known; ///< what is on the disk for good
};
