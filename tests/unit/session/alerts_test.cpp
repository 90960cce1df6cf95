// Alerts of the server: those for the user, and all others.

#include "session_fixture.h"

namespace client {

namespace {

using Response = UserInteraction::Response;

/// A user who answers as the test says, and remembers what he was asked.
class User final : public UserInteraction {
public:
    Response response = Response::Given;
    QString text;
    std::vector<int> numbers;
    std::vector<std::string> asked;
    InteractionOptions options;

    Response show(const QString &shown, const InteractionOptions &given) override
    {
        return note("show " + shown.toStdString(), given);
    }
    Response confirm(const QString &question, const InteractionOptions &given) override
    {
        return note("confirm " + question.toStdString(), given);
    }
    Response ask(const QString &question, const InteractionOptions &given, QString &typed) override
    {
        typed = text;
        return note("ask " + question.toStdString(), given);
    }
    Response choose(const QString &question, const std::vector<QString> &choices, Choice kind,
                    const InteractionOptions &given, std::vector<int> &chosen) override
    {
        chosen = numbers;
        std::string line = kind == Choice::Single ? "choose one " : "choose ";
        line += question.toStdString() + ':';
        for (const QString &choice : choices)
            line += ' ' + choice.toStdString();
        return note(line, given);
    }

private:
    Response note(const std::string &line, const InteractionOptions &given)
    {
        asked.push_back(line);
        options = given;
        return response;
    }
};

class Alerts : public SessionTest {
protected:
    /// The status of one alert, with the items of the Status.
    std::string answerTo(const QByteArray &alert, UserInteraction *user)
    {
        server = ScriptedServer(GetParam());
        server.says(accepted() + alert);
        run(user);
        const Lines said = sent(2);
        return said.size() < 2 ? "nothing" : said[1].substr(said[1].rfind("Alert ") + 6);
    }

