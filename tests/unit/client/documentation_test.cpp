// The manual page, --help and the tables of dmclient name the same things.

#include "command_table.h"
#include "global_options.h"

#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>
#include <set>

namespace client::cli {

namespace {

QString contents(const char *path)
{
    QFile file(QStringLiteral(KUB_SOURCE_FOLDER "/%1").arg(QString::fromLatin1(path)));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path;
    return QString::fromUtf8(file.readAll());
}

/// The lines of one section of the manual, without its heading.
QString section(const QString &heading)
{
    const QString manual = contents("docs/man/dmclient.1");
    const QString start = QStringLiteral(".SH %1\n").arg(heading);
    EXPECT_TRUE(manual.contains(start)) << heading.toStdString();
    return manual.section(start, 1).section(QStringLiteral("\n.SH"), 0, 0) + u'\n';
}

/// What the first group of the pattern matches, everywhere.
std::set<std::string> matches(const QString &text, const char *pattern)
{
    std::set<std::string> found;
    const QRegularExpression expression(QString::fromLatin1(pattern),
                                        QRegularExpression::MultilineOption);
    for (const QRegularExpressionMatch &match : expression.globalMatch(text))
        found.insert(
            match.captured(1).replace(QStringLiteral("\\-"), QStringLiteral("-")).toStdString());
    return found;
}

TEST(DocumentationTest, TheManualHasTheSynopsisOfEveryCommandAndOfNoOther)
{
    std::set<std::string> synopses;
    for (const CommandRow &command : commandTable())
        synopses.insert(synopsis(command).toStdString());
    EXPECT_EQ(matches(section(QStringLiteral("COMMANDS")), "^\\.SS \"(.*)\"$"), synopses);
}

TEST(DocumentationTest, TheManualExplainsTheOptionsOfEveryCommandInItsPlace)
{
    const QString commands = section(QStringLiteral("COMMANDS"));
    for (const CommandRow &command : commandTable()) {
        std::set<std::string> options;
        for (const OptionRow &option : command.options)
            options.insert(option.name);
        const QString heading =
            QStringLiteral(".SS \"%1").arg(synopsis(command).replace(u'-', QStringLiteral("\\-")));
        const QString text = commands.section(heading, 1).section(QStringLiteral("\n.SS"), 0, 0);
        EXPECT_EQ(matches(text, "^\\.TP\\n\\.BI? \\\\-\\\\-([a-z\\\\-]+)"), options)
            << command.name;
    }
}

TEST(DocumentationTest, TheManualAndTheHelpHaveTheSameGlobalOptions)
{
    const auto inManual =
        matches(section(QStringLiteral("OPTIONS")), "^\\.TP\\n\\.BI? \\\\-\\\\-([a-z\\\\-]+)");
    const auto inHelp = matches(programHelp(), "^  --([a-z-]+)");
    EXPECT_EQ(inManual, inHelp);
    EXPECT_EQ(inHelp,
              (std::set<std::string>{"backend", "help", "plugin", "state", "verbose", "version"}));
}

TEST(DocumentationTest, EveryGlobalOptionOfTheHelpIsUnderstood)
{
    for (const std::string &option : matches(programHelp(), "^  --([a-z-]+)")) {
        if (option == "help" || option == "version")
            continue;
        ExitStatus exitStatus = ExitStatus::Success;
        const QString word = QStringLiteral("--") + QString::fromStdString(option);
        const QString value = QString::fromLatin1(option == "backend" ? "sqlite" : "v");
        const QStringList line =
            option == "verbose"
                ? QStringList{QStringLiteral("dmclient"), word, QStringLiteral("x")}
                : QStringList{QStringLiteral("dmclient"), word, value, QStringLiteral("x")};
        Output output(QStringLiteral("dmclient"));
        const auto parsed = parseCommandLine(line, output, exitStatus);
        ASSERT_TRUE(parsed) << option;
        EXPECT_EQ(parsed->command, QStringLiteral("x")) << option;
    }
}

TEST(DocumentationTest, TheExitStatusesAreTheSameInTheHeaderTheManualAndTheHelp)
{
    const auto inHeader = matches(contents("commandline/exit_status.h"), "^    \\w+ = (\\d+),");
    EXPECT_EQ(inHeader, (std::set<std::string>{"0", "1", "2", "3", "4"}));
    EXPECT_EQ(matches(section(QStringLiteral("EXIT STATUS")), "^\\.TP\\n\\.B (\\d+)$"), inHeader);
    const QString help = programHelp().section(QStringLiteral("Exit status:"), 1);
    EXPECT_EQ(matches(help, "\\b(\\d) (?:when|for)"), inHeader);
}

TEST(DocumentationTest, TheManualGivesTheLimitsThatDevDetailPublishes)
{
    const UriLimits limits = hostInfo("x").uriLimits;
    const QString text = section(QStringLiteral("ADDRESSES")).replace(u'\n', u' ');
    EXPECT_TRUE(
        text.contains(QStringLiteral("at most %1 names and %2 characters, a name %3 characters")
                          .arg(limits.maxDepth)
                          .arg(limits.maxTotalLength)
                          .arg(limits.maxSegmentLength)));
}

} // namespace

} // namespace client::cli
