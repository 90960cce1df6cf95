// What is kept of the notifications that were obeyed.

#include "notification_memory.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace client::notification;

namespace {

class NotificationMemoryTest : public testing::Test {
protected:
    /// Whether it is new; by a memory of its own, as of another process.
    bool isNew(const QString &account, const QByteArray &nonce, quint16 sessionId) const
    {
        const auto added = NotificationMemory(file).add(account, nonce, sessionId);
        EXPECT_TRUE(added) << added.error().toStdString();
        return added && *added;
    }

    void write(const QByteArray &text) const
    {
        QFile stored(file);
        ASSERT_TRUE(stored.open(QIODevice::WriteOnly));
        stored.write(text);
    }

    QTemporaryDir directory;
    const QString file = directory.filePath(QStringLiteral("notifications.json"));
    const QString operatorAccount = QStringLiteral("Operator");
};

TEST_F(NotificationMemoryTest, TakesASessionOnceForANonceOfAnAccount)
{
    EXPECT_TRUE(isNew(operatorAccount, "one", 7));
    EXPECT_FALSE(isNew(operatorAccount, "one", 7));
    EXPECT_TRUE(isNew(operatorAccount, "one", 8));
    EXPECT_TRUE(isNew(operatorAccount, "another", 7));
    EXPECT_TRUE(isNew(QStringLiteral("Other"), "one", 7));
    EXPECT_FALSE(isNew(operatorAccount, "one", 8));
}

TEST_F(NotificationMemoryTest, KeepsTheLastOnesOfEachAccount)
{
    for (int id = 1; id <= NotificationMemory::mostPerAccount + 1; ++id)
        EXPECT_TRUE(isNew(operatorAccount, "nonce", static_cast<quint16>(id))) << id;
    EXPECT_FALSE(isNew(operatorAccount, "nonce", 2));
    EXPECT_TRUE(isNew(operatorAccount, "nonce", 1));
}

TEST_F(NotificationMemoryTest, DoesNotGiveTheNonceAway)
{
    EXPECT_TRUE(isNew(operatorAccount, "SecretNonce", 7));
    QFile stored(file);
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    const QByteArray text = stored.readAll();
    EXPECT_FALSE(text.contains("SecretNonce"));
    EXPECT_FALSE(text.contains(QByteArray("SecretNonce").toBase64()));
    EXPECT_FALSE(text.contains(QByteArray("SecretNonce").toHex()));
}

struct DamageRow {
    const char *text;
    const char *reason; ///< part of it

    friend void PrintTo(const DamageRow &row, std::ostream *out) { *out << row.text; }
};

class DamagedMemoryTest : public NotificationMemoryTest,
                          public testing::WithParamInterface<DamageRow> {};

TEST_P(DamagedMemoryTest, TakesNothingAndStaysAsItIs)
{
    write(GetParam().text);
    const auto added = NotificationMemory(file).add(operatorAccount, "nonce", 7);
    ASSERT_FALSE(added);
    const std::string reason = added.error().toStdString();
    EXPECT_NE(reason.find(file.toStdString()), std::string::npos) << reason;
    EXPECT_NE(reason.find(GetParam().reason), std::string::npos) << reason;
    QFile stored(file);
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    EXPECT_EQ(stored.readAll(), GetParam().text);
}

const DamageRow damages[] = {
    {"{", "object"},
    {"[]", "object"},
    {R"({"Operator": 1})", "what it has of Operator is not a list"},
};

INSTANTIATE_TEST_SUITE_P(NotificationMemory, DamagedMemoryTest, testing::ValuesIn(damages));

TEST_F(NotificationMemoryTest, WhatCannotBeWrittenIsNotTaken)
{
    const NotificationMemory memory(directory.filePath(QStringLiteral("missing/file.json")));
    EXPECT_FALSE(memory.add(operatorAccount, "nonce", 7));
}

} // namespace
