// The SQLite store of the host's profile service: its file, and what happens to bad files and on
// bad disks. The service is used in child processes only, each with a fresh start.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "child_process.h"
#include "napi.h"

namespace {

int create(const std::string &name)
{
    NAP_PROFILE_S record = {};
    std::snprintf(record.gprsAddress, sizeof record.gprsAddress, "apn of %s", name.c_str());
    return NAPI_CreateProfile(name.c_str(), &record, 0, 0);
}

int readAddress(const std::string &name, std::string &address)
{
    NAP_PROFILE_S record = {};
    const int status = NAPI_ReadProfile(name.c_str(), &record, 0, 0);
    address = record.gprsAddress;
    return status;
}

using Names = std::vector<std::string>;

Names listedNames()
{
    unsigned int count = 30000;
    std::vector<char> slots(std::size_t{count} * NAPI_NAME_SIZE);
    EXPECT_EQ(NAPI_ListAllProfile(slots.data(), &count), NAPI_OK);
    Names names;
    for (unsigned int index = 0; index < count; ++index)
        names.emplace_back(&slots[std::size_t{index} * NAPI_NAME_SIZE]);
    return names;
}

unsigned int profileCount()
{
    unsigned int count = 0xFFFFFFFF;
    EXPECT_EQ(NAPI_ListAllProfile(nullptr, &count), NAPI_OK);
    return count;
}

/// Calls everything that needs the store. All have to fail with the same code.
void expectEveryCallFails(int status)
{
    char names[NAPI_NAME_SIZE] = "kept";
    unsigned int number = 1;
    NAP_PROFILE_S record = {};
    EXPECT_EQ(NAPI_ListAllProfile(nullptr, &number), status);
    EXPECT_EQ(NAPI_ListAllProfile(names, &number), status);
    EXPECT_EQ(NAPI_ReadProfile("a", &record, 0, 0), status);
    EXPECT_EQ(NAPI_ModifyProfile("a", &record, 0, 0), status);
    EXPECT_EQ(NAPI_CreateProfile("a", &record, 0, 0), status);
    EXPECT_EQ(NAPI_DeleteProfile("a"), status);
    EXPECT_EQ(NAPI_GetProfileIDByName("a", &number), status);
    EXPECT_EQ(NAPI_GetProfileNameByID(1, names), status);
    EXPECT_EQ(NAPI_IsProfileValid("a"), status);
    EXPECT_EQ(number, 1U);
    EXPECT_STREQ(names, "kept");
}

int occurrences(const std::string &text, const std::string &part)
{
    int found = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

class SqliteStore : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_directory.isValid());
        ::setenv("KUB_STATE_DIR", m_state.c_str(), 1);
        ::unsetenv("KUB_NAPI_MAX");
    }

    /// A store with so many profiles, not in use by any process.
    void makeStore(int profiles) const
    {
        const ChildOutcome outcome = runInChild([&] {
            ::setenv("KUB_NAPI_MAX", "10000", 1);
            for (int index = 0; index < profiles; ++index)
                EXPECT_EQ(create("profile " + std::to_string(index)), NAPI_OK);
            // _Exit would leave the log beside the database, as a crash does.
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        });
        ASSERT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
        ASSERT_EQ(files(), QStringList(QStringLiteral("profiles.db")));
    }
    void runSql(const char *sql) const
    {
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(m_store.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
        sqlite3_close(database);
    }
    QByteArray storeBytes() const
    {
        QFile file(QString::fromStdString(m_store));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }
    void writeStore(const QByteArray &bytes) const
    {
        ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
        QFile file(QString::fromStdString(m_store));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    QStringList files() const
    {
        return QDir(QString::fromStdString(m_state))
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    }

    /// Every call fails with that code, says why once, and leaves the file alone.
    void expectRefusedUntouched(int status, std::initializer_list<const char *> reasons) const
    {
        const QByteArray before = storeBytes();
        const ChildOutcome outcome = runInChild([&] {
            expectEveryCallFails(status);
            expectEveryCallFails(status);
        });
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
        EXPECT_EQ(occurrences(outcome.errorOutput, "libnapi: " + m_store), 1)
            << outcome.errorOutput;
        for (const char *reason : reasons)
            EXPECT_EQ(occurrences(outcome.errorOutput, reason), 1) << outcome.errorOutput;
        EXPECT_EQ(storeBytes(), before);
    }

    QTemporaryDir m_directory;
    std::string m_state = m_directory.filePath(QStringLiteral("state")).toStdString();
    std::string m_store = m_state + "/profiles.db";
};

//////////////////////////////////////////////////////////////////////////////////////////////////
// The library and its file

TEST_F(SqliteStore, LibraryExportsTheNineCallsAndThoseOfTheHostOnly)
{
    std::FILE *output = ::popen("nm -D --defined-only --format=posix " KUB_NAPI_LIBRARY
                                " | cut -d' ' -f1 | LC_ALL=C sort",
                                "r");
    ASSERT_NE(output, nullptr);
    std::string symbols;
    char buffer[4096];
    while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, output))
        symbols.append(buffer, got);
    ASSERT_EQ(::pclose(output), 0);
    EXPECT_EQ(symbols, "NAPI_CreateProfile\n"
                       "NAPI_DeleteProfile\n"
                       "NAPI_GetMaxProfiles\n"
                       "NAPI_GetProfileIDByName\n"
                       "NAPI_GetProfileNameByID\n"
                       "NAPI_IsProfileValid\n"
                       "NAPI_ListAllProfile\n"
                       "NAPI_ModifyProfile\n"
                       "NAPI_ReadProfile\n"
                       "kub_napi_copy_profiles\n"
                       "kub_napi_rename_profile\n"
                       "kub_napi_set_call_observer\n");
}

