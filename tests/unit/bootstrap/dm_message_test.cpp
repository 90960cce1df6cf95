// Bootstrap messages of the DM profile, and what would become of them.

#include "bootstrap_message.h"
#include "codec.h"
#include "dm_message.h"
#include "vectors.h"

#include <gtest/gtest.h>

using namespace client::bootstrap;

namespace dm_message {

namespace {

// ---- Messages ------------------------------------------------------------------------------------

constexpr char xmlType[] = "application/vnd.syncml.dmtnds+xml";

QByteArray add(const QByteArray &data, const QByteArray &target = "./Inbox",
               const QByteArray &type = xmlType)
{
    return "<Add><CmdID>1</CmdID><Item><Target><LocURI>" + target +
           "</LocURI></Target><Meta><Format xmlns='syncml:metinf'>xml</Format>"
           "<Type xmlns='syncml:metinf'>" +
           type + "</Type></Meta><Data>" + data + "</Data></Item></Add>";
}

QByteArray message(const QByteArray &commands)
{
    return "<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD>"
           "<VerProto>DM/1.2</VerProto><SessionID>0</SessionID><MsgID>0</MsgID>"
           "<Target><LocURI>IMEI:1</LocURI></Target><Source><LocURI>x</LocURI></Source></SyncHdr>"
           "<SyncBody>" +
           commands + "<Final/></SyncBody></SyncML>";
}

QByteArray tree(const QByteArray &nodes)
{
    return "<MgmtTree xmlns='syncml:dmddf1.2'><VerDTD>1.2</VerDTD>" + nodes + "</MgmtTree>";
}

QByteArray properties(const QByteArray &format, const QByteArray &acl, const QByteArray &type = {})
{
    return "<RTProperties>" + (acl.isEmpty() ? acl : "<ACL>" + acl + "</ACL>") + "<Format><" +
           format + "/></Format><Type>" + type + "</Type></RTProperties>";
}

QByteArray leaf(const QByteArray &name, const QByteArray &value, const QByteArray &format = "chr",
                const QByteArray &acl = {})
{
    return "<Node><NodeName>" + name + "</NodeName>" +
           properties(format, acl, "<MIME>text/plain</MIME>") + "<Value>" + value +
           "</Value></Node>";
}

QByteArray interior(const QByteArray &name, const QByteArray &content, const QByteArray &acl = {})
{
    return "<Node><NodeName>" + name + "</NodeName>" + properties("node", acl, "<DDFName/>") +
           content + "</Node>";
}

constexpr char accountId[] = "urn:oma:mo:oma-dm-dmacc:1.0";

QByteArray object(const QByteArray &name, const QByteArray &id, const QByteArray &content,
                  const QByteArray &acl = {})
{
    return "<Node><NodeName>" + name + "</NodeName>" +
           properties("node", acl, "<DDFName>" + id + "</DDFName>") + content + "</Node>";
}

QByteArray objectAt(const QByteArray &name, const QByteArray &path, const QByteArray &content)
{
    return "<Node><NodeName>" + name + "</NodeName><Path>" + path + "</Path>" +
           properties("node", {}, "<DDFName/>") + content + "</Node>";
}

QByteArray credentials(const QByteArray &level, const QByteArray &type = "DIGEST",
                       const QByteArray &name = "n", const QByteArray &more = {})
{
    return leaf("AAuthLevel", level) + leaf("AAuthType", type) + leaf("AAuthName", name) +
           leaf("AAuthSecret", "s") + more;
}

const QByteArray address = interior(
    "AppAddr", interior("a", leaf("Addr", "https://dm.example/dm") + leaf("AddrType", "URI")));

QByteArray account(const QByteArray &more, const QByteArray &acl = {},
                   const QByteArray &id = accountId)
{
    return object(
        "Srv1", id,
        leaf("AppID", "w7") + leaf("ServerID", "dm.example") + leaf("Name", "Example") + more, acl);
}

const QByteArray bothSides = interior("AppAuth", interior("c", credentials("CLCRED")) +
                                                     interior("s", credentials("SRVCRED")));

constexpr char accessPoints[] = "./DevDetail/Ext/Conf/Conn/Profiles";
constexpr char proxies[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";

const QByteArray net =
    objectAt("Net", accessPoints, leaf("Addr", "internet.example") + leaf("Bearer", "GSM-GPRS"));

support::Expected<ProvisioningPlan, QString> planFor(const QByteArray &bytes)
{
    const auto read = readBootstrapMessage(bytes);
    if (!read)
        return support::Unexpected(read.error());
    EXPECT_EQ(read->profile, Profile::DeviceManagement);
    return planOf(*read, {});
}

support::Expected<ProvisioningPlan, QString> planForTree(const QByteArray &nodes)
{
    return planFor(message(add(tree(nodes))));
}

QStringList shown(const support::Expected<ProvisioningPlan, QString> &plan)
{
    return plan ? describe(*plan, Secrets::Shown) : QStringList(plan.error());
}

bool shows(const support::Expected<ProvisioningPlan, QString> &plan, const char *line)
{
    return shown(plan).contains(QLatin1String(line));
}

std::string text(const support::Expected<ProvisioningPlan, QString> &plan)
{
    return shown(plan).join(u'\n').toStdString();
}

// ---- The message ---------------------------------------------------------------------------------

TEST(DmMessageTest, TheVectorIsReadAndSaysWhatItsAccountLacks)
{
    const auto nodes = readDmMessage(vectorFile("boot.wbxml"));
    ASSERT_TRUE(nodes) << nodes.error().toStdString();
    ASSERT_EQ(nodes->size(), 5u);
    EXPECT_EQ(nodes->front().type, QLatin1String(accountId));
    EXPECT_EQ(nodes->back().value, "./Inbox/Net1");
    const auto alone = client::readTnds(vectorFile("tnds.wbxml"));
    ASSERT_TRUE(alone) << alone.error().reason.toStdString();
    EXPECT_EQ(*alone, *nodes);
    EXPECT_EQ(text(planFor(vectorFile("boot.wbxml"))), "./Inbox/Srv1: the account has no address");
}

TEST(DmMessageTest, IsTheSameInBothEncodings)
{
    const QByteArray xml = message(add(tree(account(address + bothSides, "Get=dm.example") + net)));
    const auto decoded = syncml::decode(xml);
    ASSERT_TRUE(decoded);
    const auto wbxml = syncml::encode(*decoded, syncml::Encoding::Wbxml);
    ASSERT_TRUE(wbxml);
    EXPECT_EQ(text(planFor(xml)), text(planFor(*wbxml)));
    ASSERT_TRUE(planFor(xml)) << text(planFor(xml));
}

TEST(DmMessageTest, AddsMayStandInASequenceAndInSeveralItems)
{
    const QByteArray one = add(tree(account(address + bothSides)));
    const QByteArray other = add(tree(net));
    const auto plan =
        planFor(message("<Atomic><CmdID>2</CmdID>" + one + "<Sequence><CmdID>3</CmdID>" + other +
                        "</Sequence></Atomic>"));
    ASSERT_TRUE(plan) << text(plan);
    EXPECT_EQ(plan->accounts.size(), 1u);
    EXPECT_EQ(plan->profiles.size(), 1u);
}

struct RefusedMessage {
    const char *reason;
    QByteArray bytes;

    friend void PrintTo(const RefusedMessage &row, std::ostream *out) { *out << row.reason; }
};

const RefusedMessage refusedMessages[] = {
    {"has Adds in it, and no Replace",
     message(add(tree(net)) + "<Replace><CmdID>2</CmdID></Replace>")},
    {"has Adds in it, and no Exec", message("<Exec><CmdID>2</CmdID></Exec>")},
    {"Add 1 of ./DMAcc: a bootstrap message adds to ./Inbox", message(add(tree(net), "./DMAcc"))},
    {"adds to ./Inbox", message(add(tree(net), "./Inbox/a"))},
    {"adds to ./Inbox", message(add(tree(net), "./Inbox?list=Struct"))},
    {"its type is not that of a serialised tree", message(add("x", "./Inbox", "text/plain"))},
    {"the tree is not there as a whole",
     message("<Add><CmdID>1</CmdID><Item><Target><LocURI>./Inbox</LocURI></Target><Meta>"
             "<Type>application/vnd.syncml.dmtnds+xml</Type></Meta></Item></Add>")},
    {"the serialised tree: ", message(add("<MgmtTree/>"))},
    {"line 1, column ", message(add(tree(net))).chopped(1)},
};

class RefusedDmMessageTest : public testing::TestWithParam<RefusedMessage> {};

TEST_P(RefusedDmMessageTest, SaysWhatIsWrongAndWhere)
{
    const auto plan = planFor(GetParam().bytes);
    ASSERT_FALSE(plan);
    EXPECT_NE(plan.error().toStdString().find(GetParam().reason), std::string::npos)
        << plan.error().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Messages, RefusedDmMessageTest, testing::ValuesIn(refusedMessages));

// ---- Accounts ------------------------------------------------------------------------------------

TEST(SerialisedAccountTest, HasWhatTheObjectSays)
{
    const QByteArray nonce = leaf("AAuthData", "bm9uY2Ux", "bin");
    const auto plan = planForTree(
        account(address + leaf("PrefConRef", "./Inbox/Net") +
                interior("ToConRef", interior("1", leaf("ConRef", "./Inbox/Net"))) +
                interior("AppAuth", interior("1", credentials("CLCRED", "HMAC", "me", nonce)) +
                                        interior("2", credentials("SRVCRED", "BASIC", "it")))));
    ASSERT_TRUE(plan) << text(plan);
    ASSERT_EQ(plan->accounts.size(), 1u);
    const PlannedAccount &planned = plan->accounts[0];
    EXPECT_EQ(planned.name, QStringLiteral("Example"));
    EXPECT_TRUE(planned.wantsSession);
    EXPECT_EQ(planned.account.address, QUrl(QStringLiteral("https://dm.example/dm")));
    EXPECT_EQ(planned.account.serverId, "dm.example");
    EXPECT_EQ(planned.account.toServer,
              (client::Credentials{client::AuthType::Hmac, {"me", "s"}, "nonce1"}));
    EXPECT_EQ(planned.account.toClient,
              (client::Credentials{client::AuthType::Basic, {"it", "s"}, std::nullopt}));
    EXPECT_TRUE(planned.lists.empty());
    EXPECT_TRUE(shows(plan, "ignored: ./Inbox/Srv1: PrefConRef: a session uses the connection that "
                            "the device has"))
        << text(plan);
}

TEST(SerialisedAccountTest, IsKnownByItsIdOrByItsPlace)
{
    for (const QByteArray &one :
         {account(address + bothSides, {}, "org.openmobilealliance/1.0/w7"),
          objectAt("Srv1", "./DMAcc", leaf("ServerID", "dm.example") + address + bothSides),
          interior("Inbox", account(address + bothSides)),
          interior("", account(address + bothSides))}) {
        const auto plan = planForTree(one);
        ASSERT_TRUE(plan) << text(plan);
        EXPECT_EQ(plan->accounts.size(), 1u) << text(plan);
    }
    const auto plan = planForTree(account(address + bothSides, {}, "urn:oma:mo:oma-dm-dmacc:9.0"));
    ASSERT_TRUE(plan) << text(plan);
    EXPECT_TRUE(plan->isEmpty());
    EXPECT_TRUE(shows(plan, "ignored: ./Inbox/Srv1: nothing on this device keeps it"))
        << text(plan);
}

TEST(SerialisedAccountTest, OfSeveralCredentialsHasThePreferredOnes)
{
    const auto several = [](const QByteArray &preferred) {
        return planForTree(
            account(address + (preferred.isEmpty() ? preferred : leaf("AAuthPref", preferred)) +
                    interior("AppAuth", interior("h", credentials("HTTP", "HTTP-BASIC")) +
                                            interior("t", credentials("CLCRED", "TRANSPORT")) +
                                            interior("b", credentials("CLCRED", "BASIC")) +
                                            interior("d", credentials("CLCRED", "DIGEST")))));
    };
    for (const auto &[preferred, type] :
         {std::pair<const char *, client::AuthType>{"", client::AuthType::Basic},
          {"DIGEST", client::AuthType::Md5},
          {"HMAC", client::AuthType::Basic}}) {
        const auto plan = several(preferred);
        ASSERT_TRUE(plan) << text(plan);
        EXPECT_EQ(plan->accounts.at(0).account.toServer.type, type) << preferred;
        EXPECT_TRUE(
            shows(plan, "ignored: ./Inbox/Srv1: AppAuth/h: nothing on this device keeps it"))
            << text(plan);
    }
}

TEST(SerialisedAccountTest, TheListsOfItsNodesGoAlong)
{
    const auto plan = planForTree(
        account(interior("AppAddr",
                         interior("a", leaf("Addr", "https://dm.example/dm", "chr", "Get=other") +
                                           interior("Port", "", "Get=other"))) +
                    interior("AppAuth", interior("c", credentials("CLCRED")) +
                                            interior("s", credentials("SRVCRED"), "Replace=*")) +
                    leaf("Unknown", "x", "chr", "Get=other"),
                "Get=*&amp;Replace=dm.example"));
    ASSERT_TRUE(plan) << text(plan);
    EXPECT_TRUE(shows(plan, "  rights: Get=*&Replace=dm.example")) << text(plan);
    EXPECT_TRUE(shows(plan, "  rights of ./AppAddr/1/Addr: Get=other")) << text(plan);
    EXPECT_TRUE(shows(plan, "  rights of ./AppAuth/2: Replace=*")) << text(plan);
    EXPECT_EQ(plan->accounts[0].lists.size(), 3u) << text(plan);
}

struct RefusedObject {
    const char *reason;
    QByteArray nodes;

    friend void PrintTo(const RefusedObject &row, std::ostream *out) { *out << row.reason; }
};

const RefusedObject refusedObjects[] = {
    {"./Inbox/Srv1: its ACL: ", account(address, "Get")},
    {"./Inbox/Srv1: AppAddr/a: its ACL: ",
     account(interior("AppAddr", interior("a", leaf("Addr", "https://x/"), "Look=*")))},
    {"./Inbox/Srv1: AppAddr/a: Port/1: PortNbr: ",
     account(interior(
         "AppAddr",
         interior("a", leaf("Addr", "https://x/") +
                           interior("Port", interior("1", leaf("PortNbr", "x", "int"))))))},
    {"PortNbr is not a port",
     account(interior("AppAddr",
                      interior("a", leaf("Addr", "https://x/") +
                                        interior("Port", interior("1", leaf("PortNbr", "0"))))))},
    {"AAuthType of AppAuth/c is none of BASIC",
     account(address + interior("AppAuth", interior("c", credentials("CLCRED", "TRANSPORT"))))},
    {"ServerID: no node here can have the format date",
     object("Srv1", accountId, leaf("ServerID", "x", "date"))},
    {"over http the server has to prove itself",
     account(interior("AppAddr", interior("a", leaf("Addr", "http://x/"))))},
    {"two accounts of the message have the name",
     account(address + bothSides) + account(address + bothSides)},
    {"no profile can be called by its NAME or its NAPID",
     objectAt("a%2Fb", accessPoints, leaf("Addr", "a") + leaf("Bearer", "GSM-GPRS"))},
};

class RefusedObjectTest : public testing::TestWithParam<RefusedObject> {};

TEST_P(RefusedObjectTest, SaysWhatIsWrongAndWhere)
{
    const auto plan = planForTree(GetParam().nodes);
    ASSERT_FALSE(plan) << text(plan);
    EXPECT_NE(plan.error().toStdString().find(GetParam().reason), std::string::npos)
        << plan.error().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Objects, RefusedObjectTest, testing::ValuesIn(refusedObjects));

// ---- Profiles ------------------------------------------------------------------------------------

TEST(SerialisedProfileTest, HasTheLeavesOfItsObjectsAndTheRightsOfTheServer)
{
    const QByteArray point = objectAt(
        "My%20Net", accessPoints,
        leaf("Addr", "internet.example") + leaf("DNS1", "192.0.2.1") + leaf("Linger", "30", "int") +
            interior("Auth", interior("PAP", leaf("AuthId", "u") + leaf("AuthPw", "p"))) +
            leaf("Bearer", "GSM-GPRS"));
    const QByteArray proxy =
        objectAt("Px", proxies,
                 interior("Ph1", leaf("Conn", "./Inbox/My%20Net") + leaf("Addr", "192.0.2.80") +
                                     interior("Port", leaf("PortNbr", "8080", "int"))) +
                     leaf("UserEditable", "true", "bool"));
    const auto plan = planForTree(proxy + account(address + bothSides) + point);
    ASSERT_TRUE(plan) << text(plan);
    ASSERT_EQ(plan->profiles.size(), 1u);
    EXPECT_EQ(plan->profiles[0].name, "My Net");
    QByteArrayList leaves;
    for (const PlannedNode &node : plan->profiles[0].nodes)
        if (node.format != QStringLiteral("node"))
            leaves += node.uri.name() + '=' + node.value;
    EXPECT_EQ(leaves.join(' '), "Bearer=GSM-GPRS Addr=internet.example DNS1=192.0.2.1 Linger=30 "
                                "AuthId=u AuthPw=p Conn=My Net Addr=192.0.2.80 PortNbr=8080");
    EXPECT_TRUE(shows(plan, "  rights: Delete=dm.example&Get=dm.example&Replace=dm.example"))
        << text(plan);
    EXPECT_TRUE(shows(plan, "ignored: ./Inbox/Px: UserEditable: nothing on this device keeps it"))
        << text(plan);
}

TEST(SerialisedProfileTest, AListInTheTreeCountsBeforeThatOfTheServers)
{
    const auto plan = planForTree(
        account(address + bothSides) +
        object("Net", "org.openmobilealliance/1.0/ConnMO",
               leaf("Addr", "a") + leaf("Bearer", "GSM-GPRS") +
                   interior("Auth", interior("PAP", leaf("AuthPw", "p", "chr", "Replace=other"))),
               "Get=*"));
    ASSERT_TRUE(plan) << text(plan);
    EXPECT_TRUE(shows(plan, "  rights: Get=*")) << text(plan);
    EXPECT_TRUE(shows(plan, "  rights of ./DevDetail/Ext/Conf/Conn/Profiles/Net/Auth/PAP/AuthPw: "
                            "Replace=other"))
        << text(plan);
}

TEST(SerialisedProfileTest, AProxyWithoutAConnectionIsThatOfItsOwnName)
{
    const QByteArray ph = interior("Ph1", leaf("Addr", "p"));
    const auto plan = planForTree(net + objectAt("Net", proxies, ph));
    ASSERT_TRUE(plan) << text(plan);
    EXPECT_TRUE(shows(plan, "  ./DevDetail/Ext/Conf/IntProfs/Profiles/Net/Ph1/Addr = p"))
        << text(plan);
    const auto lonely = planForTree(net + objectAt("Other", proxies, ph));
    ASSERT_TRUE(lonely) << text(lonely);
    EXPECT_NE(text(lonely).find("ignored: ./Inbox/Other: Ph1: a proxy is part of a profile"),
              std::string::npos)
        << text(lonely);
}

} // namespace

} // namespace dm_message
