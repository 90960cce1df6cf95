// What is kept of sessions.

#include "noted.h"
#include "service_state.h"
#include "session_result.h"

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <utility>

namespace client {

namespace {

QJsonObject object(const char *json)
{
    const auto document = QJsonDocument::fromJson(json);
    EXPECT_TRUE(document.isObject()) << json;
    return document.object();
}

SessionResult sample()
{
    SessionResult result;
    result.account = QStringLiteral("Operator");
    result.cause = SessionCause::Notification;
    result.began = std::chrono::milliseconds(1795401911800);
    result.ended = std::chrono::milliseconds(1795401914969);
    result.conclusion = SessionConclusion::AbortedByServer;
    result.reason = QStringLiteral("because");
    result.messages = 3;
    result.commands = 2;
    result.refused = 1;
    return result;
}

TEST(SessionResultTest, TheSummaryOfASessionIsRead)
{
    SessionResult result;
    ASSERT_TRUE(readSummary(object(R"({"session": "aborted-by-server", "reason": "full",
        "messages": 4, "commands": 3, "refused": 2, "differences": 1})"),
                            result));
    EXPECT_EQ(result.conclusion, SessionConclusion::AbortedByServer);
    EXPECT_EQ(result.reason, QStringLiteral("full"));
    EXPECT_EQ(result.messages, 4);
    EXPECT_EQ(result.commands, 3);
    EXPECT_EQ(result.refused, 2);
    EXPECT_EQ(result.differences, 1);
}

TEST(SessionResultTest, WhatIsNoSummaryChangesNothing)
{
    for (
        const char *const summary : {
            R"({})",
            R"({"session": 1})",
            R"({"session": "busy", "messages": 1, "commands": 1, "refused": 1, "differences": 1})",
            R"({"session": "completed", "messages": 1, "commands": 1, "refused": 1})",
            R"({"session": "completed", "messages": -1, "commands": 1, "refused": 1, "differences": 1})",
            R"({"session": "completed", "messages": 1e20, "commands": 1, "refused": 1, "differences": 1})",
        }) {
        SessionResult result = sample();
        EXPECT_FALSE(readSummary(object(summary), result)) << summary;
        EXPECT_EQ(result, sample()) << summary;
    }
}

TEST(SessionResultTest, OnlyFailuresAreTriedAgainSoon)
{
    using enum SessionConclusion;
    for (const SessionConclusion conclusion : {Completed, AbortedByServer, Aborted})
        EXPECT_EQ(outcomeOf(conclusion), SessionOutcome::Held);
    for (const SessionConclusion conclusion : {Failed, TimedOut, Crashed})
        EXPECT_EQ(outcomeOf(conclusion), SessionOutcome::Failed);
    EXPECT_EQ(outcomeOf(Busy), SessionOutcome::Busy);
}

class ServiceStateTest : public testing::Test {
protected:
    std::unique_ptr<ServiceState> open()
    {
        return madeOrNull(ServiceState::open(directory.path()), error);
    }
    void write(const char *name, const QByteArray &content)
    {
        QFile file(directory.filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        ASSERT_TRUE(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    }
    QTemporaryDir directory;
    QString error;
};

TEST_F(ServiceStateTest, ResultsAreReadBack)
{
    std::vector<SessionResult> results{sample(), sample()};
    results[1].account = QStringLiteral("Other");
    results[1].differences = 7;
    ASSERT_TRUE(noted(open()->writeResults(results), error)) << error.toStdString();
    const auto read = open()->readResults();
    ASSERT_TRUE(read) << read.error().toStdString();
    EXPECT_EQ(*read, results);
}

TEST_F(ServiceStateTest, DamagedResultsAreNamed)
{
    const auto state = open();
    ASSERT_TRUE(state) << error.toStdString();
    EXPECT_TRUE(state->readResults()) << "none is none";
    for (const auto &[content, reason] : {
             std::pair("[]", "/service/results.json: byte 0: not a JSON object"),
             std::pair("{}", "/service/results.json: results is not an array"),
             std::pair(R"({"results": [5]})",
                       "/service/results.json: entry 1 of results is not the result of a session"),
             std::pair(R"({"results": [{"account": "A", "cause": "user", "began": 1, "ended": 2,
                        "session": "better", "reason": "", "messages": 0, "commands": 0,
                        "refused": 0, "differences": 0}]})",
                       "/service/results.json: entry 1 of results is not the result of a session"),
         }) {
        write("service/results.json", content);
        const auto results = state->readResults();
        ASSERT_FALSE(results) << content;
        EXPECT_EQ(results.error().mid(directory.path().size()).toStdString(), reason);
    }
}

TEST_F(ServiceStateTest, ThereIsOneServiceOnAStateDirectory)
{
    auto first = open();
    ASSERT_TRUE(first) << error.toStdString();
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(
        error,
        QStringLiteral("another dmclientd serves the state directory %1").arg(directory.path()));
    first.reset();
    EXPECT_NE(open(), nullptr);
}

TEST_F(ServiceStateTest, ItsFilesAreItsOwnersOnly)
{
    const auto state = open();
    ASSERT_TRUE(noted(state->writeSchedule({}), error)) << error.toStdString();
    EXPECT_EQ(QFile::permissions(state->scheduleFile()) &
                  (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup |
                   QFileDevice::WriteOther),
              QFileDevice::Permissions());
}

} // namespace

} // namespace client
