// A database of the profile service: one file, refused unless it is this user's, of the expected
// program and of a known format. Everything that both stores need of SQLite stands here.
#pragma once

#include "profile_store.h"

#include <cstdint>
#include <span>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

/// What one kind of database is. Its formats are numbered from 1.
struct SqliteFileKind {
    const char *name;            ///< for messages, such as "profile store"
    std::int64_t applicationId;  ///< what file(1) and PRAGMA application_id show
    const char *newFilePragmas;  ///< run once, on a file that is still empty
    const char *settingsPragmas; ///< run each time when the file is opened
    /// SQL that makes each format from the one before, the first one from an empty file.
    std::span<const char *const> formats;
    /// SQL of the statements that are kept prepared, numbered by their place.
    std::span<const char *const> statements;
};

/// The file, open for one process. A child of a fork must not use its parent's.
class SqliteFile {
public:
    /// How long a call waits for another process that has the file locked, in milliseconds.
    static constexpr int busyTimeoutMs = 2000;

    /// @param kind  outlives the object
    SqliteFile(std::string path, const SqliteFileKind &kind) : m_path(std::move(path)), m_kind(kind)
    {
    }
    ~SqliteFile();
    SqliteFile(const SqliteFile &) = delete;
    SqliteFile &operator=(const SqliteFile &) = delete;

    /// Opens the file and creates it, mode 0600, when there is none. One of an older format is
    /// brought to the newest; one of another program or of a later format is never changed. One
    /// that can only be read is opened for reading. Called once.
    StoreResult open();

    /// Runs SQL that has no result.
    /// @param action  for the message of a failure, such as "create a profile"
    StoreResult execute(const char *sql, const char *action);
    /// Runs SQL that gives one number.
    StoreResult readNumber(const char *sql, const char *action, std::int64_t &number);

    /// Writes everything that is in the file at this moment into a new one of its name in another
    /// folder, mode 0600. The copy is not forced to the disk: it is for a process, not for keeps.
    StoreResult copyTo(const std::string &folder);

    bool isInTransaction() const { return sqlite3_get_autocommit(m_database) == 0; }
    /// Of the last statement that changed rows.
    int changedRows() const { return sqlite3_changes(m_database); }
    std::int64_t lastInsertedId() const { return sqlite3_last_insert_rowid(m_database); }

    /// What the call that has just failed means to a caller of the profile service.
    /// @param action  what could not be done, such as "create a profile"
    StoreResult failure(const char *action);
    /// A failure that SQLite knows nothing of.
    StoreResult failure(NAPI_STATUS status, const std::string &reason) const;

private:
    friend class SqliteQuery;
    friend class SqliteTransaction;

    using Statements = std::vector<sqlite3_stmt *>;
    enum TransactionStatement : std::size_t { Begin, Commit, Rollback };

    /// What tells the kinds of databases and a new file from each other.
    struct Identity {
        std::int64_t tables = 0;
        std::int64_t applicationId = 0;
        std::int64_t format = 0;

        bool isNewFile() const { return tables == 0 && applicationId == 0 && format == 0; }
    };

    StoreResult openDatabase();
    StoreResult openFormat();
    StoreResult tryOpenFormat();
    StoreResult prepare(std::span<const char *const> sql, Statements &statements);
    StoreResult run(TransactionStatement statement, const char *action);
    StoreResult readIdentity(Identity &identity);
    StoreResult checkIdentity(const Identity &identity) const;
    /// Whether the file is new, or of an older format.
    bool needsFormat(const Identity &identity) const;
    StoreResult makeFormat(const Identity &before);
    std::int64_t newestFormat() const { return static_cast<std::int64_t>(m_kind.formats.size()); }
    std::string quickCheck();

    std::string m_path;
    const SqliteFileKind &m_kind;
    std::string m_openAction = std::string("open the ") + m_kind.name;
    sqlite3 *m_database = nullptr;
    Statements m_transactionStatements;
    Statements m_statements;
};

/// One run of a prepared statement. The bound values have to outlive it.
class SqliteQuery {
public:
    enum class Step { Row, Done, Failed };

    /// @param statement  its place in the statements of the kind
    SqliteQuery(const SqliteFile &file, std::size_t statement)
        : m_statement(file.m_statements[statement])
    {
    }
    ~SqliteQuery();
    SqliteQuery(const SqliteQuery &) = delete;
    SqliteQuery &operator=(const SqliteQuery &) = delete;

    /// @param index  of the value in the statement, from 1
    SqliteQuery &bind(int index, std::string_view text);
    SqliteQuery &bind(int index, std::uint32_t number);
    SqliteQuery &bindBlob(int index, std::string_view bytes);

    Step step();

    /// A column of the row. The bytes stay until the next step.
    std::int64_t number(int column = 0) const { return sqlite3_column_int64(m_statement, column); }
    std::string_view bytes(int column = 0) const;

private:
    sqlite3_stmt *m_statement;
};

/// Keeps other writers out from its begin to its commit. What was changed meanwhile is on the disk
/// with the commit, and never was when the object is dropped without one.
class SqliteTransaction {
public:
    /// @param action  for the message of a failure, such as "create a profile"
    SqliteTransaction(SqliteFile &file, const char *action) : m_file(file), m_action(action) {}
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction &) = delete;
    SqliteTransaction &operator=(const SqliteTransaction &) = delete;

    /// Waits for other writers. Inside another transaction of this process it becomes a part of
    /// that, whose commit then counts.
    StoreResult begin();
    StoreResult commit();

private:
    SqliteFile &m_file;
    const char *m_action;
    bool m_isOwn = false;
};