TEST_F(SqliteStore, NothingIsCreatedBeforeTheFirstCallThatNeedsTheStore)
{
    const ChildOutcome outcome = runInChild([&] {
        EXPECT_EQ(NAPI_IsProfileValid(""), NAPI_ERROR_BAD_NAME);
        EXPECT_FALSE(QFile::exists(QString::fromStdString(m_state)));
        EXPECT_EQ(profileCount(), 0U);
        EXPECT_TRUE(QFile::exists(QString::fromStdString(m_store)));
    });
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(occurrences(outcome.errorOutput, "libnapi:"), 1) << "the bad name";
}

TEST_F(SqliteStore, FilesAreForTheirOwnerOnly)
{
    const ChildOutcome outcome = runInChild([&] {
        ::umask(0);
        EXPECT_EQ(create("Office"), NAPI_OK);
        struct stat status = {};
        EXPECT_EQ(::stat(m_state.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0700U);
        for (const char *suffix : {"", "-wal", "-shm"}) {
            EXPECT_EQ(::stat((m_store + suffix).c_str(), &status), 0) << suffix;
            EXPECT_EQ(status.st_mode & 07777U, 0600U) << suffix;
        }
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, StateHomeAndHomeChooseTheStoreWhenNoDirectoryIsNamed)
{
    const std::string root = m_directory.path().toStdString();
    ::unsetenv("KUB_STATE_DIR");
    ::setenv("HOME", root.c_str(), 1);
    const auto storeAppears = [&](const char *stateHome, const std::string &expected) {
        ::setenv("XDG_STATE_HOME", stateHome, 1);
        const ChildOutcome outcome = runInChild([] { EXPECT_EQ(create("Office"), NAPI_OK); });
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
        return QFile::exists(QString::fromStdString(root + expected));
    };
    EXPECT_TRUE(storeAppears((root + "/xdg").c_str(), "/xdg/kub-dm/profiles.db"));
    EXPECT_TRUE(storeAppears("relative", "/.local/state/kub-dm/profiles.db"));
    ::unsetenv("XDG_STATE_HOME");
    ::setenv("KUB_STATE_DIR", "", 1);
    const ChildOutcome outcome =
        runInChild([] { EXPECT_EQ(NAPI_IsProfileValid("Office"), NAPI_OK); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, RelativeStateDirectoryStaysWhereTheProcessWasAtItsFirstCall)
{
    const ChildOutcome outcome = runInChild([&] {
        ASSERT_EQ(::chdir(m_directory.path().toUtf8().constData()), 0);
        ::setenv("KUB_STATE_DIR", "./state/", 1);
        EXPECT_EQ(create("Office"), NAPI_OK);
        ASSERT_EQ(::chdir("/"), 0);
        ::setenv("KUB_STATE_DIR", "/nowhere", 1);
        EXPECT_EQ(create("Home"), NAPI_OK);
        EXPECT_EQ(profileCount(), 2U);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_TRUE(QFile::exists(QString::fromStdString(m_store)));
}

TEST_F(SqliteStore, ProfilesOutliveTheProcessAlsoWhenItCrashes)
{
    const ChildOutcome crashed = runInChild([] {
        EXPECT_EQ(create("Office"), NAPI_OK);
        std::abort();
    });
    EXPECT_EQ(crashed.exitCode, -SIGABRT);
    const ChildOutcome outcome = runInChild([] {
        std::string address;
        EXPECT_EQ(readAddress("Office", address), NAPI_OK);
        EXPECT_EQ(address, "apn of Office");
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, RecordOfAnyBytesComesBack)
{
    const ChildOutcome outcome = runInChild([] {
        NAP_PROFILE_S record;
        NAP_PROFILE_S read = {};
        for (const int byte : {0xFF, 0x80, 0x01}) {
            std::memset(&record, byte, sizeof record);
            ASSERT_EQ(NAPI_CreateProfile("any", &record, 0, 0), NAPI_OK);
            ASSERT_EQ(NAPI_ReadProfile("any", &read, 0, 0), NAPI_OK);
            EXPECT_EQ(std::memcmp(&read, &record, sizeof record), 0) << byte;
            ASSERT_EQ(NAPI_DeleteProfile("any"), NAPI_OK);
        }
    });
    EXPECT_CHILD_PASSES(outcome);
}

TEST_F(SqliteStore, IdsAreNotUsedAgainByALaterProcess)
{
    const auto createAndDelete = [] {
        EXPECT_EQ(create("Office"), NAPI_OK);
        unsigned int id = 0;
        EXPECT_EQ(NAPI_GetProfileIDByName("Office", &id), NAPI_OK);
        EXPECT_EQ(NAPI_DeleteProfile("Office"), NAPI_OK);
        std::fprintf(stderr, "ID %u", id);
    };
    EXPECT_EQ(runInChild(createAndDelete).errorOutput, "ID 1");
    EXPECT_EQ(runInChild(createAndDelete).errorOutput, "ID 2");
}

TEST_F(SqliteStore, LastIdOf32BitsIsTheEndOfTheIds)
{
    makeStore(1);
    runSql("UPDATE sqlite_sequence SET seq = 4294967294");
    const ChildOutcome outcome = runInChild([] {
        EXPECT_EQ(create("last"), NAPI_OK);
        unsigned int id = 0;
        EXPECT_EQ(NAPI_GetProfileIDByName("last", &id), NAPI_OK);
        EXPECT_EQ(id, 0xFFFFFFFFU);
        EXPECT_EQ(create("one too many"), NAPI_ERROR_STORE_FULL);
        EXPECT_EQ(profileCount(), 2U);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

/// What a process with that KUB_NAPI_MAX, null for none, takes for the maximum.
int maximumWith(const char *variable, int complaints)
{
    const ChildOutcome outcome = runInChild([&] {
        if (variable != nullptr)
            ::setenv("KUB_NAPI_MAX", variable, 1);
        const int maximum = NAPI_GetMaxProfiles();
        EXPECT_EQ(NAPI_GetMaxProfiles(), maximum);
        std::exit(testing::Test::HasFailure() ? 1 : (std::fprintf(stderr, "<%d>", maximum), 0));
    });
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(occurrences(outcome.errorOutput, "KUB_NAPI_MAX"), complaints) << outcome.errorOutput;
    return std::atoi(outcome.errorOutput.substr(outcome.errorOutput.find('<') + 1).c_str());
}

TEST_F(SqliteStore, MaximumOfTheEnvironmentIsKeptWithTheStore)
{
    EXPECT_EQ(maximumWith(nullptr, 0), 127);
    for (const int maximum : {1, 1500, 1000000}) {
        EXPECT_EQ(maximumWith(std::to_string(maximum).c_str(), 0), maximum);
        EXPECT_EQ(maximumWith(nullptr, 0), maximum) << "another process, without the variable";
    }
}

TEST_F(SqliteStore, MaximumThatIsNoneIsIgnored)
{
    EXPECT_EQ(maximumWith("200", 0), 200);
    for (const char *text : {"0", "-1", "", "12x", " 12", "1000001", "99999999999999999999"})
        EXPECT_EQ(maximumWith(text, 1), 200) << text;
}

TEST_F(SqliteStore, KeptMaximumHoldsForProcessesWithoutTheVariable)
{
    makeStore(3);
    EXPECT_EQ(maximumWith("4", 0), 4);
    const ChildOutcome outcome = runInChild([] {
        EXPECT_EQ(create("fourth"), NAPI_OK);
        EXPECT_EQ(create("fifth"), NAPI_ERROR_STORE_FULL);
        EXPECT_EQ(profileCount(), 4U);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_EQ(maximumWith("2", 0), 2) << "fewer than there are";
    const ChildOutcome after = runInChild([] {
        EXPECT_EQ(profileCount(), 4U);
        EXPECT_EQ(create("fifth"), NAPI_ERROR_STORE_FULL);
    });
    EXPECT_EQ(after.exitCode, 0) << after.errorOutput;
}

TEST_F(SqliteStore, DamagedMaximumIsNamed)
{
    makeStore(1);
    for (const char *value : {"0", "-1", "1000001"}) {
        runSql(("UPDATE store_setting SET value = " + std::string(value)).c_str());
        const ChildOutcome outcome = runInChild([] {
            EXPECT_EQ(create("Office"), NAPI_ERROR_CORRUPT);
            EXPECT_EQ(profileCount(), 1U);
        });
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
        EXPECT_EQ(occurrences(outcome.errorOutput, "the maximum of profiles is damaged"), 1);
    }
    EXPECT_EQ(maximumWith("5", 0), 5) << "a new one mends it";
}

TEST_F(SqliteStore, OrdinaryAnswersAreSilentAndEachKindOfFailureIsToldOnce)
{
    const ChildOutcome outcome = runInChild([] {
        ::setenv("KUB_NAPI_MAX", "1", 1);
        for (int round = 0; round < 3; ++round) {
            NAPI_IsProfileValid("unknown");
            create("Office");
        }
        EXPECT_EQ(create("Office"), NAPI_ERROR_EXISTS);
        std::fputs("so far silent\n", stderr);
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(create("Home"), NAPI_ERROR_STORE_FULL);
            EXPECT_EQ(create(std::string(64, 'n')), NAPI_ERROR_BAD_NAME);
            EXPECT_EQ(NAPI_IsProfileValid(nullptr), NAPI_ERROR_BAD_ARGUMENT);
        }
    });
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(
        outcome.errorOutput,
        "so far silent\n"
        "libnapi: " +
            m_store +
            ": is full with 1 profiles\n"
            "libnapi: a profile name is empty, longer than 63 bytes, not UTF-8, has a slash, or is "
            ". or .. or *\n"
            "libnapi: a call got a null pointer\n");
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Bad files

TEST_F(SqliteStore, FileThatIsNoDatabaseIsRefused)
{
    for (const QByteArray &bytes :
         {QByteArray("hello\n"), QByteArray(100, '\0'), QByteArray("SQLite format 3"),
          QByteArray(100000, 'x'),
          QByteArray("SQLite format 3\0", 16) + QByteArray(5000, '\xFF')}) {
        writeStore(bytes);
        expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"cannot"});
    }
}

TEST_F(SqliteStore, TenMegabytesOfRubbishAreRefused)
{
    QByteArray rubbish(10 * 1024 * 1024, '\0');
    for (qsizetype index = 0; index < rubbish.size(); ++index)
        rubbish[index] = static_cast<char>(index * index / 7);
    writeStore(rubbish);
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"not a database"});
}

TEST_F(SqliteStore, DatabaseOfAnotherProgramIsRefused)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    runSql("CREATE TABLE profile(id, name, record)");
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"another program"});
    runSql("DROP TABLE profile; PRAGMA application_id = 1234");
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"another program"});
}

TEST_F(SqliteStore, StoreOfANewerFormatIsRefused)
{
    makeStore(1);
    runSql("PRAGMA user_version = 2");
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"format 2"});
}

TEST_F(SqliteStore, StoreWithoutItsTableIsRefused)
{
    makeStore(1);
    runSql("ALTER TABLE profile RENAME TO other");
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"no such table"});
}

TEST_F(SqliteStore, TruncatedStoreIsRefused)
{
    makeStore(40);
    const QByteArray whole = storeBytes();
    for (const qsizetype size : {whole.size() / 2, qsizetype{4096}, qsizetype{1000}}) {
        writeStore(whole.left(size));
        const QByteArray before = storeBytes();
        const ChildOutcome outcome = runInChild([] {
            unsigned int count = 40;
            std::vector<char> names(40 * NAPI_NAME_SIZE);
            EXPECT_EQ(NAPI_ListAllProfile(names.data(), &count), NAPI_ERROR_CORRUPT);
            EXPECT_EQ(create("one more"), NAPI_ERROR_CORRUPT);
        });
        EXPECT_EQ(outcome.exitCode, 0) << size << outcome.errorOutput;
        EXPECT_EQ(occurrences(outcome.errorOutput, m_store), 1) << outcome.errorOutput;
        EXPECT_EQ(storeBytes(), before) << size;
    }
}

TEST_F(SqliteStore, DamagedPageIsReportedWithWhatIsWrong)
{
    makeStore(40);
    QByteArray bytes = storeBytes();
    constexpr qsizetype pageSize = 4096;
    for (qsizetype page = 3; page < bytes.size() / pageSize; ++page)
        bytes.replace(page * pageSize, 100, QByteArray(100, '\xEE'));
    writeStore(bytes);
    const ChildOutcome outcome = runInChild([] {
        std::string address;
        EXPECT_EQ(readAddress("profile 39", address), NAPI_ERROR_CORRUPT);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_EQ(occurrences(outcome.errorOutput, "malformed"), 1) << outcome.errorOutput;
    EXPECT_GE(occurrences(outcome.errorOutput, "; "), 1) << outcome.errorOutput;
    EXPECT_EQ(storeBytes(), bytes);
}

TEST_F(SqliteStore, RecordOfAnotherSizeIsRefused)
{
    makeStore(2);
    runSql("PRAGMA ignore_check_constraints = ON;"
           "UPDATE profile SET record = x'00' WHERE name = 'profile 0'");
    const ChildOutcome outcome = runInChild([] {
        std::string address;
        EXPECT_EQ(readAddress("profile 0", address), NAPI_ERROR_CORRUPT);
        EXPECT_EQ(readAddress("profile 1", address), NAPI_OK);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, NameThatFitsNoSlotIsRefused)
{
    for (const char *name :
         {"printf('%.100c', 'x')", "''", "'a' || char(0) || 'b'", "CAST(x'FF' AS TEXT)"}) {
        makeStore(2);
        runSql(("PRAGMA ignore_check_constraints = ON; UPDATE profile SET name = " +
                std::string(name) + " WHERE id = 1")
                   .c_str());
        const ChildOutcome outcome = runInChild([] {
            char names[2 * NAPI_NAME_SIZE] = "kept";
            unsigned int count = 2;
            EXPECT_EQ(NAPI_ListAllProfile(names, &count), NAPI_ERROR_CORRUPT);
            EXPECT_EQ(NAPI_GetProfileNameByID(1, names), NAPI_ERROR_CORRUPT);
            EXPECT_STREQ(names, "kept");
        });
        EXPECT_EQ(outcome.exitCode, 0) << name << outcome.errorOutput;
        ASSERT_TRUE(QFile::remove(QString::fromStdString(m_store)));
        QDir(QString::fromStdString(m_state)).removeRecursively();
    }
}

TEST_F(SqliteStore, StoredNameWithASlashIsListedAndFoundUnderAnother)
{
    makeStore(3);
    runSql("UPDATE profile SET name = 'Office' WHERE id = 1;"
           "UPDATE profile SET name = 'Office/Home' WHERE id = 2");
    const ChildOutcome outcome = runInChild([] {
        EXPECT_EQ(listedNames(), (Names{"Office", "Office-Home~2", "profile 2"}));
        unsigned int id = 0;
        EXPECT_EQ(NAPI_GetProfileIDByName("Office-Home~2", &id), NAPI_OK);
        EXPECT_EQ(id, 2U);
        char name[NAPI_NAME_SIZE] = {};
        EXPECT_EQ(NAPI_GetProfileNameByID(2, name), NAPI_OK);
        EXPECT_STREQ(name, "Office-Home~2");
        std::string address;
        EXPECT_EQ(readAddress("Office-Home~2", address), NAPI_OK);
        EXPECT_EQ(address, "apn of profile 1");
        EXPECT_EQ(NAPI_ReadProfile("Office/Home", nullptr, 0, 0), NAPI_ERROR_BAD_ARGUMENT);
        EXPECT_EQ(readAddress("Office/Home", address), NAPI_ERROR_BAD_NAME);

        NAP_PROFILE_S record = {};
        std::strcpy(record.gprsAddress, "changed");
        EXPECT_EQ(NAPI_ModifyProfile("Office-Home~2", &record, 0, 0), NAPI_OK);
        EXPECT_EQ(readAddress("Office-Home~2", address), NAPI_OK);
        EXPECT_EQ(address, "changed");
        EXPECT_EQ(readAddress("Office", address), NAPI_OK);
        EXPECT_EQ(address, "apn of profile 0");
        EXPECT_EQ(create("Office-Home~2"), NAPI_ERROR_EXISTS);

        EXPECT_EQ(NAPI_DeleteProfile("Office-Home~2"), NAPI_OK);
        EXPECT_EQ(listedNames(), (Names{"Office", "profile 2"}));
        EXPECT_EQ(NAPI_DeleteProfile("Office-Home~2"), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(readAddress("Office-Home~2", address), NAPI_ERROR_NOT_FOUND);
    });
    EXPECT_CHILD_PASSES(outcome);
}

TEST_F(SqliteStore, StoredNameWithASlashStaysAsItIsStored)
{
    makeStore(1);
    runSql("UPDATE profile SET name = 'Office/Home'");
    const ChildOutcome outcome = runInChild([] {
        const NAP_PROFILE_S record = {};
        EXPECT_EQ(NAPI_ModifyProfile("Office-Home~1", &record, 0, 0), NAPI_OK);
    });
    EXPECT_CHILD_PASSES(outcome);
    runSql("CREATE TEMP TABLE expected(ok CHECK(ok));"
           "INSERT INTO expected SELECT count(*) = 1 FROM profile WHERE name = 'Office/Home'");
}

TEST_F(SqliteStore, NameInPlaceOfOneWithASlashIsUniqueAndFits)
{
    makeStore(6);
    const std::string longName = std::string(59, 'x') + "\xC3\xBC/y";
    runSql(("UPDATE profile SET name = 'a-b~5' WHERE id = 1;"
            "UPDATE profile SET name = 'a/b~5' WHERE id = 2;"
            "UPDATE profile SET name = '/' WHERE id = 3;"
            "UPDATE profile SET name = '" +
            longName +
            "' WHERE id = 4;"
            "UPDATE profile SET name = 'a/b' WHERE id = 5;"
            "UPDATE profile SET name = 'a-b~7' WHERE id = 6")
               .c_str());
    const ChildOutcome outcome = runInChild([] {
        const Names names = listedNames();
        EXPECT_EQ(names, (Names{"a-b~5", "a-b~5~2", "-~3", std::string(59, 'x') + "\xC3\xBC~4",
                                "a-b~5~3", "a-b~7"}));
        for (unsigned int index = 0; index < names.size(); ++index) {
            unsigned int id = 0;
            EXPECT_EQ(NAPI_GetProfileIDByName(names[index].c_str(), &id), NAPI_OK) << names[index];
            EXPECT_EQ(id, index + 1);
        }
    });
    EXPECT_CHILD_PASSES(outcome);
}

TEST_F(SqliteStore, StoredNameThatNoAddressCanHoldIsListedAndFoundUnderAnother)
{
    makeStore(4);
    runSql("UPDATE profile SET name = '.' WHERE id = 1;"
           "UPDATE profile SET name = '..' WHERE id = 2;"
           "UPDATE profile SET name = '*' WHERE id = 3;"
           "UPDATE profile SET name = '*~3' WHERE id = 4");
    const ChildOutcome outcome = runInChild([] {
        EXPECT_EQ(listedNames(), (Names{".~1", "..~2", "*~3~2", "*~3"}));
        std::string address;
        EXPECT_EQ(readAddress("..~2", address), NAPI_OK);
        EXPECT_EQ(address, "apn of profile 1");
        EXPECT_EQ(readAddress("..", address), NAPI_ERROR_BAD_NAME);
        EXPECT_EQ(NAPI_DeleteProfile("*~3~2"), NAPI_OK);
        EXPECT_EQ(listedNames(), (Names{".~1", "..~2", "*~3"}));
    });
    EXPECT_CHILD_PASSES(outcome);
}

TEST_F(SqliteStore, ManyNamesWithASlashAreLookedUpOnceForAList)
{
    makeStore(1);
    runSql(
        "WITH RECURSIVE number(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM number WHERE n < 20000)"
        "INSERT INTO profile(name, record) SELECT 'a/' || n, zeroblob(1168) FROM number");
    const ChildOutcome outcome = runInChild([] {
        const Names names = listedNames();
        EXPECT_EQ(names.size(), 20001U);
        EXPECT_EQ(names.back(), "a-20000~20001");
    });
    EXPECT_CHILD_PASSES(outcome);
}

TEST_F(SqliteStore, IdBeyond32BitsIsRefused)
{
    makeStore(1);
    runSql("UPDATE profile SET id = 4294967297");
    const ChildOutcome outcome = runInChild([] {
        unsigned int id = 7;
        char name[NAPI_NAME_SIZE] = "kept";
        EXPECT_EQ(NAPI_GetProfileIDByName("profile 0", &id), NAPI_ERROR_CORRUPT);
        EXPECT_EQ(NAPI_GetProfileNameByID(1, name), NAPI_ERROR_NOT_FOUND);
        EXPECT_EQ(id, 7U);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, TriggersPlantedInAStoreDoNotRun)
{
    makeStore(2);
    runSql("CREATE TRIGGER planted AFTER INSERT ON profile BEGIN DELETE FROM profile; END");
    const ChildOutcome outcome = runInChild([] {
        EXPECT_EQ(create("Office"), NAPI_OK);
        EXPECT_EQ(profileCount(), 3U);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, DirectoryInPlaceOfTheStoreIsRefused)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_store + "/inside")));
    expectRefusedUntouched(NAPI_ERROR_CORRUPT, {"Is a directory"});
    EXPECT_TRUE(QFileInfo(QString::fromStdString(m_store + "/inside")).isDir());
}

TEST_F(SqliteStore, PipeInPlaceOfTheStoreIsRefusedAndNotWaitedFor)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    ASSERT_EQ(::mkfifo(m_store.c_str(), 0600), 0);
    const ChildOutcome outcome = runInChild([] { expectEveryCallFails(NAPI_ERROR_CORRUPT); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_EQ(occurrences(outcome.errorOutput, "not a regular file"), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, FileInPlaceOfTheStateDirectoryIsAnInputOutputError)
{
    ASSERT_TRUE(QFile(QString::fromStdString(m_state)).open(QIODevice::WriteOnly));
    const ChildOutcome outcome = runInChild([] { expectEveryCallFails(NAPI_ERROR_IO); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_EQ(occurrences(outcome.errorOutput, "Not a directory"), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, ServiceRecoversWhenTheStoreBecomesUsable)
{
    writeStore("rubbish");
    const ChildOutcome outcome = runInChild([&] {
        EXPECT_EQ(create("Office"), NAPI_ERROR_CORRUPT);
        EXPECT_TRUE(QFile::remove(QString::fromStdString(m_store)));
        EXPECT_EQ(create("Office"), NAPI_OK);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Bad disks

TEST_F(SqliteStore, FullDiskRefusesAndLosesNothing)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    const ChildOutcome outcome = runInChild([&] {
        mountPrivateFileSystem(m_state, 256 * 1024);
        int stored = 0;
        while (stored < 127 && create("profile " + std::to_string(stored)) == NAPI_OK)
            ++stored;
        EXPECT_GT(stored, 5);
        EXPECT_LT(stored, 127);
        EXPECT_EQ(create("another"), NAPI_ERROR_NO_SPACE);
        EXPECT_EQ(profileCount(), static_cast<unsigned int>(stored));
        std::string address;
        EXPECT_EQ(readAddress("profile 0", address), NAPI_OK);
        EXPECT_EQ(address, "apn of profile 0");
    });
    EXPECT_CHILD_PASSES(outcome);
    EXPECT_EQ(occurrences(outcome.errorOutput, "libnapi: " + m_store), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, DiskWithoutRoomForAStoreIsNoSpace)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    for (const std::size_t pages : {1U, 2U, 4U, 8U}) {
        const ChildOutcome outcome = runInChild([&] {
            mountPrivateFileSystem(m_state, pages * 4096);
            EXPECT_EQ(create("Office"), NAPI_ERROR_NO_SPACE) << pages;
        });
        EXPECT_CHILD_PASSES(outcome);
    }
}

TEST_F(SqliteStore, FileSizeLimitIsNoSpaceAndLosesNothing)
{
    makeStore(5);
    const ChildOutcome outcome = runInChild([] {
        limitFileSize(64 * 1024);
        int stored = 0;
        while (stored < 100 && create("more " + std::to_string(stored)) == NAPI_OK)
            ++stored;
        EXPECT_LT(stored, 100);
        EXPECT_EQ(create("another"), NAPI_ERROR_NO_SPACE);
        EXPECT_EQ(profileCount(), static_cast<unsigned int>(5 + stored));
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
}

TEST_F(SqliteStore, ReadOnlyDiskIsReadAndRefusesChanges)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    for (const bool cleanEnd : {true, false}) {
        const ChildOutcome outcome = runInChild([&] {
            mountPrivateFileSystem(m_state, 1 << 20);
            const ChildOutcome filled = runInChild([&] {
                EXPECT_EQ(create("Office"), NAPI_OK);
                if (cleanEnd)
                    std::exit(0);
            });
            EXPECT_EQ(filled.exitCode, 0);
            makeFileSystemReadOnly(m_state);
            std::string address;
            const int read = readAddress("Office", address);
            if (cleanEnd || read == NAPI_OK) {
                EXPECT_EQ(read, NAPI_OK);
                EXPECT_EQ(address, "apn of Office");
                EXPECT_EQ(profileCount(), 1U);
            }
            const NAP_PROFILE_S record = {};
            EXPECT_EQ(create("Home"), NAPI_ERROR_READ_ONLY);
            EXPECT_EQ(NAPI_ModifyProfile("Office", &record, 0, 0), NAPI_ERROR_READ_ONLY);
            EXPECT_EQ(NAPI_DeleteProfile("Office"), NAPI_ERROR_READ_ONLY);
        });
        EXPECT_CHILD_PASSES(outcome);
        EXPECT_EQ(occurrences(outcome.errorOutput, m_store), 1) << outcome.errorOutput;
    }
}

TEST_F(SqliteStore, ReadOnlyDiskWithoutAStoreRefuses)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_state)));
    const ChildOutcome outcome = runInChild([&] {
        mountPrivateFileSystem(m_state, 1 << 20);
        makeFileSystemReadOnly(m_state);
        expectEveryCallFails(NAPI_ERROR_READ_ONLY);
    });
    EXPECT_CHILD_PASSES(outcome);
    EXPECT_EQ(occurrences(outcome.errorOutput, "Read-only file system"), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, StoreThatMayNotBeReadIsUnavailable)
{
    makeStore(1);
    const ChildOutcome outcome = runInChild([&] {
        ::chmod(m_store.c_str(), 0);
        becomeNobodyWith(m_directory.path().toStdString());
        expectEveryCallFails(NAPI_ERROR_UNAVAILABLE);
    });
    EXPECT_CHILD_PASSES(outcome);
    EXPECT_EQ(occurrences(outcome.errorOutput, "Permission denied"), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, StoreThatMayOnlyBeReadRefusesChanges)
{
    makeStore(1);
    const ChildOutcome outcome = runInChild([&] {
        ::chmod(m_store.c_str(), 0444);
        becomeNobodyWith(m_directory.path().toStdString());
        std::string address;
        EXPECT_EQ(readAddress("profile 0", address), NAPI_OK);
        EXPECT_EQ(create("Home"), NAPI_ERROR_READ_ONLY);
    });
    EXPECT_CHILD_PASSES(outcome);
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Two processes

TEST_F(SqliteStore, StoreThatIsLockedForTooLongIsBusy)
{
    makeStore(1);
    const ChildOutcome outcome = runInChild([&] {
        sqlite3 *other = nullptr;
        ASSERT_EQ(sqlite3_open(m_store.c_str(), &other), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        EXPECT_EQ(create("Office"), NAPI_ERROR_BUSY);
        std::string address;
        EXPECT_EQ(readAddress("profile 0", address), NAPI_OK) << "readers do not wait";
        ASSERT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
        EXPECT_EQ(create("Office"), NAPI_OK);
        sqlite3_close(other);
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
    EXPECT_EQ(occurrences(outcome.errorOutput, "locked"), 1) << outcome.errorOutput;
}

TEST_F(SqliteStore, ProcessesThatCreateTheStoreAtTheSameTimeShareIt)
{
    constexpr int processes = 8;
    constexpr int perProcess = 5;
    for (int round = 0; round < 20; ++round) {
        pid_t children[processes] = {};
        for (int index = 0; index < processes; ++index) {
            children[index] = ::fork();
            ASSERT_GE(children[index], 0);
            if (children[index] == 0) {
                const std::string prefix = "p" + std::to_string(index) + "-";
                const std::string count = std::to_string(perProcess);
                ::execl(KUB_WRITER_PROGRAM, KUB_WRITER_PROGRAM, prefix.c_str(), count.c_str(),
                        nullptr);
                std::_Exit(126);
            }
        }
        for (const pid_t child : children) {
            int status = -1;
            ASSERT_EQ(::waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
        const ChildOutcome outcome =
            runInChild([] { EXPECT_EQ(profileCount(), unsigned{processes * perProcess}); });
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errorOutput;
        ASSERT_TRUE(QDir(QString::fromStdString(m_state)).removeRecursively());
    }
}

} // namespace
