// What a provisioning document would make of the device.

#include "provisioning_plan.h"
#include "vectors.h"

#include <QJsonDocument>
#include <algorithm>
#include <gtest/gtest.h>

using namespace client::bootstrap;

namespace {

constexpr char conn[] = "./DevDetail/Ext/Conf/Conn/Profiles/";
constexpr char proxies[] = "./DevDetail/Ext/Conf/IntProfs/Profiles/";

support::Expected<ProvisioningPlan, QString> planFor(const QByteArray &characteristics)
{
    const auto document = readProvisioningDocument(documentOf(characteristics));
    EXPECT_TRUE(document) << document.error().toStdString();
    return planOf(*document, {});
}

QByteArray parm(const QByteArray &name, const QByteArray &value)
{
    return "<parm name='" + name + "' value='" + value + "'/>";
}

QByteArray characteristic(const QByteArray &type, const QByteArray &content)
{
    return "<characteristic type='" + type + "'>" + content + "</characteristic>";
}

QByteArray accessPoint(const QByteArray &more, const QByteArray &bearer = "GSM-GPRS")
{
    return characteristic("NAPDEF", parm("NAPID", "N") + parm("BEARER", bearer) +
                                        parm("NAP-ADDRESS", "a") + more);
}

QByteArray credentials(const QByteArray &level, const QByteArray &type = "DIGEST")
{
    return characteristic("APPAUTH", parm("AAUTHLEVEL", level) + parm("AAUTHTYPE", type) +
                                         parm("AAUTHNAME", "n") + parm("AAUTHSECRET", "s"));
}

QByteArray application(const QByteArray &more, const QByteArray &address = "https://dm.example/")
{
    return characteristic("APPLICATION", parm("APPID", "w7") + parm("PROVIDER-ID", "dm.example") +
                                             characteristic("APPADDR", parm("ADDR", address)) +
                                             more);
}

/// "Addr=a" for each leaf of the first profile, without what is above the profile's node.
QStringList leavesOf(const ProvisioningPlan &plan)
{
    QStringList leaves;
    for (const PlannedNode &node : plan.profiles.at(0).nodes) {
        QByteArray uri = node.uri.toUri();
        for (const char *const root : {conn, proxies})
            uri.replace(root + plan.profiles.at(0).name + '/', "");
        if (node.format != QStringLiteral("node"))
            leaves += QString::fromUtf8(uri + '=' + node.value);
    }
    return leaves;
}

bool isIgnored(const ProvisioningPlan &plan, const char *what, const char *why)
{
    return std::ranges::any_of(plan.ignored, [&](const IgnoredPart &part) {
        return part.what == QLatin1String(what) && part.why.contains(QLatin1String(why));
    });
}

TEST(ProvisioningPlanTest, OfTheWholeDocument)
{
    const auto document = readProvisioningDocument(vectorFile("cp.xml"));
    ASSERT_TRUE(document);
    const auto plan = planOf(*document, {});
    ASSERT_TRUE(plan) << plan.error().toStdString();
    ASSERT_EQ(plan->profiles.size(), 1u);
    EXPECT_EQ(plan->profiles[0].name, "Kub Internet");
    QStringList uris;
    for (const PlannedNode &node : plan->profiles[0].nodes)
        uris += QString::fromLatin1(node.uri.toUri());
    EXPECT_EQ(uris[0], QLatin1String(conn) + QStringLiteral("Kub%20Internet"));
    EXPECT_EQ(uris[1], uris[0] + QStringLiteral("/Bearer"));
    EXPECT_EQ(uris[9], QLatin1String(proxies) + QStringLiteral("Kub%20Internet"));
    EXPECT_EQ(plan->acl.toText(),
              "Delete=com.example.dm&Get=com.example.dm&Replace=com.example.dm");
    ASSERT_EQ(plan->accounts.size(), 1u);
    const PlannedAccount &planned = plan->accounts[0];
    EXPECT_EQ(planned.name, QStringLiteral("Example DM"));
    EXPECT_TRUE(planned.wantsSession);
    EXPECT_EQ(planned.account.address, QUrl(QStringLiteral("https://dm.example.com/dm")));
    EXPECT_EQ(planned.account.serverId, "com.example.dm");
    EXPECT_EQ(planned.account.toServer,
              (client::Credentials{client::AuthType::Md5, {"dev1", "devpw"}, "nonce1"}));
    EXPECT_EQ(planned.account.toClient,
              (client::Credentials{client::AuthType::Md5, {"com.example.dm", "srvpw"}, "nonce2"}));
    ASSERT_EQ(plan->ignored.size(), 1u);
}

TEST(ProvisioningPlanTest, SecretsAreMaskedUnlessTheyAreAskedFor)
{
    const auto document = readProvisioningDocument(vectorFile("cp.xml"));
    const auto plan = planOf(*document, {});
    const auto texts = [&plan](Secrets secrets) {
        return describe(*plan, secrets).join(u'\n') +
               QString::fromUtf8(QJsonDocument(toJson(*plan, secrets)).toJson());
    };
    for (const char *const secret : {"srvpw", "devpw", "= pass", "\"pass\""}) {
        EXPECT_FALSE(texts(Secrets::Masked).contains(QLatin1String(secret))) << secret;
        EXPECT_TRUE(texts(Secrets::Shown).contains(QLatin1String(secret))) << secret;
    }
}

struct LeavesRow {
    const char *what;
    QByteArray characteristics;
    QStringList leaves;
    const char *ignored = ""; ///< empty: nothing
    const char *why = "";

