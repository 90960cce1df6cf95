// What the bytes of a notification say.

#include "messages.h"
#include "notification_message.h"

#include <gtest/gtest.h>

using namespace client::notification;

namespace {

TEST(Package0Test, HasWhatItsFieldsSay)
{
    const auto package = readPackage0(knownNotification);
    ASSERT_TRUE(package) << package.error().toStdString();
    EXPECT_EQ(package->digest.toHex(), "16afb41bb6ae1eb0899c917b316bb7a8");
    EXPECT_EQ(package->trigger, knownNotification.sliced(16));
    EXPECT_EQ(package->uiMode, UiMode::Background);
    EXPECT_EQ(package->initiator, Initiator::User);
    EXPECT_EQ(package->sessionId, 0x1234);
    EXPECT_EQ(package->serverId, "com.mgmtsrv.manage");
    EXPECT_EQ(package->vendorBody, "");
}

TEST(Package0Test, HasABodyOfItsVendor)
{
    const auto package = readPackage0(otherNotification);
    ASSERT_TRUE(package) << package.error().toStdString();
    EXPECT_EQ(package->uiMode, UiMode::Interactive);
    EXPECT_EQ(package->initiator, Initiator::Server);
    EXPECT_EQ(sessionIdText(package->sessionId), u"A");
    EXPECT_EQ(package->serverId, "com.example.dm");
    EXPECT_EQ(package->vendorBody.toHex(), "0102");
}

/// A digest of any bytes, and a trigger.
QByteArray packageOf(const char *triggerInHex)
{
    return QByteArray(16, 'd') + QByteArray::fromHex(triggerInHex);
}

TEST(Package0Test, BitsOfLaterVersionsDoNotCount)
{
    const auto package = readPackage0(packageOf("02E7FFFFFF 0001 01 41"));
    ASSERT_TRUE(package) << package.error().toStdString();
    EXPECT_EQ(package->uiMode, UiMode::Informative);
    EXPECT_EQ(package->initiator, Initiator::User);
}

TEST(Package0Test, OneThatBreaksOffIsRefusedAtEachByte)
{
    for (qsizetype size = 0; size < knownNotification.size(); ++size)
        EXPECT_FALSE(readPackage0(knownNotification.first(size))) << size;
}

TEST(Package0Test, TheLargestIsReadAndNoneThatIsLarger)
{
    const QByteArray package =
        knownNotification + QByteArray(Package0::largest - knownNotification.size(), 'v');
    EXPECT_TRUE(readPackage0(package));
    EXPECT_FALSE(readPackage0(package + 'v'));
}

struct RefusedRow {
    const char *trigger;
    const char *reason; ///< part of it

    friend void PrintTo(const RefusedRow &row, std::ostream *out) { *out << row.reason; }
};

const RefusedRow refusedRows[] = {
    {"0290000000 0001 01 41", "byte 16 of the notification: version 1.0 instead of 1.1"},
    {"0310000000 0001 01 41", "byte 16 of the notification: version 1.2 instead of 1.1"},
    {"FFD0000000 0001 01 41", "byte 16 of the notification: version 102.3 instead of 1.1"},
    {"02D0000000 0000 01 41", "byte 21 of the notification: 0 is not the identifier of a session"},
    {"02D0000000 0001 00 41", "byte 23 of the notification: it names no server"},
    {"02D0000000 0001 02 41", "byte 24 of the notification: 2 bytes announced, but only 1 are"},
    {"02D0000000 0001 FF 4142", "255 bytes announced, but only 2 are left"},
};

class RefusedPackage0Test : public testing::TestWithParam<RefusedRow> {};

TEST_P(RefusedPackage0Test, SaysWhatIsWrongAndWhere)
{
    const auto package = readPackage0(packageOf(GetParam().trigger));
    ASSERT_FALSE(package);
    EXPECT_NE(package.error().toStdString().find(GetParam().reason), std::string::npos)
        << package.error().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Package0, RefusedPackage0Test, testing::ValuesIn(refusedRows));

// ---- In a push

TEST(NotificationPushTest, HasThePackage)
{
    const auto package = readNotificationPush(pushOf(knownNotification));
    ASSERT_TRUE(package) << package.error().toStdString();
    EXPECT_EQ(*package, *readPackage0(knownNotification));
    EXPECT_TRUE(isNotificationPush(pushOf(knownNotification)));
}

TEST(NotificationPushTest, MayNameTypeAndApplicationInWords)
{
    const QByteArray header = QByteArray("application/vnd.syncml.notification") + '\0' +
                              QByteArray("\xAFX-WAP-Application:SyncML.DM") + '\0';
    const QByteArray push = QByteArray("\x01\x06") + static_cast<char>(header.size()) + header;
    const auto package = readNotificationPush(push + knownNotification);
    ASSERT_TRUE(package) << package.error().toStdString();
    EXPECT_EQ(package->sessionId, 0x1234);
}

struct RefusedPushRow {
    const char *header; ///< in hexadecimal digits, from the transaction on
    const char *reason;
    bool isNotification;

    friend void PrintTo(const RefusedPushRow &row, std::ostream *out) { *out << row.reason; }
};

const RefusedPushRow refusedPushes[] = {
    {"010601b6", "media type application/vnd.wap.connectivity-wbxml is not a notification", false},
    {"010601be", "media type code 0x3e is not a notification", false},
    {"010601c4", "for no application that it names", true},
    {"010603c4af84", "the push is for 4", true},
    {"010703c4af87", "0x07 is not the type of a push", false},
    {"01067fc4af87", "127 bytes announced", false},
};

class RefusedNotificationPushTest : public testing::TestWithParam<RefusedPushRow> {};

TEST_P(RefusedNotificationPushTest, SaysWhatItIsInstead)
{
    const QByteArray bytes = QByteArray::fromHex(GetParam().header) + knownNotification;
    const auto package = readNotificationPush(bytes);
    ASSERT_FALSE(package);
    EXPECT_NE(package.error().toStdString().find(GetParam().reason), std::string::npos)
        << package.error().toStdString();
    EXPECT_EQ(isNotificationPush(bytes), GetParam().isNotification);
}

INSTANTIATE_TEST_SUITE_P(NotificationPush, RefusedNotificationPushTest,
                         testing::ValuesIn(refusedPushes));

TEST(NotificationTest, IsReadAloneAndInAPush)
{
    EXPECT_EQ(*readNotification(knownNotification), *readPackage0(knownNotification));
    EXPECT_EQ(*readNotification(pushOf(knownNotification)), *readPackage0(knownNotification));
    QByteArray likePush = knownNotification;
    likePush[1] = 0x06;
    EXPECT_EQ(*readNotification(likePush), *readPackage0(likePush));
}

TEST(NotificationTest, WhatIsWrongIsThatOfWhatItLooksLike)
{
    const auto other = readNotification(QByteArray::fromHex("010601b6") + knownNotification);
    ASSERT_FALSE(other);
    EXPECT_TRUE(other.error().contains(u"a push of the media type")) << other.error().toStdString();
    const auto broken = readNotification(knownNotification.first(20));
    ASSERT_FALSE(broken);
    EXPECT_TRUE(broken.error().startsWith(u"byte 16")) << broken.error().toStdString();
    const auto brokenInPush = readNotification(pushOf(knownNotification.first(20)));
    ASSERT_FALSE(brokenInPush);
    EXPECT_TRUE(brokenInPush.error().startsWith(u"byte 16")) << brokenInPush.error().toStdString();
}

} // namespace
