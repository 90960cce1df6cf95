#include "profile_numbers.h"

#include <cerrno>
#include <limits>
#include <optional>

#include "database_file.h"
#include "sqlite_status.h"

namespace {

constexpr std::int64_t kApplicationId = 0x4B55424D; // "KUBM", what file(1) and PRAGMA show
constexpr std::int64_t kSchemaVersion = 1;

constexpr const char *kCreateSchema =
    "CREATE TABLE profile_number("
    "  number INTEGER PRIMARY KEY AUTOINCREMENT," // never a second time, also not that of a deleted
                                                  // row
    "  uuid TEXT NOT NULL UNIQUE"
    ") STRICT;"
    "PRAGMA application_id = 0x4B55424D;"
    "PRAGMA user_version = 1;";

} // namespace

// ---- The database -------------------------------------------------------------------------------

StoreResult ProfileNumbers::open(const std::string &path, std::unique_ptr<ProfileNumbers> &numbers)
{
    std::unique_ptr<ProfileNumbers> opened(new ProfileNumbers(path));
    StoreResult result = opened->createFile();
    if (!result.failed())
        result = opened->openDatabase();
    if (!result.failed())
        numbers = std::move(opened);
    return result;
}

ProfileNumbers::~ProfileNumbers()
{
    sqlite3_finalize(m_find);
    sqlite3_finalize(m_insert);
    sqlite3_close(m_database);
}

StoreResult ProfileNumbers::createFile()
{
    const handset_state::Refusal refusal = makeDatabaseFile(m_path);
    const bool isUnwritable =
        refusal.path == m_path && (refusal.error == EROFS || refusal.error == EACCES);
    if (refusal && !isUnwritable)
        return failure(statusOfRefusal(refusal),
                       refusal.path == m_path ? refusal.reason : refusal.text());
    return {};
}

StoreResult ProfileNumbers::openDatabase()
{
    if (sqlite3_open_v2(m_path.c_str(), &m_database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
        return failure();
    sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
    // A damaged or planted file must not get further than an error.
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    // A number that a power cut takes back would be given a second time.
    StoreResult result = execute("PRAGMA cell_size_check = ON; PRAGMA synchronous = FULL");
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

StoreResult ProfileNumbers::openSchema()
{
    std::int64_t tables = 0;
    std::int64_t applicationId = 0;
    std::int64_t version = 0;
    StoreResult result = readPragma("SELECT count(*) FROM sqlite_schema", tables);
    if (!result.failed() && tables == 0) {
        // Another process may be doing the same.
        Lock lock(*this);
        result = lock.take();
        if (!result.failed())
            result = readPragma("SELECT count(*) FROM sqlite_schema", tables);
        if (!result.failed() && tables == 0)
            result = execute(kCreateSchema);
        if (!result.failed())
            result = lock.commit();
    }
    if (!result.failed())
        result = readPragma("PRAGMA application_id", applicationId);
    if (!result.failed())
        result = readPragma("PRAGMA user_version", version);
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

StoreResult ProfileNumbers::readPragma(const char *sql, std::int64_t &value)
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

StoreResult ProfileNumbers::execute(const char *sql)
{
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return failure();
    return {};
}

StoreResult ProfileNumbers::failure(NAPI_STATUS status, const std::string &reason) const
{
    return {status, m_path + ": cannot keep the IDs of profiles: " + reason};
}

StoreResult ProfileNumbers::failure() const
{
    const int code = sqlite3_extended_errcode(m_database);
    const int systemError = sqlite3_system_errno(m_database);
    return failure(statusOfSqliteError(code, systemError), sqlite3_errmsg(m_database));
}

// ---- The lock -----------------------------------------------------------------------------------

bool ProfileNumbers::isLocked() const
{
    return sqlite3_get_autocommit(m_database) == 0;
}

StoreResult ProfileNumbers::Lock::take()
{
    return m_numbers.execute("BEGIN IMMEDIATE");
}

StoreResult ProfileNumbers::Lock::commit()
{
    return m_numbers.execute("COMMIT");
}

ProfileNumbers::Lock::~Lock()
{
    if (m_numbers.isLocked())
        sqlite3_exec(m_numbers.m_database, "ROLLBACK", nullptr, nullptr, nullptr);
}

// ---- Numbers ------------------------------------------------------------------------------------

StoreResult ProfileNumbers::find(const std::string &uuid, std::uint32_t &number)
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

StoreResult ProfileNumbers::insert(const std::string &uuid, std::uint32_t &number)
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

StoreResult ProfileNumbers::insertMissing(const std::vector<std::string> &uuids,
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

StoreResult ProfileNumbers::numbersOf(const std::vector<std::string> &uuids,
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