    friend void PrintTo(const LeavesRow &row, std::ostream *out) { *out << row.what; }
};

QStringList withBasics(const QStringList &leaves)
{
    return QStringList{QStringLiteral("Bearer=GSM-GPRS"), QStringLiteral("Addr=a")} + leaves;
}

QStringList csd(const QStringList &leaves)
{
    return QStringList{QStringLiteral("Bearer=GSM-CSD"), QStringLiteral("Addr=a")} + leaves;
}

QByteArray proxy(const QByteArray &link, const QByteArray &more = {})
{
    return characteristic(
        "PXLOGICAL",
        more + characteristic("PXPHYSICAL", parm("PXADDR", "p") + parm("TO-NAPID", link)));
}

const QByteArray pap = characteristic(
    "NAPAUTHINFO", parm("AUTHTYPE", "PAP") + parm("AUTHNAME", "n") + parm("AUTHSECRET", "s"));

const LeavesRow leafRows[] = {
    {"the bearer of an APN",
     characteristic("NAPDEF",
                    parm("NAPID", "N") + parm("NAP-ADDRESS", "a") + parm("NAP-ADDRTYPE", "APN")),
     withBasics({})},
    {"the bearer of a number",
     characteristic("NAPDEF",
                    parm("NAPID", "N") + parm("NAP-ADDRESS", "a") + parm("NAP-ADDRTYPE", "E164")),
     csd({})},
    {"an unknown name", accessPoint(parm("NETWORK", "x")), withBasics({}), "NAPDEF N: NETWORK",
     "nothing on this device"},
    {"two DNS servers and a third",
     accessPoint(parm("DNS-ADDR", "1.2.3.4") + parm("DNS-ADDR", "2.3.4.5") +
                 parm("DNS-ADDR", "3.4.5.6")),
     withBasics({QStringLiteral("DNS1=1.2.3.4"), QStringLiteral("DNS2=2.3.4.5")}),
     "NAPDEF N: DNS-ADDR", "room for two"},
    {"a DNS server of IPv6", accessPoint(parm("DNS-ADDR", "2001:db8::1")), withBasics({}),
     "NAPDEF N: DNS-ADDR", "IPv4"},
    {"a DNS server of too large numbers", accessPoint(parm("DNS-ADDR", "1.2.3.256")),
     withBasics({}), "NAPDEF N: DNS-ADDR", "IPv4"},
    {"the largest linger", accessPoint(parm("LINGER", "65535")),
     withBasics({QStringLiteral("Linger=65535")})},
    {"a linger beyond 16 bits", accessPoint(parm("LINGER", "65536")), withBasics({}),
     "NAPDEF N: LINGER", "number"},
    {"a linger that is no number", accessPoint(parm("LINGER", "-1")), withBasics({}),
     "NAPDEF N: LINGER", "number"},
    {"credentials", accessPoint(pap),
     withBasics({QStringLiteral("Auth/PAP/AuthId=n"), QStringLiteral("Auth/PAP/AuthPw=s")})},
    {"CHAP",
     accessPoint(characteristic("NAPAUTHINFO", parm("AUTHTYPE", "CHAP") + parm("AUTHNAME", "n"))),
     withBasics({}), "NAPDEF N: NAPAUTHINFO", "PAP only"},
    {"PAP after CHAP", accessPoint(characteristic("NAPAUTHINFO", parm("AUTHTYPE", "CHAP")) + pap),
     withBasics({QStringLiteral("Auth/PAP/AuthId=n"), QStringLiteral("Auth/PAP/AuthPw=s")}),
     "NAPDEF N: NAPAUTHINFO", "PAP only"},
    {"a password that is too long",
     accessPoint(characteristic("NAPAUTHINFO", parm("AUTHTYPE", "PAP") +
                                                   parm("AUTHSECRET", QByteArray(100, 's')))),
     withBasics({}), "NAPDEF N: NAPAUTHINFO: AUTHSECRET", "99 bytes"},
    {"a modem",
     accessPoint(parm("CALLTYPE", "ANALOG-MODEM") + parm("LINKSPEED", "9600"), "GSM-CSD"),
     csd({QStringLiteral("LineType=ANALOG-MODEM"), QStringLiteral("Speed=9600")})},
    {"a modem that finds its speed", accessPoint(parm("LINKSPEED", "AUTOBAUDING"), "GSM-CSD"),
     csd({QStringLiteral("Speed=0")})},
    {"a speed that no leaf takes", accessPoint(parm("LINKSPEED", "1200"), "GSM-CSD"), csd({}),
     "NAPDEF N: LINKSPEED", "number"},
    {"a line type that would read back as another",
     accessPoint(parm("CALLTYPE", "V.110"), "GSM-CSD"), csd({}), "NAPDEF N: CALLTYPE",
     "cannot keep"},
    {"a line type of packet data", accessPoint(parm("CALLTYPE", "ANALOG-MODEM")), withBasics({}),
     "NAPDEF N: CALLTYPE", "nothing on this device"},
    {"a second bearer", accessPoint("", "GSM-CSD' /><parm name='BEARER' value='GSM-GPRS"), csd({})},
    {"a proxy", proxy("N") + accessPoint(""),
     withBasics({QStringLiteral("Ph1/Conn=N"), QStringLiteral("Ph1/Addr=p")})},
    {"a proxy of circuit-switched data", proxy("N") + accessPoint("", "GSM-CSD"),
     csd({QStringLiteral("Ph2/Conn=N"), QStringLiteral("Ph2/Addr=p")})},
    {"the port of all proxies",
     accessPoint("") + proxy("N", characteristic("PORT", parm("PORTNBR", "65535"))),
     withBasics({QStringLiteral("Ph1/Conn=N"), QStringLiteral("Ph1/Addr=p"),
                 QStringLiteral("Ph1/Port/PortNbr=65535")})},
    {"a port that is none",
     accessPoint("") + proxy("N", characteristic("PORT", parm("PORTNBR", "65536"))),
     withBasics({QStringLiteral("Ph1/Conn=N"), QStringLiteral("Ph1/Addr=p")}),
     "PXLOGICAL: PORT: PORTNBR", "not a port"},
    {"a proxy for the Internet", accessPoint("<parm name='INTERNET'/>") + proxy("INTERNET"),
     withBasics({QStringLiteral("Ph1/Conn=N"), QStringLiteral("Ph1/Addr=p")})},
    {"a proxy for the Internet, of which there is no access point",
     accessPoint("") + proxy("INTERNET"), withBasics({}), "PXLOGICAL: PXPHYSICAL",
     "no access point"},
    {"a proxy that leads nowhere", accessPoint("") + proxy("M"), withBasics({}),
     "PXLOGICAL: PXPHYSICAL", "no access point"},
    {"a second proxy", accessPoint("") + proxy("N") + proxy("N"),
     withBasics({QStringLiteral("Ph1/Conn=N"), QStringLiteral("Ph1/Addr=p")}),
     "PXLOGICAL: PXPHYSICAL: PXADDR", "has a proxy already"},
    {"another application", accessPoint("") + characteristic("APPLICATION", parm("APPID", "w2")),
     withBasics({}), "APPLICATION w2", "nothing on this device"},
    {"what a vendor says", accessPoint("") + characteristic("VENDORCONFIG", parm("NAME", "v")),
     withBasics({}), "VENDORCONFIG v", "nothing on this device"},
    {"a name that a node cannot have", accessPoint(parm("NAME", "a/b")), withBasics({}),
     "NAPDEF a/b: NAME", "by its NAPID"},
};

class LeavesTest : public testing::TestWithParam<LeavesRow> {};

TEST_P(LeavesTest, AreThoseThatTheProfileHolds)
{
    const LeavesRow &row = GetParam();
    const auto plan = planFor(row.characteristics);
    ASSERT_TRUE(plan) << plan.error().toStdString();
    ASSERT_EQ(plan->profiles.size(), 1u);
    EXPECT_EQ(leavesOf(*plan), row.leaves) << leavesOf(*plan).join(u' ').toStdString();
    EXPECT_TRUE(plan->acl.isEmpty());
    if (*row.ignored)
        EXPECT_TRUE(isIgnored(*plan, row.ignored, row.why))
            << describe(*plan, Secrets::Shown).join(u'\n').toStdString();
    else
        EXPECT_TRUE(plan->ignored.empty())
            << describe(*plan, Secrets::Shown).join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Profiles, LeavesTest, testing::ValuesIn(leafRows));

TEST(ProvisioningPlanTest, AnAccessPointThatNoProfileCanBeIsIgnored)
{
    for (const QByteArray &napdef :
         {accessPoint("", "CDMA2000-1X-SIMPLE-IP"), accessPoint(parm("NAP-ADDRTYPE", "E164")),
          characteristic("NAPDEF", parm("NAPID", "N") + parm("BEARER", "GSM-GPRS")),
          characteristic("NAPDEF",
                         parm("BEARER", "GSM-CSD") + parm("NAP-ADDRESS", QByteArray(44, '1')))}) {
        const auto plan = planFor(napdef);
        ASSERT_TRUE(plan) << plan.error().toStdString();
        EXPECT_TRUE(plan->isEmpty()) << napdef.toStdString();
        EXPECT_FALSE(plan->ignored.empty()) << napdef.toStdString();
    }
}

struct RefusedPlanRow {
    const char *reason;
    QByteArray characteristics;

