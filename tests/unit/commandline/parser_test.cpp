// Sorting the words of a command line.

#include "parser.h"

#include "sample_program.h"

#include <gtest/gtest.h>

namespace commandline {

namespace {

struct Expected {
    const char *words;
    const char *command;
    std::vector<const char *> arguments;
    std::map<const char *, std::vector<const char *>> options;
};

void PrintTo(const Expected &expected, std::ostream *stream)
{
    *stream << expected.words;
}

class SortedWordsTest : public testing::TestWithParam<Expected> {};

TEST_P(SortedWordsTest, GoWhereTheyBelong)
{
    const Expected &expected = GetParam();
    const auto invocation = parse(sampleProgram(), wordsOf(expected.words));
    ASSERT_TRUE(invocation) << invocation.error().toStdString();
    EXPECT_STREQ(invocation->command ? invocation->command->name : "", expected.command);
    QStringList arguments;
    for (const char *argument : expected.arguments)
        arguments += QString::fromUtf8(argument);
    EXPECT_EQ(invocation->arguments, arguments);
    QMap<QString, QStringList> options;
    for (const auto &[name, values] : expected.options) {
        options[QString::fromUtf8(name)];
        for (const char *value : values)
            options[QString::fromUtf8(name)] += QString::fromUtf8(value);
    }
    EXPECT_EQ(invocation->options, options);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, SortedWordsTest,
    testing::Values(Expected{"list", "list", {}, {}}, Expected{"copy a b", "copy", {"a", "b"}, {}},
                    Expected{"remove a b c d", "remove", {"a", "b", "c", "d"}, {}},
                    Expected{"list --json a", "list", {"a"}, {{"json", {}}}},
                    Expected{"list a --json", "list", {"a"}, {{"json", {}}}},
                    Expected{"list --sort=size a", "list", {"a"}, {{"sort", {"size"}}}},
                    Expected{
                        "list --sort size --sort name", "list", {}, {{"sort", {"size", "name"}}}},
                    Expected{"--state d list", "list", {}, {{"state", {"d"}}}},
                    Expected{"list --state d", "list", {}, {{"state", {"d"}}}},
                    Expected{"--state d list a --state=e", "list", {"a"}, {{"state", {"d", "e"}}}},
                    Expected{"--backend sqlite list", "list", {}, {{"backend", {"sqlite"}}}},
                    Expected{"copy -- a -5", "copy", {"a", "-5"}, {}},
                    Expected{"remove -- --help -h", "remove", {"--help", "-h"}, {}},
                    Expected{"--help", "", {}, {{"help", {}}}},
                    Expected{"-h", "", {}, {{"help", {}}}},
                    Expected{"--version", "", {}, {{"version", {}}}},
                    Expected{"-h list", "list", {}, {{"help", {}}}},
                    Expected{"copy --help", "copy", {}, {{"help", {}}}},
                    Expected{"copy a b c -h", "copy", {"a", "b", "c"}, {{"help", {}}}},
                    Expected{"list --version", "list", {}, {{"version", {}}}},
                    Expected{"help copy", "help", {"copy"}, {}}));

TEST(InvocationTest, TheLastValueOfAnOptionCounts)
{
    const auto invocation =
        parse(sampleProgram(), wordsOf("--state a list --note x --state b --note y"));
    ASSERT_TRUE(invocation) << invocation.error().toStdString();
    EXPECT_EQ(invocation->value("state"), QStringLiteral("b"));
    EXPECT_EQ(invocation->values("note"), wordsOf("x y"));
    EXPECT_TRUE(invocation->has("note"));
    EXPECT_FALSE(invocation->has("json"));
    EXPECT_TRUE(invocation->value("json").isNull());
}

struct Refused {
    const char *words;
    const char *error;
};

void PrintTo(const Refused &refused, std::ostream *stream)
{
    *stream << refused.words;
}

/// Why words are refused; empty when they are taken.
QString refusalOf(const Program &program, const QStringList &words)
{
    const auto invocation = parse(program, words);
    return invocation ? QString() : invocation.error();
}

class RefusedWordsTest : public testing::TestWithParam<Refused> {};

TEST_P(RefusedWordsTest, AreExplained)
{
    EXPECT_EQ(refusalOf(sampleProgram(), wordsOf(GetParam().words)).toStdString(),
              GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RefusedWordsTest,
    testing::Values(
        Refused{"", "a command is missing; see 'sample help'"},
        Refused{"--state d", "a command is missing; see 'sample help'"},
        Refused{"lsit", "there is no command lsit; did you mean list?"},
        Refused{"List", "there is no command List; did you mean list?"},
        Refused{"frobnicate", "there is no command frobnicate; see 'sample help'"},
        Refused{"frobnicate --help", "there is no command frobnicate; see 'sample help'"},
        Refused{"--stte d list", "there is no option --stte; did you mean --state?"},
        Refused{"--frobnicate list", "there is no option --frobnicate; see 'sample help'"},
        Refused{"list --jsom", "list: there is no option --jsom; did you mean --json?"},
        Refused{"list --sate d", "list: there is no option --sate; did you mean --state?"},
        Refused{"list --frobnicate=1",
                "list: there is no option --frobnicate; see 'sample help list'"},
        Refused{"copy a -5",
                "copy: there is no option -5; an argument that begins with a dash goes "
                "after --"},
        Refused{"list --note", "list: missing value after '--note'"},
        Refused{"list --json=1", "list: unexpected value after '--json'"},
        Refused{"list --sort colour", "list: --sort is name or size, not \"colour\""},
        Refused{"--backend paper list", "--backend is sqlite or networkmanager, not \"paper\""},
        Refused{"--state= list", "--state names no directory"},
        Refused{"list --state=", "list: --state names no directory"},
        Refused{"list --trace= --trace x", "list: --trace names no file"},
        Refused{"copy a", "copy: arguments are missing; usage: copy FROM TO | FROM TO=NAME"},
        Refused{"list a b", "list: too many arguments; usage: list [NAME] [OPTION...]"},
        Refused{"help a b", "help: too many arguments; usage: help [COMMAND]"}));

TEST(ParserTest, AProgramWithoutCommandsHasOptionsAndArguments)
{
    const Program program = sampleWithoutCommands();
    for (const char *const line : {"--by price table", "table --by price", "table --by=price"}) {
        const auto invocation = parse(program, wordsOf(line));
        ASSERT_TRUE(invocation) << line << ": " << invocation.error().toStdString();
        EXPECT_EQ(invocation->command, &sumCommand);
        EXPECT_EQ(invocation->arguments, QStringList(QStringLiteral("table")));
        EXPECT_EQ(invocation->value("by"), QStringLiteral("price"));
    }
    EXPECT_TRUE(parse(program, wordsOf("--help")));
    EXPECT_TRUE(parse(program, {}, Completeness::Partial));
    const std::pair<const char *, const char *> refused[] = {
        {"", "arguments are missing; usage: sum TABLE [OPTION...]"},
        {"a b", "too many arguments; usage: sum TABLE [OPTION...]"},
        {"a --bye", "there is no option --bye; did you mean --by?"},
        {"a --frobnicate", "there is no option --frobnicate; see 'sum --help'"},
        {"a --by size", "--by is weight or price, not \"size\""},
    };
    for (const auto &[line, error] : refused)
        EXPECT_EQ(refusalOf(program, wordsOf(line)).toStdString(), error) << line;
    EXPECT_EQ(refusalOf(program, {QString()}).toStdString(), "TABLE names no file");
}

TEST(ParserTest, AnEmptyWordNamesNoFileAndNoCommand)
{
    EXPECT_EQ(refusalOf(sampleProgram(), {QStringLiteral("load"), QString()}),
              QStringLiteral("load: FILE names no file"));
    EXPECT_EQ(refusalOf(sampleProgram(), {QString()}),
              QStringLiteral("there is no command ; see 'sample help'"));
}

TEST(ParserTest, AShellIsAskedForItsOwnHelp)
{
    EXPECT_EQ(refusalOf(sampleShell(), wordsOf("frobnicate")),
              QStringLiteral("there is no command frobnicate; see 'help'"));
    EXPECT_EQ(refusalOf(sampleShell(), wordsOf("list --state d")),
              QStringLiteral("list: there is no option --state; see 'help list'"));
}

TEST(ParserTest, AnUnfinishedLineMayLackWords)
{
    EXPECT_TRUE(parse(sampleProgram(), wordsOf("copy"), Completeness::Partial));
}

} // namespace

} // namespace commandline
