// A server's message in, the client's next message out.

#include "package.h"

#include "mounted_tree.h"

namespace client {

namespace {

using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;
using syncml::Message;

class PackageTest : public MountedTree {
protected:
    PackageTest()
    {
        request.header.verDtd = QStringLiteral("1.2");
        request.header.verProto = QStringLiteral("DM/1.2");
        request.header.sessionId = QStringLiteral("A1");
        request.header.msgId = QStringLiteral("4");
        request.header.target.locUri = QStringLiteral("urn:somebody");
        request.header.source.locUri = QStringLiteral("https://dm.example/");
        request.final = true;
    }
    void get(const QByteArray &uri)
    {
        Command command;
        command.kind = CommandKind::Get;
        command.cmdId = QStringLiteral("9");
        command.items.emplace_back();
        command.items.back().target = syncml::Location{QString::fromUtf8(uri), std::nullopt};
        request.commands.push_back(command);
    }
    void statusFromServer()
    {
        Command command;
        command.kind = CommandKind::Status;
        command.cmdId = QStringLiteral("1");
        request.commands.push_back(command);
    }
    void statusOfHeaderFromServer(const char *code)
    {
        statusFromServer();
        request.commands.back().cmd = QStringLiteral("SyncHdr");
        request.commands.back().data = code;
    }
    void alert(const char *code)
    {
        Command command;
        command.kind = CommandKind::Alert;
        command.cmdId = QStringLiteral("5");
        command.data = code;
        request.commands.push_back(command);
    }
    static Command chunk(const char *data, bool moreData)
    {
        Command command;
        command.kind = CommandKind::Replace;
        command.cmdId = QStringLiteral("6");
        command.items.emplace_back();
        command.items[0].target =
            syncml::Location{QString::fromLatin1(profileUri("Home/Addr")), std::nullopt};
        command.items[0].data = data;
        command.items[0].moreData = moreData;
        return command;
    }
    /// The codes of all statuses.
    std::string codes()
    {
        std::string codes;
        const Message message = *answer().message;
        for (const Command &answered : message.commands)
            if (answered.kind == CommandKind::Status)
                codes += (codes.empty() ? "" : " ") + answered.data->toStdString();
        return codes;
    }
    PackageAnswer answer(Encoding encoding = Encoding::Xml)
    {
        return answerPackage(request, managementTree, encoding);
    }

