// What could stand next on a command line, as the tables say.

#include "completion_words.h"

#include "sample_program.h"

#include <gtest/gtest.h>

namespace commandline {

namespace {

constexpr Option sampleChoice[] = {
    {"fields", "FIELDS", "show these", ValueKind::Words,
     [] {
         return QStringList{QStringLiteral("all"), QStringLiteral("id")};
     },
     'f'}};
constexpr Command setCommand = {"set",
                                "NAME FIELD=VALUE...",
                                "change fields",
                                2,
                                anyNumber,
                                sampleChoice,
                                ValueKind::Text,
                                nullptr,
                                [] {
                                    return QStringList{QStringLiteral("colour="),
                                                       QStringLiteral("size=small"),
                                                       QStringLiteral("size=large")};
                                }};

Program programWithSet()
{
    Program program = sampleProgram();
    program.commands.push_back(&setCommand);
    return program;
}

/// What goes on after the words, the last of which is being typed; "~" after one that goes on, and
/// "<files>" or "<directories>". Things that are there are called one, other and -odd.
std::vector<std::string> after(const char *line, const Program &program = programWithSet())
{
    QStringList words = QString::fromUtf8(line).split(u' ');
    const QString prefix = words.takeLast();
    const Completion completion =
        complete(program, {words, prefix}, [](const Invocation &before, const QString &) {
            const bool takesName = before.command == &removeCommand ||
                                   (before.command == &setCommand && before.arguments.isEmpty());
            return takesName ? std::vector<Candidate>{{QStringLiteral("one")},
                                                      {QStringLiteral("other")},
                                                      {QStringLiteral("-odd")}}
                             : std::vector<Candidate>();
        });
    std::vector<std::string> found;
    for (const Candidate &candidate : completion.candidates)
        found.push_back(candidate.word.toStdString() + (candidate.isWhole ? "" : "~"));
    if (completion.files != ValueKind::None)
        found.emplace_back(completion.files == ValueKind::File ? "<files>" : "<directories>");
    return found;
}

using Words = std::vector<std::string>;

TEST(CompletionWordsTest, AProgramWithoutCommandsHasOptionsAndArguments)
{
    const Program program = sampleWithoutCommands();
    EXPECT_EQ(after("", program), Words{"<files>"});
    EXPECT_EQ(after("-", program), (Words{"--by", "--help"}));
    EXPECT_EQ(after("table --b", program), Words{"--by"});
    EXPECT_EQ(after("--by ", program), (Words{"weight", "price"}));
    EXPECT_EQ(after("--by=p", program), Words{"--by=price"});
    EXPECT_EQ(after("--by price ", program), Words{"<files>"});
    EXPECT_EQ(after("table ", program), Words());
}

TEST(CompletionWordsTest, CommandsStandFirst)
{
    EXPECT_EQ(after(""), (Words{"list", "copy", "load", "remove", "help", "set"}));
    EXPECT_EQ(after("l"), (Words{"list", "load"}));
    EXPECT_EQ(after("--state d l"), (Words{"list", "load"}));
    EXPECT_EQ(after("--state=d l"), (Words{"list", "load"}));
    EXPECT_EQ(after("help l"), (Words{"list", "load"}));
    EXPECT_EQ(after("help list l"), Words());
    EXPECT_EQ(after("nothing l"), (Words{"list", "load"})) << "there is no such command yet";
}

TEST(CompletionWordsTest, OptionsAreThoseOfTheCommandAndOfTheProgram)
{
    EXPECT_EQ(after("--s"), Words{"--state"});
    EXPECT_EQ(after("list --s"), (Words{"--sort", "--state"}));
    EXPECT_EQ(after("list -- --s"), Words());
    EXPECT_EQ(after("remove -- -"), Words{"-odd"});
}

TEST(CompletionWordsTest, ValuesFollowTheirOptions)
{
    EXPECT_EQ(after("--backend "), (Words{"sqlite", "networkmanager"}));
    EXPECT_EQ(after("--backend=n"), Words{"--backend=networkmanager"});
    EXPECT_EQ(after("list --sort s"), Words{"size"});
    EXPECT_EQ(after("list --note "), Words());
    EXPECT_EQ(after("list --trace "), Words{"<files>"});
    EXPECT_EQ(after("list --state=x"), Words{"<directories>"});
    EXPECT_EQ(after("--state "), Words{"<directories>"});
    EXPECT_EQ(after("copy --sort "), Words()) << "which is an option of another command";
}

TEST(CompletionWordsTest, TheLastOfSeveralWordsIsCompleted)
{
    EXPECT_EQ(after("set -f "), (Words{"all~", "id~"}));
    EXPECT_EQ(after("set --fields id,a"), Words{"id,all~"});
    EXPECT_EQ(after("set --fields=id,"), (Words{"--fields=id,all~", "--fields=id,id~"}));
}

TEST(CompletionWordsTest, ArgumentsAreWhatThereIs)
{
    EXPECT_EQ(after("remove o"), (Words{"one", "other"}));
    EXPECT_EQ(after("remove one ot"), Words{"other"});
    EXPECT_EQ(after("set --fields all o"), (Words{"one", "other"}));
    EXPECT_EQ(after("load x"), Words{"<files>"});
    EXPECT_EQ(after("load x y"), Words());
}

TEST(CompletionWordsTest, FieldsGrowByTheirNamesAndThenByTheirValues)
{
    EXPECT_EQ(after("set one "), (Words{"colour=~", "size=~"}));
    EXPECT_EQ(after("set one size="), (Words{"size=small", "size=large"}));
    EXPECT_EQ(after("set one size=l"), Words{"size=large"});
    EXPECT_EQ(after("set one colour=r"), Words());
    EXPECT_EQ(after("set one colour="), Words());
}

TEST(CompletionWordsTest, LinesHaveWhatAShellCanRead)
{
    const std::vector<Candidate> candidates = {
        {QStringLiteral("one"), true, QStringLiteral("first")},
        {QStringLiteral("a\nb")},
        {QStringLiteral("a\tb")},
        {QStringLiteral("a\x1b[2J")},
        {QStringLiteral("a\u0085b")},
        {QStringLiteral("a b")}};
    EXPECT_EQ(completionLines({candidates}).toStdString(), "one\tfirst\na b\n");
    EXPECT_EQ(
        completionLines({{{QStringLiteral("x="), false}}, ValueKind::Directory}).toStdString(),
        "x=\n\tunfinished\n\tdirectories\n");
    EXPECT_EQ(completionLines({{}, ValueKind::File}).toStdString(), "\tfiles\n");
}

} // namespace

} // namespace commandline
