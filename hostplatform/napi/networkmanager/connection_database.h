// What is kept of connections outside NetworkManager: numeric IDs, and secrets that it has no place
// for.
#pragma once

#include "connection_settings.h"
#include "sqlite_file.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// A database that only its owner can read, of UUIDs with their numbers and secrets.
///
/// A UUID gets a number when it is first asked for. That stays with it for ever and is never given
/// to another one, also when nothing of that UUID exists any more. A new number is on the disk
/// before it is handed out.
class ConnectionDatabase {
public:
    /// Opens the database and creates it, mode 0600, when there is none.
    static StoreResult open(const std::string &path, std::unique_ptr<ConnectionDatabase> &numbers);

    /// Fills numbers with the number of each UUID, from 1. New ones get theirs in that order.
    StoreResult numbersOf(const std::vector<std::string> &uuids,
                          std::vector<std::uint32_t> &numbers);

    /// Fills in the secrets of a UUID, none when none are kept.
    StoreResult secretsOf(const std::string &uuid, KeptSecrets &secrets);
    /// Replaces the secrets of a UUID. They are on the disk when it returns, or with the commit of
    /// the transaction that is open; what they replace is overwritten there.
    StoreResult setSecrets(const std::string &uuid, const KeptSecrets &secrets);

    /// For several changes that belong together.
    SqliteTransaction transaction();
    SqliteFile &file() { return m_file; }

private:
    using NumberByUuid = std::map<std::string, std::uint32_t>;

    explicit ConnectionDatabase(std::string path);

    /// Fills number with the number of a UUID, with 0 when it has none.
    StoreResult find(const std::string &uuid, std::uint32_t &number);
    StoreResult insert(const std::string &uuid, std::uint32_t &number);
    /// Gives a number to each UUID that has 0.
    StoreResult insertMissing(const std::vector<std::string> &uuids, NumberByUuid &numbers);

    SqliteFile m_file;
    NumberByUuid m_known; ///< what is on the disk for good
};