    Message request;
};

TEST_F(PackageTest, TheHeaderIsAnsweredFirst)
{
    get("./DevInfo/Man");
    const Message message = *answer().message;
    const Command &status = message.commands.at(0);
    EXPECT_EQ(status.cmdRef, QStringLiteral("0"));
    EXPECT_EQ(status.cmd, QStringLiteral("SyncHdr"));
    EXPECT_EQ(status.targetRefs, std::vector{QStringLiteral("urn:somebody")});
    EXPECT_EQ(status.sourceRefs, std::vector{QStringLiteral("https://dm.example/")});
    EXPECT_EQ(status.data, "200");
}

TEST_F(PackageTest, TheAnswerGoesBackInTheSameSession)
{
    get("./DevInfo/Man");
    const Message message = *answer().message;
    EXPECT_EQ(message.header.verDtd, QStringLiteral("1.2"));
    EXPECT_EQ(message.header.verProto, QStringLiteral("DM/1.2"));
    EXPECT_EQ(message.header.sessionId, QStringLiteral("A1"));
    EXPECT_EQ(message.header.msgId, QStringLiteral("1"));
    EXPECT_EQ(message.header.target.locUri, QStringLiteral("https://dm.example/"));
    EXPECT_EQ(message.header.source.locUri, QStringLiteral("urn:test:1"));
    EXPECT_TRUE(message.final);
}

TEST_F(PackageTest, TheAnswerGoesWhereTheServerWantsIt)
{
    get("./DevInfo/Man");
    request.header.respUri = QStringLiteral("https://dm.example/next");
    EXPECT_EQ(answer().message->header.target.locUri, QStringLiteral("https://dm.example/next"));
}

TEST_F(PackageTest, ThePackageIsNotClosedBeforeTheServersIs)
{
    get("./DevInfo/Man");
    request.final = false;
    EXPECT_FALSE(answer().message->final);
}

TEST_F(PackageTest, CommandsAreNumberedAndNameTheMessageThatTheyAnswer)
{
    get("./DevInfo/Man");
    const Message message = *answer().message;
    ASSERT_EQ(message.commands.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(message.commands[i].cmdId, QString::number(i + 1));
        EXPECT_EQ(message.commands[i].msgRef, QStringLiteral("4"));
    }
}

TEST_F(PackageTest, APackageThatIsNotFinalIsAskedForItsRest)
{
    get("./DevInfo/Man");
    request.final = false;
    const Command last = answer().message->commands.back();
    EXPECT_EQ(last.kind, CommandKind::Alert);
    EXPECT_EQ(last.data, "1222");
    EXPECT_EQ(last.msgRef, std::nullopt);
}

TEST_F(PackageTest, NothingRunsAfterARefusalOfTheClientsHeader)
{
    const std::pair<const char *, const char *> refusals[] = {
        {"abc", "the server's status of the header, \"abc\", is not a status"},
        {"0", "the server's status of the header, \"0\", is not a status"},
        {"401", "the server refuses the client and does not say what it asks for"},
        {"513", "the server refuses the session with 513 Protocol Version Not Supported"}};
    for (const auto &[code, reason] : refusals) {
        request.commands.clear();
        statusOfHeaderFromServer(code);
        request.commands.push_back(chunk("changed", false));
        memory->calls.clear();
        const PackageAnswer answered = answer();
        EXPECT_EQ(answered.refusal.value_or(QString()).toStdString(), reason);
        EXPECT_FALSE(answered.message) << code;
        EXPECT_EQ(memory->calls, std::vector<std::string>()) << code;
    }
}

TEST_F(PackageTest, AnAcceptedHeaderLetsTheCommandsRun)
{
    for (const char *const code : {"200", "212", "\n  200\n"}) {
        request.commands.clear();
        statusOfHeaderFromServer(code);
        request.commands.push_back(chunk("changed", false));
        EXPECT_EQ(codes(), "200 200") << code;
        EXPECT_FALSE(answer().refusal) << code;
    }
}

TEST_F(PackageTest, ARequestForMoreIsTaken)
{
    alert("1222");
    request.final = false;
    const Message message = *answer().message;
    ASSERT_EQ(message.commands.size(), 2u);
    EXPECT_EQ(message.commands[1].data, "200");
    EXPECT_TRUE(message.final);
}

TEST_F(PackageTest, AServerThatAbortsTheSessionGetsNoAnswerAndChangesNothing)
{
    request.commands.push_back(chunk("new", false));
    alert("1223");
    const PackageAnswer aborted = answer();
    EXPECT_EQ(aborted.message, std::nullopt);
    EXPECT_TRUE(aborted.isAbortedByServer);
    EXPECT_EQ(read(profile("Home/Addr")), "home.example");
}

TEST_F(PackageTest, ALargeObjectIsPutTogether)
{
    request.commands = {chunk("one ", true), chunk("two", false)};
    request.commands[0].items[0].meta.emplace().size = QStringLiteral("7");
    EXPECT_EQ(codes(), "200 213 200");
    EXPECT_EQ(read(profile("Home/Addr")), "one two");
    request.commands = {chunk("half", true)};
    EXPECT_EQ(codes(), "200 412");
    EXPECT_EQ(read(profile("Home/Addr")), "one two");
}

TEST_F(PackageTest, AServerThatAsksForNothingGetsNoAnswer)
{
    statusFromServer();
    EXPECT_EQ(answer().message, std::nullopt);
    EXPECT_TRUE(answer().allSucceeded);
}

TEST_F(PackageTest, AnUnknownVersionIsRefusedAndNothingIsRun)
{
    get("./DevInfo/Man");
    request.header.verDtd = QStringLiteral("1.1");
    const Message wrongDtd = *answer().message;
    ASSERT_EQ(wrongDtd.commands.size(), 2u);
    EXPECT_EQ(wrongDtd.commands[0].data, "505");
    EXPECT_EQ(wrongDtd.commands[1].data, "505");

    request.header.verDtd = QStringLiteral("1.2");
    request.header.verProto = QStringLiteral("SyncML/1.2");
    const Message wrongProtocol = *answer().message;
    ASSERT_EQ(wrongProtocol.commands.size(), 2u);
    EXPECT_EQ(wrongProtocol.commands[0].data, "513");
    EXPECT_EQ(wrongProtocol.commands[1].data, "513");

    request.commands.clear();
    EXPECT_EQ(answer().message->commands.size(), 1u);
}

TEST_F(PackageTest, OneFailedCommandIsReported)
{
    get("./DevInfo/Man");
    EXPECT_TRUE(answer().allSucceeded);
    get("./x");
    EXPECT_FALSE(answer().allSucceeded);
}

TEST_F(PackageTest, DataThatXmlCannotCarryGoesAsBase64)
{
    memory->addLeaf("Home/Odd", DmtData("a\x01z"));
    get(profileUri("Home/Odd"));
    const Message asXml = *answer(Encoding::Xml).message;
    const syncml::Item &xmlItem = asXml.commands.at(2).items.at(0);
    EXPECT_EQ(xmlItem.data, QByteArray("a\x01z").toBase64());
    EXPECT_EQ(xmlItem.meta->format, QStringLiteral("b64"));
    EXPECT_TRUE(syncml::encode(asXml, Encoding::Xml));

    const Message asWbxml = *answer(Encoding::Wbxml).message;
    EXPECT_EQ(asWbxml.commands.at(2).items.at(0).data, "a\x01z");
}

TEST_F(PackageTest, EveryAnswerCanBeWrittenInBothEncodings)
{
    get(".?list=StructData");
    get("./x");
    for (const Encoding encoding : {Encoding::Xml, Encoding::Wbxml}) {
        const Message message = *answer(encoding).message;
        const auto encoded = syncml::encode(message, encoding);
        ASSERT_TRUE(encoded);
        const auto decoded = syncml::decode(*encoded);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(*decoded, message);
    }
}

} // namespace

} // namespace client
