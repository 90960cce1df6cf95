// Bootstrap messages that came by air, until they are dealt with.

#include "pending_bootstraps.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace client::push;
using std::chrono::milliseconds;

namespace {

class PendingBootstrapsTest : public testing::Test {
protected:
    using Added = PendingBootstraps::Added;

    PendingBootstrapsTest()
    {
        EXPECT_TRUE(QDir().mkpath(directory.filePath(QStringLiteral("client"))));
        for (const QString &folder :
             {directory.path(), directory.filePath(QStringLiteral("client"))})
            QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ExeOwner);
    }

    /// A push of Client Provisioning whose SEC is USERPIN, with that MAC.
    static QByteArray push(const QByteArray &body, const QByteArray &mac = QByteArray(40, 'A'),
                           char transaction = 1)
    {
        QByteArray content = QByteArray::fromHex("b69181") + '\x92' + mac + '\0';
        content = QByteArray::fromHex("1f") + static_cast<char>(content.size()) + content;
        return QByteArray(1, transaction) + '\x06' + static_cast<char>(content.size()) + content +
               body;
    }

    /// By a store of its own, as of another process.
    PendingBootstraps store() const { return PendingBootstraps(directory.path()); }

    PendingBootstraps::Addition add(const QByteArray &message, int received = 0,
                                    const QByteArray &imsi = {}) const
    {
        const auto added = store().add(message, imsi, milliseconds(received));
        EXPECT_TRUE(added) << added.error().toStdString();
        return added ? *added : PendingBootstraps::Addition{};
    }

    QString fileOf(const QString &id) const
    {
        return directory.filePath(QStringLiteral("client/bootstrap/%1.json").arg(id));
    }

    QTemporaryDir directory;
};

TEST_F(PendingBootstrapsTest, KeepsWhatCameForItsOwnerOnly)
{
    const auto added = add(push("one"), 5, "310170123456789");
    EXPECT_EQ(added.added, Added::New);
    const auto found = store().find(added.id);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, (PendingBootstrap{.id = added.id,
                                        .received = milliseconds(5),
                                        .message = push("one"),
                                        .imsi = "310170123456789"}));
    EXPECT_EQ(QFile::permissions(fileOf(added.id)) &
                  (QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ReadOther |
                   QFileDevice::WriteOther),
              QFileDevice::Permissions());
}

TEST_F(PendingBootstrapsTest, ListsTheOldestFirst)
{
    const QString second = add(push("second"), 2).id;
    const QString first = add(push("first"), 1).id;
    const auto listing = store().list();
    ASSERT_EQ(listing.pending.size(), 2u);
    EXPECT_EQ(listing.pending[0].id, first);
    EXPECT_EQ(listing.pending[1].id, second);
    EXPECT_TRUE(listing.damage.isEmpty());
}

TEST_F(PendingBootstrapsTest, TheSameMessageInAnotherPushIsKnown)
{
    const QString id = add(push("one")).id;
    for (const QByteArray &again :
         {push("one"), push("one", QByteArray(40, 'a')), push("one", QByteArray(40, 'A'), 9)}) {
        EXPECT_EQ(add(again).added, Added::Known);
        EXPECT_EQ(add(again).id, id);
    }
    // A forger who knows the document must not stand for the operator.
    EXPECT_EQ(add(push("one", QByteArray(40, 'B'))).added, Added::New);
}

TEST_F(PendingBootstrapsTest, OneThatWasDealtWithIsKnownAndWaitsNoMore)
{
    const QString id = add(push("one")).id;
    EXPECT_TRUE(store().finish(id));
    EXPECT_TRUE(store().list().pending.empty());
    EXPECT_FALSE(store().find(id));
    EXPECT_EQ(add(push("one")).added, Added::Known);
    QFile file(fileOf(id));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_FALSE(file.readAll().contains("message"));
}

TEST_F(PendingBootstrapsTest, WhatHasChangedIsKept)
{
    auto pending = *store().find(add(push("one")).id);
    pending.pinTries = 2;
    pending.isSetAside = true;
    EXPECT_TRUE(store().change(pending));
    EXPECT_EQ(*store().find(pending.id), pending);
}

