// The header of a WAP push.

#include "vectors.h"
#include "wsp_push.h"

#include <gtest/gtest.h>

using namespace client::push;

namespace {

const QByteArray anyMac = "EC47F78607D505B2280126877E34D36EA082943C";

TEST(WspPushTest, HasTheMediaTypeSecurityMacApplicationAndBody)
{
    const auto push =
        readWspPush(pushOf(contentType(0x36, 1, anyMac) + bytes("\xB4\x81\xB1http://x\0\xAF\x80")));
    ASSERT_TRUE(push) << push.error().toStdString();
    EXPECT_EQ(push->transaction, 1);
    EXPECT_EQ(push->mediaType, push_type::connectivityWbxml);
    EXPECT_EQ(push->security, "1");
    EXPECT_EQ(push->mac, anyMac);
    EXPECT_EQ(push->application, "0");
    EXPECT_EQ(push->body, "body");
}

TEST(WspPushTest, TheShortestFormIsOneOfANotification)
{
    const auto push = readWspPush(pushOf("\xC4\xAF\x87"));
    ASSERT_TRUE(push) << push.error().toStdString();
    EXPECT_EQ(push->mediaType, push_type::notification);
    EXPECT_EQ(push->security, std::nullopt);
    EXPECT_EQ(push->application, "7");
}

struct HeaderRow {
    const char *what;
    QByteArray header;
    QByteArray mediaType;
    std::optional<QByteArray> security;
    std::optional<QByteArray> mac;

    friend void PrintTo(const HeaderRow &row, std::ostream *out) { *out << row.what; }
};

const HeaderRow readable[] = {
    {"a code that means nothing here", "\xBE", "code 0x3e", std::nullopt, std::nullopt},
    {"a media type in words", bytes("Application/X\0"), "application/x", std::nullopt,
     std::nullopt},
    {"a media type of several bytes", bytes("\x03\x02\x03\x13"), "code 0x313", std::nullopt,
     std::nullopt},
    {"parameters in words", bytes("\x15\xB6sec\0userpin\0MAC\0ABc\0"), push_type::connectivityWbxml,
     "USERPIN", "ABc"},
    {"a parameter with a length", bytes("\x07\xB6\x85\x02zz\x91\x81"), push_type::connectivityWbxml,
     "1", std::nullopt},
    {"a header in words", bytes("\xB6X-Other\0\x91\x81\0"), push_type::connectivityWbxml,
     std::nullopt, std::nullopt},
    {"headers of another page", bytes("\xB6\x7F\x02\xAF\x87\x01"), push_type::connectivityWbxml,
     std::nullopt, std::nullopt},
};

class ReadableHeaderTest : public testing::TestWithParam<HeaderRow> {};

TEST_P(ReadableHeaderTest, IsRead)
{
    const HeaderRow &row = GetParam();
    const auto push = readWspPush(pushOf(row.header));
    ASSERT_TRUE(push) << push.error().toStdString();
    EXPECT_EQ(push->mediaType, row.mediaType);
    EXPECT_EQ(push->security, row.security);
    EXPECT_EQ(push->mac, row.mac);
    EXPECT_EQ(push->application, std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(WspPush, ReadableHeaderTest, testing::ValuesIn(readable));

struct RefusedPushRow {
    const char *reason; ///< part of it
    QByteArray push;

    friend void PrintTo(const RefusedPushRow &row, std::ostream *out) { *out << row.reason; }
};

const RefusedPushRow refusedPushes[] = {
    {"0x07 is not the type of a push", bytes("\x01\x07\x01\xB6")},
    {"5 bytes announced, but only 2 are left", bytes("\x01\x06\x05\xB6\xAF")},
    {"a number of more than 32 bits", bytes("\x01\x06\xFF\xFF\xFF\xFF\xFF\x7F")},
    {"a number of more than 32 bits", bytes("\x01\x06\x80\x80\x80\x80\x80\x01\xB6")},
    {"the message breaks off", pushOf("")},
    {"the message breaks off", pushOf("\xB6\xAF")},
    {"the message breaks off", pushOf("text/plain")},
    {"31 bytes announced", pushOf(bytes("\x1F\x1F\xB6"))},
    {"0 is not the name of a header", pushOf(bytes("\xB6\0"))},
    {"neither a number nor a text", pushOf(bytes("\x07\x06"
                                                 "ABCDEF"))},
    {"neither a number nor a text", pushOf(bytes("a\x1B[0m\0"))},
    {"SEC stands there twice", pushOf(bytes("\x05\xB6\x91\x81\x91\x81"))},
    {"MAC is neither a number nor a text", pushOf(bytes("\x06\xB6\x92"
                                                        "a\x1B[\0"))},
    {"X-WAP-Application-ID stands there twice", pushOf("\xB6\xAF\x80\xAF\x87")},
    {"a media type of a push has no quality", pushOf("\x03\xB6\x80\x81")},
};

class RefusedPushTest : public testing::TestWithParam<RefusedPushRow> {};

TEST_P(RefusedPushTest, SaysWhatIsWrongAndWhere)
{
    const auto push = readWspPush(GetParam().push);
    ASSERT_FALSE(push);
    const std::string reason = push.error().toStdString();
    EXPECT_NE(reason.find(GetParam().reason), std::string::npos) << reason;
    EXPECT_EQ(reason.find("byte "), 0u) << reason;
}

INSTANTIATE_TEST_SUITE_P(WspPush, RefusedPushTest, testing::ValuesIn(refusedPushes));

TEST(WspPushTest, OneThatBreaksOffInItsHeaderIsRefusedAtEachByte)
{
    const QByteArray push = pushOf(contentType(0x36, 1, anyMac), {});
    ASSERT_TRUE(readWspPush(push));
    for (qsizetype size = 0; size < push.size(); ++size)
        EXPECT_FALSE(readWspPush(push.first(size))) << size;
}

TEST(WspPushTest, AsMuchAsFitsIsReadAndNoMore)
{
    const QByteArray push = pushOf("\xB6", {});
    EXPECT_TRUE(readWspPush(push + QByteArray(WspPush::largest - push.size(), 'x')));
    EXPECT_FALSE(readWspPush(push + QByteArray(WspPush::largest - push.size() + 1, 'x')));
}

} // namespace
