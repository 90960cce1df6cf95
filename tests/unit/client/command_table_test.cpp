// The table of commands and what is made from it.

#include "accounts.h"
#include "command_table.h"
#include "shell.h"

#include <gtest/gtest.h>

namespace client::cli {

namespace {

const CommandRow &row(const char *name)
{
    const CommandRow *const found = findCommand(QString::fromLatin1(name), false);
    EXPECT_NE(found, nullptr) << name;
    return *found;
}

QStringList words(std::initializer_list<const char *> texts)
{
    QStringList list;
    for (const char *text : texts)
        list.push_back(QString::fromUtf8(text));
    return list;
}

std::string problem(const char *name, std::initializer_list<const char *> texts)
{
    QString error;
    EXPECT_FALSE(parseInvocation(row(name), words(texts), error));
    return error.toStdString();
}

TEST(CommandTableTest, CommandsBelongToTheCommandLineTheShellOrBoth)
{
    EXPECT_NE(findCommand(QStringLiteral("tree"), true), nullptr);
    EXPECT_NE(findCommand(QStringLiteral("tree"), false), nullptr);
    EXPECT_EQ(findCommand(QStringLiteral("shell"), true), nullptr);
    EXPECT_EQ(findCommand(QStringLiteral("quit"), false), nullptr);
    EXPECT_EQ(findCommand(QStringLiteral("Tree"), false), nullptr);
    EXPECT_EQ(findCommand(QString(), false), nullptr);
}

TEST(CommandTableTest, OptionsStandAnywhereBehindTheCommand)
{
    QString error;
    for (const auto &line :
         {words({"--format", "int", "./A", "5"}), words({"./A", "5", "--format", "int"}),
          words({"./A", "--format=int", "5"})}) {
        const auto invocation = parseInvocation(row("add"), line, error);
        ASSERT_TRUE(invocation) << error.toStdString();
        EXPECT_EQ(invocation->arguments, words({"./A", "5"}));
        EXPECT_EQ(invocation->value("format"), QStringLiteral("int"));
    }
}

TEST(CommandTableTest, ADoubleDashEndsTheOptions)
{
    QString error;
    const auto invocation = parseInvocation(row("replace"), words({"--", "./A", "-5"}), error);
    ASSERT_TRUE(invocation) << error.toStdString();
    EXPECT_EQ(invocation->arguments, words({"./A", "-5"}));
}

TEST(CommandTableTest, WrongUsageIsExplained)
{
    EXPECT_EQ(problem("get", {}), "usage: get URI... [--prop NAME] [--show-secrets]");
    EXPECT_EQ(problem("rename", {"./A"}), "usage: rename URI NAME");
    EXPECT_EQ(problem("delete", {"./A", "./B"}), "usage: delete URI");
    EXPECT_EQ(problem("tree", {"--nonsense"}), "tree: Unknown option 'nonsense'.");
    EXPECT_EQ(problem("get", {"./A", "--prop"}), "get: Missing value after '--prop'.");
}

TEST(CommandTableTest, AFileHasAName)
{
    EXPECT_EQ(problem("process", {""}), "process: FILE names no file");
    EXPECT_EQ(problem("session", {"A", "--trace", ""}), "session: --trace names no file");
    EXPECT_EQ(problem("session", {"A", "--ca", ""}), "session: --ca names no file");
    EXPECT_EQ(problem("session", {"A", "--trace", "", "--trace", "x"}),
              "session: --trace names no file");
}

TEST(CommandTableTest, AnUnfinishedLineMayLackWords)
{
    QString error;
    EXPECT_TRUE(parseInvocation(row("rename"), {}, error, Completeness::Partial));
}

TEST(CommandTableTest, HelpNamesEveryCommandThatCanBeUsed)
{
    for (const bool inShell : {false, true}) {
        const QString overview = commandOverview(inShell);
        for (const CommandRow &command : commandTable()) {
            const QString name = QString::fromLatin1(command.name);
            EXPECT_EQ(overview.contains(QStringLiteral("\n  %1 ").arg(name)) ||
                          overview.startsWith(QStringLiteral("  %1 ").arg(name)),
                      findCommand(name, inShell) != nullptr)
                << command.name;
        }
    }
}

TEST(CommandTableTest, HelpOfACommandNamesItsOptions)
{
    for (const CommandRow &command : commandTable())
        for (const OptionRow &option : command.options)
            EXPECT_TRUE(commandHelp(command).contains(
                QStringLiteral("  --%1").arg(QString::fromLatin1(option.name))))
                << command.name << " " << option.name;
}

TEST(CommandTableTest, HelpOfAccountNamesTheFields)
{
    const CommandRow *const account = findCommand(QStringLiteral("account"), false);
    ASSERT_NE(account, nullptr);
    EXPECT_TRUE(commandHelp(*account).contains(
        QStringLiteral("\n  the fields are address, server-id, title, client-auth, ")));
}

// ---- The history of the shell --------------------------------------------------------------------

TEST(HistoryTest, NoFieldThatHoldsASecretIsRemembered)
{
    int secrets = 0;
    for (const AccountField &field : accountFields()) {
        secrets += field.isSecret ? 1 : 0;
        EXPECT_EQ(mayBeRemembered(
                      QStringLiteral("account set X %1=x").arg(QLatin1String(field.name)).toUtf8()),
                  !field.isSecret)
            << field.name;
    }
    EXPECT_EQ(secrets, 2);
}

TEST(HistoryTest, ALineThatMayNameASecretIsNotRemembered)
{
    for (const char *line :
         {"account set X Client-Secret=x", "account set X client_secret=x",
          "account set X SECRET=x", "account set X client-secret = x", "replace ./A/AuthPw x",
          "replace ./A/authpw/Deeper x", "replace ./A Auth%50w=x", "replace ./A AAuthData=x",
          "add ./A/OwnSecret// x", "replace ./A/S%65cret x", "replace ./A 'unclosed"})
        EXPECT_FALSE(mayBeRemembered(line)) << line;
}

TEST(HistoryTest, WhatOnlySoundsLikeASecretIsRemembered)
{
    for (const char *line :
         {"get ./A/Secretary/Addr", "get --show-secrets ./A", "replace ./A/B secret/x",
          "account set X title=Secret", "replace ./A/B x=secret"})
        EXPECT_TRUE(mayBeRemembered(line)) << line;
}

} // namespace

} // namespace client::cli
