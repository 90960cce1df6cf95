// DM commands in, statuses and results out.

#include "answer_size.h"
#include "processor_fixture.h"

namespace client {

namespace {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;

// ---- Get -----------------------------------------------------------------------------------------

class GetTest : public CommandProcessorTest {
protected:
    Lines get(std::vector<Item> items) { return run(command(CommandKind::Get, std::move(items))); }
    /// The one result of a successful Get of one address.
    std::string result(const QByteArray &uri)
    {
        const Lines lines = get({target(uri)});
        EXPECT_EQ(lines.at(0), "Status 7 Get 200 <" + uri.toStdString());
        return lines.size() == 2 ? lines[1].substr(std::string("Results 7 ").size()) : "";
    }
};

TEST_F(GetTest, TheStatusComesBeforeTheResults)
{
    EXPECT_EQ(get({target("./DevInfo/Man")}),
              (Lines{"Status 7 Get 200 <./DevInfo/Man", "Results 7 [./DevInfo/Man=maker]"}));
}

TEST_F(GetTest, TheAnswerNamesTheNodeAsTheServerDid)
{
    EXPECT_EQ(result("DevInfo/M%61n"), "[DevInfo/M%61n=maker]");
}

TEST_F(GetTest, MetaIsLeftOutWhereItHasItsDefault)
{
    EXPECT_EQ(result(profileUri("Office/Addr")), "[" + full("Office/Addr") + "=internet]");
    EXPECT_EQ(result(profileUri("Office/Linger")), "[" + full("Office/Linger") + " int =30]");
    EXPECT_EQ(result(profileUri("Office/Enabled")), "[" + full("Office/Enabled") + " bool =true]");
}

TEST_F(GetTest, ALeafWithoutAValueHasItsFormatAndNoData)
{
    EXPECT_EQ(result(profileUri("Office/Port")), "[" + full("Office/Port") + " int =]");
}

TEST_F(GetTest, ABinaryValueTravelsAsBase64)
{
    DMVector<unsigned char> bytes;
    bytes.push_back(0);
    bytes.push_back(255);
    memory->addLeaf("Home/Icon", DmtData(bytes));
    EXPECT_EQ(result(profileUri("Home/Icon")), "[" + full("Home/Icon") + " b64 =AP8=]");
    EXPECT_EQ(result(profileUri("Home/Icon?prop=Format")),
              "[" + full("Home/Icon?prop=Format") + "=bin]");
}

TEST_F(GetTest, AnInteriorNodeAnswersTheNamesOfItsChildren)
{
    EXPECT_EQ(result("."), "[. node text/plain=DevInfo/DevDetail/Ext]");
    EXPECT_EQ(result(mountRoot), std::string("[") + mountRoot + " node text/plain=Office/Home]");
}

TEST_F(GetTest, NamesOfChildrenAreEscapedSoThatTheyCanBeAppendedToTheUri)
{
    memory->addInterior("My Caf\xc3\xa9");
    memory->addInterior("100%");
    EXPECT_EQ(result(mountRoot),
              std::string("[") + mountRoot + " node text/plain=Office/Home/My%20Caf%C3%A9/100%25]");
}

TEST_F(GetTest, AnInteriorNodeWithoutChildrenHasEmptyData)
{
    memory->addInterior("Empty");
    EXPECT_EQ(result(profileUri("Empty")), "[" + full("Empty") + " node text/plain=]");
}

TEST_F(GetTest, PropertiesArePlainTextWithoutMeta)
{
    const auto property = [this](const char *path, const char *name) {
        const QByteArray uri = profileUri(path) + "?prop=" + name;
        return result(uri).substr(static_cast<std::size_t>(uri.size()) + 1);
    };
    EXPECT_EQ(property("Office/Linger", "Format"), "=int]");
    EXPECT_EQ(property("Office", "Format"), "=node]");
    EXPECT_EQ(property("Office", "Name"), "=Office]");
    EXPECT_EQ(property("Office/Linger", "Type"), "=text/plain]");
    EXPECT_EQ(property("Office", "Type"), "=]");
    EXPECT_EQ(property("Office", "ACL"), "=]");
}

TEST_F(GetTest, StructListsTheNodesWithoutTheirValues)
{
    EXPECT_EQ(result(profileUri("Office?list=Struct")),
              "[" + full("Office") + " node ] [" + full("Office/Addr") + "] [" +
                  full("Office/Linger") + " int ] [" + full("Office/Enabled") + " bool ] [" +
                  full("Office/Port") + " int ] [" + full("Office/Auth") + " node ] [" +
                  full("Office/Auth/AuthPw") + "]");
}

TEST_F(GetTest, StructDataListsTheValuesOfLeavesToo)
{
    EXPECT_EQ(result(profileUri("Office?list=StructData")),
              "[" + full("Office") + " node ] [" + full("Office/Addr") + "=internet] [" +
                  full("Office/Linger") + " int =30] [" + full("Office/Enabled") +
                  " bool =true] [" + full("Office/Port") + " int =] [" + full("Office/Auth") +
                  " node ] [" + full("Office/Auth/AuthPw") + "=secret]");
}

TEST_F(GetTest, StructDataListsAnUnreadableLeafWithoutDataAndItsSiblingsWithTheirs)
{
    memory->failures = {{"get Home/Addr", 1}};
    memory->addLeaf("Home/Linger", DmtData(1));
    EXPECT_EQ(result(profileUri("Home?list=StructData")), "[" + full("Home") + " node ] [" +
                                                              full("Home/Addr") + "] [" +
                                                              full("Home/Linger") + " int =1]");
}

TEST_F(GetTest, AStandardObjectIsListedWithItsId)
{
    EXPECT_EQ(result("./DevInfo?list=Struct").substr(0, 47),
              "[./DevInfo node urn:oma:mo:oma-dm-devinfo:1.0] ");
}

TEST_F(GetTest, SeveralItemsThatEndAlikeShareOneStatus)
{
    EXPECT_EQ(get({target("./DevInfo/Man"), target("./DevInfo/Mod")}),
              (Lines{"Status 7 Get 200 <./DevInfo/Man <./DevInfo/Mod",
                     "Results 7 [./DevInfo/Man=maker] [./DevInfo/Mod=model]"}));
    EXPECT_EQ(get({target("./x"), target("./y")}), (Lines{"Status 7 Get 404 <./x <./y"}));
}

TEST_F(GetTest, ItemsThatEndDifferentlyHaveAStatusEachAndDoNotDisturbEachOther)
{
    EXPECT_EQ(get({target("./DevInfo/Man"), target("./x"), target("./DevInfo/Mod")}),
              (Lines{"Status 7 Get 200 <./DevInfo/Man", "Status 7 Get 404 <./x",
                     "Status 7 Get 200 <./DevInfo/Mod",
                     "Results 7 [./DevInfo/Man=maker] [./DevInfo/Mod=model]"}));
}

TEST_F(GetTest, FailuresHaveTheirStatusAndNoResults)
{
    memory->failures = {{"get Office/Addr", 1}, {"get Office/Linger", 510}};
    const auto failing = [this](const QByteArray &uri) {
        const Lines lines = get({target(uri)});
        EXPECT_EQ(lines.size(), 1u);
        return statusOf(CommandKind::Get, target(uri));
    };
    EXPECT_EQ(failing("./x"), 404);
    EXPECT_EQ(failing("./x?prop=Nonsense"), 404);
    EXPECT_EQ(failing("./DevInfo/"), 404);
    EXPECT_EQ(failing("./1/2/3/4/5/6/7/8/9"), 414);
    EXPECT_EQ(failing("./DevInfo?prop=Nonsense"), 406);
    EXPECT_EQ(failing("./DevInfo?prop=Size"), 406);
    EXPECT_EQ(failing("./DevInfo?list=Nonsense"), 406);
    EXPECT_EQ(failing("./DevInfo?nonsense"), 406);
    EXPECT_EQ(failing(profileUri("Office/Addr")), 500);
    EXPECT_EQ(failing(profileUri("Office/Linger")), 510);
}

// ---- Add, Replace, Delete, Copy, Exec ------------------------------------------------------------

class ChangeTest : public CommandProcessorTest {};

TEST_F(ChangeTest, AddTakesFormatAndTypeFromTheItemOrTheCommand)
{
    Command add = command(CommandKind::Add, {target(profileUri("Home/A"), "1"),
                                             formatted(target(profileUri("Home/B"), "x"), "chr")});
    add.meta.emplace();
    add.meta->format = QStringLiteral("int");
    add.meta->type = QStringLiteral("text/x-test");
    EXPECT_EQ(run(add), (Lines{"Status 7 Add 200 <" + full("Home/A") + " <" + full("Home/B")}));
    EXPECT_EQ(tree.find(profile("Home/A"))->valueType(), DmtData::Int);
    EXPECT_EQ(tree.find(profile("Home/B"))->valueType(), DmtData::String);
    EXPECT_EQ(tree.type(*tree.find(profile("Home/B"))), QStringLiteral("text/x-test"));
}

TEST_F(ChangeTest, AddAnswersWithTheStatusOfWhatIsWrong)
{
    const auto add = [this](const QByteArray &uri, const char *format) {
        return statusOf(CommandKind::Add, formatted(target(uri, "x"), format));
    };
    EXPECT_EQ(add(profileUri("Home/New"), "chr"), 200);
    EXPECT_EQ(add(profileUri("Home/Addr"), "chr"), 418);
    EXPECT_EQ(add(profileUri("Nobody/Addr"), "chr"), 404);
    EXPECT_EQ(add(profileUri("Home/Addr/Deeper"), "chr"), 405);
    EXPECT_EQ(add(profileUri("Home/Newer"), "float"), 415);
    EXPECT_EQ(add(profileUri("Home/Newer?prop=Title"), "chr"), 404);
    EXPECT_EQ(add(profileUri("Home?prop=Title"), "chr"), 405);
    EXPECT_EQ(statusOf(CommandKind::Add, target(profileUri("Home/Newer"), "x")), 415);
}

TEST_F(ChangeTest, ReplaceChangesAValue)
{
    EXPECT_EQ(statusOf(CommandKind::Replace, target(profileUri("Home/Addr"), "new")), 200);
    EXPECT_EQ(read(profile("Home/Addr")), "new");
}

TEST_F(ChangeTest, ReplaceOfTheNamePropertyRenames)
{
    EXPECT_EQ(statusOf(CommandKind::Replace, target(profileUri("Home?prop=Name"), "House")), 200);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office House");
    EXPECT_EQ(statusOf(CommandKind::Replace, target(profileUri("House?prop=Name"), "Office")), 418);
    EXPECT_EQ(statusOf(CommandKind::Replace, target(profileUri("House?prop=Name"))), 405);
    EXPECT_EQ(statusOf(CommandKind::Replace, target("./DevInfo?prop=Name", "X")), 405);
}

TEST_F(ChangeTest, AFormatGivenWithANewNameIsIgnored)
{
    EXPECT_EQ(statusOf(CommandKind::Replace,
                       formatted(target(profileUri("Home?prop=Name"), "House"), "int")),
              200);
}

TEST_F(ChangeTest, ReplaceAnswersWithTheStatusOfWhatIsWrong)
{
    const auto replace = [this](const QByteArray &uri) {
        return statusOf(CommandKind::Replace, target(uri, "x"));
    };
    EXPECT_EQ(replace(profileUri("Home/New")), 404);
    EXPECT_EQ(replace(profileUri("Home")), 405);
    EXPECT_EQ(replace(profileUri("Office/Linger")), 415);
    EXPECT_EQ(replace("./DevInfo/Man"), 405);
    EXPECT_EQ(replace(profileUri("Home?prop=Format")), 405);
    EXPECT_EQ(replace(profileUri("Home?prop=Type")), 405);
    EXPECT_EQ(replace(profileUri("Home?prop=ACL")), 500);
    EXPECT_EQ(replace(profileUri("Home?prop=Nonsense")), 406);
    EXPECT_EQ(replace(profileUri("Home?list=Struct")), 406);
    EXPECT_EQ(replace(profileUri("Nobody?prop=Format")), 404);
}

TEST_F(ChangeTest, DeleteRemovesANode)
{
    EXPECT_EQ(statusOf(CommandKind::Delete, target(profileUri("Home"))), 200);
    EXPECT_EQ(statusOf(CommandKind::Delete, target(profileUri("Home"))), 404);
    EXPECT_EQ(statusOf(CommandKind::Delete, target(".")), 405);
    EXPECT_EQ(statusOf(CommandKind::Delete, target(mountRoot)), 405);
    EXPECT_EQ(statusOf(CommandKind::Delete, target(profileUri("Office?prop=ACL"))), 405);
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office");
}

TEST_F(ChangeTest, CopyNamesBothEndsInItsStatus)
{
    Item item = target(profileUri("Home/Addr"));
    item.source = location(profileUri("Office/Addr"));
    EXPECT_EQ(run(command(CommandKind::Copy, {item})),
              (Lines{"Status 7 Copy 200 <" + full("Home/Addr") + " >" + full("Office/Addr")}));
    EXPECT_EQ(read(profile("Home/Addr")), "internet");
}

TEST_F(ChangeTest, CopyNeedsBothEnds)
{
    EXPECT_EQ(statusOf(CommandKind::Copy, target(profileUri("Home/Addr"))), 412);
    Item item;
    item.source = location(profileUri("Home/Addr"));
    EXPECT_EQ(statusOf(CommandKind::Copy, item), 412);
}

TEST_F(ChangeTest, ExecGivesItsDataToANodeThatCanBeExecuted)
{
    memory->executables = {{"Home", ""}};
    EXPECT_EQ(statusOf(CommandKind::Exec, target(profileUri("Home"), "now")), 200);
    EXPECT_EQ(statusOf(CommandKind::Exec, target(profileUri("Home"))), 200);
    EXPECT_EQ(memory->calls, (std::vector<std::string>{"execute Home now", "execute Home "}));
    EXPECT_EQ(statusOf(CommandKind::Exec, target(profileUri("Office"))), 405);
    EXPECT_EQ(statusOf(CommandKind::Exec, target(profileUri("Nobody"))), 404);
}

TEST_F(ChangeTest, AnExecThatEndsLaterIsTakenWhenItIsAllowedAndNotRun)
{
    memory->executables = {{"Home", ""}};
    std::vector<std::string> taken;
    CommandProcessor processor(managementTree, principal);
    processor.setLateExec([&](const Command &exec, const NodeUri &node,
                              const QByteArray &argument) -> std::optional<Outcome> {
        if (!exec.correlator)
            return std::nullopt;
        taken.push_back(node.toUri().toStdString() + ' ' + argument.toStdString());
        return Outcome{DmStatus::Accepted, {}};
    });
    const auto statuses = [&](const Command &command) {
        std::vector<Command> answers;
        processor.run(command, answers);
        return summary(answers);
    };
    Command exec = command(CommandKind::Exec,
                           {target(profileUri("Home"), "now"), target("./DevInfo/Man", "now"),
                            target(profileUri("Nobody"), "now")});
    exec.correlator = QStringLiteral("c");
    EXPECT_EQ(statuses(exec),
              (Lines{"Status 7 Exec 202 <" + full("Home"), "Status 7 Exec 405 <./DevInfo/Man",
                     "Status 7 Exec 404 <" + full("Nobody")}));
    EXPECT_EQ(taken, (Lines{full("Home") + " now"}));
    statuses(group(CommandKind::Atomic, {exec}));
    EXPECT_EQ(taken.size(), 1U) << "an Atomic may be taken back";
    EXPECT_EQ(memory->calls, Lines());
    exec.correlator.reset();
    statuses(exec);
    EXPECT_EQ(memory->calls, Lines{"execute Home now"});
}

TEST_F(ChangeTest, OneFailedItemDoesNotStopTheNext)
{
    EXPECT_EQ(run(command(CommandKind::Replace,
                          {target("./x", "1"), target(profileUri("Home/Addr"), "new")})),
              (Lines{"Status 7 Replace 404 <./x", "Status 7 Replace 200 <" + full("Home/Addr")}));
    EXPECT_EQ(read(profile("Home/Addr")), "new");
}

TEST_F(ChangeTest, AChunkOfALargeObjectIsRefusedAndNothingOfItIsStored)
{
    Item chunk = formatted(target(profileUri("Home/Addr"), "half"), "chr");
    chunk.moreData = true;
    EXPECT_EQ(statusOf(CommandKind::Replace, chunk), 406);
    EXPECT_EQ(read(profile("Home/Addr")), "home.example");
    chunk.target = location(profileUri("Home/New"));
    EXPECT_EQ(statusOf(CommandKind::Add, chunk), 406);
    EXPECT_EQ(code(tree.find(profile("Home/New")).outcome()), 404);
}

// ---- Groups and everything else ------------------------------------------------------------------

class OtherCommandsTest : public CommandProcessorTest {};

TEST_F(OtherCommandsTest, ASequenceIsAnsweredFirstAndThenItsCommandsInOrder)
{
    const Command sequence =
        group(CommandKind::Sequence,
              {command(CommandKind::Replace, {target(profileUri("Home/Addr"), "new")}, "a"),
               command(CommandKind::Delete, {target("./x")}, "b"),
               command(CommandKind::Get, {target(profileUri("Home/Addr"))}, "c")});
    EXPECT_EQ(run(sequence),
              (Lines{"Status g Sequence 200", "Status a Replace 200 <" + full("Home/Addr"),
                     "Status b Delete 404 <./x", "Status c Get 200 <" + full("Home/Addr"),
                     "Results c [" + full("Home/Addr") + "=new]"}));
}

class UserInASequenceTest : public CommandProcessorTest {
protected:
    static Command alert(const char *code, const char *cmdId)
    {
        Command alert = command(CommandKind::Alert, {}, cmdId);
        alert.data = code;
        return alert;
    }
    static Command remove(const char *cmdId)
    {
        return command(CommandKind::Delete, {target("./x")}, cmdId);
    }
    static Command sequence(std::vector<Command> commands, const char *cmdId = "g")
    {
        return group(CommandKind::Sequence, std::move(commands), cmdId);
    }
    /// "g200 q408 d215": the id and the status of everything in one message.
    std::string run(const std::vector<Command> &message, DmStatus answer)
    {
        CommandProcessor processor(managementTree);
        processor.setAlertHandler([&](const Command &, std::vector<Item> &) { return answer; });
        processor.beginMessage(0);
        std::string statuses;
        for (const Command &command : message) {
            std::vector<Command> answers;
            processor.run(command, answers);
            for (const Command &answered : answers)
                statuses += (statuses.empty() ? "" : " ") + answered.cmdRef->toStdString() +
                            answered.data->toStdString();
        }
        return statuses;
    }
};

TEST_F(UserInASequenceTest, WhatTheUserHasNotConfirmedIsNotRun)
{
    for (const DmStatus answer :
         {DmStatus::NotModified, DmStatus::TimedOut, DmStatus::FeatureNotSupported,
          DmStatus::RequestTooLarge, DmStatus::IncompleteCommand}) {
        const std::string code = std::to_string(static_cast<int>(answer));
        for (const char *const kind : {"1100", "1101", "1102", "1103", "1104"})
            EXPECT_EQ(run({sequence({remove("a"), alert(kind, "q"), remove("b"),
                                     sequence({remove("c")}, "h")}),
                           remove("d")},
                          answer),
                      "g200 a404 q" + code + " b215 h215 c215 d404");
    }
}

TEST_F(UserInASequenceTest, WhatTheUserHasConfirmedIsRun)
{
    EXPECT_EQ(run({sequence({alert("1101", "q"), remove("a")})}, DmStatus::Ok), "g200 q200 a404");
}

TEST_F(UserInASequenceTest, OnlyItsOwnSequenceStops)
{
    EXPECT_EQ(run({sequence({sequence({alert("1101", "q"), remove("a")}, "h"), remove("b")})},
                  DmStatus::TimedOut),
              "g200 h200 q408 a215 b404");
}

TEST_F(UserInASequenceTest, AnAlertThatIsNoneForTheUserDoesNotStopIt)
{
    EXPECT_EQ(run({sequence({alert("1226", "q"), remove("a")})}, DmStatus::FeatureNotSupported),
              "g200 q406 a404");
}

TEST_F(UserInASequenceTest, AnAlertWithoutCmdIdWasNotShownAndStopsIt)
{
    const auto withoutId = [](const char *code) {
        Command nameless = alert(code, "");
        nameless.cmdId.reset();
        return nameless;
    };
    for (const char *const kind : {"1100", "1101", "1102", "1103", "1104"})
        EXPECT_EQ(run({sequence({withoutId(kind), remove("a"), sequence({remove("b")}, "h")}),
                       remove("c")},
                      DmStatus::Ok),
                  "g200 400 a215 h215 b215 c404")
            << kind;
    EXPECT_EQ(run({sequence({withoutId("1226"), remove("a")})}, DmStatus::Ok), "g200 400 a404");
}

TEST_F(UserInASequenceTest, CancellingStopsTheWholeMessage)
{
    EXPECT_EQ(
        run({remove("0"), sequence({sequence({alert("1101", "q"), remove("a")}, "h"), remove("b")}),
             remove("c"), alert("1100", "r"), group(CommandKind::Atomic, {remove("d")}, "t")},
            DmStatus::Cancelled),
        "0404 g200 h200 q214 a215 b215 c215 r215 t215 d215");
    EXPECT_EQ(run({alert("1100", "q"), remove("a")}, DmStatus::Cancelled), "q214 a215");
    EXPECT_EQ(run({sequence({group(CommandKind::Atomic, {alert("1101", "q")}, "t"), remove("a")}),
                   remove("b")},
                  DmStatus::Cancelled),
              "g200 t507 q214 a215 b215");
}

// ---- The end of a session ------------------------------------------------------------------------

class EndTest : public UserInASequenceTest {
protected:
    /// The statuses of a message when the end comes before the item or command of that number.
    std::string runUntil(int end, const std::vector<Command> &message)
    {
        std::string statuses;
        int asked = 0;
        CommandProcessor processor(managementTree);
        processor.setEndCheck([&] { return ++asked >= end; });
        for (const Command &command : message) {
            std::vector<Command> answers;
            processor.run(command, answers);
            for (const Command &answered : answers)
                if (answered.kind == CommandKind::Status)
                    statuses += (statuses.empty() ? "" : " ") + answered.cmdRef->toStdString() +
                                answered.data->toStdString();
        }
        return statuses;
    }
};

TEST_F(EndTest, NeitherItemsNorCommandsAreRunAfterIt)
{
    const Item office = target(profileUri("Office/Addr"));
    const Command get = command(CommandKind::Get, {office, office, office}, "a");
    EXPECT_EQ(runUntil(4, {get, remove("b")}), "a200 a200 a215 b215");
    EXPECT_EQ(runUntil(1, {get, remove("b")}), "a215 b215");
    EXPECT_EQ(runUntil(4, {sequence({remove("a"), remove("b")}), remove("c")}),
              "g200 a404 b215 c215");
}

TEST_F(EndTest, AnAtomicThatItInterruptsIsTakenBack)
{
    const auto replace = [](const char *cmdId, const char *value) {
        return command(CommandKind::Replace, {target(profileUri("Office/Addr"), value)}, cmdId);
    };
    const std::string before = read(profile("Office/Addr"));
    EXPECT_EQ(
        runUntil(4, {group(CommandKind::Atomic, {replace("a", "x"), replace("b", "y")}, "t")}),
        "t507 a216 b215");
    EXPECT_EQ(
        runUntil(3, {group(CommandKind::Atomic, {replace("a", "x"), replace("b", "y")}, "t")}),
        "t507 a215 b215");
    EXPECT_EQ(read(profile("Office/Addr")), before);
}

// ---- The room for answers ------------------------------------------------------------------------

class AnswerRoomTest : public CommandProcessorTest {
protected:
    AnswerRoomTest() { processor.beginMessage(0); }

