#include "connection_database.h"

#include <cerrno>
#include <limits>
#include <optional>

#include "database_file.h"
#include "sqlite_status.h"
#include "stored_maximum.h"

namespace {

constexpr std::int64_t kApplicationId = 0x4B55424D; // "KUBM", what file(1) and PRAGMA show
constexpr std::int64_t kSchemaVersion = 2;

constexpr const char *kCreateNumbers =
    "CREATE TABLE profile_number("
    "  number INTEGER PRIMARY KEY AUTOINCREMENT," // never a second time, also not that of a deleted
                                                  // row
    "  uuid TEXT NOT NULL UNIQUE"
    ") STRICT;"
    "PRAGMA application_id = 0x4B55424D;";

/// The first format had no secrets.
constexpr const char *kCreateSecrets = "CREATE TABLE profile_secret("
                                       "  uuid TEXT NOT NULL,"
                                       "  field TEXT NOT NULL,"
                                       "  value BLOB NOT NULL,"
                                       "  PRIMARY KEY(uuid, field)"
                                       ") STRICT, WITHOUT ROWID;"
                                       "PRAGMA user_version = 2;";

} // namespace

// ---- The database -------------------------------------------------------------------------------

StoreResult ConnectionDatabase::open(const std::string &path,
                                     std::unique_ptr<ConnectionDatabase> &numbers)
{
    std::unique_ptr<ConnectionDatabase> opened(new ConnectionDatabase(path));
    StoreResult result = opened->createFile();
    if (!result.failed())
        result = opened->openDatabase();
    if (!result.failed())
        numbers = std::move(opened);
    return result;
}

ConnectionDatabase::~ConnectionDatabase()
{
    sqlite3_finalize(m_find);
    sqlite3_finalize(m_insert);
    sqlite3_close(m_database);
}

StoreResult ConnectionDatabase::createFile()
{
    const handset_state::Refusal refusal = makeDatabaseFile(m_path);
    const bool isUnwritable =
        refusal.path == m_path && (refusal.error == EROFS || refusal.error == EACCES);
    if (refusal && !isUnwritable)
        return failure(statusOfRefusal(refusal),
                       refusal.path == m_path ? refusal.reason : refusal.text());
    return {};
}

