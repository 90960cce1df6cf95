// The database of numeric IDs.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <limits>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "child_process.h"
#include "connection_database.h"
#include "stored_maximum.h"

namespace {

using Numbers = std::vector<std::uint32_t>;

bool isAsleep(pid_t thread)
{
    QFile file(u"/proc/self/task/%1/stat"_qs.arg(thread));
    return file.open(QIODevice::ReadOnly) && file.readAll().contains(") S ");
}

/// Runs an action in a thread, and another one as soon as the first one waits for something.
void runAndMeanwhile(const std::function<void()> &action, const std::function<void()> &release)
{
    std::atomic<pid_t> id = 0;
    std::atomic<bool> isDone = false;
    std::thread thread([&] {
        id = gettid();
        action();
        isDone = true;
    });
    while (!isDone && (id == 0 || !isAsleep(id)))
        std::this_thread::yield();
    EXPECT_FALSE(isDone) << "it was to wait";
    release();
    thread.join();
}

class ConnectionDatabaseTest : public testing::Test {
protected:
    std::unique_ptr<ConnectionDatabase> open() const
    {
        std::unique_ptr<ConnectionDatabase> numbers;
        const StoreResult result = ConnectionDatabase::open(m_path, numbers);
        EXPECT_FALSE(result.failed()) << result.message;
        return numbers;
    }
    static Numbers numbersOf(ConnectionDatabase &numbers, const std::vector<std::string> &uuids)
    {
        Numbers found;
        const StoreResult result = numbers.numbersOf(uuids, found);
        EXPECT_FALSE(result.failed()) << result.message;
        return found;
    }
    /// Changes the database as another program could.
    void execute(const char *sql) const
    {
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(m_path.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
        sqlite3_close(database);
    }
    void writeFile(const QByteArray &bytes) const
    {
        QFile file(QString::fromStdString(m_path));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QByteArray fileBytes() const
    {
        QFile file(QString::fromStdString(m_path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }
    /// Opening it fails with that status and a sentence that names the file and the reason.
    void expectRefused(NAPI_STATUS status, const std::string &reason) const
    {
        std::unique_ptr<ConnectionDatabase> numbers;
        const StoreResult result = ConnectionDatabase::open(m_path, numbers);
        EXPECT_EQ(result.status, status) << result.message;
        EXPECT_TRUE(result.message.starts_with(m_path + ": ")) << result.message;
        EXPECT_NE(result.message.find(reason), std::string::npos) << result.message;
    }

    const QTemporaryDir m_directory;
    const std::string m_path = m_directory.path().toStdString() + "/state/ids.db";
};

TEST_F(ConnectionDatabaseTest, NumbersBeginAtOneInTheOrderOfAsking)
{
    const auto numbers = open();
    EXPECT_EQ(numbersOf(*numbers, {"b", "a"}), (Numbers{1, 2}));
    EXPECT_EQ(numbersOf(*numbers, {"c", "a", "b", "c"}), (Numbers{3, 2, 1, 3}));
    EXPECT_EQ(numbersOf(*numbers, {}), Numbers());
}

TEST_F(ConnectionDatabaseTest, NumbersOutliveTheProcess)
{
    numbersOf(*open(), {"a", "b"});
    const auto numbers = open();
    EXPECT_EQ(numbersOf(*numbers, {"b"}), Numbers{2});
    EXPECT_EQ(numbersOf(*numbers, {"new"}), Numbers{3});
}

TEST_F(ConnectionDatabaseTest, TwoUsersGiveNoNumberTwice)
{
    const auto one = open();
    const auto other = open();
    EXPECT_EQ(numbersOf(*one, {"a"}), Numbers{1});
    EXPECT_EQ(numbersOf(*other, {"b", "a"}), (Numbers{2, 1}));
    EXPECT_EQ(numbersOf(*one, {"b"}), Numbers{2});
}

TEST_F(ConnectionDatabaseTest, NumbersOfADroppedTransactionWereNeverGiven)
{
    const auto numbers = open();
    {
        SqliteTransaction transaction = numbers->transaction();
        ASSERT_FALSE(transaction.begin().failed());
        EXPECT_EQ(numbersOf(*numbers, {"dropped"}), Numbers{1});
    }
    EXPECT_EQ(numbersOf(*numbers, {"kept"}), Numbers{1});
    EXPECT_EQ(numbersOf(*numbers, {"dropped"}), Numbers{2});
    {
        SqliteTransaction transaction = numbers->transaction();
        ASSERT_FALSE(transaction.begin().failed());
        EXPECT_EQ(numbersOf(*numbers, {"committed"}), Numbers{3});
        ASSERT_FALSE(transaction.commit().failed());
    }
    EXPECT_EQ(numbersOf(*open(), {"committed"}), Numbers{3});
}

TEST_F(ConnectionDatabaseTest, NumberOfADeletedRowIsNotGivenAgain)
{
    numbersOf(*open(), {"a", "b"});
    execute("DELETE FROM profile_number");
    EXPECT_EQ(numbersOf(*open(), {"c"}), Numbers{3});
}

TEST_F(ConnectionDatabaseTest, TransactionKeepsAnotherUserOut)
{
    const auto one = open();
    SqliteTransaction transaction = one->transaction();
    ASSERT_FALSE(transaction.begin().failed());
    const auto other = open();
    SqliteTransaction second = other->transaction();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(second.begin().status, NAPI_ERROR_BUSY);
    EXPECT_GE(std::chrono::steady_clock::now() - begin,
              std::chrono::milliseconds(SqliteFile::busyTimeoutMs) * 9 / 10)
        << "it waits for its turn";
}

TEST_F(ConnectionDatabaseTest, NumberThatAnotherUserGivesMeanwhileIsTheNumber)
{
    const auto one = open();
    const auto other = open();
    SqliteTransaction transaction = one->transaction();
    ASSERT_FALSE(transaction.begin().failed());
    EXPECT_EQ(numbersOf(*one, {"a"}), Numbers{1});
    Numbers found;
    runAndMeanwhile([&] { found = numbersOf(*other, {"a"}); },
                    [&] { EXPECT_FALSE(transaction.commit().failed()); });
    EXPECT_EQ(found, Numbers{1});
}

TEST_F(ConnectionDatabaseTest, DatabaseThatAnotherUserCreatesMeanwhileIsTheDatabase)
{
    ASSERT_TRUE(QDir(m_directory.path()).mkdir(u"state"_qs));
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &database), SQLITE_OK);
    const auto execute = [&](const char *sql) {
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
    };
    execute("BEGIN IMMEDIATE");
    std::unique_ptr<ConnectionDatabase> numbers;
    runAndMeanwhile([&] { numbers = open(); },
                    [&] {
                        execute("CREATE TABLE profile_number("
                                "  number INTEGER PRIMARY KEY AUTOINCREMENT,"
                                "  uuid TEXT NOT NULL UNIQUE"
                                ") STRICT;"
                                "INSERT INTO profile_number VALUES(7, 'a');"
                                "PRAGMA application_id = 0x4B55424D;"
                                "PRAGMA user_version = 1;"
                                "COMMIT");
                    });
    sqlite3_close(database);
    ASSERT_NE(numbers, nullptr);
    EXPECT_EQ(numbersOf(*numbers, {"a", "b"}), (Numbers{7, 8}));
}

TEST_F(ConnectionDatabaseTest, DatabaseThatAnotherProgramMakesMeanwhileIsRefusedAndKept)
{
    ASSERT_TRUE(QDir(m_directory.path()).mkdir(u"state"_qs));
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &other), SQLITE_OK);
    const auto execute = [&](const char *sql) {
        EXPECT_EQ(sqlite3_exec(other, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(other);
    };
    execute("BEGIN IMMEDIATE");
    QByteArray before;
    runAndMeanwhile([&] { expectRefused(NAPI_ERROR_CORRUPT, "another program"); },
                    [&] {
                        execute("CREATE TABLE other(value); COMMIT");
                        before = fileBytes();
                    });
    sqlite3_close(other);
    EXPECT_EQ(fileBytes(), before);
}

TEST_F(ConnectionDatabaseTest, ProcessesThatCreateItAtTheSameTimeAgreeOnTheNumbers)
{
    constexpr int processes = 4;
    for (int round = 0; round < 10; ++round) {
        QFile::remove(QString::fromStdString(m_path));
        pid_t children[processes] = {};
        for (pid_t &child : children) {
            child = ::fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                const Numbers found = numbersOf(*open(), {"a", "b", "c", "d", "e"});
                std::_Exit(found == Numbers{1, 2, 3, 4, 5} ? 0 : 1);
            }
        }
        for (const pid_t child : children) {
            int status = -1;
            ASSERT_EQ(::waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
    }
}

TEST_F(ConnectionDatabaseTest, NumberThatIsNoneIsDamage)
{
    for (const char *number : {"-1", "4294967296"}) {
        QFile::remove(QString::fromStdString(m_path));
        open();
        execute((std::string("INSERT INTO profile_number VALUES(") + number + ", 'a')").c_str());
        Numbers found;
        const StoreResult result = open()->numbersOf({"a"}, found);
        EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT) << number;
        EXPECT_TRUE(result.message.starts_with(m_path)) << result.message;
    }
}

TEST_F(ConnectionDatabaseTest, NumbersCanBeUsedUp)
{
    open();
    execute("INSERT INTO profile_number VALUES(4294967294, 'a')");
    const auto numbers = open();
    EXPECT_EQ(numbersOf(*numbers, {"b"}), Numbers{std::numeric_limits<std::uint32_t>::max()});
    Numbers found;
    EXPECT_EQ(numbers->numbersOf({"c"}, found).status, NAPI_ERROR_STORE_FULL);
    EXPECT_EQ(numbersOf(*numbers, {"a", "b"}), (Numbers{4294967294U, 4294967295U}));
}

TEST_F(ConnectionDatabaseTest, FileIsForItsOwnerOnly)
{
    open();
    struct stat status = {};
    ASSERT_EQ(::stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(ConnectionDatabaseTest, FileThatIsNoDatabaseIsRefusedAndKept)
{
    open();
    const QByteArray rubbish(8192, 'r');
    writeFile(rubbish);
    expectRefused(NAPI_ERROR_CORRUPT, "not a database");
    EXPECT_EQ(fileBytes(), rubbish);
}

TEST_F(ConnectionDatabaseTest, DatabaseOfAnotherProgramIsRefusedAndKept)
{
    for (const char *other : {"PRAGMA application_id = 1234", "CREATE TABLE other(column)"}) {
        QFile::remove(QString::fromStdString(m_path));
        QDir().mkpath(QFileInfo(QString::fromStdString(m_path)).path());
        execute(other);
        const QByteArray before = fileBytes();
        expectRefused(NAPI_ERROR_CORRUPT, "another program");
        EXPECT_EQ(fileBytes(), before) << other;
    }
}

TEST_F(ConnectionDatabaseTest, DirectoryInItsPlaceIsRefused)
{
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(m_path)));
    expectRefused(NAPI_ERROR_CORRUPT, "Is a directory");
}

TEST_F(ConnectionDatabaseTest, PipeInItsPlaceIsRefusedAndNotWaitedFor)
{
    ASSERT_TRUE(QDir().mkpath(QFileInfo(QString::fromStdString(m_path)).path()));
    ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
    expectRefused(NAPI_ERROR_CORRUPT, "regular file");
}

TEST_F(ConnectionDatabaseTest, DamageIsReportedWithWhatIsWrong)
{
    std::vector<std::string> uuids;
    for (int index = 0; index < 400; ++index)
        uuids.push_back("uuid-" + std::to_string(index));
    numbersOf(*open(), uuids);
    constexpr qsizetype pageSize = 4096;
    QByteArray bytes = fileBytes();
    for (qsizetype page = 5; page < bytes.size() / pageSize; ++page)
        bytes.replace(page * pageSize, 100, QByteArray(100, '\xEE'));
    writeFile(bytes);
    Numbers found;
    const StoreResult result = open()->numbersOf(uuids, found);
    EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT) << result.message;
    EXPECT_NE(result.message.find("; "), std::string::npos) << result.message;
    EXPECT_NE(result.message.find("Page "), std::string::npos) << result.message;
}

TEST_F(ConnectionDatabaseTest, DatabaseOfAnotherFormatIsRefused)
{
    const char *const changes[] = {"PRAGMA user_version = 3", "PRAGMA application_id = 1"};
    for (const char *change : changes) {
        QFile::remove(QString::fromStdString(m_path));
        open();
        execute(change);
        std::unique_ptr<ConnectionDatabase> numbers;
        EXPECT_EQ(ConnectionDatabase::open(m_path, numbers).status, NAPI_ERROR_CORRUPT) << change;
    }
}

// ---- Bad disks ----------------------------------------------------------------------------------

TEST_F(ConnectionDatabaseTest, DiskThatIsFullAtTheCommitIsNoSpaceAndLosesNothing)
{
    const KeptSecrets kept = {{"csd.authPassword", "kept"}};
    const auto expectNoSpace = [&] {
        const auto database = open();
        EXPECT_EQ(database->setSecrets("first", kept).status, NAPI_OK);
        const KeptSecrets large = {{"csd.authPassword", std::string(512 * 1024, 'x')}};
        const StoreResult result = database->setSecrets("first", large);
        EXPECT_EQ(result.status, NAPI_ERROR_NO_SPACE) << result.message;
        KeptSecrets found;
        EXPECT_EQ(database->secretsOf("first", found).status, NAPI_OK);
        EXPECT_EQ(found, kept);
        EXPECT_EQ(numbersOf(*database, {"first"}), Numbers{1});
    };
    const ChildOutcome limited = runInChild([&] {
        limitFileSize(256 * 1024);
        expectNoSpace();
    });
    EXPECT_CHILD_PASSES(limited);
    const ChildOutcome full = runInChild([&] {
        mountPrivateFileSystem(QFileInfo(QString::fromStdString(m_path)).path().toStdString(),
                               256 * 1024);
        expectNoSpace();
    });
    EXPECT_CHILD_PASSES(full);
}

TEST_F(ConnectionDatabaseTest, ReadOnlyDiskTellsTheNumbersAndRefusesNewOnes)
{
    const std::string folder = QFileInfo(QString::fromStdString(m_path)).path().toStdString();
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(folder)));
    const ChildOutcome outcome = runInChild([&] {
        mountPrivateFileSystem(folder, 1 << 20);
        numbersOf(*open(), {"a"});
        makeFileSystemReadOnly(folder);
        const auto numbers = open();
        EXPECT_EQ(numbersOf(*numbers, {"a"}), Numbers{1});
        Numbers found;
        EXPECT_EQ(numbers->numbersOf({"b"}, found).status, NAPI_ERROR_READ_ONLY);
        EXPECT_EQ(numbers->setSecrets("a", {}).status, NAPI_ERROR_READ_ONLY);
    });
    EXPECT_CHILD_PASSES(outcome);
}

