#include "stored_maximum.h"

#include <cstdint>
#include <memory>
#include <string>

namespace {

/// Runs a statement that gives one number. @return false with the database's error set
bool readNumber(sqlite3 *database, const char *sql, std::int64_t &number)
{
    sqlite3_stmt *prepared = nullptr;
    const int code = sqlite3_prepare_v2(database, sql, -1, &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(prepared,
                                                                               &sqlite3_finalize);
    if (code != SQLITE_OK || sqlite3_step(prepared) != SQLITE_ROW)
        return false;
    number = sqlite3_column_int64(prepared, 0);
    return true;
}

} // namespace

bool readMaximum(sqlite3 *database, unsigned int &maximum)
{
    std::int64_t tables = 0;
    if (!readNumber(database, "SELECT count(*) FROM sqlite_schema WHERE name = 'store_setting'",
                    tables))
        return false;
    std::int64_t stored = kDefaultMaximum;
    // An aggregate has a row also when the table has none.
    if (tables != 0 &&
        !readNumber(database, "SELECT max(value) FROM store_setting WHERE name = 'maximum'",
                    stored))
        return false;
    const bool isGood = stored >= 1 && stored <= kLargestMaximum;
    maximum = isGood ? static_cast<unsigned int>(stored) : 0;
    return true;
}

bool storeMaximum(sqlite3 *database, unsigned int maximum)
{
    const std::string sql = "CREATE TABLE IF NOT EXISTS store_setting("
                            "  name TEXT PRIMARY KEY,"
                            "  value INTEGER NOT NULL) STRICT, WITHOUT ROWID;"
                            "INSERT INTO store_setting VALUES('maximum', " +
                            std::to_string(maximum) +
                            ") ON CONFLICT(name) DO UPDATE SET value = excluded.value";
    return sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}