StoreResult ConnectionDatabase::openDatabase()
{
    if (sqlite3_open_v2(m_path.c_str(), &m_database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
        return failure();
    sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
    // A damaged or planted file must not get further than an error.
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    // A number that a power cut takes back would be given a second time.
    StoreResult result = execute("PRAGMA cell_size_check = ON; PRAGMA synchronous = FULL;"
                                 "PRAGMA secure_delete = ON");
    if (!result.failed())
        result = openSchema();
    if (result.failed())
        return result;
    constexpr const char *find = "SELECT number FROM profile_number WHERE uuid = ?1";
    constexpr const char *insert = "INSERT INTO profile_number(uuid) VALUES(?1)";
    if (sqlite3_prepare_v2(m_database, find, -1, &m_find, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(m_database, insert, -1, &m_insert, nullptr) != SQLITE_OK)
        return failure(NAPI_ERROR_CORRUPT, sqlite3_errmsg(m_database));
    return {};
}

/// Another process may be doing the same, so everything is looked at again behind the lock.
StoreResult ConnectionDatabase::makeSchema()
{
    std::int64_t tables = 0;
    std::int64_t version = 0;
    Lock lock(*this);
    StoreResult result = lock.take();
    if (!result.failed())
        result = readPragma("SELECT count(*) FROM sqlite_schema", tables);
    if (!result.failed() && tables == 0)
        result = execute(kCreateNumbers);
    if (!result.failed())
        result = readPragma("PRAGMA user_version", version);
    if (!result.failed() && version < kSchemaVersion)
        result = execute(kCreateSecrets);
    return result.failed() ? result : lock.commit();
}

StoreResult ConnectionDatabase::openSchema()
{
    std::int64_t tables = 0;
    std::int64_t applicationId = 0;
    std::int64_t version = 0;
    const auto readIdentity = [&] {
        StoreResult result = readPragma("SELECT count(*) FROM sqlite_schema", tables);
        if (!result.failed())
            result = readPragma("PRAGMA application_id", applicationId);
        return result.failed() ? result : readPragma("PRAGMA user_version", version);
    };
    StoreResult result = readIdentity();
    const bool isNew = tables == 0;
    const bool isOfFirstFormat = applicationId == kApplicationId && version == 1;
    if (!result.failed() && (isNew || isOfFirstFormat))
        result = makeSchema();
    if (!result.failed())
        result = readIdentity();
    if (result.failed())
        return result;
    if (applicationId != kApplicationId)
        return failure(NAPI_ERROR_CORRUPT, "the file belongs to another program");
    if (version != kSchemaVersion)
        return failure(NAPI_ERROR_CORRUPT, "the file has the format " + std::to_string(version) +
                                               ", this library knows " +
                                               std::to_string(kSchemaVersion));
    return {};
}

StoreResult ConnectionDatabase::readPragma(const char *sql, std::int64_t &value)
{
    sqlite3_stmt *statement = nullptr;
    StoreResult result;
    if (sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        value = sqlite3_column_int64(statement, 0);
    else
        result = failure();
    sqlite3_finalize(statement);
    return result;
}

StoreResult ConnectionDatabase::execute(const char *sql)
{
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return failure();
    return {};
}

StoreResult ConnectionDatabase::failure(NAPI_STATUS status, const std::string &reason) const
{
    return {status, m_path + ": cannot keep the IDs of profiles: " + reason};
}

StoreResult ConnectionDatabase::failure() const
{
    const int code = sqlite3_extended_errcode(m_database);
    const int systemError = sqlite3_system_errno(m_database);
    return failure(statusOfSqliteError(code, systemError), sqlite3_errmsg(m_database));
}

// ---- The lock -----------------------------------------------------------------------------------

bool ConnectionDatabase::isLocked() const
{
    return sqlite3_get_autocommit(m_database) == 0;
}

StoreResult ConnectionDatabase::Lock::take()
{
    return m_numbers.execute("BEGIN IMMEDIATE");
}

StoreResult ConnectionDatabase::Lock::commit()
{
    return m_numbers.execute("COMMIT");
}

ConnectionDatabase::Lock::~Lock()
{
    if (m_numbers.isLocked())
        sqlite3_exec(m_numbers.m_database, "ROLLBACK", nullptr, nullptr, nullptr);
}

// ---- Numbers ------------------------------------------------------------------------------------

StoreResult ConnectionDatabase::find(const std::string &uuid, std::uint32_t &number)
{
    sqlite3_bind_text(m_find, 1, uuid.data(), static_cast<int>(uuid.size()), SQLITE_STATIC);
    const int step = sqlite3_step(m_find);
    const std::int64_t found = step == SQLITE_ROW ? sqlite3_column_int64(m_find, 0) : 0;
    StoreResult result;
    if (step != SQLITE_ROW && step != SQLITE_DONE)
        result = failure();
    else if (found < 0 || found > std::numeric_limits<std::uint32_t>::max())
        result = failure(NAPI_ERROR_CORRUPT, "the number of " + uuid + " is damaged");
    else
        number = static_cast<std::uint32_t>(found);
    sqlite3_reset(m_find);
    sqlite3_clear_bindings(m_find);
    return result;
}

StoreResult ConnectionDatabase::insert(const std::string &uuid, std::uint32_t &number)
{
    sqlite3_bind_text(m_insert, 1, uuid.data(), static_cast<int>(uuid.size()), SQLITE_STATIC);
    StoreResult result;
    if (sqlite3_step(m_insert) != SQLITE_DONE)
        result = failure();
    else if (sqlite3_last_insert_rowid(m_database) > std::numeric_limits<std::uint32_t>::max())
        result = failure(NAPI_ERROR_STORE_FULL, "all numbers are used up");
    else
        number = static_cast<std::uint32_t>(sqlite3_last_insert_rowid(m_database));
    sqlite3_reset(m_insert);
    sqlite3_clear_bindings(m_insert);
    return result;
}

StoreResult ConnectionDatabase::insertMissing(const std::vector<std::string> &uuids,
                                              NumberByUuid &numbers)
{
    std::optional<Lock> lock;
    StoreResult result;
    if (!isLocked())
        result = lock.emplace(*this).take();
    for (const std::string &uuid : uuids) {
        std::uint32_t &number = numbers[uuid];
        if (!result.failed() && number == 0)
            result = find(uuid, number); // another process may have been faster
        if (!result.failed() && number == 0)
            result = insert(uuid, number);
    }
    if (!result.failed() && lock.has_value())
        result = lock->commit();
    return result;
}

StoreResult ConnectionDatabase::numbersOf(const std::vector<std::string> &uuids,
                                          std::vector<std::uint32_t> &numbers)
{
    NumberByUuid found;
    bool isComplete = true;
    for (const std::string &uuid : uuids) {
        const auto known = m_known.find(uuid);
        std::uint32_t &number = found[uuid];
        StoreResult result;
        if (known != m_known.end())
            number = known->second;
        else
            result = find(uuid, number);
        if (result.failed())
            return result;
        isComplete = isComplete && number != 0;
    }
    StoreResult result;
    if (!isComplete)
        result = insertMissing(uuids, found);
    if (result.failed())
        return result;
    if (!isLocked())
        m_known.merge(found);
    numbers.clear();
    for (const std::string &uuid : uuids)
        numbers.push_back(m_known.contains(uuid) ? m_known[uuid] : found[uuid]);
    return {};
}

// ---- Secrets ------------------------------------------------------------------------------------

StoreResult ConnectionDatabase::prepare(const char *sql, const std::string &uuid,
                                        Statement &statement)
{
    sqlite3_stmt *prepared = nullptr;
    const int code = sqlite3_prepare_v2(m_database, sql, -1, &prepared, nullptr);
    statement.reset(prepared);
    if (code != SQLITE_OK)
        return failure();
    sqlite3_bind_text(prepared, 1, uuid.data(), static_cast<int>(uuid.size()), SQLITE_TRANSIENT);
    return {};
}

StoreResult ConnectionDatabase::secretsOf(const std::string &uuid, KeptSecrets &secrets)
{
    Statement statement;
    StoreResult result =
        prepare("SELECT field, value FROM profile_secret WHERE uuid = ?1", uuid, statement);
    if (result.failed())
        return result;
    const auto bytes = [&](int column) {
        const void *data = sqlite3_column_blob(statement.get(), column);
        const int size = sqlite3_column_bytes(statement.get(), column);
        return data == nullptr
                   ? std::string()
                   : std::string(static_cast<const char *>(data), static_cast<std::size_t>(size));
    };
    KeptSecrets found;
    int step = sqlite3_step(statement.get());
    for (; step == SQLITE_ROW; step = sqlite3_step(statement.get()))
        found[bytes(0)] = bytes(1);
    if (step != SQLITE_DONE)
        return failure();
    secrets = std::move(found);
    return {};
}

StoreResult ConnectionDatabase::setSecrets(const std::string &uuid, const KeptSecrets &secrets)
{
    std::optional<Lock> lock;
    StoreResult result;
    if (!isLocked())
        result = lock.emplace(*this).take();
    Statement statement;
    if (!result.failed())
        result = prepare("DELETE FROM profile_secret WHERE uuid = ?1", uuid, statement);
    if (!result.failed() && sqlite3_step(statement.get()) != SQLITE_DONE)
        result = failure();
    for (const auto &[field, value] : secrets) {
        if (!result.failed())
            result = prepare("INSERT INTO profile_secret VALUES(?1, ?2, ?3)", uuid, statement);
        if (result.failed())
            return result;
        sqlite3_bind_text(statement.get(), 2, field.data(), static_cast<int>(field.size()),
                          SQLITE_STATIC);
        sqlite3_bind_blob(statement.get(), 3, value.data(), static_cast<int>(value.size()),
                          SQLITE_STATIC);
        if (sqlite3_step(statement.get()) != SQLITE_DONE)
            result = failure();
    }
    statement.reset(); // an open one keeps the commit from ending
    if (!result.failed() && lock.has_value())
        result = lock->commit();
    return result;
}

// ---- The maximum --------------------------------------------------------------------------------

StoreResult ConnectionDatabase::readMaximum(unsigned int &maximum)
{
    unsigned int stored = 0;
    if (!::readMaximum(m_database, stored))
        return failure();
    if (stored == 0)
        return failure(NAPI_ERROR_CORRUPT, "the maximum of profiles is damaged");
    maximum = stored;
    return {};
}

StoreResult ConnectionDatabase::storeMaximum(unsigned int maximum)
{
    Lock lock(*this);
    StoreResult result = lock.take();
    if (!result.failed() && !::storeMaximum(m_database, maximum))
        result = failure();
    return result.failed() ? result : lock.commit();
}
