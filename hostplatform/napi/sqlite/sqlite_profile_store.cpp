#include "sqlite_profile_store.h"

#include "profile_name.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

constexpr const char *noSuchName = "has no profile of that name";
constexpr const char *damagedName = "the name of a profile is damaged";
constexpr const char *lookUp = "look up a profile";

// ---- The database -------------------------------------------------------------------------------

constexpr const char *fileFormats[] = {
    "CREATE TABLE profile("
    "  id INTEGER PRIMARY KEY AUTOINCREMENT," // never gives an ID a second time
    "  name TEXT NOT NULL UNIQUE CHECK(length(CAST(name AS BLOB)) BETWEEN 1 AND 63),"
    "  record BLOB NOT NULL CHECK(length(record) = 1168)"
    ") STRICT",
};

enum Statement : std::size_t {
    Count,
    List,
    Read,
    Modify,
    Create,
    Remove,
    Rename,
    IdByName,
    NameById,
    WithoutProfileName,
    StatementCount
};

/// A slash, or a name that means something in an address, is in no profile's name.
constexpr const char *withoutProfileName =
    "SELECT id, name FROM profile"
    " WHERE instr(name, '/') > 0 OR CAST(name AS TEXT) IN ('.', '..', '*') ORDER BY id";

constexpr const char *statementTexts[StatementCount] = {
    "SELECT count(*) FROM profile",
    "SELECT id, name FROM profile ORDER BY id LIMIT ?1",
    "SELECT record FROM profile WHERE name = ?1",
    "UPDATE profile SET record = ?2 WHERE name = ?1",
    "INSERT INTO profile(name, record) VALUES(?1, ?2)",
    "DELETE FROM profile WHERE name = ?1",
    "UPDATE profile SET name = ?2 WHERE name = ?1",
    "SELECT id FROM profile WHERE name = ?1",
    "SELECT id, name FROM profile WHERE id = ?1",
    withoutProfileName,
};

constexpr SqliteFileKind profileStore = {
    .name = "profile store",
    .applicationId = 0x4B55424E, // "KUBN"
    .newFilePragmas = "PRAGMA journal_mode = WAL",
    .settingsPragmas = "PRAGMA synchronous = NORMAL",
    .formats = fileFormats,
    .statements = statementTexts,
};

using Step = SqliteQuery::Step;

std::string_view bytesOf(const NAP_PROFILE_S &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

} // namespace

SqliteProfileStore::SqliteProfileStore(std::string path) : m_file(std::move(path), profileStore) {}

StoreResult SqliteProfileStore::open(const std::string &path, std::unique_ptr<ProfileStore> &store)
{
    std::unique_ptr<SqliteProfileStore> opened(new SqliteProfileStore(path));
    StoreResult result = opened->m_file.open();
    if (!result.failed())
        store = std::move(opened);
    return result;
}

// ---- Operations ---------------------------------------------------------------------------------

StoreResult SqliteProfileStore::count(unsigned int &profiles)
{
    SqliteQuery query(m_file, Count);
    if (query.step() != Step::Row)
        return m_file.failure("count the profiles");
    profiles = static_cast<unsigned int>(query.number());
    return {};
}

StoreResult SqliteProfileStore::list(unsigned int limit, std::vector<std::string> &names)
{
    std::vector<std::string> found;
    std::vector<Renamed> renamed;
    SqliteQuery query(m_file, List);
    query.bind(1, limit);
    Step step = query.step();
    for (; step == Step::Row; step = query.step()) {
        StoreResult result =
            listedName(query.number(), query.bytes(1), renamed, found.emplace_back());
        if (result.failed())
            return result;
    }
    if (step != Step::Done)
        return m_file.failure("list the profiles");
    names = std::move(found);
    return {};
}

StoreResult SqliteProfileStore::read(std::string_view name, NAP_PROFILE_S &record)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        SqliteQuery query(m_file, Read);
        StoreResult result = toRow(query.bind(1, storedName), "read a profile", noSuchName);
        if (result.failed())
            return result;
        const std::string_view bytes = query.bytes();
        if (bytes.size() != sizeof record)
            return m_file.failure(NAPI_ERROR_CORRUPT, "the record of a profile is damaged");
        std::memcpy(&record, bytes.data(), sizeof record);
        return {};
    });
}

StoreResult SqliteProfileStore::modify(std::string_view name, const NAP_PROFILE_S &record)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        SqliteQuery query(m_file, Modify);
        query.bind(1, storedName).bindBlob(2, bytesOf(record));
        return change(query, "change a profile");
    });
}

