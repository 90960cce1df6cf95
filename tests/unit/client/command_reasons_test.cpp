// What stands after the status of a command.

#include "command_reasons.h"

#include <gtest/gtest.h>
#include <initializer_list>

namespace client {

namespace {

using Kind = CommandReasons::Kind;

std::string textOf(std::initializer_list<const char *> messages, Kind kind = Kind::All)
{
    CommandReasons reasons;
    for (const char *message : messages)
        reasons.addMessage(message);
    return reasons.text(kind).toStdString();
}

TEST(CommandReasonsTest, MessageSaysWhatItSaysWithoutWhereThatWas)
{
    struct Row {
        const char *message;
        const char *text;
    };
    for (const Row &row : {
             Row{"(a.cpp:624)Leave: SetValueInternal()! failed! Speed illegal \n", "Speed illegal"},
             Row{"(a.cpp:1375)Leave: Create() fail!Profile name too long\n",
                 "Profile name too long"},
             Row{"(a.cpp:1392)Leave:Create() fail, the Auth type is not PAP\n",
                 "the Auth type is not PAP"},
             Row{"(a.cpp:473)??? Leave: Add:setSettingInfo  Failed, it has exist\n",
                 "setSettingInfo Failed, it has exist"},
             Row{"(a.cpp:1142)Warning: DeleteNode! Node A is not exist!\n",
                 "Warning: DeleteNode! Node A is not exist!"},
             Row{"(a.cpp:1)Leave: RenameNode! Rename failed\n", "Rename failed"},
             Row{"(a.cpp:1)Leave: RenameNode! failed\n", "failed"},
             Row{"Another plug-in's own words: no", "Another plug-in's own words: no"},
             Row{"(not a place) text", "(not a place) text"},
             Row{"(a:1)two\nlines\n", "two lines"},
             Row{"(a.cpp:621)Leave: RenameProfileMap!\n", ""},
             Row{"", ""},
             Row{"(a:1", "(a:1"},
             Row{"(a:1)", ""},
             Row{"Leave:", ""},
         })
        EXPECT_EQ(textOf({row.message}), row.text) << row.message;
}

TEST(CommandReasonsTest, EachIsSaidOnceInItsOrder)
{
    EXPECT_EQ(textOf({"one", "two", "one"}), "one; two");
}

TEST(CommandReasonsTest, TheWayUpFromAFailureSaysNothingNew)
{
    EXPECT_EQ(
        textOf({"(a:1)Leave: Inner()! failed! Speed illegal", "(a:2)Leave: Middle! Inner() failed!",
                "(a:3)Leave: Outer()! Middle failed! 1"}),
        "Speed illegal");
    EXPECT_EQ(textOf({"(a:1)Leave: Inner()! one", "(a:2)Leave: Outer! InnerMost() failed!"}),
              "one; InnerMost() failed!")
        << "another function";
    EXPECT_EQ(textOf({"(a:1)Leave: Create() fail!too long", "(a:2)Leave:Create: call failed! 2"}),
              "too long; call failed! 2")
        << "the same function again";
}

TEST(CommandReasonsTest, ReasonOfAServiceStandsForTheNumberThatThePluginHasOfIt)
{
    CommandReasons reasons;
    reasons.addFailure("NAPI_ModifyProfile", QStringLiteral("NetworkManager: no\nsuch thing"));
    reasons.addMessage("(a:1)Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return 11\n");
    reasons.addMessage("(a:2)Leave: SetValue()! SetValueInternal() failed!\n");
    EXPECT_EQ(reasons.text(Kind::All), QStringLiteral("NetworkManager: no such thing"));
}

TEST(CommandReasonsTest, OrdinaryMessagesAreNoTrouble)
{
    EXPECT_EQ(textOf({"(a:701)Leave: GetConnValue(), the Conn of  Ph1 has no related fields\n",
                      "(a:1142)Warning: DeleteNode! Node A is not exist!\n",
                      "(a:712)Leave: GetConnValue! SetConnValue failed\n"},
                     Kind::Trouble),
              "Warning: DeleteNode! Node A is not exist!; SetConnValue failed");
}

TEST(CommandReasonsTest, ManyDifferentSentencesAreCutOff)
{
    CommandReasons reasons;
    for (int number = 0; number < 1000; ++number)
        reasons.addMessage(std::to_string(number));
    EXPECT_EQ(reasons.text(Kind::All), QStringLiteral("0; 1; 2; 3; 4; 5; 6; 7; and more"));
    reasons.clear();
    EXPECT_EQ(reasons.text(Kind::All), QString());
}

} // namespace

} // namespace client