    User user;
};

TEST_P(Alerts, DisplayIsShown)
{
    EXPECT_EQ(answerTo(alert("2", "1100", {"MINDT=10", "Settings are updated"}), &user), "200");
    EXPECT_EQ(user.asked, Lines{"show Settings are updated"});
    EXPECT_EQ(user.options.minimumTime, std::chrono::seconds(10));
    user.response = Response::CannotShow;
    EXPECT_EQ(answerTo(alert("2", "1100", {"", "text"}), &user), "416");
}

TEST_P(Alerts, ConfirmationIsYesNoOrCancelled)
{
    const QByteArray question = alert("2", "1101", {"MAXDT=20", "Update?"});
    EXPECT_EQ(answerTo(question, &user), "200");
    user.response = Response::Refused;
    EXPECT_EQ(answerTo(question, &user), "304");
    user.response = Response::Cancelled;
    EXPECT_EQ(answerTo(question, &user), "214");
    user.response = Response::TimedOut;
    EXPECT_EQ(answerTo(question, &user), "408");
    EXPECT_EQ(user.asked, Lines(4, "confirm Update?"));
}

TEST_P(Alerts, NoQuestionOutlastsTheSession)
{
    std::chrono::steady_clock::time_point now;
    options.clock = [&now] { return now; };
    options.timeLimit = std::chrono::seconds(25);
    for (const auto &[given, seconds] : {std::pair("", 15), {"MAXDT=600", 15}, {"MAXDT=5", 5}}) {
        server = ScriptedServer(GetParam());
        server.replies([&, given = given](const TransportRequest &request) {
            now += std::chrono::seconds(10);
            return TransportResponse{
                server.encoded({accepted() + alert("2", "1101", {given, "Update?"}), true, {}}, 1),
                {},
                {},
                request.url};
        });
        run(&user);
        EXPECT_EQ(user.options.maximumTime, std::chrono::seconds(seconds)) << given;
    }
}

TEST_P(Alerts, TypedTextGoesIntoTheStatus)
{
    user.text = QStringLiteral("Größe 5");
    EXPECT_EQ(answerTo(alert("2", "1102", {"DR=abc&amp;MAXLEN=8", "Your name?"}), &user),
              "200 [Größe 5]");
    EXPECT_EQ(user.options.defaultResponse, QStringLiteral("abc"));
    EXPECT_EQ(user.options.maximumLength, 8);
    user.response = Response::Cancelled;
    EXPECT_EQ(answerTo(alert("2", "1102", {"", "Your name?"}), &user), "214") << "without an item";
}

TEST_P(Alerts, ChoicesAreAnsweredByTheirNumbers)
{
    user.numbers = {2};
    EXPECT_EQ(answerTo(alert("2", "1103", {"", "Which?", "red", "blue"}), &user), "200 [2]");
    user.numbers = {1, 3};
    EXPECT_EQ(answerTo(alert("2", "1104", {"", "Which?", "a", "b", "c"}), &user), "200 [1] [3]");
    user.numbers = {};
    EXPECT_EQ(answerTo(alert("2", "1104", {"", "Which?", "a", "b", "c"}), &user), "200");
    EXPECT_EQ(user.asked, (Lines{"choose one Which?: red blue", "choose Which?: a b c",
                                 "choose Which?: a b c"}));
}

TEST_P(Alerts, TooFewItemsAreIncomplete)
{
    EXPECT_EQ(answerTo(alert("2", "1100", {"MINDT=1"}), &user), "412");
    EXPECT_EQ(answerTo(alert("2", "1101", {}), &user), "412");
    EXPECT_EQ(answerTo(alert("2", "1102", {"x"}), &user), "412");
    EXPECT_EQ(answerTo(alert("2", "1103", {"", "Which?"}), &user), "412");
    EXPECT_EQ(answerTo(alert("2", "1104", {"", "Which?"}), &user), "412");
    EXPECT_EQ(answerTo("<Alert><CmdID>2</CmdID></Alert>", &user), "412");
    EXPECT_EQ(user.asked, Lines());
}

TEST_P(Alerts, WithoutAUserAreNotSupported)
{
    for (const char *const code : {"1100", "1101", "1102", "1103", "1104"})
        EXPECT_EQ(answerTo(alert("2", code, {"", "text", "choice"}), nullptr), "406") << code;
    EXPECT_EQ(listener.commands.back(), "Alert 1104  406 there is no terminal to talk to the user");
}

TEST_P(Alerts, OthersAreAccepted)
{
    EXPECT_EQ(answerTo(alert("2", "1222"), nullptr), "200");
    EXPECT_EQ(answerTo(alert("2", "1225"), nullptr), "200");
}

TEST_P(Alerts, ThatOnlyClientsSendOrNobodyKnowsAreNotSupported)
{
    for (const char *const code : {"1200", "1201", "1224", "1226", "1234", "x"})
        EXPECT_EQ(answerTo(alert("2", code), &user), "406") << code;
}

TEST_P(Alerts, NoOnItsOwnChangesNothingElse)
{
    user.response = Response::Refused;
    server.says(accepted() + alert("2", "1101", {"", "Sure?"}) +
                replace("3", profileUri("Office/Addr"), "changed"));
    run(&user);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Alert 304", "Status 3 Replace 200",
                              "Final"}));
}

