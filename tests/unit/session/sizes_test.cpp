// Limits on messages and objects, and objects that are larger than a message, both ways.

#include "session_fixture.h"

#include <set>

namespace client {

namespace {

using Kind = SessionEnd::Kind;

QByteArray maxMsgSize(int bytes)
{
    return "<Meta><MaxMsgSize xmlns='syncml:metinf'>" + QByteArray::number(bytes) +
           "</MaxMsgSize></Meta>";
}

QByteArray maxObjSize(int bytes)
{
    return "<Meta><MaxObjSize xmlns='syncml:metinf'>" + QByteArray::number(bytes) +
           "</MaxObjSize></Meta>";
}

QByteArray size(int bytes)
{
    return "<Meta><Format xmlns='syncml:metinf'>chr</Format><Size xmlns='syncml:metinf'>" +
           QByteArray::number(bytes) + "</Size></Meta>";
}

constexpr char moreData[] = "<MoreData/>";

/// Says no to everything.
class RefusingUser : public UserInteraction {
public:
    Response show(const QString &, const InteractionOptions &) override
    {
        return Response::Refused;
    }
    Response confirm(const QString &, const InteractionOptions &) override
    {
        return Response::Refused;
    }
    Response ask(const QString &, const InteractionOptions &, QString &) override
    {
        return Response::Refused;
    }
    Response choose(const QString &, const std::vector<QString> &, Choice,
                    const InteractionOptions &, std::vector<int> &) override
    {
        return Response::Refused;
    }
};

class Sizes : public SessionTest {
protected:
    /// Lets the server ask for the rest until the client's package is complete.
    void serverAsksForMore(int times)
    {
        for (int i = 0; i < times; ++i)
            server.replies([this](const TransportRequest &request) {
                const QByteArray bytes =
                    server.encoded({statusFor("SyncHdr", 200) + alert("2", "1222"), false, {}}, 2);
                const bool isComplete = server.messages.back().final;
                return TransportResponse{isComplete ? QByteArray() : bytes, {}, {}, request.url};
            });
    }
    /// The data of the Results in all messages, in their order.
    QByteArray resultsOf(const QString &cmdRef) const
    {
        QByteArray data;
        for (const syncml::Message &message : server.messages)
            for (const syncml::Command &command : message.commands)
                if (command.kind == syncml::CommandKind::Results && command.cmdRef == cmdRef)
                    for (const syncml::Item &item : command.items)
                        data += *item.data;
        return data;
    }
    qsizetype largestMessage(std::size_t from = 2) const
    {
        qsizetype largest = 0;
        for (std::size_t i = from - 1; i < server.requests.size(); ++i)
            largest = std::max(largest, server.requests[i].body.size());
        return largest;
    }
    const QByteArray address = profileUri("Office/Addr");
    RefusingUser refusingUser;
};

// ---- Messages of the client ----------------------------------------------------------------------

TEST_P(Sizes, AnswersThatDoNotFitContinueInTheNextMessage)
{
    std::vector<QByteArray> uris(60, "./DevInfo/Man");
    uris.push_back("./DevInfo/Mod"); // another status, so that each item has its own
    uris.push_back("./Nowhere");
    server.says({accepted() + get("2", uris), true, maxMsgSize(2000)});
    serverAsksForMore(20);
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_LE(largestMessage(), 2000);
    EXPECT_EQ(resultsOf(QStringLiteral("2")), QByteArray("maker").repeated(60) + "model");

    std::size_t finals = 0;
    std::size_t statuses = 0;
    for (std::size_t i = 1; i < server.messages.size(); ++i) {
        finals += server.messages[i].final;
        for (const std::string &line : lines(server.messages[i]))
            statuses += line == "Status 2 Get 200" || line == "Status 2 Get 404";
        EXPECT_EQ(sent(i + 1).at(0), "Status 0 SyncHdr 200");
    }
    EXPECT_GT(server.messages.size(), 3U);
    EXPECT_EQ(statuses, 62U) << "each status once";
    EXPECT_EQ(finals, 1U);
    EXPECT_TRUE(server.messages.back().final);
}

TEST_P(Sizes, WhatIsSplitGoesOnInOnePartForEachMessage)
{
    constexpr int limit = 2000;
    constexpr std::size_t items = 200;
    server.says({accepted() + get("2", std::vector<QByteArray>(items, "./DevInfo/Man")), true,
                 maxMsgSize(limit)});
    serverAsksForMore(40);
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_LE(largestMessage(), limit);
    EXPECT_EQ(resultsOf(QStringLiteral("2")), QByteArray("maker").repeated(items));
    std::size_t references = 0;
    for (std::size_t i = 1; i < server.messages.size(); ++i) {
        int statuses = 0;
        int results = 0;
        for (const syncml::Command &command : server.messages[i].commands) {
            if (command.cmdRef != QStringLiteral("2"))
                continue;
            statuses += command.cmd == QStringLiteral("Get");
            results += command.kind == syncml::CommandKind::Results;
            references += command.targetRefs.size();
        }
        EXPECT_LE(statuses, 1) << "message " << i + 1;
        EXPECT_LE(results, 1) << "message " << i + 1;
        if (i + 1 < server.messages.size()) {
            EXPECT_GT(server.requests[i].body.size(), limit - 250) << "message " << i + 1;
        }
    }
    EXPECT_EQ(references, items);
}

TEST_P(Sizes, ManyAnswersStayWithinTheLimit)
{
    QByteArray commands = accepted();
    for (int i = 0; i < 1500; ++i)
        commands += get("2", {"./Nowhere"});
    for (const int limit : {50'000, 50'001, 50'002, 50'003}) {
        server = ScriptedServer(GetParam());
        server.says({commands, true, maxMsgSize(limit)});
        serverAsksForMore(10);
        EXPECT_EQ(run().kind, Kind::Completed);
        EXPECT_LE(largestMessage(), limit);
        EXPECT_GT(message(2).commands.size(), 250U);
        EXPECT_GE(server.messages.size(), 3U);
    }
}

TEST_P(Sizes, ListingsWithoutValuesStayWithinTheLimit)
{
    QByteArray commands = accepted();
    for (int i = 0; i < 150; ++i)
        commands += get("2", {profileUri("Office/Linger") + "?list=Struct"});
    for (int limit = 6'000; limit < 6'100; limit += 7) {
        server = ScriptedServer(GetParam());
        server.says({commands, true, maxMsgSize(limit)});
        serverAsksForMore(20);
        EXPECT_EQ(run().kind, Kind::Completed);
        EXPECT_LE(largestMessage(), limit);
    }
}

TEST_P(Sizes, DescriptionOfTheDeviceIsSplitForASmallServer)
{
    account.toServer = {AuthType::Md5, {"Bruce2", "OhBehave"}, {}};
    const int limit = GetParam() == syncml::Encoding::Xml ? 1100 : 520;
    // It asks for a proof, so that the first package is sent again under its limit.
    server.says({statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")), true, maxMsgSize(limit)});
    serverAsksForMore(20);
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Completed) << end.reason.toStdString();
    EXPECT_LE(largestMessage(), limit);
    ASSERT_GT(server.messages.size(), 2U);
    std::vector<QString> described;
    for (std::size_t i = 1; i < server.messages.size(); ++i)
        for (const syncml::Command &command : server.messages[i].commands)
            if (command.kind == syncml::CommandKind::Replace)
                for (const syncml::Item &item : command.items)
                    described.push_back(item.source->locUri);
    EXPECT_EQ(described, (std::vector<QString>{
                             QStringLiteral("./DevInfo/DevId"), QStringLiteral("./DevInfo/Man"),
                             QStringLiteral("./DevInfo/Mod"), QStringLiteral("./DevInfo/DmV"),
                             QStringLiteral("./DevInfo/Lang")}));
}

TEST_P(Sizes, RequestForMoreIsAnsweredWithAStatus)
{
    server.says({accepted() + get("2", std::vector<QByteArray>(50, "./DevInfo/Man")) +
                     get("3", {"./Nowhere"}),
                 true, maxMsgSize(1500)});
    server.says({statusFor("SyncHdr", 200) + alert("9", "1222"), false, {}});
    run();
    const Lines second = sent(3);
    EXPECT_NE(std::find(second.begin(), second.end(), "Status 9 Alert 200"), second.end());
}

TEST_P(Sizes, RequestForMoreWhenNothingIsLeftEndsThePackageOnceMore)
{
    server.says(accepted() + get("2", {"./DevInfo/Man"}));
    server.says({statusFor("SyncHdr", 200) + alert("9", "1222"), false, {}});
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 9 Alert 200", "Final"}));
}

TEST_P(Sizes, MessageWithCommandsIsMoreThanARequest)
{
    server.says({accepted() + get("2", {"./DevInfo/Man"}) + alert("3", "1222"), false, {}});
    server.says(statusFor("SyncHdr", 200));
    run();
    EXPECT_EQ(sent(2),
              (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200", "Results 2 ./DevInfo/Man = maker",
                     "Status 3 Alert 200", "Alert 1222"}));
}

TEST_P(Sizes, StatusOfItemsWithAndWithoutASourceIsNotSplit)
{
    const int limit = GetParam() == syncml::Encoding::Xml ? 1400 : 600;
    const QByteArray item = "<Item><Target><LocURI>./A</LocURI></Target>";
    const QByteArray source = "<Source><LocURI>./B</LocURI></Source>";
    QByteArray copy = "<Copy><CmdID>2</CmdID>";
    for (int i = 0; i < 40; ++i)
        copy += item + (i % 2 ? source : QByteArray()) + "</Item>";
    copy += "</Copy>";
    server.says({accepted() + "<Sequence><CmdID>1</CmdID>" + alert("3", "1101", {"", "?"}) + copy +
                     "</Sequence>",
                 true, maxMsgSize(limit)});
    serverAsksForMore(5);
    EXPECT_EQ(run(&refusingUser).kind, Kind::Failed) << "what cannot be split does not fit";
    EXPECT_LE(largestMessage(), limit);
}

TEST_P(Sizes, PackageIsNotFinalBeforeTheServersIs)
{
    const QByteArray many = get("2", std::vector<QByteArray>(100, "./DevInfo/Man"));
    server.says({accepted() + many, false, maxMsgSize(1500)});
    for (int i = 0; i < 40; ++i)
        server.replies([this](const TransportRequest &request) {
            // Asks for the rest, and then says the last part of its own package.
            const bool isAskedFor = lines(server.messages.back()).back() == "Alert 1222";
            const QByteArray commands =
                isAskedFor ? get("3", {"./DevInfo/Mod"}) : alert("4", "1222");
            const bool isOver = server.messages.back().final;
            return TransportResponse{
                isOver ? QByteArray()
                       : server.encoded({statusFor("SyncHdr", 200) + commands, isAskedFor, {}}, 2),
                {},
                {},
                request.url};
        });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(resultsOf(QStringLiteral("2")), QByteArray("maker").repeated(100));
    EXPECT_GT(server.messages.size(), 4U);
    int requests = 0;
    for (std::size_t i = 1; i + 1 < server.messages.size(); ++i) {
        EXPECT_FALSE(server.messages[i].final) << "message " << i + 1;
        for (const std::string &line : lines(server.messages[i]))
            requests += line == "Alert 1222";
    }
    EXPECT_EQ(requests, 1) << "when the answers so far are complete";
    EXPECT_EQ(sent(server.messages.size()), (Lines{"Status 0 SyncHdr 200", "Status 3 Get 200",
                                                   "Results 3 ./DevInfo/Mod = model", "Final"}));
}

TEST_P(Sizes, MessageThatFitsExactlyIsSentWhole)
{
    const QByteArray commands = accepted() + get("2", {"./DevInfo/Man", "./DevInfo/Mod"});
    server.says(commands);
    run();
    const auto exact = static_cast<int>(server.requests.at(1).body.size());

    for (const int spare : {16, 0, -1}) {
        server = ScriptedServer(GetParam());
        server.says({commands, true, maxMsgSize(exact + spare)});
        serverAsksForMore(3);
        run();
        EXPECT_LE(largestMessage(), exact + spare);
        if (spare > 0) {
            EXPECT_TRUE(message(2).final);
        }
        if (spare < 0) {
            EXPECT_FALSE(message(2).final);
        }
    }
}

TEST_P(Sizes, LimitThatHoldsNoAnswerEndsTheSession)
{
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, maxMsgSize(60)});
    EXPECT_TRUE(failsWith("the server takes messages of 60 bytes, which is too little"));
}

