// The database of numeric IDs.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "profile_numbers.h"

namespace {

using Numbers = std::vector<std::uint32_t>;

class ProfileNumbersTest : public testing::Test {
protected:
    std::unique_ptr<ProfileNumbers> open() const
    {
        std::unique_ptr<ProfileNumbers> numbers;
        const StoreResult result = ProfileNumbers::open(m_path, numbers);
        EXPECT_FALSE(result.failed()) << result.message;
        return numbers;
    }
    static Numbers numbersOf(ProfileNumbers &numbers, const std::vector<std::string> &uuids)
    {
        Numbers found;
        const StoreResult result = numbers.numbersOf(uuids, found);
        EXPECT_FALSE(result.failed()) << result.message;
        return found;
    }
    void writeFile(const QByteArray &bytes) const
    {
        QFile file(QString::fromStdString(m_path));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    const QTemporaryDir m_directory;
    const std::string m_path = m_directory.path().toStdString() + "/state/ids.db";
};

TEST_F(ProfileNumbersTest, NumbersBeginAtOneInTheOrderOfAsking)
{
    const auto numbers = open();
    EXPECT_EQ(numbersOf(*numbers, {"b", "a"}), (Numbers{1, 2}));
    EXPECT_EQ(numbersOf(*numbers, {"c", "a", "b", "c"}), (Numbers{3, 2, 1, 3}));
    EXPECT_EQ(numbersOf(*numbers, {}), Numbers());
}

TEST_F(ProfileNumbersTest, NumbersOutliveTheProcess)
{
    numbersOf(*open(), {"a", "b"});
    const auto numbers = open();
    EXPECT_EQ(numbersOf(*numbers, {"b"}), Numbers{2});
    EXPECT_EQ(numbersOf(*numbers, {"new"}), Numbers{3});
}

TEST_F(ProfileNumbersTest, TwoUsersGiveNoNumberTwice)
{
    const auto one = open();
    const auto other = open();
    EXPECT_EQ(numbersOf(*one, {"a"}), Numbers{1});
    EXPECT_EQ(numbersOf(*other, {"b", "a"}), (Numbers{2, 1}));
    EXPECT_EQ(numbersOf(*one, {"b"}), Numbers{2});
}

TEST_F(ProfileNumbersTest, NumbersOfADroppedLockWereNeverGiven)
{
    const auto numbers = open();
    {
        ProfileNumbers::Lock lock(*numbers);
        ASSERT_FALSE(lock.take().failed());
        EXPECT_EQ(numbersOf(*numbers, {"dropped"}), Numbers{1});
    }
    EXPECT_EQ(numbersOf(*numbers, {"kept"}), Numbers{1});
    EXPECT_EQ(numbersOf(*numbers, {"dropped"}), Numbers{2});
    {
        ProfileNumbers::Lock lock(*numbers);
        ASSERT_FALSE(lock.take().failed());
        EXPECT_EQ(numbersOf(*numbers, {"committed"}), Numbers{3});
        ASSERT_FALSE(lock.commit().failed());
    }
    EXPECT_EQ(numbersOf(*open(), {"committed"}), Numbers{3});
}

TEST_F(ProfileNumbersTest, NumberOfADeletedRowIsNotGivenAgain)
{
    numbersOf(*open(), {"a", "b"});
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, "DELETE FROM profile_number", nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(database);
    EXPECT_EQ(numbersOf(*open(), {"c"}), Numbers{3});
}

TEST_F(ProfileNumbersTest, LockKeepsAnotherUserOut)
{
    const auto one = open();
    ProfileNumbers::Lock lock(*one);
    ASSERT_FALSE(lock.take().failed());
    const auto other = open();
    ProfileNumbers::Lock second(*other);
    EXPECT_EQ(second.take().status, NAPI_ERROR_BUSY);
}

TEST_F(ProfileNumbersTest, FileIsForItsOwnerOnly)
{
    open();
    struct stat status = {};
    ASSERT_EQ(::stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(ProfileNumbersTest, FileThatIsNoDatabaseIsRefusedAndKept)
{
    ASSERT_TRUE(QFile::exists(m_directory.path()));
    open();
    const QByteArray rubbish(8192, 'r');
    writeFile(rubbish);
    std::unique_ptr<ProfileNumbers> numbers;
    const StoreResult result = ProfileNumbers::open(m_path, numbers);
    EXPECT_EQ(result.status, NAPI_ERROR_CORRUPT);
    EXPECT_TRUE(result.message.starts_with(m_path)) << result.message;
    QFile file(QString::fromStdString(m_path));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), rubbish);
}

TEST_F(ProfileNumbersTest, DatabaseOfAnotherFormatIsRefused)
{
    const char *const changes[] = {"PRAGMA user_version = 2", "PRAGMA application_id = 1"};
    for (const char *change : changes) {
        QFile::remove(QString::fromStdString(m_path));
        open();
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(m_path.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, change, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
        std::unique_ptr<ProfileNumbers> numbers;
        EXPECT_EQ(ProfileNumbers::open(m_path, numbers).status, NAPI_ERROR_CORRUPT) << change;
    }
}

} // namespace
