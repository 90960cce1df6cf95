#include "sqlite_file.h"

#include "private_storage.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using handset_state::Refusal;

// ---- What failures mean -------------------------------------------------------------------------

namespace {

int primaryCode(int extendedCode)
{
    return extendedCode & 0xFF;
}

/// @param error  an errno value
NAPI_STATUS statusOfSystemError(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return NAPI_ERROR_NO_SPACE;
    case EROFS:
        return NAPI_ERROR_READ_ONLY;
    case EACCES:
    case EPERM:
        return NAPI_ERROR_UNAVAILABLE;
    case EISDIR:
    case EINVAL: // of a refusal: something else in the place of the file
        return NAPI_ERROR_CORRUPT;
    default:
        return NAPI_ERROR_IO;
    }
}

/// Whether the operating system has a reason of its own for a failure.
bool isSystemFailure(int extendedCode)
{
    return primaryCode(extendedCode) == SQLITE_CANTOPEN ||
           primaryCode(extendedCode) == SQLITE_IOERR;
}

NAPI_STATUS statusOfSqliteError(int extendedCode, int systemError)
{
    switch (primaryCode(extendedCode)) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return NAPI_ERROR_BUSY;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return NAPI_ERROR_CORRUPT;
    case SQLITE_FULL:
        return NAPI_ERROR_NO_SPACE;
    case SQLITE_READONLY:
        return NAPI_ERROR_READ_ONLY;
    case SQLITE_PERM:
        return NAPI_ERROR_UNAVAILABLE;
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
        return statusOfSystemError(systemError);
    default:
        return NAPI_ERROR_IO;
    }
}

} // namespace

StoreResult SqliteFile::failure(NAPI_STATUS status, const std::string &reason) const
{
    return {status, m_path + ": " + reason};
}

StoreResult SqliteFile::failure(const char *action)
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
    if (primaryCode(code) == SQLITE_CORRUPT)
        reason += quickCheck();
    return failure(status, reason);
}

/// @return what SQLite finds wrong with a database that it has called damaged.
std::string SqliteFile::quickCheck()
{
    std::string findings;
    const auto appendFinding = [](void *text, int, char **columns, char **) {
        *static_cast<std::string *>(text) += std::string("; ") + columns[0];
        return 0;
    };
    sqlite3_exec(m_database, "PRAGMA quick_check(3)", appendFinding, &findings, nullptr);
    return findings;
}

// ---- The file -----------------------------------------------------------------------------------

