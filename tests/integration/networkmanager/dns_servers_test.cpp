// The two DNS fields of a record as a connection's list of servers, and back.
#include <gtest/gtest.h>

#include "dns_servers.h"

namespace {

constexpr std::uint32_t addressA = 0x0A000001; // 10.0.0.1
constexpr std::uint32_t addressB = 0x0A000002;
constexpr std::uint32_t addressC = 0x0A000003;
const QString textA = QStringLiteral("10.0.0.1");
const QString textB = QStringLiteral("10.0.0.2");
const QString textC = QStringLiteral("10.0.0.3");

using Fields = DnsServers::Fields;

TEST(DottedAddress, TakesFourDecimalPartsOnly)
{
    std::uint32_t address = 7;
    for (const char *text :
         {"", "10.0.0", "10.0.0.1.2", "010.0.0.1", "256.0.0.1", "0x0a.0.0.1", " 10.0.0.1",
          "10.0.0.1 ", "+1.2.3.4", "1.2.3.-4", "1", "::1", "1.2.3.", "1..3.4", "4294967297.0.0.1"})
        EXPECT_FALSE(parseDottedAddress(QString::fromLatin1(text), address)) << text;
    EXPECT_EQ(address, 7U);
    EXPECT_TRUE(parseDottedAddress(u"255.0.9.10", address));
    EXPECT_EQ(address, 0xFF00090AU);
    EXPECT_EQ(dottedAddress(0xFF00090A), QStringLiteral("255.0.9.10"));
}

TEST(DnsServers, FirstTwoServersAreTheFields)
{
    EXPECT_EQ(DnsServers({}, QString()).fields(), (Fields{0, 0}));
    EXPECT_EQ(DnsServers({textA}, QString()).fields(), (Fields{addressA, 0}));
    EXPECT_EQ(DnsServers({textA, textB, textC}, QString()).fields(), (Fields{addressA, addressB}));
}

TEST(DnsServers, EntriesThatAreNoIpv4AddressAreNoFields)
{
    const QStringList list = {QStringLiteral("dns+tls://one.one.one.one"), textA};
    DnsServers servers(list, QString());
    EXPECT_EQ(servers.fields(), (Fields{addressA, 0}));
    servers.setFields({addressA, addressB});
    EXPECT_EQ(servers.servers(), (QStringList{textA, textB, list[0]}));
}

TEST(DnsServers, FurtherServersStayAfterTheFields)
{
    DnsServers servers({textA, textB, textC}, QString());
    servers.setFields({addressB, 0x01020304});
    EXPECT_EQ(servers.servers(), (QStringList{textB, QStringLiteral("1.2.3.4"), textC}));
    EXPECT_EQ(servers.layout(), QString());
}

TEST(DnsServers, NameOfAServerStaysWithIt)
{
    const QString named = textB + QStringLiteral("#dns.example");
    DnsServers servers({textA, named}, QString());
    EXPECT_EQ(servers.fields(), (Fields{addressA, addressB}));
    servers.setFields({addressC, addressB});
    EXPECT_EQ(servers.servers(), (QStringList{textC, named}));
    servers.setFields({addressC, addressA});
    EXPECT_EQ(servers.servers(), (QStringList{textC, textA}));
}

TEST(DnsServers, EmptyFirstPlaceIsKeptBesideTheList)
{
    DnsServers servers({}, QString());
    servers.setFields({0, addressB});
    EXPECT_EQ(servers.servers(), QStringList{textB});
    EXPECT_EQ(servers.layout(), QStringLiteral("0.0.0.0 10.0.0.2"));

    DnsServers again(servers.servers(), servers.layout());
    EXPECT_EQ(again.fields(), (Fields{0, addressB}));
    again.setFields({addressA, addressB});
    EXPECT_EQ(again.servers(), (QStringList{textA, textB}));
    EXPECT_EQ(again.layout(), QString());
}

TEST(DnsServers, FurtherServersDoNotMoveIntoAnEmptyField)
{
    DnsServers servers({textA, textB, textC}, QString());
    servers.setFields({addressA, 0});
    EXPECT_EQ(servers.servers(), (QStringList{textA, textC}));
    EXPECT_EQ(DnsServers(servers.servers(), servers.layout()).fields(), (Fields{addressA, 0}));
    servers.setFields({0, 0});
    EXPECT_EQ(servers.servers(), QStringList{textC});
    EXPECT_EQ(DnsServers(servers.servers(), servers.layout()).fields(), (Fields{0, 0}));
}

TEST(DnsServers, OneServerTwiceIsListedOnce)
{
    DnsServers servers({}, QString());
    servers.setFields({addressA, addressA});
    EXPECT_EQ(servers.servers(), QStringList{textA});
    EXPECT_EQ(DnsServers(servers.servers(), servers.layout()).fields(),
              (Fields{addressA, addressA}));
}

TEST(DnsServers, LayoutEndsWithAChangeOfTheListByOthers)
{
    const QString layout = QStringLiteral("0.0.0.0 10.0.0.2");
    EXPECT_EQ(DnsServers({textC}, layout).fields(), (Fields{addressC, 0}));
    EXPECT_EQ(DnsServers({textB, textC}, layout).fields(), (Fields{addressB, addressC}));
    EXPECT_EQ(DnsServers({}, layout).fields(), (Fields{0, 0}));
}

TEST(DnsServers, RubbishIsNoLayout)
{
    for (const char *layout : {"x", "10.0.0.2", " ", "0.0.0.0  10.0.0.2", "0.0.0.0 10.0.0.2 "})
        EXPECT_EQ(DnsServers({textB}, QString::fromLatin1(layout)).fields(), (Fields{addressB, 0}));
}

} // namespace
