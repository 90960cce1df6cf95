// Which session is next, and what becomes of it, with a script in the place of dmclient.

#include "event_loop.h"
#include "service.h"
#include "state_directory.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

namespace client {

namespace {

using namespace std::chrono_literals;

constexpr char completes[] =
    R"(echo '{"session": "completed", "reason": "", "messages": 2, "commands": 1, "refused": 0, "differences": 0}')";

class ServiceTest : public testing::Test {
protected:
    ServiceTest()
    {
        AccountStore store = accountStore();
        for (const char *const name : {"A", "B", "C"})
            add(store, QString::fromLatin1(name), 0s);
        script(completes);
    }

    QString path(const char *name) const { return directory.filePath(QString::fromLatin1(name)); }

    AccountStore accountStore() const
    {
        EXPECT_TRUE(QDir().mkpath(path("state/client")));
        for (const char *const folder : {"state", "state/client"})
            QFile::setPermissions(path(folder), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                    QFileDevice::ExeOwner);
        return AccountStore::load(path("state/client/accounts.json"));
    }

    static void add(AccountStore &store, const QString &name, std::chrono::seconds interval)
    {
        Account account;
        account.address = QUrl(QStringLiteral("https://dm.example/"));
        account.serverId = name.toUtf8();
        account.polling.interval = interval;
        account.polling.firstDelay = 0s;
        const auto kept = store.put(name, account);
        ASSERT_TRUE(kept) << kept.error().toStdString();
    }

    /// What a session does. The words of its command line are in the file "words" afterwards.
    void script(const QByteArray &lines)
    {
        QFile file(path("dmclient"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\necho \"$*\" >>'" + QFile::encodeName(path("words")) + "'\n" + lines +
                   "\n");
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                            QFileDevice::ExeOwner);
    }

    /// A line of a script that leaves an operation of the account A behind.
    QByteArray leaves(const char *id, const char *stage) const
    {
        return QByteArray(
                   "printf '{\"operations\": [{\"id\": %s, \"stage\": \"%s\", \"status\": 200, "
                   "\"account\": \"A\", \"server\": \"QQ==\", \"session\": \"1\", "
                   "\"target\": \"./V\", \"correlator\": \"c\", \"alert\": \"t\", "
                   "\"argument\": \"\"}]}' ") +
               id + ' ' + stage + " >'" +
               QFile::encodeName(path("state/client/late-operations.json")) + "'\n";
    }

    Service &start(SessionChild::Limits limits = {})
    {
        service.reset();
        auto opened = Service::open({path("state"),
                                     path("dmclient"),
                                     {QStringLiteral("--plugins"), QStringLiteral("P")},
                                     limits,
                                     10ms});
        EXPECT_TRUE(opened) << opened.error().toStdString();
        service = *std::move(opened);
        Service::Listener listener;
        listener.sessionEnded = [this](const SessionResult &result) { results.push_back(result); };
        service->setListener(listener);
        return *service;
    }

    void request(const char *account, SessionCause cause = SessionCause::User)
    {
        const auto requested = service->requestSession({QString::fromLatin1(account), cause});
        EXPECT_TRUE(requested) << requested.error().toStdString();
    }

    /// The sessions that have ended, once there are that many: "A completed".
    std::vector<std::string> sessions(std::size_t count)
    {
        EXPECT_TRUE(waitUntil([&] { return results.size() >= count; }));
        std::vector<std::string> texts;
        for (const SessionResult &result : results)
            texts.push_back((result.account + u' ' + wordOf(result.conclusion)).toStdString());
        return texts;
    }

    std::string refusal(const support::Expected<void, QString> &done)
    {
        return done ? std::string() : done.error().toStdString();
    }

    using Sessions = std::vector<std::string>;

