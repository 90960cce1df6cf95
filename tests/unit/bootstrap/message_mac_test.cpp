// The proof of a bootstrap message.

#include "message_mac.h"
#include "vectors.h"

#include <gtest/gtest.h>

using namespace client::bootstrap;

namespace {

struct MacRow {
    const char *file;
    Profile profile;
    const char *security;
    MacSecrets secrets;
    const char *mac;

    friend void PrintTo(const MacRow &row, std::ostream *out)
    {
        *out << row.file << ' ' << row.security << ' ' << row.secrets.imsi.toStdString();
    }
};

constexpr Profile cp = Profile::ClientProvisioning;
constexpr Profile dm = Profile::DeviceManagement;

// The last two are not fixed by the DM profile: the same identity as text and as on a SIM card.
const MacRow macs[] = {
    {"published-userpin.wbxml", cp, "1", {"0000", {}}, "AA2DC41FC48AEEF3FED7351B1EE704461A8894D4"},
    {"cp.wbxml", cp, "1", {"1234", {}}, "EC47F78607D505B2280126877E34D36EA082943C"},
    {"cp.wbxml", cp, "USERPIN", {"1234", {}}, "ec47f78607d505b2280126877e34d36ea082943c"},
    {"cp.wbxml", cp, "0", {{}, "310170123456789"}, "297B667C529D56AFA160D5BC497688C9B954A3E7"},
    {"cp.wbxml", cp, "NETWPIN", {{}, "31017012345678"}, "860AA558C07D6A7F5A55240E1E7000DC12FC6DF9"},
    {"cp.wbxml", cp, "2", {"1234", "310170123456789"}, "DA3E336319CDA272706A2A1FA4B3A1332ABEE46B"},
    {"boot.wbxml", dm, "USERPIN", {"1234", {}}, "FFAC13A6E411FC95EE9358BEC2958432ECCC77DC"},
    {"boot.wbxml",
     dm,
     "NETWORKID",
     {{}, "310170123456789"},
     "9365F9227767A00E3C782EAC7C5565E43B9FA880"},
    {"boot.wbxml", dm, "0", {{}, "310170123456789"}, "CB2A56CAFD50A1976AF636857135EED5A77514C3"},
    {"boot.wbxml",
     dm,
     "USERPIN_NETWORKID",
     {"1234", "310170123456789"},
     "84E101EA74C541B0C739CD0C64F99A990D0941D2"},
    {"boot.wbxml",
     dm,
     "2",
     {"1234", "310170123456789"},
     "AF5B247F7986352E6B0416262CA676845C968CD5"},
};

class MacTest : public testing::TestWithParam<MacRow> {
protected:
    static bool isRight(const MacSecrets &secrets, const QByteArray &body, const QByteArray &mac)
    {
        const MacRow &row = GetParam();
        const auto kind = macKindOf(row.security, row.profile);
        EXPECT_TRUE(kind);
        return kind && isRightMac(*kind, row.profile, secrets, body, mac);
    }
};

TEST_P(MacTest, ThatIsKnownIsRight)
{
    const MacRow &row = GetParam();
    EXPECT_TRUE(isRight(row.secrets, vectorFile(row.file), row.mac));
}

TEST_P(MacTest, OfAnotherBodySecretOrDigitIsWrong)
{
    const MacRow &row = GetParam();
    const QByteArray body = vectorFile(row.file);
    EXPECT_FALSE(isRight(row.secrets, body + '\0', row.mac));
    EXPECT_FALSE(isRight(row.secrets, body.chopped(1), row.mac));
    MacSecrets other = row.secrets;
    (other.pin.isEmpty() ? other.imsi : other.pin)[2] = '9';
    EXPECT_FALSE(isRight(other, body, row.mac));
    QByteArray mac = row.mac;
    EXPECT_FALSE(isRight(row.secrets, body, mac.chopped(1)));
    EXPECT_FALSE(isRight(row.secrets, body, mac + '0'));
    EXPECT_FALSE(isRight(row.secrets, body, {}));
    mac.back() = mac.back() == '0' ? '1' : '0';
    EXPECT_FALSE(isRight(row.secrets, body, mac));
}

INSTANTIATE_TEST_SUITE_P(Known, MacTest, testing::ValuesIn(macs));

TEST(MessageMacTest, NothingIsProvedWithoutDigits)
{
    const QByteArray emptyKeyMac = "2fd11ae1a27ab07ed0ab4cf0ce23d3ba1d4dbc85";
    EXPECT_FALSE(isRightMac(MacKind::Pin, cp, {}, "body", emptyKeyMac));
    for (const char *const pin : {"", "12 4", "12a4", "123456789012345678901234567890123"})
        EXPECT_FALSE(isPin(pin)) << pin;
    EXPECT_TRUE(isPin("0"));
    for (const char *const imsi : {"", "12345", "1234567890123456", "31017012345678F"})
        EXPECT_FALSE(isImsi(imsi)) << imsi;
    EXPECT_TRUE(isImsi("123456"));
}

TEST(MessageMacTest, EachProfileHasItsOwnWords)
{
    EXPECT_FALSE(macKindOf("NETWORKID", cp));
    EXPECT_FALSE(macKindOf("NETWPIN", dm));
    EXPECT_FALSE(macKindOf("4", cp));
    EXPECT_EQ(nameOf(MacKind::PinAndNetwork, cp), QStringLiteral("USERNETWPIN"));
    EXPECT_EQ(nameOf(MacKind::PinAndNetwork, dm), QStringLiteral("USERPIN_NETWORKID"));
}

TEST(MessageMacTest, ADigestThatTheUserTypesIsRefusedWithTheReason)
{
    for (const char *const security : {"3", "USERPINMAC"}) {
        const auto kind = macKindOf(security, cp);
        ASSERT_FALSE(kind);
        EXPECT_TRUE(kind.error().contains(QStringLiteral("easily guessed")));
    }
}

} // namespace
