#include "sqlite_profile_store.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "database_file.h"
#include "profile_name.h"
#include "sqlite_status.h"
#include "stored_maximum.h"

namespace {

constexpr std::int64_t kApplicationId = 0x4B55424E; // "KUBN", what file(1) and PRAGMA show
constexpr std::int64_t kSchemaVersion = 1;

constexpr const char *kOpenAction = "open the profile store";
constexpr const char *kNoSuchName = "has no profile of that name";
constexpr const char *kDamagedName = "the name of a profile is damaged";

constexpr const char *kCreateSchema =
    "CREATE TABLE profile("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT," // never gives an ID a second time
    "  name TEXT NOT NULL UNIQUE CHECK(length(CAST(name AS BLOB)) BETWEEN 1 AND 63),"
    "  record BLOB NOT NULL CHECK(length(record) = 1168)"
    ") STRICT;"
    "PRAGMA application_id = 0x4B55424E;"
    "PRAGMA user_version = 1;";

/// The name of a file as an SQLite URI for media that nothing can write: SQLite then needs neither
/// its lock files nor a log beside the database.
std::string immutableUri(const std::string &path)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char character : path) {
        if (std::strchr("%?#", character) == nullptr) {
            uri += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        uri += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
    }
    return uri + "?immutable=1";
}

bool isEmptyOrMissing(const std::string &path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) != 0 || status.st_size == 0;
}

} // namespace

//////////////////////////////////////////////////////////////////////////////////////////////////
// Statements

const std::array<const char *, SqliteProfileStore::StatementCount> SqliteProfileStore::kSql = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT count(*) FROM profile",
    "SELECT id, name FROM profile ORDER BY id LIMIT ?1",
    "SELECT record FROM profile WHERE name = ?1",
    "UPDATE profile SET record = ?2 WHERE name = ?1",
    "INSERT INTO profile(name, record) VALUES(?1, ?2)",
    "DELETE FROM profile WHERE name = ?1",
    "SELECT id FROM profile WHERE name = ?1",
    "SELECT id, name FROM profile WHERE id = ?1",
    "SELECT id, name FROM profile"
    " WHERE instr(name, '/') > 0 OR CAST(name AS TEXT) IN ('.', '..', '*') ORDER BY id",
};