    /// The code of a Get that leaves so many bytes to all that follow.
    std::string get(const QByteArray &uri)
    {
        std::vector<Command> answers;
        processor.run(command(CommandKind::Get, {target(uri)}), answers);
        for (const Command &answer : answers)
            bytes += answerBytes(answer);
        return answers.at(0).data->toStdString();
    }

    CommandProcessor processor{managementTree};
    qsizetype bytes = 0; ///< of all answers so far
};

TEST_F(AnswerRoomTest, WhatGoesBeyondItIsTooLargeHoweverItIsAskedFor)
{
    memory->addLeaf("Home/Long", DmtData(QByteArray(1000 * 1000, 'x').constData()));
    const QByteArray requests[] = {profileUri("Home/Long"), profileUri("Home?list=StructData"),
                                   profileUri("Home?list=TNDS")};
    for (const QByteArray &uri : requests) {
        processor.beginMessage(0);
        bytes = 0;
        std::string codes;
        for (int i = 0; i < 6; ++i)
            codes += get(uri) + ' ';
        EXPECT_EQ(codes, "200 200 200 200 413 413 ") << uri.constData();
        EXPECT_LE(bytes, mostAnswerBytes + 6 * 200);
        EXPECT_EQ(get(profileUri("Office/Addr")), "200");
    }
}

TEST_F(AnswerRoomTest, WhatWaitsAlreadyTakesItsRoom)
{
    processor.beginMessage(mostAnswerBytes - 1000);
    EXPECT_EQ(get(profileUri("Office/Addr")), "200");
    EXPECT_EQ(get(profileUri("Office?list=StructData")), "413");
    processor.beginMessage(0);
    EXPECT_EQ(get(profileUri("Office?list=StructData")), "200");
}

TEST_F(AnswerRoomTest, AListingThatIsTooLargeIsNotReadToItsEnd)
{
    for (int i = 0; i < 100; ++i)
        memory->addInterior(("N" + std::to_string(i)).c_str());
    for (int i = 0; i < 100; ++i)
        memory->addLeaf(("N" + std::to_string(i) + "/Leaf").c_str(), DmtData("x"));
    for (const char *const list : {"?list=StructData", "?list=TNDS"}) {
        memory->calls.clear();
        processor.beginMessage(mostAnswerBytes - 3000);
        EXPECT_EQ(get(QByteArray(mountRoot) + list), "413");
        EXPECT_LT(std::ranges::count_if(
                      memory->calls, [](const auto &call) { return call.starts_with("read all"); }),
                  30);
    }
}

TEST_F(AnswerRoomTest, RefusedListingsAreNotReadAgainAndAgain)
{
    for (int i = 0; i < 5; ++i)
        memory->addLeaf(("Home/Long" + std::to_string(i)).c_str(),
                        DmtData(QByteArray(1000 * 1000, 'x').constData()));
    for (const char *const list : {"?list=StructData", "?list=TNDS"}) {
        memory->calls.clear();
        processor.beginMessage(0);
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(get(profileUri("Home") + list), "413");
        EXPECT_LE(std::ranges::count(memory->calls, "read all Home"), 3) << list;
        EXPECT_EQ(get(profileUri("Office/Addr")), "200") << "which is not a listing";
        EXPECT_EQ(get(profileUri("Office?list=Struct")), "413");
        processor.beginMessage(0);
        EXPECT_EQ(get(profileUri("Office?list=Struct")), "200") << "in the next message";
    }
}

TEST_F(AnswerRoomTest, ADocumentThatIsLargerThanItsNodesIsTooLarge)
{
    memory->addLeaf("Home/Long", DmtData(QByteArray(1000 * 1000, '<').constData()));
    EXPECT_EQ(get(profileUri("Home/Long")), "200");
    EXPECT_EQ(get(profileUri("Home/Long?list=TNDS")), "413");
}

// ---- Everything else -----------------------------------------------------------------------------

TEST_F(CommandProcessorTest, TheInboxIsNotRead)
{
    for (const char *const address :
         {"./Inbox", "./Inbox?prop=Name", "./Inbox/x", "./Inbox?list=Struct"})
        EXPECT_EQ(statusOf(CommandKind::Get, target(address)), 405) << address;
    EXPECT_EQ(statusOf(CommandKind::Delete, target("./Inbox")), 404);
}

TEST_F(OtherCommandsTest, AlertsAndCommandsThatDmDoesNotHaveAreMissingFeatures)
{
    EXPECT_EQ(run(command(CommandKind::Alert, {})), (Lines{"Status 7 Alert 406"}));
    Command put = command(CommandKind::Unsupported, {});
    put.name = QStringLiteral("Put");
    EXPECT_EQ(run(put), (Lines{"Status 7 Put 406"}));
}

TEST_F(OtherCommandsTest, AnElementThatIsNoCommandIsABadRequest)
{
    Command unknown = command(CommandKind::Unknown, {});
    unknown.name = QStringLiteral("add");
    EXPECT_EQ(run(unknown), (Lines{"Status 7 add 400"}));
}

TEST_F(OtherCommandsTest, ACommandWithoutAnIdIsABadRequestAndNotRun)
{
    Command nameless = command(CommandKind::Delete, {target(profileUri("Home"))});
    nameless.cmdId.reset();
    EXPECT_EQ(run(nameless), (Lines{"Status  Delete 400 <" + full("Home")}));
    EXPECT_EQ(childrenOf(uri(mountRoot)), "Office Home");
}

TEST_F(OtherCommandsTest, ASequenceWithoutAnIdIsRefusedWithWhatIsInItAndNotTold)
{
    Command nameless = group(CommandKind::Sequence, {command(CommandKind::Delete, {})});
    nameless.cmdId.reset();
    CommandProcessor processor(managementTree, principal);
    int told = 0;
    processor.setOutcomeListener(
        [&told](const Command &, const Item &, const Outcome &) { ++told; });
    std::vector<Command> answers;
    processor.run(nameless, answers);
    EXPECT_EQ(summary(answers), (Lines{"Status  Sequence 400", "Status 7 Delete 400"}));
    EXPECT_EQ(told, 0);
}

TEST_F(OtherCommandsTest, ACommandWithoutItemsOrAddressesIsIncomplete)
{
    for (const CommandKind kind : {CommandKind::Add, CommandKind::Copy, CommandKind::Delete,
                                   CommandKind::Exec, CommandKind::Get, CommandKind::Replace}) {
        const std::vector<Command> answers = answersTo(command(kind, {}));
        EXPECT_EQ(answers.size(), 1u);
        EXPECT_EQ(answers.at(0).data, "412");
        EXPECT_EQ(statusOf(kind, Item()), 412);
    }
}

TEST_F(OtherCommandsTest, StatusesAndResultsAreNotAnswered)
{
    EXPECT_EQ(run(command(CommandKind::Status, {})), Lines());
    EXPECT_EQ(run(command(CommandKind::Results, {target("./x")})), Lines());
}

TEST_F(OtherCommandsTest, CommandIdsAreOpaqueTexts)
{
    EXPECT_EQ(run(command(CommandKind::Delete, {target("./x")}, "5f3a-{uuid}")),
              (Lines{"Status 5f3a-{uuid} Delete 404 <./x"}));
}

// ---- Who hears of commands -----------------------------------------------------------------------

class WatchedCommandsTest : public CommandProcessorTest {
protected:
    /// Writes down what runs, and has a reason for everything.
    class Watch : public CommandWatch {
    public:
        void begin(const QString &name, const QString &address) override
        {
            lines.push_back((name + u' ' + address).toStdString());
        }
        void end(Outcome &outcome) override
        {
            lines.push_back("ended " + std::to_string(static_cast<int>(outcome.status)));
            outcome.reason = QStringLiteral("it was said so");
        }
        void secretIsWritten(const QByteArray &secret) override
        {
            lines.push_back("secret " + secret.toStdString());
        }