namespace {

/// Makes the state directory and the file as far as they are missing, and checks them and the files
/// that SQLite has beside it: it opens them all by their paths, and creates what is missing for
/// everybody to read.
/// @return EACCES or EROFS with the path of the file for one that can only be read, or not even
///         that
Refusal makeDatabaseFile(const std::string &path)
{
    if (Refusal refusal = handset_state::makeStateDirectory(path.substr(0, path.rfind('/'))))
        return refusal;
    // SQLite gives these the mode of the database.
    for (const char *const suffix : {"-journal", "-wal", "-shm"})
        if (Refusal refusal = handset_state::checkFile(path + suffix))
            return refusal;
    Refusal refusal;
    const handset_state::FileDescriptor file =
        handset_state::openFile(path, O_RDWR | O_CREAT, refusal);
    return refusal;
}

/// The name of a file as an SQLite URI for media that nothing can write: SQLite then needs neither
/// its lock files nor a log beside the database.
std::string immutableUri(const std::string &path)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char character : path) {
        if (!std::strchr("%?#", character)) {
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

/// Whether all that belongs to a database is in its one file.
bool isSelfContained(const std::string &path)
{
    return isEmptyOrMissing(path + "-wal") && isEmptyOrMissing(path + "-journal");
}

} // namespace

SqliteFile::~SqliteFile()
{
    for (const Statements *statements : {&m_transactionStatements, &m_statements})
        for (sqlite3_stmt *statement : *statements)
            sqlite3_finalize(statement);
    sqlite3_close(m_database);
}

StoreResult SqliteFile::open()
{
    StoreResult result = openDatabase();
    if (!result.failed())
        result = openFormat();
    if (!result.failed())
        result = prepare(m_kind.statements, m_statements);
    return result;
}

StoreResult SqliteFile::openDatabase()
{
    const Refusal refusal = makeDatabaseFile(m_path);
    const bool isOfFile = refusal.path == m_path;
    const bool isUnwritable = isOfFile && (refusal.error == EROFS || refusal.error == EACCES);
    if (refusal && (!isUnwritable || ::access(m_path.c_str(), R_OK) != 0)) {
        return failure(statusOfSystemError(refusal.error),
                       "cannot " + m_openAction + ": " +
                           (isOfFile ? refusal.reason : refusal.text()));
    }

    const bool isImmutable = refusal.error == EROFS && isSelfContained(m_path);
    const std::string name = isImmutable ? immutableUri(m_path) : m_path;
    const int mode = !refusal ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
    if (sqlite3_open_v2(name.c_str(), &m_database, mode | SQLITE_OPEN_URI | SQLITE_OPEN_EXRESCODE,
                        nullptr) != SQLITE_OK)
        return failure(m_openAction.c_str());
    sqlite3_busy_timeout(m_database, busyTimeoutMs);
    // A damaged or planted file must not get further than an error.
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    const std::string pragmas =
        std::string("PRAGMA cell_size_check = ON;") + m_kind.settingsPragmas;
    StoreResult result = execute(pragmas.c_str(), m_openAction.c_str());
    constexpr const char *transactionSql[] = {"BEGIN IMMEDIATE", "COMMIT", "ROLLBACK"};
    return result.failed() ? result : prepare(transactionSql, m_transactionStatements);
}

StoreResult SqliteFile::prepare(std::span<const char *const> sql, Statements &statements)
{
    for (const char *text : sql) {
        const int code = sqlite3_prepare_v3(m_database, text, -1, SQLITE_PREPARE_PERSISTENT,
                                            &statements.emplace_back(nullptr), nullptr);
        if (code == SQLITE_ERROR) {
            return failure(NAPI_ERROR_CORRUPT, std::string("is a damaged ") + m_kind.name + ": " +
                                                   sqlite3_errmsg(m_database));
        }
        if (code != SQLITE_OK)
            return failure(m_openAction.c_str());
    }
    return {};
}

// ---- Program and format -------------------------------------------------------------------------

StoreResult SqliteFile::readIdentity(Identity &identity)
{
    const char *const action = m_openAction.c_str();
    StoreResult result = readNumber("SELECT count(*) FROM sqlite_schema", action, identity.tables);
    if (!result.failed())
        result = readNumber("PRAGMA application_id", action, identity.applicationId);
    if (!result.failed())
        result = readNumber("PRAGMA user_version", action, identity.format);
    return result;
}

bool SqliteFile::needsFormat(const Identity &identity) const
{
    const bool isOlder = identity.applicationId == m_kind.applicationId && identity.format >= 1 &&
                         identity.format < newestFormat();
    return identity.isNewFile() || isOlder;
}

StoreResult SqliteFile::checkIdentity(const Identity &identity) const
{
    const std::string name = m_kind.name;
    if (identity.applicationId != m_kind.applicationId)
        return failure(NAPI_ERROR_CORRUPT, "is a database of another program, not a " + name);
    if (identity.format != newestFormat()) {
        return failure(NAPI_ERROR_CORRUPT,
                       "is a " + name + " of format " + std::to_string(identity.format) +
                           ", this library knows " + std::to_string(newestFormat()));
    }
    return {};
}

StoreResult SqliteFile::openFormat()
{
    // SQLite does not wait where it could deadlock: when several processes switch the same new file
    // to the write-ahead log.
    using Clock = std::chrono::steady_clock;
    constexpr int retryDelayMs = 5;
    const auto deadline = Clock::now() + std::chrono::milliseconds(busyTimeoutMs);
    for (;;) {
        StoreResult result = tryOpenFormat();
        if (result.status != NAPI_ERROR_BUSY || Clock::now() >= deadline)
            return result;
        sqlite3_sleep(retryDelayMs);
    }
}

StoreResult SqliteFile::tryOpenFormat()
{
    Identity identity;
    const auto readConsistently = [&] {
        StoreResult result = execute("BEGIN", m_openAction.c_str());
        if (!result.failed())
            result = readIdentity(identity);
        sqlite3_exec(m_database, "ROLLBACK", nullptr, nullptr, nullptr);
        return result;
    };
    StoreResult result = readConsistently();
    if (!result.failed() && needsFormat(identity)) {
        result = makeFormat(identity);
        if (!result.failed())
            result = readConsistently();
    }
    return result.failed() ? result : checkIdentity(identity);
}

StoreResult SqliteFile::makeFormat(const Identity &before)
{
    const char *const action = m_openAction.c_str();
    StoreResult result;
    if (before.isNewFile())
        result = execute(m_kind.newFilePragmas, action);
    SqliteTransaction transaction(*this, action);
    if (!result.failed())
        result = transaction.begin();
    Identity identity; // another process may have changed it in the meantime
    if (!result.failed())
        result = readIdentity(identity);
    if (!result.failed() && needsFormat(identity)) {
        std::string sql;
        for (std::int64_t format = identity.format; format < newestFormat(); ++format)
            sql += std::string(m_kind.formats[static_cast<std::size_t>(format)]) + ';';
        sql += "PRAGMA application_id = " + std::to_string(m_kind.applicationId) +
               ";PRAGMA user_version = " + std::to_string(newestFormat());
        result = execute(sql.c_str(), action);
    }
    return result.failed() ? result : transaction.commit();
}

// ---- Statements and transactions ----------------------------------------------------------------

StoreResult SqliteFile::execute(const char *sql, const char *action)
{
    errno = 0; // so that failure() finds the reason of this call
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return failure(action);
    return {};
}

StoreResult SqliteFile::copyTo(const std::string &folder)
{
    const std::string path = folder + m_path.substr(m_path.rfind('/'));
    const auto failureOf = [&path](int error, const std::string &reason) -> StoreResult {
        return {statusOfSystemError(error), path + ": cannot copy the profiles: " + reason};
    };
    Refusal refusal;
    if (!handset_state::openFile(path, O_RDWR | O_CREAT | O_EXCL, refusal))
        return failureOf(refusal.error, refusal.reason);
    sqlite3 *copy = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &copy, SQLITE_OPEN_READWRITE | SQLITE_OPEN_EXRESCODE,
                               nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_exec(copy, "PRAGMA synchronous = OFF; PRAGMA journal_mode = OFF", nullptr,
                            nullptr, nullptr);
    if (code == SQLITE_OK) {
        sqlite3_backup *const backup = sqlite3_backup_init(copy, "main", m_database, "main");
        if (backup)
            sqlite3_backup_step(backup, -1);
        code = backup ? sqlite3_backup_finish(backup) : sqlite3_extended_errcode(copy);
    }
    const StoreResult result =
        code == SQLITE_OK
            ? StoreResult()
            : StoreResult{statusOfSqliteError(code, EIO),
                          path + ": cannot copy the profiles: " + sqlite3_errstr(code)};
    sqlite3_close(copy);
    return result;
}

StoreResult SqliteFile::readNumber(const char *sql, const char *action, std::int64_t &number)
{
    sqlite3_stmt *statement = nullptr;
    StoreResult result;
    errno = 0;
    if (sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        number = sqlite3_column_int64(statement, 0);
    else
        result = failure(action);
    sqlite3_finalize(statement);
    return result;
}

StoreResult SqliteFile::run(TransactionStatement statement, const char *action)
{
    sqlite3_stmt *const prepared = m_transactionStatements[statement];
    errno = 0;
    StoreResult result;
    if (sqlite3_step(prepared) != SQLITE_DONE)
        result = failure(action);
    sqlite3_reset(prepared);
    return result;
}

SqliteQuery::~SqliteQuery()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

SqliteQuery &SqliteQuery::bind(int index, std::string_view text)
{
    sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
    return *this;
}

SqliteQuery &SqliteQuery::bind(int index, std::uint32_t number)
{
    sqlite3_bind_int64(m_statement, index, number);
    return *this;
}

SqliteQuery &SqliteQuery::bindBlob(int index, std::string_view bytes)
{
    sqlite3_bind_blob(m_statement, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_STATIC);
    return *this;
}

SqliteQuery::Step SqliteQuery::step()
{
    errno = 0; // so that failure() finds the reason of this step
    switch (sqlite3_step(m_statement)) {
    case SQLITE_ROW:
        return Step::Row;
    case SQLITE_DONE:
        return Step::Done;
    default:
        return Step::Failed;
    }
}

std::string_view SqliteQuery::bytes(int column) const
{
    const void *data = sqlite3_column_blob(m_statement, column);
    const int size = sqlite3_column_bytes(m_statement, column);
    return {static_cast<const char *>(data), !data ? 0 : static_cast<std::size_t>(size)};
}

SqliteTransaction::~SqliteTransaction()
{
    if (m_isOwn && m_file.isInTransaction())
        static_cast<void>(m_file.run(SqliteFile::Rollback, m_action));
}

StoreResult SqliteTransaction::begin()
{
    if (m_file.isInTransaction())
        return {};
    m_isOwn = true;
    return m_file.run(SqliteFile::Begin, m_action);
}

StoreResult SqliteTransaction::commit()
{
    return m_isOwn ? m_file.run(SqliteFile::Commit, m_action) : StoreResult();
}