    QTemporaryDir directory;
    std::unique_ptr<Service> service;
    std::vector<SessionResult> results;
};

TEST_F(ServiceTest, WhatIsAskedForIsHeldInItsOrderOneAtATime)
{
    start();
    request("B");
    request("A");
    request("C");
    request("A");
    EXPECT_EQ(service->running()->account, u"B");
    EXPECT_EQ(service->waiting().size(), 2U);
    EXPECT_EQ(sessions(3), (Sessions{"B completed", "A completed", "C completed"}));
    EXPECT_EQ(service->running(), std::nullopt);
    EXPECT_EQ(results[0].messages, 2);
    EXPECT_EQ(service->results(), results);
}

TEST_F(ServiceTest, ASessionIsOfTheDeviceThatTheServiceIsOf)
{
    start();
    request("A");
    sessions(1);
    QFile words(path("words"));
    ASSERT_TRUE(words.open(QIODevice::ReadOnly));
    EXPECT_EQ(words.readAll().toStdString(),
              "--state " + path("state").toStdString() +
                  " --plugins P session --json --questions --here -- A\n");
}

TEST_F(ServiceTest, QuestionsAreAskedForTheirAccountAndOfNobodyWithoutAListener)
{
    script(R"(echo '{"question": "confirmation", "id": 1, "text": "Go on?"}'; read answer
              echo "$answer" >"$0.answer")");
    const auto answer = [this] {
        QFile file(path("dmclient.answer"));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    start();
    request("A");
    sessions(1);
    EXPECT_EQ(answer(), "{\"id\":1,\"response\":\"nobody\"}\n");
    QString askedFor;
    Service::Listener listener;
    listener.sessionEnded = [this](const SessionResult &result) { results.push_back(result); };
    listener.asked = [&](const QString &account, const QJsonObject &question) {
        askedFor = account + u' ' + question[u"text"].toString();
        service->answerQuestion({{QStringLiteral("id"), 1}});
    };
    service->setListener(listener);
    request("B");
    sessions(2);
    EXPECT_EQ(askedFor, QStringLiteral("B Go on?"));
    EXPECT_EQ(answer(), "{\"id\":1}\n");
}

// ---- Bootstrap messages

/// What dmclient does with a message, and how every session ends.
QByteArray appliesWith(const char *lines)
{
    return QByteArray("case \"$*\" in *bootstrap*) ") + lines + ";; *) " + completes + ";; esac";
}

TEST_F(ServiceTest, ABootstrapMessageIsAppliedInAProcessAndSessionsOfItsAccountsFollow)
{
    script(appliesWith(R"(echo '{"bootstrap": "applied", "accounts": ["B", "A"]}')").constData());
    start();
    service->applyBootstrap(QStringLiteral("0123456789abcdef"));
    EXPECT_EQ(sessions(2), (Sessions{"B completed", "A completed"}));
    EXPECT_EQ(results[0].cause, SessionCause::Bootstrap);
    QFile words(path("words"));
    ASSERT_TRUE(words.open(QIODevice::ReadOnly));
    EXPECT_EQ(words.readLine().toStdString(),
              "--state " + path("state").toStdString() +
                  " --plugins P bootstrap --pending --json --questions -- 0123456789abcdef\n");
}

TEST_F(ServiceTest, ASessionThatSomebodyWantsGoesBeforeABootstrapMessage)
{
    script(appliesWith(R"(echo '{"bootstrap": "applied", "accounts": ["C"]}')").constData());
    start();
    request("A");
    service->applyBootstrap(QStringLiteral("one"));
    service->applyBootstrap(QStringLiteral("one"));
    request("B");
    EXPECT_EQ(sessions(3), (Sessions{"A completed", "B completed", "C completed"}));
    QFile words(path("words"));
    ASSERT_TRUE(words.open(QIODevice::ReadOnly));
    QByteArray last;
    for (const QByteArray &line : words.readAll().trimmed().split('\n'))
        last += line.sliced(line.lastIndexOf(' '));
    EXPECT_EQ(last.toStdString(), " A B one C");
}

TEST_F(ServiceTest, ABusyDeviceGetsItsBootstrapMessageLater)
{
    script(appliesWith("echo in use >&2; exit 3").constData());
    start();
    int ended = 0;
    Service::Listener listener;
    listener.bootstrapEnded = [&] { ++ended; };
    listener.sessionEnded = [this](const SessionResult &result) { results.push_back(result); };
    service->setListener(listener);
    auto held = StateDirectory::open(path("state"));
    ASSERT_TRUE(held) << held.error().toStdString();
    service->applyBootstrap(QStringLiteral("one"));
    EXPECT_TRUE(waitUntil([&] { return ended == 2; }));
    held->reset();
    script(appliesWith(R"(echo '{"bootstrap": "applied", "accounts": ["A"]}')").constData());
    EXPECT_EQ(sessions(1), (Sessions{"A completed"}));
}

TEST_F(ServiceTest, QuestionsOfABootstrapMessageAreOfNoAccount)
{
    script(appliesWith(R"(echo '{"question": "text", "id": 1, "text": "PIN?"}'; read answer;
                          echo "$answer" >"$0.answer")")
               .constData());
    start();
    QStringList asked;
    bool isOver = false;
    Service::Listener listener;
    listener.asked = [&](const QString &account, const QJsonObject &question) {
        asked += account + u'|' + question[u"text"].toString();
        service->answerQuestion({{QStringLiteral("id"), 1}});
    };
    listener.bootstrapEnded = [&] { isOver = true; };
    service->setListener(listener);
    service->applyBootstrap(QStringLiteral("one"));
    EXPECT_TRUE(waitUntil([&] { return isOver; }));
    EXPECT_EQ(asked, QStringList{QStringLiteral("|PIN?")});
    EXPECT_TRUE(QFile::exists(path("dmclient.answer")));
}

TEST_F(ServiceTest, WhoDoesNotAnswerForAMessageIsNotAskedForTheNextOne)
{
    script(appliesWith(R"(echo '{"bootstrap": "unanswered", "reason": "late"}')").constData());
    start();
    service->applyBootstrap(QStringLiteral("one"));
    service->applyBootstrap(QStringLiteral("two"));
    int ended = 0;
    Service::Listener listener;
    listener.bootstrapEnded = [&] { ++ended; };
    listener.sessionEnded = [this](const SessionResult &result) { results.push_back(result); };
    service->setListener(listener);
    EXPECT_TRUE(waitUntil([&] { return ended == 1; }));
    request("A");
    sessions(1);
    EXPECT_EQ(ended, 1);
    for (const char *const outcome : {"discarded", "waits", "set-aside"}) {
        ended = 0;
        script(appliesWith((QByteArray("echo '{\"bootstrap\": \"") + outcome + "\"}'").constData())
                   .constData());
        service->applyBootstrap(QStringLiteral("one"));
        service->applyBootstrap(QStringLiteral("two"));
        EXPECT_TRUE(waitUntil([&] { return ended == 2; })) << outcome;
    }
}

TEST_F(ServiceTest, AProcessThatBreaksWithAMessageEndsNothingElse)
{
    for (const char *const lines : {"kill -KILL $$", "exit 3", "echo nonsense",
                                    R"(echo '{"bootstrap": 5, "accounts": {"a": 1}}')",
                                    R"(echo '{"bootstrap": "applied", "accounts": [7, "Z"]}')"}) {
        script(appliesWith(lines).constData());
        start();
        int ended = 0;
        Service::Listener listener;
        listener.bootstrapEnded = [&] { ++ended; };
        listener.sessionEnded = [this](const SessionResult &result) { results.push_back(result); };
        service->setListener(listener);
        results.clear();
        service->applyBootstrap(QStringLiteral("one"));
        EXPECT_TRUE(waitUntil([&] { return ended == 1; }));
        request("A");
        EXPECT_EQ(sessions(1), (Sessions{"A completed"}));
    }
}

TEST_F(ServiceTest, TheEndOfTheServiceEndsTheApplicationOfAMessage)
{
    script(appliesWith("trap 'exit 1' TERM; while :; do sleep 0.01; done").constData());
    start();
    service->applyBootstrap(QStringLiteral("one"));
    service->applyBootstrap(QStringLiteral("two"));
    bool hasStopped = false;
    service->stop([&] { hasStopped = true; });
    EXPECT_TRUE(waitUntil([&] { return hasStopped; }));
    service->applyBootstrap(QStringLiteral("three"));
    EXPECT_FALSE(service->running());
}

TEST_F(ServiceTest, ALaterNotificationOfAWaitingSessionCounts)
{
    start();
    request("A");
    request("B", SessionCause::Schedule);
    ASSERT_TRUE(service->requestSession(
        {QStringLiteral("B"), SessionCause::Notification, quint16(0x1234)}));
    ASSERT_EQ(service->waiting().size(), 1U);
    EXPECT_EQ(service->waiting()[0].sessionId, quint16(0x1234));
    request("B");
    EXPECT_EQ(service->waiting()[0].sessionId, quint16(0x1234));
}

TEST_F(ServiceTest, WhatCannotBeIsRefused)
{
    start();
    EXPECT_EQ(refusal(service->requestSession({QStringLiteral("Z")})), "no account Z");
    EXPECT_EQ(refusal(service->cancelSession(QStringLiteral("A"))),
              "no session of A runs or waits");
}

TEST_F(ServiceTest, FailuresOfEveryKindAreToldAndTheNextSessionGoesOn)
{
    start({.time = 10min, .timeToEnd = 100ms});
    for (
        const char *const lines :
        {"exit 2", "kill -KILL $$", "echo no such server >&2; exit 4",
         R"(echo '{"session": "failed", "reason": "refused", "messages": 1, "commands": 0, "refused": 0, "differences": 0}')",
         completes}) {
        script(lines);
        request("A");
        sessions(results.size() + 1);
    }
    EXPECT_EQ(sessions(5),
              (Sessions{"A failed", "A crashed", "A failed", "A failed", "A completed"}));
    EXPECT_EQ(results[0].reason, u"the session's process ended with status 2");
    EXPECT_EQ(results[1].reason, u"the session's process was ended by signal SIGKILL");
    EXPECT_EQ(results[2].reason, u"no such server");
    EXPECT_EQ(results[3].reason, u"refused");
}

TEST_F(ServiceTest, ASessionThatHangsIsOverWhenItsTimeIs)
{
    start({.time = 50ms, .timeToEnd = 50ms});
    script("trap '' TERM; while :; do sleep 0.01; done");
    request("A");
    EXPECT_EQ(sessions(1), Sessions{"A timed-out"});
}

TEST_F(ServiceTest, ADeviceThatSomebodyElseWorksWithIsBusy)
{
    start();
    const auto lock = StateDirectory::open(path("state"));
    ASSERT_TRUE(lock) << lock.error().toStdString();
    script("echo another client >&2; exit 3");
    request("A");
    EXPECT_EQ(sessions(1), Sessions{"A busy"});
}

TEST_F(ServiceTest, AStateDirectoryThatCannotBeUsedIsNotBusy)
{
    start();
    script("echo no plug-in >&2; exit 3");
    request("A");
    EXPECT_EQ(sessions(1), Sessions{"A failed"});
}

TEST_F(ServiceTest, ACancelledSessionEndsAndOneThatWaitsIsForgotten)
{
    start();
    script("exec sleep 600");
    request("A");
    request("B");
    EXPECT_EQ(refusal(service->cancelSession(QStringLiteral("B"))), "");
    EXPECT_TRUE(service->waiting().empty());
    EXPECT_EQ(refusal(service->cancelSession(QStringLiteral("A"))), "");
    EXPECT_EQ(sessions(1), Sessions{"A aborted"});
}

TEST_F(ServiceTest, StoppingEndsTheSessionAndBeginsNoOther)
{
    start();
    script("exec sleep 600");
    request("A");
    request("B");
    bool isStopped = false;
    service->stop([&isStopped] { isStopped = true; });
    EXPECT_TRUE(waitUntil([&isStopped] { return isStopped; }));
    EXPECT_EQ(sessions(1), Sessions{"A aborted"});
    EXPECT_EQ(refusal(service->requestSession({QStringLiteral("A")})), "the service stops");
}

// ---- By itself -----------------------------------------------------------------------------------

TEST_F(ServiceTest, TheScheduleBeginsSessionsOnceTheDeviceIsOnline)
{
    AccountStore store = accountStore();
    add(store, QStringLiteral("B"), 3600s);
    start();
    ASSERT_TRUE(service->nextSession(QStringLiteral("B")));
    EXPECT_FALSE(service->nextSession(QStringLiteral("A")));
    EXPECT_EQ(service->running(), std::nullopt);
    service->setOnline(true);
    // It has to settle first, which is what the test of the schedule is about.
    const auto next = *service->nextSession(QStringLiteral("B")) - currentMoment().wallClock;
    EXPECT_GT(next, 4s);
    EXPECT_LT(next, 31s);
}

TEST_F(ServiceTest, WaitsAndResultsOutliveTheService)
{
    AccountStore store = accountStore();
    add(store, QStringLiteral("A"), 86400s);
    start();
    script("exit 1");
    request("A");
    sessions(1);
    request("A");
    sessions(2);
    EXPECT_EQ(service->failuresOf(QStringLiteral("A")), 2);
    const auto next = *service->nextSession(QStringLiteral("A"));
    start();
    EXPECT_EQ(service->failuresOf(QStringLiteral("A")), 2);
    EXPECT_LT(std::chrono::abs(*service->nextSession(QStringLiteral("A")) - next), 2s);
    EXPECT_EQ(service->results(), results);
}

TEST_F(ServiceTest, DamagedFilesOfItsOwnDoNotStopIt)
{
    start();
    service.reset();
    for (const char *const name : {"state/service/schedule.json", "state/service/results.json"}) {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("{\"results\": 1");
    }
    start();
    EXPECT_TRUE(service->results().empty());
    request("A");
    EXPECT_EQ(sessions(1), Sessions{"A completed"});
    start();
    EXPECT_EQ(service->results(), results);
}

TEST_F(ServiceTest, TheServerIsToldOfAnOperationThatHasEndedInASessionAtOnce)
{
    start();
    script(leaves("1", "ended") + completes);
    request("A");
    EXPECT_EQ(sessions(2), (Sessions{"A completed", "A completed"}));
    EXPECT_EQ(results[1].cause, SessionCause::Operation);
    EXPECT_EQ(service->running(), std::nullopt) << "what was left before is not new";
    EXPECT_TRUE(service->waiting().empty());
}

TEST_F(ServiceTest, OneThatWasBrokenOffIsToldToo)
{
    start();
    script(leaves("1", "begun") + "kill -9 $$");
    request("A");
    EXPECT_EQ(sessions(2), (Sessions{"A crashed", "A crashed"}));
    EXPECT_EQ(service->running(), std::nullopt);
}

TEST_F(ServiceTest, OneThatHasNotBegunBeginsNoSession)
{
    start();
    script(leaves("1", "accepted") + completes);
    request("A");
    EXPECT_EQ(sessions(1), Sessions{"A completed"});
    EXPECT_EQ(service->running(), std::nullopt);
}

TEST_F(ServiceTest, AServerThatAlwaysAsksForMoreIsToldFiveTimesInARow)
{
    start();
    script("id=$(wc -l <'" + QFile::encodeName(path("words")) + "')\n" + leaves("$id", "ended") +
           completes);
    request("A");
    EXPECT_EQ(sessions(6).size(), 6U);
    EXPECT_EQ(service->running(), std::nullopt);
    EXPECT_TRUE(service->waiting().empty());
    request("A");
    EXPECT_EQ(sessions(12).size(), 12U) << "another session begins anew";
    EXPECT_EQ(service->running(), std::nullopt);
}

TEST_F(ServiceTest, WhoCancelsASessionHasNoOtherOneAtOnce)
{
    start();
    script(leaves("1", "ended") + "touch '" + QFile::encodeName(path("ready")) +
           "'\nexec sleep 60");
    request("A");
    ASSERT_TRUE(waitUntil([&] { return QFile::exists(path("ready")); }));
    EXPECT_TRUE(service->cancelSession(QStringLiteral("A")));
    EXPECT_EQ(sessions(1), Sessions{"A aborted"});
    EXPECT_EQ(service->running(), std::nullopt);
}

TEST_F(ServiceTest, WhatWasLeftIsToldOnceTheDeviceIsOnline)
{
    start();
    script(leaves("1", "ended") + completes);
    request("A");
    sessions(2);
    start();
    EXPECT_EQ(service->running(), std::nullopt);
    service->setOnline(true);
    ASSERT_TRUE(service->running());
    EXPECT_EQ(service->running()->cause, SessionCause::Operation);
    EXPECT_EQ(sessions(3).size(), 3U);
    EXPECT_EQ(service->running(), std::nullopt);
}

TEST_F(ServiceTest, AnAccountThatIsAddedOrRemovedIsSeen)
{
    start();
    bool hasChanged = false;
    Service::Listener listener;
    listener.changed = [&hasChanged] { hasChanged = true; };
    service->setListener(listener);
    AccountStore store = accountStore();
    add(store, QStringLiteral("New"), 600s);
    EXPECT_TRUE(
        waitUntil([this] { return service->nextSession(QStringLiteral("New")).has_value(); }));
    EXPECT_TRUE(hasChanged);
    script("exec sleep 600");
    request("A");
    request("New");
    ASSERT_TRUE(store.remove(QStringLiteral("New")));
    EXPECT_TRUE(waitUntil([this] { return service->waiting().empty(); }));
    EXPECT_FALSE(service->nextSession(QStringLiteral("New")));
}

TEST_F(ServiceTest, OnlyTheLastResultsAreKept)
{
    start();
    for (int session = 0; session < 55; ++session) {
        request("A");
        sessions(results.size() + 1);
    }
    EXPECT_EQ(service->results(), std::vector(results.begin() + 5, results.end()));
}

} // namespace

} // namespace client

int main(int argc, char *argv[])
{
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