/// One run of a prepared statement. The bound values have to outlive it.
class SqliteProfileStore::Query {
public:
    Query(const SqliteProfileStore &store, Statement statement)
        : m_statement(store.m_statements[statement])
    {
    }
    ~Query()
    {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    Query &bind(int index, std::string_view text)
    {
        sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
        return *this;
    }
    Query &bind(int index, const NAP_PROFILE_S &record)
    {
        sqlite3_bind_blob(m_statement, index, &record, sizeof record, SQLITE_STATIC);
        return *this;
    }
    Query &bind(int index, std::uint32_t number)
    {
        sqlite3_bind_int64(m_statement, index, number);
        return *this;
    }

    /// @return SQLITE_ROW, SQLITE_DONE, or anything else for a failure.
    int step()
    {
        errno = 0; // so that failure() finds the reason of this step
        return sqlite3_step(m_statement);
    }

    std::int64_t number() const { return sqlite3_column_int64(m_statement, 0); }
    std::string_view bytes(int column = 0) const
    {
        const void *data = sqlite3_column_blob(m_statement, column);
        const int size = sqlite3_column_bytes(m_statement, column);
        return {static_cast<const char *>(data), data == nullptr ? 0 : static_cast<size_t>(size)};
    }

private:
    sqlite3_stmt *m_statement;
};

/// Is rolled back at its end unless it was committed.
class SqliteProfileStore::Transaction {
public:
    explicit Transaction(SqliteProfileStore &store) : m_store(store) {}
    ~Transaction()
    {
        if (sqlite3_get_autocommit(m_store.m_database) == 0)
            Query(m_store, Rollback).step();
    }
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    bool begin() { return Query(m_store, Begin).step() == SQLITE_DONE; }
    bool commit() { return Query(m_store, Commit).step() == SQLITE_DONE; }

private:
    SqliteProfileStore &m_store;
};

//////////////////////////////////////////////////////////////////////////////////////////////////
// Failures

StoreResult SqliteProfileStore::failure(NAPI_STATUS status, const std::string &reason) const
{
    return {status, m_path + ": " + reason};
}

StoreResult SqliteProfileStore::failure(const char *action)
{
    // SQLite notes the system's reason for most failures, not for those of a commit.
    const int lastError = errno;
    const int notedError = sqlite3_system_errno(m_database);
    const int systemError = notedError != 0 ? notedError : lastError;
    const int code = sqlite3_extended_errcode(m_database);
    const NAPI_STATUS status = statusOfSqliteError(code, systemError);
    std::string reason = std::string("cannot ") + action + ": " + sqlite3_errmsg(m_database) +
                         " (SQLite code " + std::to_string(code) + ")";
    if (isSystemFailure(code) && systemError != 0)
        reason += std::string(", ") + std::strerror(systemError);
    if (code == SQLITE_CORRUPT)
        reason += quickCheck();
    return failure(status, reason);
}

/// @return what SQLite finds wrong with a database that it has called damaged.
std::string SqliteProfileStore::quickCheck()
{
    std::string findings;
    const auto appendFinding = [](void *text, int, char **columns, char **) {
        *static_cast<std::string *>(text) += std::string("; ") + columns[0];
        return 0;
    };
    sqlite3_exec(m_database, "PRAGMA quick_check(3)", appendFinding, &findings, nullptr);
    return findings;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Opening

StoreResult SqliteProfileStore::open(const std::string &path, std::unique_ptr<ProfileStore> &store)
{
    std::unique_ptr<SqliteProfileStore> opened(new SqliteProfileStore(path));
    StoreResult result = opened->openDatabase();
    if (!result.failed())
        result = opened->openSchema();
    if (!result.failed())
        result = opened->prepareStatements();
    if (!result.failed())
        store = std::move(opened);
    return result;
}

SqliteProfileStore::~SqliteProfileStore()
{
    for (sqlite3_stmt *statement : m_statements)
        sqlite3_finalize(statement);
    sqlite3_close(m_database);
}

StoreResult SqliteProfileStore::openDatabase()
{
    const handset_state::Refusal refusal = makeDatabaseFile(m_path);
    const bool isOfFile = refusal.path == m_path;
    const bool isUnwritable = isOfFile && (refusal.error == EROFS || refusal.error == EACCES);
    if (refusal && (!isUnwritable || ::access(m_path.c_str(), R_OK) != 0)) {
        return failure(statusOfRefusal(refusal), "cannot open the profile store: " +
                                                     (isOfFile ? refusal.reason : refusal.text()));
    }

    const bool isImmutable = refusal.error == EROFS && isEmptyOrMissing(m_path + "-wal");
    const std::string name = isImmutable ? immutableUri(m_path) : m_path;
    const int mode = !refusal ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
    if (sqlite3_open_v2(name.c_str(), &m_database, mode | SQLITE_OPEN_URI | SQLITE_OPEN_EXRESCODE,
                        nullptr) != SQLITE_OK)
        return failure(kOpenAction);
    sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
    // A damaged or planted file must not get further than an error.
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    return execute("PRAGMA cell_size_check = ON; PRAGMA synchronous = NORMAL");
}

StoreResult SqliteProfileStore::execute(const char *sql)
{
    errno = 0;
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return failure(kOpenAction);
    return {};
}

StoreResult SqliteProfileStore::readNumber(const char *sql, std::int64_t &value)
{
    sqlite3_stmt *statement = nullptr;
    StoreResult result;
    if (sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        value = sqlite3_column_int64(statement, 0);
    else
        result = failure(kOpenAction);
    sqlite3_finalize(statement);
    return result;
}

StoreResult SqliteProfileStore::readIdentity(Identity &identity)
{
    StoreResult result = readNumber("SELECT count(*) FROM sqlite_schema", identity.tables);
    if (!result.failed())
        result = readNumber("PRAGMA application_id", identity.applicationId);
    if (!result.failed())
        result = readNumber("PRAGMA user_version", identity.version);
    return result;
}

StoreResult SqliteProfileStore::openSchema()
{
    // SQLite does not wait where it could deadlock: when several processes switch the same new file
    // to the write-ahead log.
    using Clock = std::chrono::steady_clock;
    constexpr int retryDelayMs = 5;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
    for (;;) {
        StoreResult result = tryOpenSchema();
        sqlite3_exec(m_database, "ROLLBACK", nullptr, nullptr, nullptr); // what a failure left open
        if (result.status != NAPI_ERROR_BUSY || Clock::now() >= deadline)
            return result;
        sqlite3_sleep(retryDelayMs);
    }
}

StoreResult SqliteProfileStore::tryOpenSchema()
{
    Identity identity;
    StoreResult result = execute("BEGIN"); // so that the three numbers belong together
    if (!result.failed())
        result = readIdentity(identity);
    if (!result.failed())
        result = execute("COMMIT");
    if (result.failed())
        return result;
    if (identity.isNewFile())
        return createSchema();
    if (identity.applicationId != kApplicationId)
        return failure(NAPI_ERROR_CORRUPT, "is a database of another program, no profile store");
    if (identity.version != kSchemaVersion) {
        return failure(NAPI_ERROR_CORRUPT,
                       "is a profile store of format " + std::to_string(identity.version) +
                           ", this library knows " + std::to_string(kSchemaVersion));
    }
    return {};
}

StoreResult SqliteProfileStore::createSchema()
{
    StoreResult result = execute("PRAGMA journal_mode = WAL");
    if (!result.failed())
        result = execute("BEGIN IMMEDIATE");
    Identity identity;
    if (!result.failed())
        result = readIdentity(identity);
    // Another process may have created it in the meantime.
    if (!result.failed() && identity.isNewFile())
        result = execute(kCreateSchema);
    if (!result.failed())
        result = execute("COMMIT");
    return result;
}

StoreResult SqliteProfileStore::prepareStatements()
{
    for (std::size_t index = 0; index < kSql.size(); ++index) {
        const int code = sqlite3_prepare_v3(m_database, kSql[index], -1, SQLITE_PREPARE_PERSISTENT,
                                            &m_statements[index], nullptr);
        if (code == SQLITE_ERROR) {
            return failure(NAPI_ERROR_CORRUPT, std::string("is a damaged profile store: ") +
                                                   sqlite3_errmsg(m_database));
        }
        if (code != SQLITE_OK)
            return failure(kOpenAction);
    }
    return {};
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Operations

StoreResult SqliteProfileStore::count(unsigned int &profiles)
{
    Query query(*this, Count);
    if (query.step() != SQLITE_ROW)
        return failure("count the profiles");
    profiles = static_cast<unsigned int>(query.number());
    return {};
}

StoreResult SqliteProfileStore::list(unsigned int limit, std::vector<std::string> &names)
{
    std::vector<std::string> found;
    std::vector<Renamed> renamed;
    Query query(*this, List);
    query.bind(1, limit);
    int step = query.step();
    for (; step == SQLITE_ROW; step = query.step()) {
        StoreResult result =
            listedName(query.number(), query.bytes(1), renamed, found.emplace_back());
        if (result.failed())
            return result;
    }
    if (step != SQLITE_DONE)
        return failure("list the profiles");
    names = std::move(found);
    return {};
}

StoreResult SqliteProfileStore::read(std::string_view name, NAP_PROFILE_S &record)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        Query query(*this, Read);
        const int step = query.bind(1, storedName).step();
        if (step == SQLITE_DONE)
            return failure(NAPI_ERROR_NOT_FOUND, kNoSuchName);
        if (step != SQLITE_ROW)
            return failure("read a profile");
        const std::string_view bytes = query.bytes();
        if (bytes.size() != sizeof record)
            return failure(NAPI_ERROR_CORRUPT, "the record of a profile is damaged");
        std::memcpy(&record, bytes.data(), sizeof record);
        return {};
    });
}

StoreResult SqliteProfileStore::modify(std::string_view name, const NAP_PROFILE_S &record)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        if (Query(*this, Modify).bind(1, storedName).bind(2, record).step() != SQLITE_DONE)
            return failure("change a profile");
        if (sqlite3_changes(m_database) == 0)
            return failure(NAPI_ERROR_NOT_FOUND, kNoSuchName);
        return {};
    });
}

