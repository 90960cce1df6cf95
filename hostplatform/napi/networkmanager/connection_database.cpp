#include "connection_database.h"

namespace {

constexpr const char *fileFormats[] = {
    "CREATE TABLE profile_number("
    "  number INTEGER PRIMARY KEY AUTOINCREMENT," // never a second time, also not that of a deleted
                                                  // row
    "  uuid TEXT NOT NULL UNIQUE"
    ") STRICT",
    "CREATE TABLE profile_secret("
    "  uuid TEXT NOT NULL,"
    "  field TEXT NOT NULL,"
    "  value BLOB NOT NULL,"
    "  PRIMARY KEY(uuid, field)"
    ") STRICT, WITHOUT ROWID",
};

enum Statement : std::size_t {
    FindNumber,
    InsertNumber,
    ReadSecrets,
    DeleteSecrets,
    InsertSecret,
    StatementCount
};

constexpr const char *statementTexts[StatementCount] = {
    "SELECT number FROM profile_number WHERE uuid = ?1",
    "INSERT INTO profile_number(uuid) VALUES(?1)",
    "SELECT field, value FROM profile_secret WHERE uuid = ?1",
    "DELETE FROM profile_secret WHERE uuid = ?1",
    "INSERT INTO profile_secret VALUES(?1, ?2, ?3)",
};

constexpr SqliteFileKind connectionDatabase = {
    .name = "database of profile IDs",
    .applicationId = 0x4B55424D, // "KUBM"
    .newFilePragmas = "",
    // A number that a power cut takes back would be given a second time. Emptying the journal takes
    // the disk much less time than deleting it and making it again for each number.
    .settingsPragmas = "PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = FULL; "
                       "PRAGMA secure_delete = ON",
    .formats = fileFormats,
    .statements = statementTexts,
};

constexpr const char *keepNumbers = "keep the IDs of profiles";
constexpr const char *keepSecrets = "keep the secrets of a profile";

using Step = SqliteQuery::Step;

} // namespace

ConnectionDatabase::ConnectionDatabase(std::string path)
    : m_file(std::move(path), connectionDatabase)
{
}

StoreResult ConnectionDatabase::open(const std::string &path,
                                     std::unique_ptr<ConnectionDatabase> &numbers)
{
    std::unique_ptr<ConnectionDatabase> opened(new ConnectionDatabase(path));
    StoreResult result = opened->m_file.open();
    if (!result.failed())
        numbers = std::move(opened);
    return result;
}

SqliteTransaction ConnectionDatabase::transaction()
{
    return {m_file, "change a profile"};
}

// ---- Numbers ------------------------------------------------------------------------------------

StoreResult ConnectionDatabase::find(const std::string &uuid, std::uint32_t &number)
{
    SqliteQuery query(m_file, FindNumber);
    const Step step = query.bind(1, uuid).step();
    if (step == Step::Failed)
        return m_file.failure(keepNumbers);
    const std::int64_t found = step == Step::Row ? query.number() : 0;
    if (!isProfileId(found))
        return m_file.failure(NAPI_ERROR_CORRUPT, "the number of " + uuid + " is damaged");
    number = static_cast<std::uint32_t>(found);
    return {};
}

StoreResult ConnectionDatabase::insert(const std::string &uuid, std::uint32_t &number)
{
    if (SqliteQuery(m_file, InsertNumber).bind(1, uuid).step() != Step::Done)
        return m_file.failure(keepNumbers);
    const std::int64_t given = m_file.lastInsertedId();
    if (!isProfileId(given))
        return m_file.failure(NAPI_ERROR_STORE_FULL, "has used up its IDs");
    number = static_cast<std::uint32_t>(given);
    return {};
}

StoreResult ConnectionDatabase::insertMissing(const std::vector<std::string> &uuids,
                                              NumberByUuid &numbers)
{
    SqliteTransaction transaction(m_file, keepNumbers);
    StoreResult result = transaction.begin();
    for (const std::string &uuid : uuids) {
        std::uint32_t &number = numbers[uuid];
        if (!result.failed() && number == 0)
            result = find(uuid, number); // another process may have been faster
        if (!result.failed() && number == 0)
            result = insert(uuid, number);
    }
    return result.failed() ? result : transaction.commit();
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
    numbers.clear();
    for (const std::string &uuid : uuids)
        numbers.push_back(found[uuid]);
    if (!m_file.isInTransaction())
        m_known.merge(found);
    return {};
}

// ---- Secrets ------------------------------------------------------------------------------------

StoreResult ConnectionDatabase::secretsOf(const std::string &uuid, KeptSecrets &secrets)
{
    SqliteQuery query(m_file, ReadSecrets);
    query.bind(1, uuid);
    KeptSecrets found;
    Step step = query.step();
    for (; step == Step::Row; step = query.step())
        found[std::string(query.bytes(0))] = query.bytes(1);
    if (step != Step::Done)
        return m_file.failure("read the secrets of a profile");
    secrets = std::move(found);
    return {};
}

StoreResult ConnectionDatabase::setSecrets(const std::string &uuid, const KeptSecrets &secrets)
{
    SqliteTransaction transaction(m_file, keepSecrets);
    StoreResult result = transaction.begin();
    if (result.failed())
        return result;
    if (SqliteQuery(m_file, DeleteSecrets).bind(1, uuid).step() != Step::Done)
        return m_file.failure(keepSecrets);
    for (const auto &[field, value] : secrets) {
        SqliteQuery query(m_file, InsertSecret);
        if (query.bind(1, uuid).bind(2, field).bindBlob(3, value).step() != Step::Done)
            return m_file.failure(keepSecrets);
    }
    return transaction.commit();
}
