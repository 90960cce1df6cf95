// Which command, or which mount, a message belongs to.

#include "plugin_watch.h"

#include "aplog.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace client {

namespace {

/// Writes down what it is told.
class Observer : public DeviceObserver {
public:
    void mountBegins(const QByteArray &root) override { lines += "begins " + root; }
    void mountEnded(int nodes, const QString &fault) override
    {
        lines += "ended " + QByteArray::number(nodes) + fault.toUtf8();
    }
    void pluginMessage(std::string_view message) override
    {
        lines += QByteArray(message.data(), static_cast<qsizetype>(message.size()));
    }
    void pluginTrace(std::string_view trace) override
    {
        lines += "trace " + QByteArray(trace.data(), static_cast<qsizetype>(trace.size()));
    }
    void secretIsWritten(const QByteArray &secret) override { lines += "secret " + secret; }
    void profileCall(const call_observer::ProfileCall &call) override { lines += call.function; }
    void settingCall(const call_observer::SettingCall &call) override { lines += call.function; }

    QByteArrayList lines;
};

class PluginWatchTest : public testing::Test {
protected:
    void begin() { watch.begin(QStringLiteral("Replace"), QStringLiteral("./A")); }
    /// How a command ends whose operation ended so.
    std::string end(DmStatus status, const char *reason = "")
    {
        Outcome outcome{status, QString::fromLatin1(reason)};
        watch.end(outcome);
        return describe(outcome).toStdString();
    }
    bool fail(const char *function, int status, const char *reason)
    {
        return watch.observe(
            call_observer::ProfileCall{.function = function, .status = status, .reason = reason});
    }

