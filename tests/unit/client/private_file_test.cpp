// Small files that must not be lost.

#include "noted.h"
#include "private_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::function<bool(int)> whatFsyncDoes; ///< false: it fails

} // namespace

/// Stands in front of the system's, for every file of this program.
extern "C" int fsync(int file)
{
    if (whatFsyncDoes && !whatFsyncDoes(file)) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, file));
}

namespace support {

namespace {

/// No file can grow beyond that many bytes for as long as the object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_signal(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_signal);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit m_before{};
    void (*m_signal)(int);
};

class PrivateFileTest : public testing::Test {
protected:
    /// What came of reading; `bytes` and `object` are what was read, `error` why it was not.
    enum class Reading { Done, Missing, Failed };
    template <class Value>
    Reading readingOf(const Expected<std::optional<Value>, QString> &read, Value &value)
    {
        if (!read) {
            error = read.error();
            return Reading::Failed;
        }
        value = read->value_or(Value());
        return *read ? Reading::Done : Reading::Missing;
    }

    void write(const QByteArray &bytes)
    {
        QFile output(path);
        ASSERT_TRUE(output.open(QIODevice::WriteOnly));
        output.write(bytes);
    }
    Reading read() { return readingOf(file.read(), bytes); }
    std::string objectError()
    {
        QJsonObject object;
        EXPECT_EQ(readingOf(file.readObject(), object), Reading::Failed);
        EXPECT_TRUE(error.startsWith(path)) << error.toStdString();
        return error.mid(path.size()).toStdString();
    }
    QStringList files()
    {
        return QDir(directory.path()).entryList(QDir::Files | QDir::System | QDir::Hidden);
    }

