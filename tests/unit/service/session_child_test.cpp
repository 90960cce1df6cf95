// Whatever a session's process does, the one that watches it goes on, and says what was.

#include "event_loop.h"
#include "session_child.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>
#include <optional>
#include <ostream>
#include <vector>

namespace client {

namespace {

using namespace std::chrono_literals;

/// Runs a line of the shell as the session.
class ChildRun {
public:
    explicit ChildRun(SessionChild::Limits limits = {})
        : m_child(
              limits,
              [this](const SessionChild::End &end) {
                  m_end = end;
                  ++m_ends;
              },
              [this](const QJsonObject &question) {
                  m_child.answer({{QStringLiteral("id"), question[u"id"]},
                                  {QStringLiteral("response"), QStringLiteral("given")}});
              })
    {
    }

    void start(const char *script)
    {
        m_child.start(QStringLiteral("/bin/sh"),
                      {QStringLiteral("-c"), QString::fromLatin1(script)});
    }
    const SessionChild::End &end()
    {
        EXPECT_TRUE(waitUntil([this] { return m_end.has_value(); })) << "it does not end";
        EXPECT_EQ(m_ends, 1);
        EXPECT_FALSE(m_child.isRunning());
        if (!m_end)
            m_end.emplace();
        return *m_end;
    }
    const SessionChild::End &run(const char *script)
    {
        start(script);
        return end();
    }