    PluginWatch watch;
};

TEST_F(PluginWatchTest, WhatThePluginSaidStandsAfterTheStatus)
{
    begin();
    watch.pluginMessage("(a.cpp:1)Leave: Set()! failed! Speed illegal\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: Speed illegal");
}

TEST_F(PluginWatchTest, ItStandsInThePlaceOfARefusalThatSaysNoMore)
{
    begin();
    watch.pluginMessage("Speed illegal\n");
    Outcome outcome = outcomeOfEngineCall(1);
    watch.end(outcome);
    EXPECT_EQ(outcome.reason, QStringLiteral("Speed illegal"));
    begin();
    outcome = outcomeOfEngineCall(1);
    watch.end(outcome);
    EXPECT_EQ(outcome.reason, QStringLiteral("the plug-in refused it"));
}

TEST_F(PluginWatchTest, ReasonThatIsThereIsKept)
{
    begin();
    watch.pluginMessage("two\n");
    EXPECT_EQ(end(DmStatus::NotAllowed, "one"), "405 Command Not Allowed: one: two");
}

TEST_F(PluginWatchTest, CommandHasNothingOfTheOneBeforeIt)
{
    begin();
    watch.pluginMessage("one\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: one");
    watch.pluginMessage("between\n");
    begin();
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed");
}

TEST_F(PluginWatchTest, SuccessTellsOfTroubleOnly)
{
    begin();
    watch.pluginMessage("(a:1)Leave: GetConnValue(), the Conn of  Ph1 has no related fields\n");
    watch.pluginMessage("(a:2)Leave: RenameProfileMap!\n");
    EXPECT_EQ(end(DmStatus::Ok), "200 OK");
    begin();
    watch.pluginMessage("(a:1)Warning: DeleteNode! Node A is not exist!\n");
    EXPECT_EQ(end(DmStatus::Ok), "200 OK: Warning: DeleteNode! Node A is not exist!");
}

TEST_F(PluginWatchTest, MountInTheMiddleOfACommandIsNotAboutIt)
{
    begin();
    watch.pluginMessage("before\n");
    watch.beginMount("./Root");
    watch.pluginMessage("(a:1)Leave: Load! the mount failed here\n");
    EXPECT_FALSE(fail("NAPI_ReadProfile", NAPI_ERROR_IO, "not of the command"));
    EXPECT_EQ(watch.troubleOfMount(), QStringLiteral("the mount failed here"));
    watch.endMount(0, {});
    watch.pluginMessage("after\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: before; after");
}

TEST_F(PluginWatchTest, MountThatHasSaidMuchFailedForWhatItSaidLast)
{
    watch.beginMount("./Root");
    for (int profile = 0; profile < 1000; ++profile)
        watch.pluginMessage("(a:1)Leave: Load! one of the early ones failed\n");
    for (int profile = 0; profile < 7; ++profile)
        watch.pluginMessage(
            "(a:701)Leave: GetConnValue(), the Conn of  Ph1 has no related fields\n");
    watch.pluginMessage("(a:1031)Leave: Load : the list failed!\n");
    EXPECT_EQ(watch.troubleOfMount(), QStringLiteral("the list failed!"));
    watch.endMount(0, QStringLiteral("!"));
    watch.beginMount("./Root");
    EXPECT_EQ(watch.troubleOfMount(), QString());
}

TEST_F(PluginWatchTest, ReasonOfAServiceIsTakenWhileACommandRuns)
{
    EXPECT_FALSE(fail("NAPI_ReadProfile", NAPI_ERROR_IO, "too early"));
    begin();
    EXPECT_TRUE(fail("NAPI_ModifyProfile", NAPI_ERROR_NO_SPACE, "profiles.db: the disk is full"));
    watch.pluginMessage("(a:1)Leave: Set()! NAPI_ModifyProfile() failed! return 8\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: profiles.db: the disk is full");
    EXPECT_FALSE(fail("NAPI_ReadProfile", NAPI_ERROR_IO, "too late"));
}

TEST_F(PluginWatchTest, SettingsFileThatCannotBeWrittenIsAReason)
{
    begin();
    EXPECT_TRUE(watch.observe(call_observer::SettingCall{
        .function = "flush", .file = {}, .result = false, .reason = QStringLiteral("no room")}));
    EXPECT_FALSE(
        watch.observe(call_observer::SettingCall{.function = "flush", .file = {}, .result = true}));
    watch.pluginMessage("(a:1)Leave: Put! flush  failed\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: no room");
}

TEST_F(PluginWatchTest, NoToAQuestionIsNotAReason)
{
    begin();
    for (const char *function :
         {"NAPI_GetProfileIDByName", "NAPI_GetProfileNameByID", "NAPI_IsProfileValid"})
        EXPECT_FALSE(fail(function, NAPI_ERROR_NOT_FOUND, "no such profile"));
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed");
    begin();
    EXPECT_TRUE(fail("NAPI_ReadProfile", NAPI_ERROR_NOT_FOUND, "no such profile"));
    EXPECT_TRUE(fail("NAPI_IsProfileValid", NAPI_ERROR_IO, "damaged"));
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: no such profile; damaged");
}

TEST_F(PluginWatchTest, WhereNobodySeesReasonsTheServicesTellTheirs)
{
    watch.setReasonsShown(false);
    begin();
    EXPECT_FALSE(fail("NAPI_ModifyProfile", NAPI_ERROR_IO, "damaged"));
}

TEST_F(PluginWatchTest, TracesAreNoReasons)
{
    Observer observer;
    watch.setObserver(&observer);
    begin();
    watch.pluginTrace("(a.cpp:1)Leave: Set()! failed! Speed illegal\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed");
    EXPECT_EQ(observer.lines,
              QByteArrayList{"trace (a.cpp:1)Leave: Set()! failed! Speed illegal\n"});
}

TEST_F(PluginWatchTest, RecordsAreReadForAnObserverOnly)
{
    Observer observer;
    EXPECT_FALSE(watch.wantsRecords());
    watch.setObserver(&observer);
    EXPECT_TRUE(watch.wantsRecords());
    watch.beginMount("./Root");
    fail("NAPI_ReadProfile", NAPI_OK, "");
    watch.pluginMessage("said");
    watch.endMount(3, QStringLiteral("!"));
    watch.observe(call_observer::SettingCall{.function = "flush", .file = {}});
    EXPECT_EQ(observer.lines.join(' '),
              QByteArray("begins ./Root NAPI_ReadProfile said ended 3! flush"));
}

TEST_F(PluginWatchTest, MessagesInTheLogAreUnderTheirCommandsAndMounts)
{
    QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("plugin.log"));
    const auto log = PluginLog::toFile(path);
    ASSERT_TRUE(log);
    const auto say = [](const char *text) { std::fputs(text, libaplog_to_module_ptr); };
    begin();
    watch.beginMount("./Root");
    watch.setLog(log->get()); // the first mount is what the plug-in is loaded for
    say("mounting\n");
    watch.endMount(1, {});
    say("said\n");
    EXPECT_EQ(end(DmStatus::CommandFailed), "500 Command Failed: said");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArrayList lines = file.readAll().split('\n');
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].endsWith(" mount ./Root"));
    EXPECT_EQ(lines[1], "mounting");
    EXPECT_TRUE(lines[2].endsWith(" Replace ./A"));
    EXPECT_EQ(lines[3], "said");
}

} // namespace

} // namespace client