TEST_P(Sizes, LimitHoldsUntilItChanges)
{
    const auto many = [](const char *id) {
        return get(id, std::vector<QByteArray>(100, "./DevInfo/Man"));
    };
    server.says({accepted() + many("2"), true, maxMsgSize(1500)});
    server.says({statusFor("SyncHdr", 200) + alert("2", "1222"), false, maxMsgSize(100000)});
    run();
    EXPECT_LE(server.requests.at(1).body.size(), 1500);
    EXPECT_GT(server.requests.at(2).body.size(), 1500);
    EXPECT_TRUE(message(3).final);
}

// ---- Answers to an Atomic ------------------------------------------------------------------------

TEST_P(Sizes, AnswersOfAnAtomicGoIntoSeveralMessages)
{
    QByteArray commands;
    for (int i = 0; i < 40; ++i)
        commands += replace(QByteArray::number(10 + i).constData(), address,
                            "value " + QByteArray::number(i));
    server.says(
        {accepted() + "<Atomic><CmdID>2</CmdID>" + commands + "</Atomic>", true, maxMsgSize(1500)});
    serverAsksForMore(20);
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_LE(largestMessage(), 1500);
    EXPECT_GT(server.messages.size(), 3U);
    EXPECT_EQ(sent(2).at(1), "Status 2 Atomic 200") << "the result, before the rest";
    int done = 0;
    for (std::size_t i = 2; i <= server.messages.size(); ++i)
        for (const std::string &line : sent(i))
            done += line.ends_with(" Replace 200");
    EXPECT_EQ(done, 40);
    EXPECT_EQ(read(profile("Office/Addr")), "value 39");
}