    SessionChild &child() { return m_child; }

private:
    std::optional<SessionChild::End> m_end;
    int m_ends = 0;
    SessionChild m_child;
};

struct Row {
    const char *name;
    const char *script;
    const char *session; ///< of the summary; null for none
    const char *fault;
    int exitStatus;
    const char *lastProblem;
};

void PrintTo(const Row &row, std::ostream *out)
{
    *out << row.name;
}

class SessionChildEnds : public testing::TestWithParam<Row> {};

TEST_P(SessionChildEnds, AreTold)
{
    ChildRun run;
    const SessionChild::End &end = run.run(GetParam().script);
    EXPECT_EQ(end.summary.has_value(), GetParam().session != nullptr);
    if (end.summary && GetParam().session) {
        EXPECT_EQ((*end.summary)[u"session"].toString().toStdString(), GetParam().session);
    }
    EXPECT_EQ(end.fault.toStdString(), GetParam().fault);
    EXPECT_EQ(end.lastProblem.toStdString(), GetParam().lastProblem);
    if (end.fault.isEmpty()) {
        EXPECT_EQ(end.exitStatus, GetParam().exitStatus);
    }
}

const Row rows[] = {
    {"a session as it should be", R"(echo '{"command": "Get"}'; echo '{"session": "completed"}')",
     "completed", "", 0, ""},
    {"the last of two summaries",
     R"(echo '{"session": "failed"}'; echo '{"session": "completed"}')", "completed", "", 0, ""},
    {"nothing at all", "exit 3", nullptr, "", 3, ""},
    {"a reason on standard error", "echo first >&2; echo last >&2; exit 3", nullptr, "", 3, "last"},
    {"a reason without an end of line", "printf why >&2; exit 1", nullptr, "", 1, "why"},
    {"a crash", "kill -SEGV $$", nullptr, "the session's process was ended by signal SIGSEGV", 0,
     ""},
    {"a crash after its end was told", R"(echo '{"session": "completed"}'; kill -ABRT $$)",
     "completed", "the session's process was ended by signal SIGABRT", 0, ""},
    {"bytes that are no text", R"(printf '\377\000{"session": "completed"}\n\000\n')", nullptr, "",
     0, ""},
    {"a summary that is cut off", R"(printf '{"session": "compl')", nullptr, "", 0, ""},
    {"a summary without an end of line is none: it may be cut off as well",
     R"(printf '{"session": "completed"}')", nullptr, "", 0, ""},
    {"JSON that is no object", R"(echo '["session"]'; echo '"session"')", nullptr, "", 0, ""},
    {"a line longer than any summary, and a summary after it",
     R"(head -c 1000000 /dev/zero | tr '\0' x; echo; echo '{"session": "failed"}')", "failed", "",
     0, ""},
};
INSTANTIATE_TEST_SUITE_P(, SessionChildEnds, testing::ValuesIn(rows));

TEST(SessionChildTest, AProgramThatIsMissingIsNamedAfterTheStart)
{
    int ends = 0;
    QString fault;
    SessionChild child({},
                       [&](const SessionChild::End &end) {
                           ++ends;
                           fault = end.fault;
                       },
                       {});
    child.start(QStringLiteral("/nonexistent/dmclient"), {});
    EXPECT_EQ(ends, 0);
    ASSERT_TRUE(waitUntil([&ends] { return ends > 0; }));
    EXPECT_TRUE(fault.startsWith(QStringLiteral("cannot run /nonexistent/dmclient: ")))
        << fault.toStdString();
    EXPECT_EQ(ends, 1);
}

TEST(SessionChildTest, OneThatHangsIsAskedToEndAndThenKilled)
{
    ChildRun polite({.time = 50ms, .timeToEnd = 1min});
    const auto &end = polite.run("trap 'exit 7' TERM; while :; do sleep 0.01; done");
    EXPECT_TRUE(end.hasTimedOut);
    EXPECT_EQ(end.exitStatus, 7);
    EXPECT_EQ(end.fault, QStringLiteral("the process did not end by itself"));

    ChildRun deaf({.time = 50ms, .timeToEnd = 50ms});
    EXPECT_TRUE(deaf.run("trap '' TERM; while :; do sleep 0.01; done").hasTimedOut);
}

TEST(SessionChildTest, OneThatFloodsIsEnded)
{
    ChildRun output({.timeToEnd = 50ms, .output = 100'000});
    EXPECT_EQ(output.run("trap '' TERM PIPE; while :; do echo yes; done").fault,
              QStringLiteral("the process printed more than 100000 bytes"));
    ChildRun problems({.timeToEnd = 50ms, .output = 100'000});
    EXPECT_EQ(problems.run("while :; do echo yes >&2; done").fault,
              QStringLiteral("the process printed more than 100000 bytes"));
}

TEST(SessionChildTest, ACancelledOneMayStillTellItsEnd)
{
    ChildRun run;
    run.start(R"(trap 'echo "{\"session\": \"aborted\"}"; exit 4' TERM; echo >&2
                 while :; do sleep 0.01; done)");
    // It has its trap when it has said something.
    QElapsedTimer waited;
    waited.start();
    ASSERT_TRUE(waitUntil([&waited] { return waited.hasExpired(300); }));
    run.child().cancel();
    const auto &end = run.end();
    EXPECT_TRUE(end.wasCancelled);
    EXPECT_TRUE(end.summary);
    EXPECT_EQ(end.fault, QString());
}

TEST(SessionChildTest, QuestionsGetAnAnswerALine)
{
    ChildRun run;
    const SessionChild::End &end = run.run(R"(echo '{"question": 1, "id": 7}'; read first
                   echo '{"command": "Get", "value": "\"question\""}'; echo '"question"'
                   echo '{"question": 1, "id": 8}'; read second
                   echo "$first$second" >&2)");
    EXPECT_EQ(end.lastProblem, R"({"id":7,"response":"given"}{"id":8,"response":"given"})");
}

TEST(SessionChildTest, TheNextOneHasNothingOfTheOneBefore)
{
    std::vector<SessionChild::End> ends;
    SessionChild child({}, [&ends](const SessionChild::End &end) { ends.push_back(end); }, {});
    const QString shell = QStringLiteral("/bin/sh");
    child.start(shell, {QStringLiteral("-c"),
                        QStringLiteral("echo '{\"session\": \"completed\"}'; echo bad >&2; "
                                       "printf rest; kill -TERM $$")});
    ASSERT_TRUE(waitUntil([&ends] { return ends.size() == 1; }));
    child.start(shell, {QStringLiteral("-c"), QStringLiteral("exit 5")});
    ASSERT_TRUE(waitUntil([&ends] { return ends.size() == 2; }));
    EXPECT_FALSE(ends[1].summary);
    EXPECT_EQ(ends[1].fault, QString());
    EXPECT_EQ(ends[1].lastProblem, "");
    EXPECT_EQ(ends[1].exitStatus, 5);
}

TEST(SessionChildTest, ItGetsSignalsAlsoWhenTheServiceHasThemBlocked)
{
    ChildRun run;
    EXPECT_EQ(
        run.run("grep -q '^SigBlk:.*[1-9a-f]' /proc/self/status && exit 1; exit 0").exitStatus, 0);
}

} // namespace

} // namespace client