TEST_F(PendingBootstrapsTest, TheNewestIsRefusedWhenThereIsNoRoom)
{
    QString first;
    for (std::size_t i = 0; i < PendingBootstraps::most; ++i) {
        const auto added = add(push("message " + QByteArray::number(qulonglong(i))));
        EXPECT_EQ(added.added, Added::New);
        first = first.isEmpty() ? added.id : first;
    }
    EXPECT_EQ(add(push("one more")).added, Added::NoRoom);
    EXPECT_EQ(store().list().pending.size(), PendingBootstraps::most);
    EXPECT_TRUE(store().finish(first));
    EXPECT_EQ(add(push("one more")).added, Added::New);
}

TEST_F(PendingBootstrapsTest, TheOldestThatWereDealtWithAreForgotten)
{
    const auto message = [](std::size_t number) {
        return push("message " + QByteArray::number(qulonglong(number)));
    };
    for (std::size_t i = 0; i <= PendingBootstraps::mostRemembered + 1; ++i)
        EXPECT_TRUE(store().finish(add(message(i), static_cast<int>(i)).id));
    EXPECT_EQ(
        QDir(directory.filePath(QStringLiteral("client/bootstrap"))).entryList(QDir::Files).size(),
        PendingBootstraps::mostRemembered);
    EXPECT_EQ(add(message(2)).added, Added::Known);
    EXPECT_EQ(add(message(0)).added, Added::New);
}

TEST_F(PendingBootstrapsTest, WithoutAProofNothingIsKept)
{
    EXPECT_EQ(add("\x01\x06\x01\xb6<wap-provisioningdoc/>").added, Added::NoProof);
    EXPECT_EQ(add(QByteArray::fromHex("010603b69181")).added, Added::NoProof);
    EXPECT_EQ(add("no push").added, Added::NoProof);
    EXPECT_TRUE(store().list().pending.empty());
}

TEST_F(PendingBootstrapsTest, ADamagedFileIsNamedAndTakesItsPlace)
{
    const QString damaged = add(push("one")).id;
    const QString good = add(push("two")).id;
    for (const QByteArray &content :
         {QByteArray("{"), QByteArray("[]"), QByteArray(R"({"message": "AQY="})"),
          QByteArray(R"({"message": 5})"), QByteArray(200 * 1024, ' ')}) {
        QFile file(fileOf(damaged));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        const auto listing = store().list();
        ASSERT_EQ(listing.pending.size(), 1u);
        EXPECT_EQ(listing.pending[0].id, good);
        ASSERT_EQ(listing.damage.size(), 1);
        EXPECT_TRUE(listing.damage[0].contains(fileOf(damaged)));
        EXPECT_FALSE(store().find(damaged));
        EXPECT_FALSE(store().add(push("one"), {}, milliseconds(0)));
    }
    EXPECT_TRUE(store().finish(damaged));
    EXPECT_EQ(add(push("one")).added, Added::Known);
}

TEST_F(PendingBootstrapsTest, ANameLeadsToNoOtherFile)
{
    for (const char *const name : {"", "../accounts", "0123456789abcdeF", "0123456789abcde/"})
        EXPECT_FALSE(store().find(QString::fromLatin1(name))) << name;
}

class BootstrapPushTest : public testing::TestWithParam<std::pair<const char *, bool>> {};

INSTANTIATE_TEST_SUITE_P(MediaTypes, BootstrapPushTest,
                         testing::Values(std::pair("010601b5", true), std::pair("010601b6", true),
                                         std::pair("010601c2", true), std::pair("010601c3", true),
                                         std::pair("010601c4", false), std::pair("010601be", false),
                                         std::pair("010601", false), std::pair("", false)));

TEST_P(BootstrapPushTest, IsKnownByItsMediaType)
{
    EXPECT_EQ(isBootstrapPush(QByteArray::fromHex(GetParam().first)), GetParam().second);
}

} // namespace