TEST_P(Sizes, AtomicWhoseAnswerFitsIntoNoMessageIsTakenBackAnd517)
{
    const QByteArray longUri = profileUri("Office/") + QByteArray("%78").repeated(20);
    const QByteArray add = "<Add><CmdID>4</CmdID><Meta><Format>chr</Format></Meta><Item><Target>"
                           "<LocURI>" +
                           longUri + "</LocURI></Target><Data>x</Data></Item></Add>";
    const QByteArray atomic =
        "<Atomic><CmdID>2</CmdID>" + replace("3", address, "new") + add + "</Atomic>";
    const std::string before = childrenOf(profile("Office"));
    std::set<Lines> seen;
    for (int limit = 200; limit < 1000; limit += 4) {
        server = ScriptedServer(GetParam());
        listener.commands.clear();
        server.says({accepted() + atomic, true, maxMsgSize(limit)});
        serverAsksForMore(10);
        const SessionEnd end = run();
        EXPECT_LE(largestMessage(), limit);
        if (end.kind == Kind::Failed) {
            EXPECT_TRUE(seen.empty()) << limit << " bytes are too few, fewer were not";
            EXPECT_EQ(read(profile("Office/Addr")), "internet");
            continue;
        }
        Lines answers;
        for (std::size_t i = 2; i <= server.messages.size(); ++i)
            for (const std::string &line : sent(i))
                if (line.ends_with("Atomic 517") || line.ends_with("Atomic 200") ||
                    line.find(" Replace ") != line.npos || line.find(" Add ") != line.npos)
                    answers.push_back(line);
        seen.insert(answers);
        if (answers.at(0) == "Status 2 Atomic 200") {
            EXPECT_EQ(read(profile("Office/Addr")), "new");
            break;
        }
        EXPECT_EQ(answers, (Lines{"Status 2 Atomic 517", "Status 3 Replace 216", //
                                  "Status 4 Add 216"}));
        listener.commands.resize(3); // without the requests for more
        EXPECT_EQ(listener.commands,
                  (Lines{"Atomic  517 the server takes no messages as large as an answer in it",
                         "Replace " + address.toStdString() + " 216 taken back",
                         "Add " + longUri.toStdString() + " 216 taken back"}));
        EXPECT_EQ(read(profile("Office/Addr")), "internet");
        EXPECT_EQ(childrenOf(profile("Office")), before);
    }
    EXPECT_EQ(seen, (std::set<Lines>{
                        {"Status 2 Atomic 517", "Status 3 Replace 216", "Status 4 Add 216"},
                        {"Status 2 Atomic 200", "Status 3 Replace 200", "Status 4 Add 200"}}));
}

