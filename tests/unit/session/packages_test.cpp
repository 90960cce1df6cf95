// The course of a session: packages, their ends, and what the client may say.

#include "session_fixture.h"

namespace client {

namespace {

using Kind = SessionEnd::Kind;
class Packages : public SessionTest {};

TEST_P(Packages, FirstMessageBeginsTheSessionAndDescribesTheDevice)
{
    run();
    const syncml::Message &first = message(1);
    EXPECT_EQ(sent(1), (Lines{"Alert 1201", "Replace 5 items", "Final"}));
    EXPECT_EQ(first.header.verDtd, QStringLiteral("1.2"));
    EXPECT_EQ(first.header.verProto, QStringLiteral("DM/1.2"));
    EXPECT_EQ(first.header.sessionId, QStringLiteral("5"));
    EXPECT_EQ(first.header.msgId, QStringLiteral("1"));
    EXPECT_EQ(first.header.target.locUri, QStringLiteral("http://dm.example/"));
    EXPECT_EQ(first.header.source.locUri, QStringLiteral("urn:test:1"));
    EXPECT_FALSE(first.header.cred);
    const syncml::Item &device = first.commands.at(1).items.at(0);
    EXPECT_EQ(device.source->locUri, QStringLiteral("./DevInfo/DevId"));
    EXPECT_EQ(device.meta->format, QStringLiteral("chr"));
    EXPECT_EQ(device.meta->type, QStringLiteral("text/plain"));
    EXPECT_EQ(device.data, QByteArray("urn:test:1"));
}

TEST_P(Packages, NotifiedSessionSaysSoAndHasTheIdentifierOfTheNotification)
{
    options.isNotified = true;
    options.sessionId = QStringLiteral("4D2");
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")));
    account.toServer = {AuthType::Md5, {"Bruce2", "OhBehave"}, std::nullopt};
    server.says(accepted());
    run();
    EXPECT_EQ(sent(1), (Lines{"Alert 1200", "Replace 5 items", "Final"}));
    EXPECT_EQ(message(1).header.sessionId, QStringLiteral("4D2"));
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Alert 1200", "Replace 5 items", "Final"}))
        << "and says so again when it is challenged";
}

TEST_P(Packages, LimitsAreAnnouncedInTheFirstMessage)
{
    options.maxMessageBytes = 5000;
    options.maxObjectBytes = 70000;
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(message(1).header.meta->maxMsgSize, QStringLiteral("5000"));
    EXPECT_EQ(message(1).header.meta->maxObjSize, QStringLiteral("70000"));
    EXPECT_FALSE(message(2).header.meta);
}

TEST_P(Packages, CommandsAreAnsweredInTheNextMessage)
{
    server.says(accepted() + get("2", {"./DevInfo/Man"}) +
                replace("3", profileUri("Office/Addr"), "corrected"));
    const SessionEnd end = run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200",
                              "Results 2 ./DevInfo/Man = maker", "Status 3 Replace 200", "Final"}));
    EXPECT_EQ(message(2).header.msgId, QStringLiteral("2"));
    EXPECT_EQ(message(2).header.sessionId, QStringLiteral("5"));
    EXPECT_EQ(message(2).commands.at(1).msgRef, QStringLiteral("1"));
    EXPECT_EQ(read(profile("Office/Addr")), "corrected");
    EXPECT_EQ(end.kind, Kind::Completed);
    EXPECT_EQ(end.messages, 2);
    EXPECT_EQ(end.commands, 2);
    EXPECT_EQ(end.refused, 0);
}

TEST_P(Packages, CommandsOfAMessageAreNumberedFromOne)
{
    constexpr int gets = 600;
    auto package = accepted();
    for (int i = 0; i < gets; ++i)
        package += get(std::to_string(i + 2).c_str(), {"./DevInfo/Man"});
    server.says(package);
    run();
    const std::vector<syncml::Command> &commands = message(2).commands;
    ASSERT_EQ(commands.size(), 1 + 2 * static_cast<std::size_t>(gets));
    for (std::size_t i = 0; i < commands.size(); ++i)
        ASSERT_EQ(commands[i].cmdId, QString::number(i + 1));
}

