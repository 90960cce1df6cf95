// Bootstrap messages by their content.

#include "bootstrap_message.h"
#include "vectors.h"

#include <gtest/gtest.h>

using namespace client::bootstrap;

namespace {

std::string messageFault(const QByteArray &bytes)
{
    const auto message = readBootstrapMessage(bytes);
    return message ? std::string() : message.error().toStdString();
}

TEST(BootstrapMessageTest, APushHasAProofAndADocumentAloneHasNone)
{
    const QByteArray document = vectorFile("cp.wbxml");
    const auto pushed = readBootstrapMessage(
        pushOf(contentType(0x36, 1, "EC47F78607D505B2280126877E34D36EA082943C"), document));
    ASSERT_TRUE(pushed) << pushed.error().toStdString();
    ASSERT_TRUE(pushed->proof);
    EXPECT_EQ(pushed->document, document);
    EXPECT_TRUE(pushed->isProvedBy({"1234", {}}));
    EXPECT_FALSE(pushed->isProvedBy({"1235", {}}));
    for (const char *const file : {"cp.wbxml", "cp.xml"}) {
        const auto alone = readBootstrapMessage(vectorFile(file));
        ASSERT_TRUE(alone) << file;
        EXPECT_FALSE(alone->proof) << file;
    }
}

TEST(BootstrapMessageTest, AMessageOfTheDmProfileIsProved)
{
    const struct {
        int security;
        const char *mac;
        MacSecrets right;
        MacSecrets wrong;
    } rows[] = {
        {1, "FFAC13A6E411FC95EE9358BEC2958432ECCC77DC", {"1234", {}}, {"1235", {}}},
        {0,
         "CB2A56CAFD50A1976AF636857135EED5A77514C3",
         {{}, "310170123456789"},
         {{}, "310170123456780"}},
        {0,
         "9365F9227767A00E3C782EAC7C5565E43B9FA880",
         {{}, "310170123456789"},
         {{}, "310170123456780"}},
        {2,
         "84E101EA74C541B0C739CD0C64F99A990D0941D2",
         {"1234", "310170123456789"},
         {"1235", "310170123456789"}},
        {2,
         "AF5B247F7986352E6B0416262CA676845C968CD5",
         {"1234", "310170123456789"},
         {"1234", "310170123456780"}},
    };
    for (const auto &row : rows) {
        const auto pushed = readBootstrapMessage(
            pushOf(contentType(0x42, row.security, row.mac), vectorFile("boot.wbxml")));
        ASSERT_TRUE(pushed) << pushed.error().toStdString();
        EXPECT_EQ(pushed->profile, Profile::DeviceManagement);
        EXPECT_TRUE(pushed->isProvedBy(row.right)) << row.mac;
        EXPECT_FALSE(pushed->isProvedBy(row.wrong)) << row.mac;
    }
}

TEST(BootstrapMessageTest, ADocumentAloneShowsItsProfile)
{
    for (const auto &[file, profile] : {std::pair{"boot.wbxml", Profile::DeviceManagement},
                                        std::pair{"cp.wbxml", Profile::ClientProvisioning},
                                        std::pair{"cp.xml", Profile::ClientProvisioning}}) {
        const auto alone = readBootstrapMessage(vectorFile(file));
        ASSERT_TRUE(alone) << file;
        EXPECT_EQ(alone->profile, profile) << file;
    }
    const auto message =
        readBootstrapMessage(bytes("\x02\x00\x00\x6A\x1D-//SYNCML//DTD SyncML 1.2//EN\0"));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->profile, Profile::DeviceManagement);
}

TEST(BootstrapMessageTest, APushIsRefusedWithHalfAProofOrForSomethingElse)
{
    EXPECT_EQ(messageFault(pushOf("\xB6", "x")), "");
    EXPECT_EQ(messageFault(pushOf("\x03\xB6\x91\x81")), "the push has a SEC and no MAC");
    EXPECT_EQ(messageFault(pushOf(bytes("\x04\xB6\x92"
                                        "A\0"))),
              "the push has a MAC and no SEC that says what it is of");
    EXPECT_NE(messageFault(pushOf("\x03\xB6\x91\x83")).find("USERPINMAC is not supported"),
              std::string::npos);
    EXPECT_EQ(messageFault(pushOf("\xBE")),
              "a push of the media type code 0x3e is not a bootstrap message");
    EXPECT_EQ(messageFault("nothing of the kind"),
              "the message is neither a WAP push, nor XML or WBXML");
    EXPECT_EQ(messageFault(QByteArray(largestBootstrapMessage + 1, '<')),
              "the message has more than 65536 bytes");
}

} // namespace