    QTemporaryDir directory;
    QString path = directory.filePath(QStringLiteral("file"));
    PrivateFile file{path, 100};
    QByteArray bytes;
    QString error;
};

TEST_F(PrivateFileTest, IsReadBackAsItWasWrittenAndIsItsOwnersOnly)
{
    EXPECT_EQ(read(), Reading::Missing);
    ASSERT_TRUE(noted(file.replace("old"), error)) << error.toStdString();
    ASSERT_TRUE(noted(file.replace(QByteArray("new\0", 4)), error)) << error.toStdString();
    EXPECT_EQ(read(), Reading::Done);
    EXPECT_EQ(bytes, QByteArray("new\0", 4));
    EXPECT_EQ(QFile::permissions(path) & ~QFileDevice::Permissions(0xF000),
              QFileDevice::ReadUser | QFileDevice::WriteUser);
    EXPECT_EQ(files(), QStringList(QStringLiteral("file")));
}

TEST_F(PrivateFileTest, WhatCouldNotBeReadBackIsNotWritten)
{
    ASSERT_TRUE(noted(file.replace("old"), error));
    EXPECT_TRUE(noted(file.replace(QByteArray(100, 'x')), error));
    EXPECT_FALSE(noted(file.replace(QByteArray(101, 'y')), error));
    EXPECT_EQ(error,
              QStringLiteral("cannot write %1: it would be larger than 100 bytes").arg(path));
    EXPECT_EQ(read(), Reading::Done);
    EXPECT_EQ(bytes, QByteArray(100, 'x'));
    write(QByteArray(101, 'y'));
    EXPECT_EQ(read(), Reading::Failed);
    EXPECT_EQ(error, QStringLiteral("%1 is larger than 100 bytes").arg(path));
}

TEST_F(PrivateFileTest, FailedWriteLeavesTheOldFileAndNothingBesideIt)
{
    ASSERT_TRUE(noted(file.replace("old"), error));
    {
        const FileSizeLimit limit(10);
        EXPECT_FALSE(noted(file.replace("more than ten bytes"), error));
    }
    EXPECT_EQ(error, QStringLiteral("cannot write %1: File too large").arg(path));
    EXPECT_EQ(read(), Reading::Done);
    EXPECT_EQ(bytes, "old");
    EXPECT_EQ(files(), QStringList(QStringLiteral("file")));
}

TEST_F(PrivateFileTest, NewFileIsOnTheDiskBeforeItTakesTheName)
{
    ASSERT_TRUE(noted(file.replace("old"), error));
    QList<QByteArray> namedAtEachSync;
    whatFsyncDoes = [&](int) {
        QByteArray now;
        EXPECT_EQ(readingOf(file.read(), now), Reading::Done);
        namedAtEachSync += now;
        return true;
    };
    EXPECT_TRUE(noted(file.replace("new"), error));
    EXPECT_EQ(namedAtEachSync, (QList<QByteArray>{"old", "new"})) << "the file, then its folder";
    whatFsyncDoes = [](int) { return false; };
    EXPECT_FALSE(noted(file.replace("newer"), error));
    whatFsyncDoes = nullptr;
    EXPECT_EQ(error, QStringLiteral("cannot write %1: Input/output error").arg(path));
    EXPECT_EQ(read(), Reading::Done);
    EXPECT_EQ(bytes, "new");
    EXPECT_EQ(files(), QStringList(QStringLiteral("file")));
}

TEST_F(PrivateFileTest, FailedRenameLeavesTheOldOneAndNothingBesideIt)
{
    ASSERT_TRUE(QDir().mkpath(path + QStringLiteral("/inside")));
    EXPECT_FALSE(noted(file.replace("new"), error));
    EXPECT_EQ(error, QStringLiteral("cannot write %1: Is a directory").arg(path));
    EXPECT_EQ(files(), QStringList());
}

TEST_F(PrivateFileTest, WhatAKilledProcessLeftDoesNotStopTheNext)
{
    QFile left(path + QStringLiteral(".new"));
    ASSERT_TRUE(left.open(QIODevice::WriteOnly));
    left.write("half a fi");
    left.close();
    ASSERT_TRUE(noted(file.replace("whole"), error)) << error.toStdString();
    EXPECT_EQ(read(), Reading::Done);
    EXPECT_EQ(bytes, "whole");
    EXPECT_EQ(files(), QStringList(QStringLiteral("file")));
}

TEST_F(PrivateFileTest, LinkIsNeitherReadNorFollowedInWriting)
{
    const QString target = directory.filePath(QStringLiteral("target"));
    for (const QString &link : {path, path + QStringLiteral(".new")}) {
        ASSERT_TRUE(QFile::link(target, link));
        ASSERT_TRUE(noted(file.replace("new"), error)) << error.toStdString();
        EXPECT_FALSE(QFile::exists(target));
        EXPECT_FALSE(QFileInfo(path).isSymLink());
        ASSERT_TRUE(QFile::remove(path));
    }
    ASSERT_TRUE(QFile::link(target, path));
    EXPECT_EQ(read(), Reading::Failed);
    EXPECT_EQ(error, QStringLiteral("cannot use %1: it is a symbolic link").arg(path));
}

TEST_F(PrivateFileTest, WhatIsNoJsonObjectIsRefusedWithThePlace)
{
    QJsonObject object;
    EXPECT_EQ(readingOf(file.readObject(), object), Reading::Missing);
    write("{\"a\": ");
    EXPECT_TRUE(objectError().starts_with(": byte ")) << error.toStdString();
    write("[]");
    EXPECT_EQ(objectError(), ": byte 0: not a JSON object");
    write("");
    EXPECT_EQ(objectError(), ": byte 0: illegal value");
    write("{\"a\": 1}");
    EXPECT_EQ(readingOf(file.readObject(), object), Reading::Done);
    EXPECT_EQ(object, (QJsonObject{{QStringLiteral("a"), 1}}));
}

TEST(ReplacePrivately, FileThatDoesNotFitLeavesTheOneBefore)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("file"));
    ASSERT_TRUE(replacePrivately(path, "before"));
    for (const qsizetype size : {11, 100'000}) {
        const FileSizeLimit limit(10);
        const auto replaced = replacePrivately(path, QByteArray(size, 'x'));
        ASSERT_FALSE(replaced);
        EXPECT_EQ(replaced.error(), QStringLiteral("cannot write %1: File too large").arg(path));
    }
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "before");
    EXPECT_EQ(QDir(directory.path()).entryList(QDir::Files).size(), 1);
}

} // namespace

} // namespace support