TEST_P(Sizes, AtomicWithATypedTextThatFitsIntoNoMessageIs517)
{
    class Writer final : public RefusingUser {
    public:
        Response ask(const QString &, const InteractionOptions &, QString &text) override
        {
            text = QString(2000, u'x');
            return Response::Given;
        }
    } writer;
    server.says({accepted() + "<Atomic><CmdID>2</CmdID>" + replace("3", address, "new") +
                     alert("4", "1102", {"", "Your name?"}) + "</Atomic>",
                 true, maxMsgSize(1500)});
    EXPECT_EQ(run(&writer).kind, Kind::Completed);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Atomic 517", "Status 3 Replace 216",
                              "Status 4 Alert 216", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

// ---- Large objects of the client -----------------------------------------------------------------

TEST_P(Sizes, LargeValueIsSentInChunks)
{
    const QByteArray value = QByteArray("0123456789").repeated(600);
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    server.says({accepted() + get("2", {profileUri("Office/Long")}), true, maxMsgSize(2000)});
    serverAsksForMore(10);
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(resultsOf(QStringLiteral("2")), value);
    EXPECT_LE(largestMessage(), 2000);
    EXPECT_GT(server.messages.size(), 4U);

    bool isFirst = true;
    for (std::size_t i = 1; i < server.messages.size(); ++i) {
        const syncml::Message &message = server.messages[i];
        const bool isLast = i + 1 == server.messages.size();
        for (const syncml::Command &command : message.commands) {
            if (command.kind != syncml::CommandKind::Results)
                continue;
            const syncml::Item &item = command.items.at(0);
            EXPECT_EQ(item.source->locUri.toUtf8(), profileUri("Office/Long"));
            EXPECT_EQ(item.moreData, !isLast);
            EXPECT_EQ(item.meta && item.meta->size, isFirst) << "the size is for the first chunk";
            if (isFirst) {
                EXPECT_EQ(item.meta->size, QString::number(value.size()));
            }
            isFirst = false;
        }
        EXPECT_EQ(message.final, isLast);
    }
}

TEST_P(Sizes, ValueThatFitsIntoTheNextMessageIsNotCut)
{
    memory->addLeaf("Office/One", DmtData(QByteArray(900, 'x').constData()));
    memory->addLeaf("Office/Two", DmtData(QByteArray(900, 'y').constData()));
    server.says(
        {accepted() + get("2", {profileUri("Office/One")}) + get("3", {profileUri("Office/Two")}),
         true, maxMsgSize(GetParam() == syncml::Encoding::Xml ? 2300 : 1500)});
    serverAsksForMore(5);
    run();
    EXPECT_EQ(resultsOf(QStringLiteral("3")), QByteArray(900, 'y'));
    for (std::size_t i = 2; i <= server.messages.size(); ++i)
        for (const std::string &line : sent(i))
            EXPECT_FALSE(line.ends_with("...")) << "message " << i;
    EXPECT_EQ(server.messages.size(), 3U);
}

TEST_P(Sizes, ChunksDoNotCutCharacters)
{
    const QByteArray value = QStringLiteral("移动彩信€𝄞é").repeated(150).toUtf8();
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    for (int limit = 1500; limit < 1512; ++limit) {
        server = ScriptedServer(GetParam());
        server.says({accepted() + get("2", {profileUri("Office/Long")}), true, maxMsgSize(limit)});
        serverAsksForMore(10);
        EXPECT_EQ(run().kind, Kind::Completed);
        EXPECT_EQ(resultsOf(QStringLiteral("2")), value) << limit;
        EXPECT_LE(largestMessage(), limit);
    }
}

TEST_P(Sizes, ValueThatGrowsInItsEncodingStaysWithinTheLimit)
{
    const QByteArray value = QByteArray("<&>\r\"]]>").repeated(400);
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    server.says({accepted() + get("2", {profileUri("Office/Long")}), true, maxMsgSize(1500)});
    serverAsksForMore(30);
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(resultsOf(QStringLiteral("2")), value);
    EXPECT_LE(largestMessage(), 1500);
}

TEST_P(Sizes, NothingComesBetweenTheChunksOfAnObject)
{
    const QByteArray value(5000, 'x');
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    server.says({accepted() + get("2", {profileUri("Office/Long")}) + get("3", {"./DevInfo/Man"}),
                 true, maxMsgSize(2000)});
    serverAsksForMore(10);
    run();
    Lines all;
    for (std::size_t i = 2; i <= server.messages.size(); ++i) {
        const Lines said = sent(i);
        for (std::size_t line = 0; line < said.size(); ++line) {
            if (said[line].ends_with("...")) {
                EXPECT_EQ(line, said.size() - 1) << "message " << i;
            }
        }
        all.insert(all.end(), said.begin(), said.end());
    }
    const auto isChunk = [](const std::string &line) { return line.starts_with("Results 2 "); };
    const auto lastChunk = std::find_if(all.rbegin(), all.rend(), isChunk);
    const auto next = std::find(all.begin(), all.end(), "Status 3 Get 200");
    ASSERT_NE(next, all.end());
    EXPECT_LT(lastChunk.base() - all.begin(), next - all.begin() + 1);
}

TEST_P(Sizes, ServerThatRefusesAChunkGetsNoMoreOfThem)
{
    const QByteArray value(5000, 'x');
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    server.says({accepted() + get("2", {profileUri("Office/Long")}), true, maxMsgSize(2000)});
    server.says({statusFor("SyncHdr", 200) + statusFor("Results", 413, {}, 2) + alert("3", "1222"),
                 false,
                 {}});
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 3 Alert 200", "Final"}));
    EXPECT_EQ(listener.notes, Lines{"the server answers the client's Results with "
                                    "413 Request Entity Too Large"});
}

TEST_P(Sizes, ServerThatMissesTheEndOfAnObjectGetsNoMoreOfIt)
{
    const QByteArray value(5000, 'x');
    memory->addLeaf("Office/Long", DmtData(value.constData()));
    server.says({accepted() + get("2", {profileUri("Office/Long")}), true, maxMsgSize(2000)});
    server.says({statusFor("SyncHdr", 200) + alert("3", "1225"), true, {}});
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 3 Alert 200", "Final"}));
}

TEST_P(Sizes, ValueThatTheServerDoesNotTakeIs413)
{
    memory->addLeaf("Office/Long", DmtData(QByteArray(101, 'x').constData()));
    memory->addLeaf("Office/Fits", DmtData(QByteArray(100, 'y').constData()));
    server.says(
        {accepted() +
             get("2", {profileUri("Office/Fits"), profileUri("Office/Long"), "./DevInfo/Man"}) +
             get("3", {profileUri("Office/Long")}),
         true, maxObjSize(100)});
    const SessionEnd end = run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200", "Status 2 Get 413",
                              "Results 2 ./Ext/Profiles/Office/Fits = " + std::string(100, 'y'),
                              "Results 2 ./DevInfo/Man = maker", "Status 3 Get 413", "Final"}));
    EXPECT_EQ(message(2).commands.at(2).targetRefs,
              std::vector{QStringLiteral("./Ext/Profiles/Office/Long")});
    EXPECT_EQ(message(2).commands.at(1).targetRefs.size(), 2U);
    EXPECT_EQ(end.refused, 2);
}

