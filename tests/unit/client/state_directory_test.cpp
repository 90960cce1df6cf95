// The client's part of a state directory.

#include "noted.h"
#include "state_directory.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <optional>

namespace client {

namespace {

/// Sets a variable of the environment, or removes it, until the end of the scope.
class ScopedVariable {
public:
    ScopedVariable(const char *name, std::optional<QByteArray> value) : m_name(name)
    {
        if (qEnvironmentVariableIsSet(name))
            m_before = qgetenv(name);
        set(value);
    }
    ~ScopedVariable() { set(m_before); }

private:
    void set(const std::optional<QByteArray> &value)
    {
        if (value)
            qputenv(m_name, *value);
        else
            qunsetenv(m_name);
    }

    const char *m_name;
    std::optional<QByteArray> m_before;
};

class OpenStateDirectoryTest : public testing::Test {
protected:
    std::unique_ptr<StateDirectory> open() { return madeOrNull(StateDirectory::open(path), error); }

    QTemporaryDir directory;
    QString path = directory.filePath(QStringLiteral("a/b"));
    QString error;
    ScopedVariable variable{"KUB_STATE_DIR", std::nullopt};
};

TEST_F(OpenStateDirectoryTest, MissingDirectoriesAreMadeForTheirOwnerOnly)
{
    const auto state = open();
    ASSERT_NE(state, nullptr) << error.toStdString();
    const auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                           QFileDevice::ExeOwner | QFileDevice::ReadUser | QFileDevice::WriteUser |
                           QFileDevice::ExeUser;
    for (const char *made : {"a", "a/b", "a/b/client"})
        EXPECT_EQ(QFileInfo(directory.filePath(QString::fromLatin1(made))).permissions(), ownerOnly)
            << made;
}

TEST_F(OpenStateDirectoryTest, TheLibrariesBeneathAPluginUseTheSameDirectory)
{
    const auto state = open();
    EXPECT_EQ(QString::fromLocal8Bit(qgetenv("KUB_STATE_DIR")), path);
}

TEST_F(OpenStateDirectoryTest, ASecondClientIsRefusedUntilTheFirstIsGone)
{
    auto first = open();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(error, QStringLiteral("another DM client is using the state directory %1").arg(path));
    first.reset();
    EXPECT_NE(open(), nullptr);
}

TEST_F(OpenStateDirectoryTest, AFileInTheWayIsNamed)
{
    QDir().mkpath(directory.filePath(QStringLiteral("a")));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(error, QStringLiteral("cannot use %1: Not a directory").arg(path));
}

TEST_F(OpenStateDirectoryTest, ALockThatCannotBeOpenedIsNamed)
{
    QDir().mkpath(path + QStringLiteral("/client/lock"));
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(error, QStringLiteral("cannot use %1/client/lock: Is a directory").arg(path));
}

TEST_F(OpenStateDirectoryTest, NoPartOfItMayBeALinkElsewhere)
{
    ASSERT_TRUE(QDir().mkpath(path) && QDir().mkpath(directory.filePath(QStringLiteral("other"))));
    for (const char *const name : {"client", "settings"}) {
        const QString link = path + u'/' + QString::fromLatin1(name);
        ASSERT_TRUE(QDir().rmdir(link) || !QFile::exists(link));
        ASSERT_TRUE(QFile::link(directory.filePath(QStringLiteral("other")), link));
        EXPECT_EQ(open(), nullptr);
        EXPECT_EQ(error, QStringLiteral("cannot use %1: it is a symbolic link").arg(link));
        ASSERT_TRUE(QFile::remove(link));
    }
    EXPECT_TRUE(QDir(directory.filePath(QStringLiteral("other"))).isEmpty());
}

TEST_F(OpenStateDirectoryTest, TheDeviceIdentifierAndTheLockAreForTheirOwnerOnly)
{
    const auto state = open();
    const QByteArray id = madeOrNull(state->deviceId(), error);
    EXPECT_EQ(id.size(), 45) << id.toStdString();
    EXPECT_FALSE(QFileInfo(state->clientFile(QStringLiteral("lock"))).permissions() &
                 (QFileDevice::ReadGroup | QFileDevice::ReadOther));
    const auto permissions =
        QFileInfo(state->clientFile(QStringLiteral("device-id"))).permissions();
    EXPECT_FALSE(permissions & (QFileDevice::ReadGroup | QFileDevice::ReadOther));
}

TEST_F(OpenStateDirectoryTest, ADeviceIdentifierIsOneLineOfText)
{
    const auto state = open();
    const QString path = state->clientFile(QStringLiteral("device-id"));
    const auto read = [&](const QByteArray &content) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_TRUE(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        file.write(content);
        file.close();
        error.clear();
        return madeOrNull(state->deviceId(), error);
    };
    const QByteArray longest(255, 'x');
    for (const QByteArray &id : {QByteArray("IMEI:004999010640000"), QByteArray("urn:\xc3\xa4"),
                                 QByteArray("two words"), longest}) {
        EXPECT_EQ(read(id), id);
        EXPECT_EQ(read(id + '\n'), id);
    }
    EXPECT_EQ(read("urn:a\r\n"), "urn:a");
    EXPECT_EQ(read(" urn:a \n"), "urn:a");
    for (const QByteArray &content :
         {QByteArray(), QByteArray("\n"), QByteArray(" \n"), longest + 'x', QByteArray(46, '\0'),
          QByteArray("a\nb\n"), QByteArray("a\n\n"), QByteArray("\na"), QByteArray("a\tb"),
          QByteArray("a\x7f"), QByteArray("a\xc2\x85"), QByteArray("\xff\xfe"),
          QByteArray("a\xef\xbf\xbe"), QByteArray("a\xed\xa0\x80")}) {
        EXPECT_EQ(read(content), QByteArray()) << content.toHex().toStdString();
        EXPECT_TRUE(error.contains(path)) << error.toStdString();
    }
}

} // namespace

} // namespace client
