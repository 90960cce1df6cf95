// The table of commands, and which lines of the shell are remembered.

#include "accounts.h"
#include "command_table.h"
#include "shell.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace client::cli {

namespace {

using commandline::findCommand;

TEST(CommandTableTest, CommandsBelongToTheCommandLineTheShellOrBoth)
{
    struct Row {
        const char *name;
        bool onCommandLine;
        bool inShell;
    };
    for (const Row &row :
         {Row{"tree", true, true}, Row{"help", true, true}, Row{"shell", true, false},
          Row{"quit", false, true}, Row{"Tree", false, false}, Row{"", false, false}}) {
        const QString name = QString::fromLatin1(row.name);
        EXPECT_EQ(findCommand(program(), name) != nullptr, row.onCommandLine) << row.name;
        EXPECT_EQ(findCommand(shellProgram(), name) != nullptr, row.inShell) << row.name;
    }
}

TEST(CommandTableTest, EveryFieldOfAnAccountIsInItsHelpAndOffered)
{
    const commandline::Command *const account = findCommand(program(), QStringLiteral("account"));
    ASSERT_NE(account, nullptr);
    const QString details = account->details().join(u' ') + u' ';
    for (const AccountField &field : accountFields()) {
        const QString name = QString::fromLatin1(field.name);
        EXPECT_TRUE(details.contains(QRegularExpression(QStringLiteral(" %1[,.] ").arg(name))))
            << field.name;
        const QStringList words = account->otherWords();
        EXPECT_TRUE(std::ranges::any_of(words, [&name](const QString &word) {
            return word.startsWith(name + u'=');
        })) << field.name;
    }
    EXPECT_TRUE(account->firstWords().contains(QStringLiteral("show")));
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