TEST_P(Sizes, ListingWithAValueThatTheServerDoesNotTakeIs413)
{
    memory->addLeaf("Home/Long", DmtData(QByteArray(101, 'x').constData()));
    server.says(
        {accepted() + get("2", {profileUri("Home") + "?list=StructData"}), true, maxObjSize(100)});
    run();
    EXPECT_EQ(sent(2).at(1), "Status 2 Get 413");
}

TEST_P(Sizes, EachValueThatTheServerDoesNotTakeIs413HoweverItIsAskedFor)
{
    memory->addLeaf("Office/Long", DmtData(QByteArray(101, 'x').constData()));
    const QByteArray longUri = profileUri("Office/Long");
    const QByteArray listing = profileUri("Office") + "?list=StructData";
    server.says({accepted() + get("2", {longUri, "./DevInfo/Man", longUri, listing}) +
                     "<Sequence><CmdID>3</CmdID>" + get("4", {longUri}) +
                     get("5", {"./DevInfo/Mod"}) + "</Sequence>",
                 true, maxObjSize(100)});
    const SessionEnd end = run();
    Lines statuses = sent(2);
    std::erase_if(statuses, [](const std::string &line) { return !line.starts_with("Status"); });
    EXPECT_EQ(statuses, (Lines{"Status 0 SyncHdr 200", "Status 2 Get 200", "Status 2 Get 413",
                               "Status 3 Sequence 200", "Status 4 Get 413", "Status 5 Get 200"}));
    EXPECT_EQ(message(2).commands.at(1).targetRefs, std::vector{QStringLiteral("./DevInfo/Man")});
    EXPECT_EQ(message(2).commands.at(2).targetRefs,
              (std::vector{QString::fromUtf8(longUri), QString::fromUtf8(longUri),
                           QString::fromUtf8(listing)}));
    EXPECT_EQ(end.refused, 4);
}

