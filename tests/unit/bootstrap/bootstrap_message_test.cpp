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

TEST(BootstrapMessageTest, AMessageOfTheDmProfileIsProvedAndNotApplied)
{
    const auto pushed = readBootstrapMessage(
        pushOf(contentType(0x42, 0, "CB2A56CAFD50A1976AF636857135EED5A77514C3"),
               vectorFile("boot.wbxml")));
    ASSERT_TRUE(pushed) << pushed.error().toStdString();
    EXPECT_TRUE(pushed->isProvedBy({{}, "310170123456789"}));
    EXPECT_FALSE(pushed->isProvedBy({{}, "310170123456780"}));
    const auto plan = planOf(*pushed, {});
    ASSERT_FALSE(plan);
    EXPECT_TRUE(plan.error().contains(QStringLiteral("DM profile is not applied")));
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