TEST_P(Packages, CommandsRunOnBehalfOfTheAccountsServer)
{
    tree.replaceProperty(profile("Office"), Property::Acl, "Get=*&Replace=other.example");
    tree.replaceProperty(profile("Home"), Property::Acl, "Get=*&Replace=dm.example");
    server.says(accepted() + replace("2", profileUri("Office/Addr"), "stolen") +
                replace("3", profileUri("Home/Addr"), "corrected"));
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Replace 425",
                              "Status 3 Replace 200", "Final"}));
    EXPECT_EQ(listener.commands.at(0),
              "Replace ./Ext/Profiles/Office/Addr 425 dm.example needs Replace on "
              "./Ext/Profiles/Office/Addr, and the ACL of ./Ext/Profiles/Office is "
              "\"Get=*&Replace=other.example\"");
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(read(profile("Home/Addr")), "corrected");
}

TEST_P(Packages, ServerWithoutAnIdentifierHasTheRightsOfEveryServerOnly)
{
    account.serverId.clear();
    tree.replaceProperty(profile("Office"), Property::Acl, "Get=*&Replace=dm.example");
    tree.replaceProperty(profile("Home"), Property::Acl, "Get=*&Replace=*");
    server.says(accepted() + replace("2", profileUri("Office/Addr"), "stolen") +
                replace("3", profileUri("Home/Addr"), "corrected"));
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Replace 425",
                              "Status 3 Replace 200", "Final"}));
    EXPECT_EQ(listener.commands.at(0),
              "Replace ./Ext/Profiles/Office/Addr 425 a server without an account needs Replace on "
              "./Ext/Profiles/Office/Addr, and the ACL of ./Ext/Profiles/Office is "
              "\"Get=*&Replace=dm.example\"");
}

TEST_P(Packages, FollowOneAnotherUntilTheServerAsksForNothing)
{
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 200) + get("2", {"./DevInfo/Mod"}));
    server.says(statusFor("SyncHdr", 200));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(server.messages.size(), 3U) << "a status of the header alone must not be sent";
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200",
                              "Results 2 ./DevInfo/Mod = model", "Final"}));
    EXPECT_EQ(message(3).commands.at(1).msgRef, QStringLiteral("2"));
    for (std::size_t number = 1; number <= server.messages.size(); ++number) {
        EXPECT_EQ(message(number).header.msgId, QString::number(number));
        EXPECT_EQ(message(number).header.sessionId, QStringLiteral("5"));
    }
}

TEST_P(Packages, EndWithAnEmptyBody)
{
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Completed);
    EXPECT_EQ(end.messages, 2);
}

TEST_P(Packages, StatusesAndResultsOfTheServerAreNotAnswered)
{
    server.says(accepted() + statusFor("Alert", 200) + statusFor("Replace", 200));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Packages, RefusedCommandsAreCountedWithTheirReasons)
{
    server.says(accepted() + get("2", {"./Nowhere"}) + replace("3", "./DevInfo/Man", "me"));
    const SessionEnd end = run();
    EXPECT_EQ(end.commands, 2);
    EXPECT_EQ(end.refused, 2);
    EXPECT_EQ(listener.commands, (Lines{"Get ./Nowhere 404 no node ./Nowhere",
                                        "Replace ./DevInfo/Man 405 ./DevInfo/Man is read-only"}));
}

TEST_P(Packages, ItemsOfOneCommandAreReportedOneByOne)
{
    server.says(accepted() + get("2", {"./DevInfo/Man", "./Nowhere", "./DevInfo/Mod"}));
    run();
    EXPECT_EQ(listener.commands,
              (Lines{"Get ./DevInfo/Man 200", "Get ./Nowhere 404 no node ./Nowhere",
                     "Get ./DevInfo/Mod 200"}));
}