// ---- Large objects of the server -----------------------------------------------------------------

TEST_P(Sizes, ChunksAreStoredAndRunAsOneCommand)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(11)), false, {}});
    server.says({statusFor("SyncHdr", 200) + replace("3", address, "two ", moreData), false, {}});
    server.says({statusFor("SyncHdr", 200) + replace("4", address, "end"), true, {}});
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Replace 213", "Alert 1222"}));
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 3 Replace 213", "Alert 1222"}));
    EXPECT_EQ(sent(4), (Lines{"Status 0 SyncHdr 200", "Status 4 Replace 200", "Final"}));
    EXPECT_EQ(message(2).commands.at(1).targetRefs, std::vector{QString::fromUtf8(address)});
    EXPECT_EQ(read(profile("Office/Addr")), "one two end");
    EXPECT_EQ(memory->calls, std::vector<std::string>({"set Office/Addr", "get Office/Addr"}))
        << "nothing is written before the last chunk";
}

TEST_P(Sizes, LaterChunksNeedNoAddress)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(7)), false, {}});
    server.says(statusFor("SyncHdr", 200) +
                "<Replace><CmdID>3</CmdID><Item><Data>end</Data></Item></Replace>");
    run();
    EXPECT_EQ(read(profile("Office/Addr")), "one end");
}