// ---- Secrets ------------------------------------------------------------------------------------

TEST_F(ConnectionDatabaseTest, SecretsBelongToTheirUuidAndOutliveTheProcess)
{
    const KeptSecrets first = {{"csd.authPassword", "one"},
                               {"csd2.authPassword", std::string("\0x", 2)}};
    const KeptSecrets second = {{"csd.authPassword", "other"}};
    {
        const auto database = open();
        EXPECT_EQ(database->setSecrets("first", {{"csd.authPassword", "old"}}).status, NAPI_OK);
        EXPECT_EQ(database->setSecrets("first", first).status, NAPI_OK);
        EXPECT_EQ(database->setSecrets("second", second).status, NAPI_OK);
    }
    const auto database = open();
    KeptSecrets found;
    EXPECT_EQ(database->secretsOf("first", found).status, NAPI_OK);
    EXPECT_EQ(found, first);
    EXPECT_EQ(database->setSecrets("first", {}).status, NAPI_OK);
    EXPECT_EQ(database->secretsOf("first", found).status, NAPI_OK);
    EXPECT_EQ(found, KeptSecrets());
    EXPECT_EQ(database->secretsOf("second", found).status, NAPI_OK);
    EXPECT_EQ(found, second);
}

TEST_F(ConnectionDatabaseTest, SecretsOfADroppedTransactionWereNeverKept)
{
    const auto database = open();
    {
        SqliteTransaction transaction = database->transaction();
        ASSERT_EQ(transaction.begin().status, NAPI_OK);
        EXPECT_EQ(database->setSecrets("first", {{"csd.authPassword", "one"}}).status, NAPI_OK);
    }
    KeptSecrets found = {{"csd.authPassword", "before"}};
    EXPECT_EQ(database->secretsOf("first", found).status, NAPI_OK);
    EXPECT_EQ(found, KeptSecrets());
}