TEST_P(Packages, ServersPackageOfSeveralMessagesIsAskedForMessageByMessage)
{
    server.says({accepted() + get("2", {"./DevInfo/Man"}), false, {}});
    server.says({statusFor("SyncHdr", 200) + get("3", {"./DevInfo/Mod"}), true, {}});
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200",
                              "Results 2 ./DevInfo/Man = maker", "Alert 1222"}));
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 3 Get 200",
                              "Results 3 ./DevInfo/Mod = model", "Final"}));
}

TEST_P(Packages, MessageWithoutCommandsAndWithoutFinalIsNotTheEnd)
{
    server.says({accepted(), false, {}});
    server.says(statusFor("SyncHdr", 200) + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Alert 1222"}));
    EXPECT_EQ(sent(3).back(), "Final");
}

TEST_P(Packages, CommandsWithTheSameIdAreAnsweredEach)
{
    server.says(accepted() + get("7", {"./DevInfo/Man"}) + get("7", {"./DevInfo/Mod"}));
    run();
    EXPECT_EQ(sent(2),
              (Lines{"Status 0 SyncHdr 200", "Status 7 Get 200", "Results 7 ./DevInfo/Man = maker",
                     "Status 7 Get 200", "Results 7 ./DevInfo/Mod = model", "Final"}));
}

// ---- Abort ---------------------------------------------------------------------------------------

TEST_P(Packages, ServersAbortIsNotAnsweredAndNothingOfItsMessageRuns)
{
    server.says(accepted() + replace("2", profileUri("Office/Addr"), "x") + alert("3", "1223"));
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::AbortedByServer);
    EXPECT_EQ(server.messages.size(), 1U);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Packages, UsersAbortIsToldToTheServerWithTheAnswersSoFar)
{
    options.isAbortRequested = [this] { return !listener.commands.empty(); };
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::AbortedHere);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200",
                              "Results 2 ./DevInfo/Man = maker", "Alert 1223", "Final"}));
}

TEST_P(Packages, SessionWithoutAnEndIsAborted)
{
    options.maxMessages = 3;
    for (int i = 0; i < 10; ++i)
        server.says(statusFor("SyncHdr", 200) + get("2", {"./DevInfo/Man"}));
    EXPECT_TRUE(failsWith("no end after 3 messages"));
    ASSERT_EQ(server.messages.size(), 4U) << "three messages and the abort";
    EXPECT_EQ(sent(4).at(sent(4).size() - 2), "Alert 1223");
    EXPECT_EQ(sent(4).back(), "Final");
}

TEST_P(Packages, InterruptedExchangeIsTheUsersAbort)
{
    bool isInterrupted = false;
    options.isAbortRequested = [&isInterrupted] { return isInterrupted; };
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    server.replies([&isInterrupted](const TransportRequest &) {
        isInterrupted = true;
        return support::Unexpected(
            TransportError{QStringLiteral("http://dm.example/: interrupted")});
    });
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::AbortedHere);
    EXPECT_EQ(end.reason, QStringLiteral("aborted by the user"));
    ASSERT_EQ(server.messages.size(), 3U);
    EXPECT_EQ(sent(3), (Lines{"Alert 1223", "Final"}));
    EXPECT_FALSE(server.requests.at(1).isFarewell);
    EXPECT_TRUE(server.requests.at(2).isFarewell);
    EXPECT_EQ(server.requests.at(2).timeLimit, std::chrono::seconds(5));
}

TEST_P(Packages, FarewellThatFailsDoesNotChangeWhyTheSessionEnded)
{
    options.isAbortRequested = [this] { return !listener.commands.empty(); };
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    server.replies([](const TransportRequest &) {
        return support::Unexpected(
            TransportError{QStringLiteral("http://dm.example/: Connection refused")});
    });
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::AbortedHere);
    EXPECT_EQ(end.reason, QStringLiteral("aborted by the user"));
    EXPECT_EQ(server.messages.size(), 2U);
}