TEST_P(Sizes, AddInChunksKeepsTheFormatOfTheFirst)
{
    const QByteArray uri = profileUri("Office/New");
    const auto add = [&uri](const char *id, const QByteArray &meta, const QByteArray &rest) {
        return "<Add><CmdID>" + QByteArray(id) + "</CmdID>" + meta + "<Item><Target><LocURI>" +
               uri + "</LocURI></Target>" + rest + "</Item></Add>";
    };
    server.says({accepted() + add("2", "<Meta><Format>chr</Format></Meta>",
                                  "<Meta><Size>6</Size></Meta><Data>one</Data><MoreData/>"),
                 false,
                 {}});
    server.says(statusFor("SyncHdr", 200) + add("3", {}, "<Data>two</Data>"));
    run();
    EXPECT_EQ(sent(3).at(1), "Status 3 Add 200");
    EXPECT_EQ(read(profile("Office/New")), "onetwo");
}

TEST_P(Sizes, ItemsAroundAnObjectAreAnsweredInTheirOrder)
{
    const auto item = [](const char *leaf, const QByteArray &rest) {
        return "<Item><Target><LocURI>" + profileUri(leaf) + "</LocURI></Target>" + rest +
               "</Item>";
    };
    server.says({accepted() + "<Replace><CmdID>2</CmdID>" +
                     item("Home/Addr", "<Data>before</Data>") +
                     item("Office/Addr", size(6) + "<Data>one</Data><MoreData/>") + "</Replace>",
                 false,
                 {}});
    server.says(statusFor("SyncHdr", 200) + "<Replace><CmdID>3</CmdID>" +
                item("Office/Addr", "<Data>two</Data>") + item("Nowhere", "<Data>x</Data>") +
                "</Replace>");
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Replace 200",
                              "Status 2 Replace 213", "Alert 1222"}));
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Status 3 Replace 200",
                              "Status 3 Replace 404", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "onetwo");
    EXPECT_EQ(read(profile("Home/Addr")), "before");
}

TEST_P(Sizes, ObjectOfAnotherSizeThanAnnouncedIs424)
{
    for (const int announced : {6, 8}) {
        server = ScriptedServer(GetParam());
        server.says(
            {accepted() + replace("2", address, "one ", moreData, size(announced)), false, {}});
        server.says(statusFor("SyncHdr", 200) + replace("3", address, "end"));
        run();
        EXPECT_EQ(sent(3).at(1), "Status 3 Replace 424") << announced;
    }
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Sizes, ObjectThatIsLargerThanTheLimitIs413)
{
    options.maxObjectBytes = 10;
    server.says({accepted() + replace("2", address, "one ", moreData, size(11)), false, {}});
    run();
    EXPECT_EQ(sent(2).at(1), "Status 2 Replace 413");
}

TEST_P(Sizes, FirstChunkWithoutASizeIsIncomplete)
{
    server.says({accepted() + replace("2", address, "one ", moreData), false, {}});
    run();
    EXPECT_EQ(sent(2).at(1), "Status 2 Replace 412");
    for (const char *const nonsense : {"-1", "many", ""}) {
        server = ScriptedServer(GetParam());
        server.says({accepted() + replace("2", address, "one ", moreData,
                                          QByteArray("<Meta><Size>") + nonsense + "</Size></Meta>"),
                     false,
                     {}});
        run();
        EXPECT_EQ(sent(2).at(1), "Status 2 Replace 412") << nonsense;
    }
}

