// The lines of the plug-in's log.

#include "plugin_journal.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace client {

namespace {

using Lines = std::vector<std::string>;

TEST(CountedLinesTest, EqualLinesAreCountedInTheOrderInWhichEachCameFirst)
{
    CountedLines lines;
    for (const char *line : {"one\n", "two\n", "one\n", "three", "one\n", "three"})
        lines.add(line);
    EXPECT_EQ(lines.take(), (Lines{"one (3 times)\n", "two\n", "three (2 times)"}));
    EXPECT_EQ(lines.take(), Lines{});
}

class PluginJournalTest : public testing::Test {
protected:
    /// A heading as it is written at that second of the clock's minute.
    static std::string heading(const char *second, const char *text)
    {
        return std::string("2026-11-22T18:56:") + second + "Z " + std::to_string(::getpid()) + ' ' +
               text + '\n';
    }

    Lines written;
    QDateTime now{QDate(2026, 11, 22), QTime(18, 56, 28, 7), Qt::UTC};
    PluginJournal journal{[this](std::string_view line) { written.emplace_back(line); },
                          [this] { return now; }};
};

TEST_F(PluginJournalTest, CommandStandsBeforeItsMessagesWithTheTimeWhenItBegan)
{
    journal.beginCommand(QStringLiteral("Replace"), QStringLiteral("./A/B"));
    now = now.addSecs(1);
    journal.add("(x:1)one\n");
    journal.add("(x:2)two\n");
    journal.beginCommand(QStringLiteral("Get"), QStringLiteral("./C"));
    journal.add("(x:1)one\n");
    EXPECT_EQ(written, (Lines{heading("28.007", "Replace ./A/B"), "(x:1)one\n", "(x:2)two\n",
                              heading("29.007", "Get ./C"), "(x:1)one\n"}));
}

TEST_F(PluginJournalTest, CommandWithoutMessagesLeavesNoLine)
{
    journal.beginCommand(QStringLiteral("Replace"), QStringLiteral("./A"));
    journal.beginCommand(QStringLiteral("Atomic"), QString());
    journal.add("message\n");
    EXPECT_EQ(written, (Lines{heading("28.007", "Atomic"), "message\n"}));
}

TEST_F(PluginJournalTest, MountIsWrittenWhenItHasEndedWithItsRepeatedLinesCounted)
{
    journal.beginMount(QStringLiteral("./Root"));
    for (int profile = 0; profile < 312; ++profile)
        for (const char *line : {"(x:1)no field\n", "(x:2)no other\n"})
            journal.add(line);
    EXPECT_EQ(written, Lines{});
    journal.endMount();
    EXPECT_EQ(written, (Lines{heading("28.007", "mount ./Root"), "(x:1)no field (312 times)\n",
                              "(x:2)no other (312 times)\n"}));
}

TEST_F(PluginJournalTest, MountInTheMiddleOfACommandDoesNotTakeTheMessagesAfterIt)
{
    journal.beginCommand(QStringLiteral("Add"), QStringLiteral("./Root/A"));
    journal.add("before\n");
    journal.beginMount(QStringLiteral("./Root"));
    journal.add("mounting\n");
    journal.endMount();
    journal.add("after\n");
    journal.add("after\n");
    const std::string add = heading("28.007", "Add ./Root/A");
    EXPECT_EQ(written, (Lines{add, "before\n", heading("28.007", "mount ./Root"), "mounting\n", add,
                              "after\n", "after\n"}));
}

TEST_F(PluginJournalTest, MountWithEndlesslyManyDifferentLinesIsNotKeptInMemory)
{
    journal.beginMount(QStringLiteral("./Root"));
    for (std::size_t line = 0; line < PluginJournal::mostLinesOfMount; ++line)
        journal.add(std::to_string(line) + '\n');
    EXPECT_EQ(written.size(), PluginJournal::mostLinesOfMount + 1);
    journal.add("more\n");
    journal.endMount();
    EXPECT_EQ(written.back(), "more\n");
    EXPECT_EQ(written.size(), PluginJournal::mostLinesOfMount + 2) << "one heading";
}

TEST_F(PluginJournalTest, LineBreaksInNamesMakeNoNewLines)
{
    journal.beginCommand(QStringLiteral("Get"), QStringLiteral("./A\n2026-11-22T18:56:28Z 1 Get"));
    journal.add("(x:1)a\nb\r\n");
    EXPECT_EQ(written, (Lines{heading("28.007", "Get ./A\\n2026-11-22T18:56:28Z 1 Get"),
                              "(x:1)a\\nb\\r\n"}));
}

TEST_F(PluginJournalTest, MountThatHasNotEndedIsWrittenWithTheJournalsEnd)
{
    {
        PluginJournal other([this](std::string_view line) { written.emplace_back(line); },
                            [this] { return now; });
        other.beginMount(QStringLiteral("./Root"));
        other.add("one\n");
    }
    EXPECT_EQ(written, (Lines{heading("28.007", "mount ./Root"), "one\n"}));
}

} // namespace

} // namespace client