TEST_P(Packages, SessionThatTakesTooLongIsAborted)
{
    std::chrono::steady_clock::time_point now;
    options.clock = [&now] { return now; };
    options.timeLimit = std::chrono::seconds(25);
    for (int i = 0; i < 10; ++i)
        server.replies([&now, this, i](const TransportRequest &request) {
            now += std::chrono::seconds(10);
            return TransportResponse{
                server.encoded({accepted() + get("2", {"./DevInfo/Man"}), true, {}}, i + 1),
                {},
                {},
                request.url};
        });
    EXPECT_TRUE(failsWith("no end after 25 s"));
    ASSERT_EQ(server.messages.size(), 4U) << "three messages and the abort";
    EXPECT_EQ(sent(4).at(sent(4).size() - 2), "Alert 1223");
    EXPECT_EQ(server.requests.at(0).timeLimit, std::chrono::seconds(25));
    EXPECT_EQ(server.requests.at(2).timeLimit, std::chrono::seconds(5)) << "what is left";
}

TEST_P(Packages, UnreachableServerIsAFailure)
{
    server.replies([](const TransportRequest &) {
        return support::Unexpected(
            TransportError{QStringLiteral("http://dm.example/: no answer within 60 s")});
    });
    EXPECT_TRUE(failsWith("http://dm.example/: no answer within 60 s"));
}

// ---- Messages that cannot be accepted ------------------------------------------------------------

TEST_P(Packages, OtherProtocolVersionIsRefusedWithoutRunningAnything)
{
    const auto message = [this](const char *verDtd, const char *verProto) {
        QByteArray xml = ScriptedServer(syncml::Encoding::Xml)
                             .encoded({replace("2", profileUri("Office/Addr"), "x"), true, {}}, 1);
        xml.replace("<VerDTD>1.2", QByteArray("<VerDTD>") + verDtd);
        xml.replace("<VerProto>DM/1.2", QByteArray("<VerProto>") + verProto);
        server.replies([xml](const TransportRequest &request) {
            return TransportResponse{xml, {}, {}, request.url};
        });
    };
    message("1.1", "DM/1.2");
    message("1.2", "DM/2.0");
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 505", "Status 2 Replace 505", "Final"}));
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 513", "Status 2 Replace 513", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Packages, ServerOfAnotherVersionIsGivenUpAfterThreeMessages)
{
    for (int i = 1; i <= 10; ++i) {
        QByteArray xml = ScriptedServer(syncml::Encoding::Xml).encoded({get("2", {"."})}, i);
        xml.replace("<VerProto>DM/1.2", "<VerProto>DM/9.9");
        server.replies([xml](const TransportRequest &request) {
            return TransportResponse{xml, {}, {}, request.url};
        });
    }
    EXPECT_TRUE(failsWith("the server does not speak DM/1.2"));
    EXPECT_EQ(server.messages.size(), 3U);
}

TEST_P(Packages, UnreadableMessageIsRefusedAndEndsTheSession)
{
    QByteArray xml = ScriptedServer(syncml::Encoding::Xml).encoded({accepted(), true, {}}, 1);
    xml.replace("</SyncBody>", "text between elements</SyncBody>");
    server.replies([xml](const TransportRequest &request) {
        return TransportResponse{xml, {}, {}, request.url};
    });
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Failed);
    EXPECT_TRUE(end.reason.startsWith(QStringLiteral("the server's message cannot be read: line")))
        << end.reason.toStdString();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 400", "Alert 1223", "Final"}));
}

TEST_P(Packages, RubbishEndsTheSession)
{
    server.replies([](const TransportRequest &request) {
        return TransportResponse{"<html>", "text/html", {}, request.url};
    });
    EXPECT_EQ(run().kind, Kind::Failed);
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Packages, AnswersTheServerInItsOwnEncoding)
{
    ScriptedServer other(GetParam() == syncml::Encoding::Xml ? syncml::Encoding::Wbxml
                                                             : syncml::Encoding::Xml);
    const QByteArray bytes = other.encoded({accepted() + get("2", {"./DevInfo/Man"}), true, {}}, 1);
    server.replies([bytes](const TransportRequest &request) {
        return TransportResponse{bytes, {}, {}, request.url};
    });
    run();
    EXPECT_EQ(syncml::recogniseEncoding(server.requests.at(0).body), GetParam());
    EXPECT_NE(syncml::recogniseEncoding(server.requests.at(1).body), GetParam());
    EXPECT_NE(server.requests.at(0).contentType, server.requests.at(1).contentType);
}