        Lines lines;
    };

    WatchedCommandsTest() { managementTree.setCommandWatch(&watch); }

    /// Runs a command. @return the outcomes that people are told
    Lines outcomesOf(const Command &command)
    {
        Lines told;
        CommandProcessor processor(managementTree, principal);
        processor.setOutcomeListener(
            [&told](const Command &, const Item &item, const Outcome &outcome) {
                told.push_back((addressOf(item) + u' ' + describe(outcome)).toStdString());
            });
        std::vector<Command> answers;
        processor.run(command, answers);
        return told;
    }

    Watch watch;
};

TEST_F(WatchedCommandsTest, EachItemBeginsAndEndsAndHasTheReasonThatBecameKnown)
{
    const Command replace = command(CommandKind::Replace, {target(profileUri("Office/Addr"), "x"),
                                                           target(profileUri("Nobody"), "x")});
    EXPECT_EQ(outcomesOf(replace), (Lines{full("Office/Addr") + " 200 OK: it was said so",
                                          full("Nobody") + " 404 Not Found: it was said so"}));
    EXPECT_EQ(watch.lines, (Lines{"Replace " + full("Office/Addr"), "ended 200",
                                  "Replace " + full("Nobody"), "ended 404"}));
}

TEST_F(WatchedCommandsTest, SecretIsToldOfBeforeItsNodeHasIt)
{
    const QByteArray secret = profileUri("Office/Auth/AuthPw");
    Item shown = target(profileUri("Office/Addr"));
    shown.source = location(secret);
    Item shownAnew = target(profileUri("Office/Shown"));
    shownAnew.source = location(secret);
    run(command(CommandKind::Replace, {target(profileUri("Office/Addr"), "everybody's")}));
    run(command(CommandKind::Replace, {target(secret, "mine")}));
    run(command(CommandKind::Copy, {shown, shownAnew}));
    run(command(CommandKind::Delete, {target(secret)}));
    run(command(CommandKind::Add, {formatted(target(secret, "mine too"), "chr")}));
    Lines secrets;
    std::ranges::copy_if(watch.lines, std::back_inserter(secrets),
                         [](const std::string &line) { return line.starts_with("secret"); });
    EXPECT_EQ(secrets, (Lines{"secret mine", "secret mine", "secret mine", "secret mine too"}));
}

TEST_F(WatchedCommandsTest, WhatIsSaidOnTheWayBackIsAReasonOfTheAtomic)
{
    const Command atomic =
        group(CommandKind::Atomic,
              {command(CommandKind::Replace, {target(profileUri("Office/Addr"), "x")}, "1"),
               command(CommandKind::Delete, {target(profileUri("Nobody"))}, "2")});
    EXPECT_EQ(outcomesOf(atomic).back(),
              " 507 Atomic Failed: one of its commands failed; taking back: it was said so");
    EXPECT_EQ(Lines(watch.lines.end() - 2, watch.lines.end()), (Lines{"Atomic ", "ended 200"}));
}

} // namespace

} // namespace client