    friend void PrintTo(const RefusedPlanRow &row, std::ostream *out) { *out << row.reason; }
};

const QByteArray both = credentials("APPSRV") + credentials("CLIENT");

const RefusedPlanRow refusedPlans[] = {
    {"two access points have the NAPID \"N\"", accessPoint("") + accessPoint("")},
    {"two access points are called \"a\"",
     accessPoint(parm("NAME", "a")) +
         characteristic("NAPDEF", parm("NAPID", "M") + parm("NAME", "a") +
                                      parm("BEARER", "GSM-GPRS") + parm("NAP-ADDRESS", "a"))},
    {"no profile can be called by its NAME or its NAPID",
     characteristic("NAPDEF",
                    parm("NAPID", "a/b") + parm("BEARER", "GSM-GPRS") + parm("NAP-ADDRESS", "a"))},
    {"no profile can be called",
     characteristic("NAPDEF", parm("NAPID", QByteArray(64, 'n')) + parm("BEARER", "GSM-GPRS") +
                                  parm("NAP-ADDRESS", "a"))},
    {"no profile can be called",
     characteristic("NAPDEF", parm("NAPID", "Office&amp;&amp;_X") + parm("BEARER", "GSM-GPRS") +
                                  parm("NAP-ADDRESS", "a"))},
    {"no profile can be called",
     characteristic("NAPDEF", parm("NAPID", "\xC3\x84") + parm("BEARER", "GSM-GPRS") +
                                  parm("NAP-ADDRESS", "a"))},
    {"the account has no address",
     characteristic("APPLICATION",
                    parm("APPID", "w7") + parm("PROVIDER-ID", "i") +
                        characteristic("APPADDR", characteristic("PORT", parm("PORTNBR", "80"))))},
    {"address is not an http or https URL", application(both, "dm.example")},
    {"server-id has a blank",
     characteristic("APPLICATION", parm("APPID", "w7") + parm("PROVIDER-ID", "a b"))},
    {"the account has no server-id",
     characteristic("APPLICATION", parm("APPID", "w7") + parm("ADDR", "https://x/"))},
    {"AAUTHTYPE of APPSRV is none of BASIC, DIGEST and HMAC",
     application(credentials("APPSRV", "HTTP-DIGEST"))},
    {"two APPAUTH have the level CLIENT",
     application(credentials("CLIENT") + credentials("CLIENT"))},
    {"client-auth needs client-name and client-secret",
     application(characteristic("APPAUTH", parm("AAUTHLEVEL", "APPSRV")))},
    {"client-nonce is not base64",
     application(characteristic("APPAUTH", parm("AAUTHLEVEL", "APPSRV") + parm("AAUTHDATA", "!")))},
    {"over http the server has to prove itself",
     application(credentials("APPSRV"), "http://dm.example/")},
    {"PORTNBR is not a port",
     characteristic(
         "APPLICATION",
         parm("APPID", "w7") + parm("PROVIDER-ID", "i") +
             characteristic("APPADDR", parm("ADDR", "https://x/") +
                                           characteristic("PORT", parm("PORTNBR", "0"))))},
    {"PORTNBR is another port",
     characteristic(
         "APPLICATION",
         parm("APPID", "w7") + parm("PROVIDER-ID", "i") +
             characteristic("APPADDR", parm("ADDR", "https://x:1/") +
                                           characteristic("PORT", parm("PORTNBR", "2"))))},
    {"two accounts of the message have the name", application("") + application("")},
    {"no account can be called",
     characteristic("APPLICATION", parm("APPID", "w7") + parm("PROVIDER-ID", QByteArray(64, 'i')) +
                                       parm("ADDR", "https://x/"))},
};

class RefusedPlanTest : public testing::TestWithParam<RefusedPlanRow> {};

TEST_P(RefusedPlanTest, SaysWhy)
{
    const auto plan = planFor(GetParam().characteristics);
    ASSERT_FALSE(plan);
    EXPECT_TRUE(plan.error().contains(QLatin1String(GetParam().reason)))
        << plan.error().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Plans, RefusedPlanTest, testing::ValuesIn(refusedPlans));

TEST(ProvisioningPlanTest, AnAddressGetsThePortThatItLacks)
{
    const auto addressWith = [](const QByteArray &address, const QByteArray &port) {
        const auto plan = planFor(characteristic(
            "APPLICATION",
            parm("APPID", "w7") + parm("PROVIDER-ID", "i") +
                characteristic("APPADDR", parm("ADDR", address) +
                                              characteristic("PORT", parm("PORTNBR", port)))));
        return plan ? plan->accounts.at(0).account.address.toString().toStdString()
                    : plan.error().toStdString();
    };
    EXPECT_EQ(addressWith("https://x/dm", "8443"), "https://x:8443/dm");
    EXPECT_EQ(addressWith("https://x/dm", "443"), "https://x/dm");
    EXPECT_EQ(addressWith("https://x:8443/dm", "8443"), "https://x:8443/dm");
}

TEST(ProvisioningPlanTest, AnAccountNeedsNoCredentialsOverHttpsAndIsCalledByItsServer)
{
    const auto plan = planFor(application(characteristic("APPAUTH", parm("AAUTHLEVEL", "OBEX"))));
    ASSERT_TRUE(plan) << plan.error().toStdString();
    EXPECT_EQ(plan->accounts.at(0).name, QStringLiteral("dm.example"));
    EXPECT_FALSE(plan->accounts.at(0).wantsSession);
    EXPECT_EQ(plan->accounts.at(0).account.toClient.type, client::AuthType::None);
    EXPECT_TRUE(isIgnored(*plan, "APPLICATION dm.example: APPAUTH OBEX", "only APPSRV and CLIENT"));
}

} // namespace