TEST_P(Alerts, NoInASequenceLeavesTheRestUndone)
{
    const auto sequence = [](const char *end) {
        return accepted() + "<Sequence><CmdID>2</CmdID>" +
               replace("3", profileUri("Home/Addr"), "before") + alert("4", "1101", {"", "Sure?"}) +
               replace("5", profileUri("Office/Addr"), end) + "</Sequence>" +
               get("6", {"./DevInfo/Man"});
    };
    user.response = Response::Refused;
    server.says(sequence("changed"));
    run(&user);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Status 2 Sequence 200",
                              "Status 3 Replace 200", "Status 4 Alert 304", "Status 5 Replace 215",
                              "Status 6 Get 200", "Results 6 ./DevInfo/Man = maker", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");

    user.response = Response::Cancelled;
    server = ScriptedServer(GetParam());
    server.says(sequence("changed"));
    run(&user);
    EXPECT_EQ(sent(2).at(3), "Status 4 Alert 214");
    EXPECT_EQ(sent(2).at(4), "Status 5 Replace 215");
    EXPECT_EQ(sent(2).at(5), "Status 6 Get 215");

    for (const Response response : {Response::TimedOut, Response::CannotShow}) {
        user.response = response;
        server = ScriptedServer(GetParam());
        server.says(sequence("changed"));
        run(&user);
        EXPECT_EQ(sent(2).at(4), "Status 5 Replace 215");
        EXPECT_EQ(sent(2).at(5), "Status 6 Get 200");
    }
    server = ScriptedServer(GetParam());
    server.says(sequence("changed"));
    run(nullptr);
    EXPECT_EQ(sent(2).at(3), "Status 4 Alert 406");
    EXPECT_EQ(sent(2).at(4), "Status 5 Replace 215");
    EXPECT_EQ(read(profile("Office/Addr")), "internet");

    user.response = Response::Given;
    server = ScriptedServer(GetParam());
    server.says(sequence("changed"));
    run(&user);
    EXPECT_EQ(sent(2).at(4), "Status 5 Replace 200");
    EXPECT_EQ(read(profile("Office/Addr")), "changed");
}

TEST_P(Alerts, CancellingIsForItsOwnMessageOnly)
{
    user.response = Response::Cancelled;
    server.says(accepted() + alert("2", "1101", {"", "Sure?"}) + get("3", {"./DevInfo/Man"}));
    server.says(accepted() + get("4", {"./DevInfo/Man"}));
    run(&user);
    EXPECT_EQ(sent(2).at(2), "Status 3 Get 215");
    EXPECT_EQ(sent(3).at(1), "Status 4 Get 200");
}

TEST_P(Alerts, CancellingStopsAnObjectInChunks)
{
    user.response = Response::Cancelled;
    server.says(accepted() + alert("2", "1101", {"", "Sure?"}) +
                replace("3", profileUri("Home/Addr"), "half", "<MoreData/>"));
    run(&user);
    EXPECT_EQ(sent(2).at(2), "Status 3 Replace 215");
    EXPECT_EQ(read(profile("Home/Addr")), "home.example");
}

IN_BOTH_ENCODINGS(Alerts);

// ---- Options -------------------------------------------------------------------------------------

TEST(InteractionOptions, AreReadFromTheOptionsString)
{
    using Input = InteractionOptions::Input;
    const InteractionOptions options =
        parseInteractionOptions("MINDT=10&MAXDT=20&DR=a%26b+c&MAXLEN=5&IT=N&ET=P");
    EXPECT_EQ(options.minimumTime, std::chrono::seconds(10));
    EXPECT_EQ(options.maximumTime, std::chrono::seconds(20));
    EXPECT_EQ(options.defaultResponse, QStringLiteral("a&b c"));
    EXPECT_EQ(options.maximumLength, 5);
    EXPECT_EQ(options.input, Input::Number);
    EXPECT_TRUE(options.isSecret);
    EXPECT_EQ(parseInteractionOptions("IT=A").input, Input::Text);
    EXPECT_EQ(parseInteractionOptions("IT=D").input, Input::Date);
    EXPECT_EQ(parseInteractionOptions("IT=T").input, Input::Time);
    EXPECT_EQ(parseInteractionOptions("IT=P").input, Input::Telephone);
    EXPECT_EQ(parseInteractionOptions("IT=I").input, Input::IpAddress);
    EXPECT_FALSE(parseInteractionOptions("ET=T").isSecret);
}

TEST(InteractionOptions, UnknownOnesAndNonsenseAreSkipped)
{
    EXPECT_EQ(parseInteractionOptions(""), InteractionOptions());
    EXPECT_EQ(parseInteractionOptions("&&=&X=1&MINDT&MINDT=-1&MAXDT=soon&MAXLEN=0&MAXLEN=x&IT=Z&"
                                      "IT=NN&ET="),
              InteractionOptions());
    EXPECT_EQ(parseInteractionOptions("X=1& MINDT=3").minimumTime, std::chrono::seconds(3));
}

} // namespace

} // namespace client