// ---- Where answers go ----------------------------------------------------------------------------

TEST_P(Packages, NextMessageGoesWhereTheServerWantsIt)
{
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true,
                 "<RespURI>http://dm.example/session?id=7</RespURI>"});
    server.says(statusFor("SyncHdr", 200) + get("2", {"./DevInfo/Man"}));
    run();
    const QString next = QStringLiteral("http://dm.example/session?id=7");
    EXPECT_EQ(server.requests.at(1).url.toString(), next);
    EXPECT_EQ(message(2).header.target.locUri, next);
    EXPECT_EQ(server.requests.at(2).url.toString(), next) << "it holds until another one comes";
}

TEST_P(Packages, ResponseAddressDoesNotGiveUpTls)
{
    account.address = QUrl(QStringLiteral("https://dm.example/"));
    server.says(
        {accepted() + get("2", {"./DevInfo/Man"}), true, "<RespURI>http://dm.example/</RespURI>"});
    EXPECT_TRUE(failsWith("the server wants its answer at http://dm.example/, "
                          "which gives up TLS"));
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Packages, ResponseAddressThatIsNotHttpEndsTheSession)
{
    server.says(
        {accepted() + get("2", {"./DevInfo/Man"}), true, "<RespURI>file:///etc/passwd</RespURI>"});
    EXPECT_EQ(run().kind, Kind::Failed);
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Packages, RedirectedSessionStaysWhereItIs)
{
    server.answersFrom = QUrl(QStringLiteral("https://dm.example/moved"));
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(server.requests.at(1).url, server.answersFrom);
}

// ---- Events --------------------------------------------------------------------------------------

TEST_P(Packages, EventsFollowTheDescriptionOfTheDevice)
{
    options.events = {
        {.type = QStringLiteral("org.example.event"), .data = "happened"},
        {.code = AlertCode::GenericAlert,
         .type = QStringLiteral("Reversed-Domain-Name: org.example"),
         .data = "1",
         .format = QStringLiteral("int"),
         .mark = QStringLiteral("critical"),
         .source = QStringLiteral("./DevInfo"),
         .correlator = QStringLiteral("7")},
    };
    run();
    EXPECT_EQ(sent(1), (Lines{"Alert 1201", "Replace 5 items", "Alert 1224  = happened",
                              "Alert 1226 ./DevInfo = 1", "Final"}));
    const syncml::Item &event = message(1).commands.at(2).items.at(0);
    EXPECT_EQ(event.meta->type, QStringLiteral("org.example.event"));
    EXPECT_EQ(event.meta->format, QStringLiteral("chr"));
    EXPECT_FALSE(event.meta->mark || event.source || message(1).commands.at(2).correlator);
    const syncml::Command &alert = message(1).commands.at(3);
    EXPECT_EQ(alert.correlator, QStringLiteral("7"));
    EXPECT_EQ(alert.items.at(0).meta->format, QStringLiteral("int"));
    EXPECT_EQ(alert.items.at(0).meta->mark, QStringLiteral("critical"));
    EXPECT_EQ(alert.items.at(0).source->locUri, QStringLiteral("./DevInfo"));
}

/// The Status of one command of the client's.
static QByteArray statusOf(const char *msgRef, const char *cmdRef, const char *cmd, int code)
{
    return QByteArray("<Status><CmdID>2</CmdID><MsgRef>") + msgRef + "</MsgRef><CmdRef>" + cmdRef +
           "</CmdRef><Cmd>" + cmd + "</Cmd><Data>" + QByteArray::number(code) + "</Data></Status>";
}

