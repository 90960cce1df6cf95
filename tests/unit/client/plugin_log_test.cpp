// Where the messages of a plug-in go.

#include "noted.h"
#include "plugin_log.h"

#include "aplog.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace client {

namespace {

class PluginLogTest : public testing::Test {
protected:
    static QByteArray contents(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
    }

    QTemporaryDir directory;
    QString path = directory.filePath(QStringLiteral("plugin.log"));
    QString older = path + QStringLiteral(".1");
    QString error;
};

TEST_F(PluginLogTest, MessagesAreInTheFileAtTheEndOfEachLine)
{
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    ASSERT_NE(log, nullptr) << error.toStdString();
    std::fputs("(x:1)Leave: one\n", libaplog_to_module_ptr);
    EXPECT_EQ(contents(path), "(x:1)Leave: one\n");
}

TEST_F(PluginLogTest, TheNextRunAppends)
{
    for (const char *message : {"one\n", "two\n"}) {
        const auto log = madeOrNull(PluginLog::toFile(path), error);
        std::fputs(message, libaplog_to_module_ptr);
    }
    EXPECT_EQ(contents(path), "one\ntwo\n");
}

TEST_F(PluginLogTest, TheStreamIsGoneWithTheLog)
{
    madeOrNull(PluginLog::toFile(path), error).reset();
    EXPECT_EQ(libaplog_to_module_ptr, nullptr);
}

TEST_F(PluginLogTest, AnUnfinishedLineIsWrittenAtTheEnd)
{
    {
        const auto log = madeOrNull(PluginLog::toFile(path), error);
        std::fputs("no line break", libaplog_to_module_ptr);
    }
    EXPECT_EQ(contents(path), "no line break");
}

TEST_F(PluginLogTest, AFullFileIsPutAsideAndReplacesTheOneBeforeIt)
{
    const auto log = madeOrNull(PluginLog::toFile(path, 8), error);
    for (const char *message : {"1234567\n", "abcdefg\n", "ABCDEFG\n"})
        std::fputs(message, libaplog_to_module_ptr);
    EXPECT_EQ(contents(path), "ABCDEFG\n");
    EXPECT_EQ(contents(older), "abcdefg\n");
}

TEST_F(PluginLogTest, AFileThatWasFullBeforeIsPutAsideToo)
{
    QFile before(path);
    ASSERT_TRUE(before.open(QIODevice::WriteOnly));
    before.write("old and long\n");
    before.close();
    const auto log = madeOrNull(PluginLog::toFile(path, 8), error);
    std::fputs("new\n", libaplog_to_module_ptr);
    EXPECT_EQ(contents(path), "new\n");
    EXPECT_EQ(contents(older), "old and long\n");
}

TEST_F(PluginLogTest, TheFileIsForItsOwnerOnly)
{
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    EXPECT_FALSE(QFileInfo(path).permissions() &
                 (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup));
}

TEST_F(PluginLogTest, AFileThatCannotBeOpenedIsNamed)
{
    const QString impossible = directory.filePath(QStringLiteral("missing/plugin.log"));
    EXPECT_EQ(madeOrNull(PluginLog::toFile(impossible), error), nullptr);
    EXPECT_EQ(error, QStringLiteral("the plug-in's log: cannot use %1: No such file or directory")
                         .arg(directory.filePath(QStringLiteral("missing"))));
    EXPECT_EQ(libaplog_to_module_ptr, nullptr);
}

TEST_F(PluginLogTest, ALinkInItsPlaceIsNotFollowed)
{
    const QString target = directory.filePath(QStringLiteral("target"));
    ASSERT_TRUE(QFile::link(target, path));
    EXPECT_EQ(madeOrNull(PluginLog::toFile(path), error), nullptr);
    EXPECT_EQ(error,
              QStringLiteral("the plug-in's log: cannot use %1: it is a symbolic link").arg(path));
    EXPECT_FALSE(QFile::exists(target));
}

TEST_F(PluginLogTest, LineBreaksInANameMakeNoNewLineOfTheFile)
{
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    std::fprintf(libaplog_to_module_ptr, "(x:1)Leave: %s!\n",
                 "a\n(x:2)Enter: b\r\xc2\x9b\x1b[2J\n");
    EXPECT_EQ(contents(path), "(x:1)Leave: a\\n(x:2)Enter: b\\r\xc2\x9b\x1b[2J\\n!\n");
}

// ---- Traces --------------------------------------------------------------------------------------

TEST_F(PluginLogTest, TracesAreForTheirListenerOnly)
{
    std::vector<std::string> told;
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    ASSERT_NE(log, nullptr) << error.toStdString();
    log->setListener(
        [&](std::string_view message) { told.push_back("message " + std::string(message)); },
        [&](std::string_view trace) { told.push_back("trace " + std::string(trace)); });
    std::fputs("\x1e(x:1)no line break\x1f", libaplog_to_module_ptr);
    std::fputs("(x:2)Leave: one\n", libaplog_to_module_ptr);
    std::fputs("\x1e(x:3)Enter\n\x1f", libaplog_to_module_ptr);
    EXPECT_EQ(told, (std::vector<std::string>{"trace (x:1)no line break",
                                              "message (x:2)Leave: one\n", "trace (x:3)Enter\n"}));
    EXPECT_EQ(contents(path), "(x:2)Leave: one\n");
}

TEST_F(PluginLogTest, TracesNobodyListensToAreDropped)
{
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    std::fputs("\x1e(x:1)Enter\n\x1f", libaplog_to_module_ptr);
    EXPECT_EQ(contents(path), "");
}

TEST_F(PluginLogTest, ATraceLargerThanTheLibrarysBufferIsOne)
{
    std::vector<std::string> traces;
    const auto log = madeOrNull(PluginLog::toFile(path), error);
    log->setListener({}, [&](std::string_view trace) { traces.emplace_back(trace); });
    const std::string value(100'000, 'v');
    std::fprintf(libaplog_to_module_ptr, "\x1e%s\x1f", value.c_str());
    std::fputs("(x:2)Leave: one\n", libaplog_to_module_ptr);
    EXPECT_EQ(traces, std::vector<std::string>{value});
    EXPECT_EQ(contents(path), "(x:2)Leave: one\n");
}

// ---- Standard error ------------------------------------------------------------------------------

TEST_F(PluginLogTest, MessagesCanGoToStandardError)
{
    testing::internal::CaptureStderr();
    {
        const auto log = PluginLog::toStandardError();
        std::fputs("(x:1)Leave: one\n", libaplog_to_module_ptr);
        std::fputs("(x:2)Leave: two\n", libaplog_to_module_ptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "(x:1)Leave: one\n(x:2)Leave: two\n");
    EXPECT_EQ(libaplog_to_module_ptr, nullptr);
}

TEST_F(PluginLogTest, NothingInAMessageSteersATerminal)
{
    testing::internal::CaptureStderr();
    {
        const auto log = PluginLog::toStandardError();
        std::fprintf(libaplog_to_module_ptr, "(x:1)Leave: %s!\n",
                     "a\n\x1b[2J\xc2\x9b\xe2\x80\xae\xff");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "(x:1)Leave: a\\n\\x1b[2J\\xc2\\x9b\\xe2\\x80\\xae\\xff!\n");
}

} // namespace

} // namespace client
