// The manual pages say what the tables of the programs say.

#include "command_table.h"
#include "help.h"
#include "napictl.h"

#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>
#include <set>

namespace {

using commandline::Command;
using commandline::Option;
using commandline::Program;

struct Documented {
    const char *manual;
    std::vector<const Program *> programs; ///< the program itself, and its shell
};

void PrintTo(const Documented &documented, std::ostream *stream)
{
    *stream << documented.manual;
}

std::string unescaped(QString roff)
{
    return roff.replace(QStringLiteral("\\-"), QStringLiteral("-")).toStdString();
}

/// What the first group of the pattern matches, everywhere.
std::vector<std::string> matches(const QString &text, const char *pattern)
{
    std::vector<std::string> found;
    const QRegularExpression expression(QString::fromLatin1(pattern),
                                        QRegularExpression::MultilineOption);
    for (const QRegularExpressionMatch &match : expression.globalMatch(text))
        found.push_back(unescaped(match.captured(1)));
    return found;
}

/// The options that a part of the manual explains, "-h, --help" among them.
std::vector<std::string> explainedOptions(const QString &text)
{
    return matches(text, "^\\.TP\\n\\.BI?R? (?:\\\\-\\w \", \" )?\\\\-\\\\-([a-z\\\\-]+)");
}

std::vector<std::string> names(std::span<const Option> options)
{
    std::vector<std::string> all;
    for (const Option &option : options)
        all.push_back(option.name);
    return all;
}

/// A line of roff as it is printed, without its fonts.
QString printedLine(const QString &line)
{
    static const QRegularExpression macro(QStringLiteral("^\\.([A-Z]+) "));
    const QRegularExpressionMatch match = macro.match(line);
    QString text = line.mid(match.capturedLength());
    constexpr int alternatingFonts = 2; // ".RI", which has no blanks between its words
    return match.capturedLength(1) == alternatingFonts ? text.remove(u' ') : text;
}

class ManualTest : public testing::TestWithParam<Documented> {
protected:
    /// The lines of one section, without its heading.
    static QString section(const char *heading)
    {
        QFile file(QStringLiteral(KUB_SOURCE_FOLDER "/docs/man/%1")
                       .arg(QString::fromLatin1(GetParam().manual)));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << GetParam().manual;
        const QString manual = QString::fromUtf8(file.readAll());
        const QString start = QStringLiteral(".SH %1\n").arg(QString::fromLatin1(heading));
        EXPECT_TRUE(manual.contains(start)) << heading;
        return manual.section(start, 1).section(QStringLiteral("\n.SH"), 0, 0) + u'\n';
    }
    static const Program &program() { return *GetParam().programs.front(); }
    static std::set<const Command *> commands()
    {
        std::set<const Command *> all;
        for (const Program *one : GetParam().programs)
            all.insert(one->commands.begin(), one->commands.end());
        return all;
    }
};

TEST_P(ManualTest, HasTheSynopsisOfTheProgram)
{
    QStringList words;
    for (const QString &line : section("SYNOPSIS").trimmed().split(u'\n'))
        words += printedLine(line);
    EXPECT_EQ(words.join(u' '), synopsis(program()));
}

TEST_P(ManualTest, HasTheSynopsisOfEveryCommandAndOfNoOther)
{
    std::set<std::string> synopses;
    for (const Command *command : commands())
        synopses.insert(synopsis(*command).toStdString());
    const auto headings = matches(section("COMMANDS"), "^\\.SS \"(.*)\"$");
    EXPECT_EQ(std::set(headings.begin(), headings.end()), synopses);
    EXPECT_EQ(headings.size(), synopses.size());
}

TEST_P(ManualTest, ExplainsTheOptionsOfEveryCommandInItsPlace)
{
    const QString text = section("COMMANDS");
    for (const Command *command : commands()) {
        const QString heading = QStringLiteral(".SS \"%1\"\n")
                                    .arg(synopsis(*command).replace(u'-', QStringLiteral("\\-")));
        const QString part = text.section(heading, 1).section(QStringLiteral("\n.SS"), 0, 0);
        EXPECT_EQ(explainedOptions(part), names(command->options)) << command->name;
    }
}

TEST_P(ManualTest, ExplainsTheOptionsOfTheProgram)
{
    EXPECT_EQ(explainedOptions(section("OPTIONS")), names(program().options));
}

TEST_P(ManualTest, ExplainsTheExitStatuses)
{
    std::vector<std::string> statuses;
    for (const commandline::ExitMeaning &row : program().exitStatuses)
        statuses.push_back(std::to_string(static_cast<int>(row.status)));
    EXPECT_EQ(matches(section("EXIT STATUS"), "^\\.TP\\n\\.B (\\d+)$"), statuses);
}

TEST_P(ManualTest, ExplainsTheVariablesOfTheEnvironment)
{
    std::vector<std::string> variables;
    for (const commandline::EnvironmentVariable &row : program().environment)
        variables.emplace_back(row.name);
    EXPECT_EQ(matches(section("ENVIRONMENT"), "^\\.TP\\n\\.B ([A-Z_]+)$"), variables);
}

TEST_P(ManualTest, SharesNoOptionBetweenTheProgramAndItsCommands)
{
    const auto taken = names(program().options);
    for (const Command *command : program().commands)
        for (const Option &option : command->options)
            EXPECT_EQ(std::count(taken.begin(), taken.end(), option.name), 0)
                << command->name << " --" << option.name;
}

INSTANTIATE_TEST_SUITE_P(Programs, ManualTest,
                         testing::Values(Documented{"dmclient.1",
                                                    {&client::cli::program(),
                                                     &client::cli::shellProgram()}},
                                         Documented{"napictl.1", {&napictlProgram()}}));

TEST(DmclientManualTest, GivesTheLimitsThatDevDetailPublishes)
{
    QFile file(QStringLiteral(KUB_SOURCE_FOLDER "/docs/man/dmclient.1"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll()).replace(u'\n', u' ');
    const client::UriLimits limits = client::hostInfo("x").uriLimits;
    EXPECT_TRUE(
        text.contains(QStringLiteral("at most %1 names and %2 characters, a name %3 characters")
                          .arg(limits.maxDepth)
                          .arg(limits.maxTotalLength)
                          .arg(limits.maxSegmentLength)));
}

} // namespace