TEST_P(Sizes, AnotherCommandBeforeTheEndBreaksTheObjectOff)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(7)), false, {}});
    server.says(statusFor("SyncHdr", 200) + get("3", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Alert 1225 ./Ext/Profiles/Office/Addr = ",
                              "Status 3 Get 200", "Results 3 ./DevInfo/Man = maker", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(listener.notes, Lines{"a large object broke off before its end"});
}

TEST_P(Sizes, AnotherItemBeforeTheEndBreaksTheObjectOff)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(7)), false, {}});
    server.says(statusFor("SyncHdr", 200) + replace("3", profileUri("Home/Addr"), "other"));
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Alert 1225 ./Ext/Profiles/Office/Addr = ",
                              "Status 3 Replace 200", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(read(profile("Home/Addr")), "other");
}

TEST_P(Sizes, AnotherKindOfCommandIsNotTheNextChunk)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(7)), false, {}});
    server.says(statusFor("SyncHdr", 200) + "<Add><CmdID>3</CmdID><Item><Target><LocURI>" +
                address + "</LocURI></Target>" + size(3) + "<Data>end</Data></Item></Add>");
    run();
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Alert 1225 ./Ext/Profiles/Office/Addr = ",
                              "Status 3 Add 418", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Sizes, MessageWithoutTheNextChunkBreaksTheObjectOff)
{
    server.says({accepted() + replace("2", address, "one ", moreData, size(7)), false, {}});
    server.says(statusFor("SyncHdr", 200));
    server.says(statusFor("SyncHdr", 200) + replace("4", address, "end"));
    run();
    EXPECT_EQ(sent(3),
              (Lines{"Status 0 SyncHdr 200", "Alert 1225 ./Ext/Profiles/Office/Addr = ", "Final"}));
    EXPECT_EQ(sent(4).at(1), "Status 4 Replace 200") << "a whole value, since the object is gone";
    EXPECT_EQ(read(profile("Office/Addr")), "end");
}

TEST_P(Sizes, ChunkInsideASequenceIsRefused)
{
    server.says(accepted() + "<Sequence><CmdID>2</CmdID>" +
                replace("3", address, "one ", moreData, size(7)) + "</Sequence>");
    run();
    EXPECT_EQ(sent(2).at(2), "Status 3 Replace 406");
}

// ---- The room for answers ------------------------------------------------------------------------

TEST_P(Sizes, MoreAnswersThanThereIsRoomForAre413)
{
    memory->addLeaf("Home/Long", DmtData(QByteArray(1000 * 1000, 'x').constData()));
    server.says(accepted() + get("2", std::vector(6, profileUri("Home/Long"))));
    run();
    EXPECT_EQ(resultsOf(QStringLiteral("2")).size(), 4 * 1000 * 1000);
    EXPECT_EQ(sent(2).at(5), "Status 2 Get 413");
}

TEST_P(Sizes, AnAbortDoesNotWaitForAnswersThatDoNotFit)
{
    memory->addLeaf("Home/Long", DmtData(QByteArray(5000, 'x').constData()));
    options.isAbortRequested = [this] { return server.messages.size() == 2; };
    server.says({accepted() + get("2", {profileUri("Home/Long"), profileUri("Office/Addr")}), true,
                 maxMsgSize(1000)});
    server.says(statusFor("SyncHdr", 200) + alert("2", "1222"));
    EXPECT_EQ(run().kind, Kind::AbortedHere);
    EXPECT_EQ(sent(3),
              (Lines{"Status 0 SyncHdr 200", "Status 2 Alert 215", "Alert 1223", "Final"}));
}

TEST_P(Sizes, AServerThatGoesOnWithoutTakingAnswersIsGivenUp)
{
    // Each message brings more statuses than one of the client's can carry away.
    QByteArray commands;
    for (int i = 0; i < 15000; ++i)
        commands += "<Delete><CmdID>" + QByteArray::number(i + 2) +
                    "</CmdID><Item><Target><LocURI>./x</LocURI></Target></Item></Delete>";
    for (int i = 0; i < 10; ++i)
        server.says({accepted() + commands, false, maxMsgSize(2000)});
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Failed);
    EXPECT_EQ(end.reason,
              QStringLiteral("the server goes on while more than 4194304 bytes of answers wait"));
    EXPECT_EQ(server.messages.back().commands.back().data, "1223");
    EXPECT_LE(end.commands, 5 * 15000);
}

IN_BOTH_ENCODINGS(Sizes);

} // namespace

} // namespace client
