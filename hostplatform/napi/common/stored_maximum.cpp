#include "stored_maximum.h"

StoreResult readMaximum(SqliteFile &file, unsigned int &maximum)
{
    constexpr const char *action = "read the maximum of profiles";
    std::int64_t tables = 0;
    std::int64_t stored = defaultMaximum;
    StoreResult result = file.readNumber(
        "SELECT count(*) FROM sqlite_schema WHERE name = 'store_setting'", action, tables);
    // An aggregate has a row also when the table has none.
    if (!result.failed() && tables != 0)
        result = file.readNumber("SELECT max(value) FROM store_setting WHERE name = 'maximum'",
                                 action, stored);
    if (result.failed())
        return result;
    if (stored < 1 || stored > largestMaximum)
        return file.failure(NAPI_ERROR_CORRUPT, "the maximum of profiles is damaged");
    maximum = static_cast<unsigned int>(stored);
    return {};
}

StoreResult storeMaximum(SqliteFile &file, unsigned int maximum)
{
    constexpr const char *action = "keep KUB_NAPI_MAX";
    const std::string sql = "CREATE TABLE IF NOT EXISTS store_setting("
                            "  name TEXT PRIMARY KEY,"
                            "  value INTEGER NOT NULL) STRICT, WITHOUT ROWID;"
                            "INSERT INTO store_setting VALUES('maximum', " +
                            std::to_string(maximum) +
                            ") ON CONFLICT(name) DO UPDATE SET value = excluded.value";
    SqliteTransaction transaction(file, action);
    StoreResult result = transaction.begin();
    if (!result.failed())
        result = file.execute(sql.c_str(), action);
    return result.failed() ? result : transaction.commit();
}