StoreResult SqliteProfileStore::create(std::string_view name, const NAP_PROFILE_S &record,
                                       unsigned int maximum)
{
    constexpr const char *action = "create a profile";
    Transaction transaction(*this);
    if (!transaction.begin())
        return failure(action);
    std::uint32_t existingId = 0;
    StoreResult result = idByName(name, existingId);
    if (!result.failed())
        return failure(NAPI_ERROR_EXISTS, "has a profile of that name already");
    if (result.status != NAPI_ERROR_NOT_FOUND)
        return result;
    unsigned int profiles = 0;
    result = count(profiles);
    if (result.failed())
        return result;
    if (profiles >= maximum) {
        return failure(NAPI_ERROR_STORE_FULL,
                       "is full with " + std::to_string(profiles) + " profiles");
    }
    if (Query(*this, Create).bind(1, name).bind(2, record).step() != SQLITE_DONE)
        return failure(action);
    if (sqlite3_last_insert_rowid(m_database) > std::numeric_limits<std::uint32_t>::max())
        return failure(NAPI_ERROR_STORE_FULL, "has used up its IDs");
    if (!transaction.commit())
        return failure(action);
    return {};
}

StoreResult SqliteProfileStore::readMaximum(unsigned int &maximum)
{
    unsigned int stored = 0;
    if (!::readMaximum(m_database, stored))
        return failure("read the maximum of profiles");
    if (stored == 0)
        return failure(NAPI_ERROR_CORRUPT, "the maximum of profiles is damaged");
    maximum = stored;
    return {};
}