TEST_F(ConnectionDatabaseTest, ReplacedSecretIsNotInTheFileAnyMore)
{
    const auto database = open();
    EXPECT_EQ(database->setSecrets("first", {{"csd.authPassword", "recognisable"}}).status,
              NAPI_OK);
    EXPECT_EQ(database->setSecrets("first", {}).status, NAPI_OK);
    QFile file(QString::fromStdString(m_path));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_FALSE(file.readAll().contains("recognisable"));
}

TEST_F(ConnectionDatabaseTest, MaximumOfProfilesIsKeptInIt)
{
    const auto readBack = [this] {
        unsigned int maximum = 0;
        const StoreResult result = readMaximum(open()->file(), maximum);
        EXPECT_FALSE(result.failed()) << result.message;
        return maximum;
    };
    EXPECT_EQ(readBack(), defaultMaximum);
    for (const unsigned int maximum : {1U, 1500U, largestMaximum}) {
        ASSERT_FALSE(storeMaximum(open()->file(), maximum).failed());
        EXPECT_EQ(readBack(), maximum);
    }
}

TEST_F(ConnectionDatabaseTest, DatabaseOfTheFirstFormatKeepsItsNumbers)
{
    EXPECT_EQ(numbersOf(*open(), {"first", "second"}), (Numbers{1, 2}));
    execute("DROP TABLE profile_secret; PRAGMA user_version = 1");
    const auto database = open();
    EXPECT_EQ(numbersOf(*database, {"second", "third"}), (Numbers{2, 3}));
    EXPECT_EQ(database->setSecrets("first", {{"csd.authPassword", "one"}}).status, NAPI_OK);
}

} // namespace
