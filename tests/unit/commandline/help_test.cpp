// What the tables say to people.

#include "help.h"

#include "sample_program.h"

#include <gtest/gtest.h>

namespace commandline {

namespace {

TEST(HelpTest, OfAProgramHasItsCommandsOptionsExitStatusesAndEnvironment)
{
    EXPECT_EQ(programHelp(sampleProgram(), 80).toStdString(),
              "Usage: sample [OPTION...] COMMAND [ARGUMENT...]\n"
              "Look after samples.\n"
              "\n"
              "Commands:\n"
              "  list    list what there is, all of it or what is called so\n"
              "  copy    copy one to another\n"
              "  load    load a file\n"
              "  remove  remove things\n"
              "  help    say what the commands do\n"
              "\n"
              "Options, before or after a command:\n"
              "  --state DIR     state directory of the simulated handset; without it\n"
              "                  $KUB_STATE_DIR, or $XDG_STATE_HOME/kub-dm, or\n"
              "                  ~/.local/state/kub-dm\n"
              "  --backend NAME  where the profiles are kept, sqlite or networkmanager; without\n"
              "                  it $KUB_NAPI_BACKEND, or sqlite\n"
              "  -h, --help      print this help; with a command, help for that command\n"
              "  --version       print the version\n"
              "\n"
              "Exit status:\n"
              "  0  everything was done\n"
              "  2  wrong usage\n"
              "\n"
              "Environment:\n"
              "  SAMPLE_DIR  where samples are\n"
              "  A_LONG_NAME_OF_A_VARIABLE\n"
              "              has a line of its own\n"
              "\n"
              "'sample help COMMAND' tells more about a command.\n");
}

TEST(HelpTest, OfAProgramWithoutCommandsHasItsSynopsisAndItsOptions)
{
    EXPECT_EQ(programHelp(sampleWithoutCommands(), 80).toStdString(),
              "Usage: sum TABLE [--by COLUMN] [--help]\n"
              "Adds up a table.\n"
              "\n"
              "Options:\n"
              "  --by COLUMN  add up that column\n"
              "  -h, --help   print this help\n"
              "\n"
              "Exit status:\n"
              "  0  everything was done\n"
              "  2  wrong usage\n");
}

TEST(HelpTest, OfACommandHasItsSynopsisAndItsOptions)
{
    EXPECT_EQ(commandHelp(sampleProgram(), listCommand, 40).toStdString(),
              "Usage: sample list [NAME] [--json]\n"
              "       [--sort KEY] [--trace FILE]\n"
              "       [--note TEXT]\n"
              "List what there is, all of it or what is\n"
              "called so.\n"
              "\n"
              "Options:\n"
              "  --json        print JSON\n"
              "  --sort KEY    sort by name or size\n"
              "  --trace FILE  write what is done to a\n"
              "                file\n"
              "  --note TEXT   write a note; repeatable\n"
              "\n"
              "'sample help' lists the options of every\n"
              "command.\n");
}

TEST(HelpTest, OfAShellHasNoProgramName)
{
    EXPECT_EQ(commandHelp(sampleShell(), removeCommand, 80).toStdString(),
              "Usage: remove NAME...\nRemove things.\n");
    EXPECT_EQ(programHelp(sampleShell(), 80).section(u'\n', 0, 0),
              QStringLiteral("Usage: COMMAND [ARGUMENT...]"));
}

TEST(HelpTest, FormsOfACommandStayInOnePiece)
{
    const QString help = commandHelp(sampleProgram(), copyCommand, 40);
    EXPECT_TRUE(help.startsWith(QStringLiteral("Usage: sample copy FROM TO |\n"
                                               "       FROM TO=NAME\n")))
        << help.toStdString();
}

TEST(HelpTest, NoLineIsWiderThanTheTerminal)
{
    for (const int width : {44, 60, 80, 120, 200})
        for (const QString &line : programHelp(sampleProgram(), width).split(u'\n'))
            EXPECT_LE(line.size(), width) << line.toStdString();
}

TEST(HelpTest, DetailsAreLinesThatGoOnDeeperWhereTheyAreIndented)
{
    Command command = removeCommand;
    command.details = [] {
        return QStringList{QString(), QStringLiteral("Things:"),
                           QStringLiteral("  these things and those things and more")};
    };
    const QString help = commandHelp(sampleProgram(), command, 30);
    EXPECT_TRUE(help.contains(QStringLiteral("\n\nThings:\n"
                                             "  these things and those\n"
                                             "    things and more\n")))
        << help.toStdString();
}

} // namespace

} // namespace commandline