StoreResult SqliteProfileStore::storeMaximum(unsigned int maximum)
{
    constexpr const char *action = "keep KUB_NAPI_MAX";
    Transaction transaction(*this);
    if (!transaction.begin() || !::storeMaximum(m_database, maximum) || !transaction.commit())
        return failure(action);
    return {};
}

StoreResult SqliteProfileStore::remove(std::string_view name)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        if (Query(*this, Remove).bind(1, storedName).step() != SQLITE_DONE)
            return failure("delete a profile");
        if (sqlite3_changes(m_database) == 0)
            return failure(NAPI_ERROR_NOT_FOUND, kNoSuchName);
        return {};
    });
}

StoreResult SqliteProfileStore::idByName(std::string_view name, std::uint32_t &id)
{
    return runOnStoredName(
        name, [&](std::string_view storedName) { return idByStoredName(storedName, id); });
}

StoreResult SqliteProfileStore::nameById(std::uint32_t id, std::string &name)
{
    Query query(*this, NameById);
    const int step = query.bind(1, id).step();
    if (step == SQLITE_DONE)
        return failure(NAPI_ERROR_NOT_FOUND, "has no profile of that ID");
    if (step != SQLITE_ROW)
        return failure("look up a profile");
    std::vector<Renamed> renamed;
    return listedName(id, query.bytes(1), renamed, name);
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Stored names that are no profile names

StoreResult SqliteProfileStore::idByStoredName(std::string_view name, std::uint32_t &id)
{
    Query query(*this, IdByName);
    const int step = query.bind(1, name).step();
    if (step == SQLITE_DONE)
        return failure(NAPI_ERROR_NOT_FOUND, kNoSuchName);
    if (step != SQLITE_ROW)
        return failure("look up a profile");
    const std::int64_t number = query.number();
    if (number < 0 || number > std::numeric_limits<std::uint32_t>::max())
        return failure(NAPI_ERROR_CORRUPT, "the ID of a profile is damaged");
    id = static_cast<std::uint32_t>(number);
    return {};
}

StoreResult SqliteProfileStore::readRenamed(std::vector<Renamed> &profiles)
{
    StoreResult result;
    std::set<std::string, std::less<>> given;
    const auto isTaken = [&](std::string_view name) {
        std::uint32_t ignored = 0;
        const StoreResult lookup = idByStoredName(name, ignored);
        if (lookup.failed() && lookup.status != NAPI_ERROR_NOT_FOUND)
            result = lookup;
        return !lookup.failed() || given.contains(name);
    };
    Query query(*this, WithoutProfileName);
    int step = query.step();
    for (; step == SQLITE_ROW && !result.failed(); step = query.step()) {
        const std::int64_t id = query.number();
        const std::string_view storedName = query.bytes(1);
        if (!isNameText(storedName))
            return failure(NAPI_ERROR_CORRUPT, kDamagedName);
        const std::string name = substituteName(storedName, std::to_string(id), isTaken);
        given.insert(name);
        profiles.push_back({id, std::string(storedName), name});
    }
    if (step != SQLITE_DONE && !result.failed())
        return failure("look up a profile");
    return result;
}

StoreResult SqliteProfileStore::listedName(std::int64_t id, std::string_view storedName,
                                           std::vector<Renamed> &renamed, std::string &name)
{
    if (!isNameText(storedName))
        return failure(NAPI_ERROR_CORRUPT, kDamagedName);
    if (isProfileName(storedName)) {
        name = storedName;
        return {};
    }
    StoreResult result;
    if (renamed.empty())
        result = readRenamed(renamed);
    if (result.failed())
        return result;
    const auto found = std::ranges::lower_bound(renamed, id, {}, &Renamed::id);
    if (found == renamed.end() || found->id != id) // SQLite reads the name in another way
        return failure(NAPI_ERROR_CORRUPT, kDamagedName);
    name = found->name;
    return {};
}

template <typename Operation>
StoreResult SqliteProfileStore::runOnStoredName(std::string_view name, Operation operation)
{
    StoreResult result = operation(name);
    const bool mayBeSubstitute = name.find('~') != name.npos;
    if (result.status != NAPI_ERROR_NOT_FOUND || !mayBeSubstitute)
        return result;
    std::vector<Renamed> renamed;
    StoreResult search = readRenamed(renamed);
    if (search.failed())
        return search;
    const auto found = std::ranges::find(renamed, name, &Renamed::name);
    return found == renamed.end() ? result : operation(found->storedName);
}