StoreResult SqliteProfileStore::create(std::string_view name, const NAP_PROFILE_S &record,
                                       unsigned int maximum)
{
    constexpr const char *action = "create a profile";
    SqliteTransaction transaction(m_file, action);
    StoreResult result = transaction.begin();
    if (result.failed())
        return result;
    result = refuseTakenName(name);
    if (result.failed())
        return result;
    unsigned int profiles = 0;
    result = count(profiles);
    if (result.failed())
        return result;
    if (profiles >= maximum) {
        return m_file.failure(NAPI_ERROR_STORE_FULL,
                              "is full with " + std::to_string(profiles) + " profiles");
    }
    if (SqliteQuery(m_file, Create).bind(1, name).bindBlob(2, bytesOf(record)).step() != Step::Done)
        return m_file.failure(action);
    if (!isProfileId(m_file.lastInsertedId()))
        return m_file.failure(NAPI_ERROR_STORE_FULL, "has used up its IDs");
    return transaction.commit();
}

StoreResult SqliteProfileStore::remove(std::string_view name)
{
    return runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
        SqliteQuery query(m_file, Remove);
        return change(query.bind(1, storedName), "delete a profile");
    });
}

StoreResult SqliteProfileStore::rename(std::string_view name, std::string_view newName)
{
    constexpr const char *action = "rename a profile";
    SqliteTransaction transaction(m_file, action);
    StoreResult result = transaction.begin();
    if (!result.failed())
        result = refuseTakenName(newName);
    if (!result.failed())
        result = runOnStoredName(name, [&](std::string_view storedName) -> StoreResult {
            SqliteQuery query(m_file, Rename);
            return change(query.bind(1, storedName).bind(2, newName), action);
        });
    return result.failed() ? result : transaction.commit();
}

StoreResult SqliteProfileStore::idByName(std::string_view name, std::uint32_t &id)
{
    return runOnStoredName(
        name, [&](std::string_view storedName) { return idByStoredName(storedName, id); });
}

StoreResult SqliteProfileStore::nameById(std::uint32_t id, std::string &name)
{
    SqliteQuery query(m_file, NameById);
    StoreResult result = toRow(query.bind(1, id), lookUp, "has no profile of that ID");
    std::vector<Renamed> renamed;
    return result.failed() ? result : listedName(id, query.bytes(1), renamed, name);
}

StoreResult SqliteProfileStore::refuseTakenName(std::string_view name)
{
    std::uint32_t id = 0;
    StoreResult result = idByName(name, id);
    if (!result.failed())
        return m_file.failure(NAPI_ERROR_EXISTS, "has a profile of that name already");
    return result.status == NAPI_ERROR_NOT_FOUND ? StoreResult() : result;
}

StoreResult SqliteProfileStore::toRow(SqliteQuery &query, const char *action, const char *noRow)
{
    switch (query.step()) {
    case Step::Row:
        return {};
    case Step::Done:
        return m_file.failure(NAPI_ERROR_NOT_FOUND, noRow);
    default:
        return m_file.failure(action);
    }
}

StoreResult SqliteProfileStore::change(SqliteQuery &query, const char *action)
{
    if (query.step() != Step::Done)
        return m_file.failure(action);
    if (m_file.changedRows() == 0)
        return m_file.failure(NAPI_ERROR_NOT_FOUND, noSuchName);
    return {};
}

// ---- Stored names that are not profile names ----------------------------------------------------

StoreResult SqliteProfileStore::idByStoredName(std::string_view name, std::uint32_t &id)
{
    SqliteQuery query(m_file, IdByName);
    StoreResult result = toRow(query.bind(1, name), lookUp, noSuchName);
    if (result.failed())
        return result;
    const std::int64_t number = query.number();
    if (!isProfileId(number))
        return m_file.failure(NAPI_ERROR_CORRUPT, "the ID of a profile is damaged");
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
    SqliteQuery query(m_file, WithoutProfileName);
    Step step = query.step();
    for (; step == Step::Row && !result.failed(); step = query.step()) {
        const std::int64_t id = query.number();
        const std::string_view storedName = query.bytes(1);
        if (!isNameText(storedName))
            return m_file.failure(NAPI_ERROR_CORRUPT, damagedName);
        const std::string name = substituteName(storedName, std::to_string(id), isTaken);
        given.insert(name);
        profiles.push_back({id, std::string(storedName), name});
    }
    if (step != Step::Done && !result.failed())
        return m_file.failure(lookUp);
    return result;
}

StoreResult SqliteProfileStore::listedName(std::int64_t id, std::string_view storedName,
                                           std::vector<Renamed> &renamed, std::string &name)
{
    if (!isNameText(storedName))
        return m_file.failure(NAPI_ERROR_CORRUPT, damagedName);
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
        return m_file.failure(NAPI_ERROR_CORRUPT, damagedName);
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