TEST_P(Packages, AnEventIsTakenByAStatusOfItsOwnAlertThatAccepts)
{
    std::vector<std::size_t> taken;
    options.eventTaken = [&taken](std::size_t event) { taken.push_back(event); };
    const ClientEvent event{.code = AlertCode::GenericAlert,
                            .type = QStringLiteral("Reversed-Domain-Name: org.example"),
                            .data = "1"};
    options.events = {event, event, event, event, event};
    server.says(accepted() + statusOf("1", "3", "Alert", 406) + statusOf("1", "4", "Alert", 200) +
                statusOf("1", "4", "Alert", 200) + statusOf("1", "5", "Replace", 200) +
                statusOf("2", "6", "Alert", 200) + statusOf("1", "1", "Alert", 200) +
                statusOf("1", "7", "Alert", 202) + get("9", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(taken, (std::vector<std::size_t>{1, 4}));
}

TEST_P(Packages, EventsThatAreSentAgainAreTakenByTheirNewStatuses)
{
    std::vector<std::size_t> taken;
    options.eventTaken = [&taken](std::size_t event) { taken.push_back(event); };
    const ClientEvent event{.type = QStringLiteral("org.example"), .data = "1"};
    options.events = {event, event};
    account.toServer = {AuthType::Md5, {"Bruce2", "OhBehave"}, std::nullopt};
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")) +
                statusOf("1", "3", "Alert", 407) + statusOf("1", "4", "Alert", 407));
    server.says(accepted() + statusOf("2", "5", "Alert", 200));
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Alert 1201", "Replace 5 items",
                              "Alert 1224  = 1", "Alert 1224  = 1", "Final"}));
    EXPECT_EQ(taken, std::vector<std::size_t>{1});
}

TEST_P(Packages, WhatAServerThatHasNotProvedItselfTakesIsToldAgainWithTheChallenge)
{
    std::vector<std::size_t> taken;
    options.eventTaken = [&taken](std::size_t event) { taken.push_back(event); };
    ClientEvent event{.type = QStringLiteral("org.example"), .data = "once"};
    options.events.push_back(event);
    event.data = "kept";
    event.isToldUntilTaken = true;
    options.events.push_back(event);
    account.toClient = {AuthType::Basic, {"Server", "Secret"}, std::nullopt};
    server.says(accepted() + statusOf("1", "3", "Alert", 200) + statusOf("1", "4", "Alert", 200));
    server.says({accepted() + statusOf("2", "4", "Alert", 200), true,
                 "<Cred><Meta><Format>b64</Format><Type>syncml:auth-basic</Type></Meta><Data>" +
                     QByteArray("Server:Secret").toBase64() + "</Data></Cred>"});
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 407", "Alert 1201", "Replace 5 items",
                              "Alert 1224  = kept", "Final"}));
    EXPECT_EQ(taken, std::vector<std::size_t>{1});
}

TEST_P(Packages, WhatTheServerRefusesIsNoted)
{
    server.says(accepted() + statusFor("Alert", 406));
    run();
    EXPECT_EQ(listener.notes, Lines{"the server answers the client's Alert with "
                                    "406 Optional Feature Not Supported"});
}

TEST_P(Packages, AnotherSessionsIdIsNoted)
{
    options.sessionId = QStringLiteral("A");
    server.says(accepted());
    run();
    EXPECT_EQ(listener.notes, Lines{"the server answers for session \"5\" instead of \"A\""});
}

TEST_P(Packages, MsgIdThatIsUsedAgainIsNoted)
{
    const QByteArray bytes = server.encoded({accepted() + get("2", {"./DevInfo/Man"})}, 1);
    for (int i = 0; i < 2; ++i)
        server.replies([bytes](const TransportRequest &request) {
            return TransportResponse{bytes, {}, {}, request.url};
        });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(listener.notes, Lines{"the server uses the MsgID \"1\" again"});
}

IN_BOTH_ENCODINGS(Packages);

} // namespace

} // namespace client
