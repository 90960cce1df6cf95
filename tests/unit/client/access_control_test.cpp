// The grammar of access control lists.

#include "access_control.h"

#include <gtest/gtest.h>

namespace client {

namespace {

/// The list as it is written again, or "!" and what is wrong with it.
std::string reread(const QByteArray &text)
{
    const auto list = AccessControlList::parse(text);
    return list ? list->toText().toStdString() : "! " + list.error().toStdString();
}

AccessControlList parsed(const QByteArray &text)
{
    return *AccessControlList::parse(text);
}

TEST(AccessControlListTest, IsWrittenAsItWasRead)
{
    const QByteArray text = "Add=www.sonera.fi-8765&Delete=www.sonera.fi-8765&"
                            "Get=*&Replace=www.sonera.fi-8765+321_ibm.com";
    EXPECT_EQ(reread(text), text.toStdString());
    EXPECT_EQ(reread("Exec=a/b:c?#"), "Exec=a/b:c?#");
    EXPECT_EQ(reread("Get=caf\xc3\xa9"), "Get=caf\xc3\xa9");
    EXPECT_EQ(reread("Replace=a&Get=*"), "Get=*&Replace=a");
}

TEST(AccessControlListTest, IsEmptyWithoutARight)
{
    EXPECT_TRUE(parsed("").isEmpty());
    EXPECT_TRUE(parsed(" \r\n").isEmpty());
    EXPECT_FALSE(parsed("Get=a").isEmpty());
}

TEST(AccessControlListTest, MergesARightThatIsNamedTwice)
{
    EXPECT_EQ(reread("Get=ServerA&Replace=ServerA&Get=ServerB"),
              "Get=ServerA+ServerB&Replace=ServerA");
    EXPECT_EQ(reread("Get=a+b+a"), "Get=a+b");
}

TEST(AccessControlListTest, NeedsNoServerBesideEveryServer)
{
    EXPECT_EQ(reread("Get=a+*+b"), "Get=*");
    EXPECT_EQ(reread("Get=*&Get=a"), "Get=*");
}

TEST(AccessControlListTest, MayHaveWhiteSpaceAroundItAndNowhereElse)
{
    EXPECT_EQ(reread("\n  Get=*\t"), "Get=*");
    EXPECT_EQ(reread("Get=a b"), "! \"a b\" in \"Get=a b\" is not a server identifier");
    EXPECT_EQ(reread("Get=a &Add=b"), "! \"a \" in \"Get=a \" is not a server identifier");
}

TEST(AccessControlListTest, SaysWhatIsMalformedInIt)
{
    constexpr char unknown[] = " does not begin with Add=, Delete=, Exec=, Get= or Replace=";
    for (const char *const entry : {"Get", "get=*", "Read=*", "=a", "*", " Get=a&b"})
        EXPECT_NE(reread(entry).find(unknown), std::string::npos) << entry;
    EXPECT_NE(reread("Get=*&").find("! \"\""), std::string::npos);
    EXPECT_NE(reread("&Get=*").find("! \"\""), std::string::npos);
    EXPECT_EQ(reread("Get="), "! \"\" in \"Get=\" is not a server identifier");
    EXPECT_EQ(reread("Get=a+"), "! \"\" in \"Get=a+\" is not a server identifier");
    EXPECT_EQ(reread("Get=a*"), "! \"a*\" in \"Get=a*\" is not a server identifier");
    EXPECT_EQ(reread("Get=a=b"), "! \"a=b\" in \"Get=a=b\" is not a server identifier");
    EXPECT_NE(reread("Get=a\x01").find("is not a server identifier"), std::string::npos);
    EXPECT_NE(reread("Get=\xff").find("is not a server identifier"), std::string::npos);
}

TEST(AccessControlListTest, PermitsEachRightToItsServersOnly)
{
    const AccessControlList list = parsed("Add=a&Get=*&Replace=a+b");
    EXPECT_TRUE(list.permits(Right::Add, Principal::server("a")));
    EXPECT_FALSE(list.permits(Right::Add, Principal::server("b")));
    EXPECT_TRUE(list.permits(Right::Replace, Principal::server("b")));
    EXPECT_TRUE(list.permits(Right::Get, Principal::server("anybody")));
    EXPECT_FALSE(list.permits(Right::Delete, Principal::server("a")));
    EXPECT_FALSE(list.permits(Right::Exec, Principal::server("a")));
    EXPECT_FALSE(list.permits(Right::Replace, Principal::server("A")));
}

TEST(AccessControlListTest, AServerWithoutAnAccountHasTheRightsOfEveryServerOnly)
{
    const AccessControlList list = parsed("Add=a&Get=*");
    EXPECT_TRUE(list.permits(Right::Get, Principal::anonymousServer()));
    EXPECT_FALSE(list.permits(Right::Add, Principal::anonymousServer()));
    AccessControlList nameless;
    nameless.grant(Right::Add, "");
    EXPECT_FALSE(nameless.permits(Right::Add, Principal::anonymousServer()));
}

TEST(AccessControlListTest, AServerCalledLikeEveryServerHasNoMoreThanItWasGiven)
{
    EXPECT_FALSE(parsed("Get=a").permits(Right::Get, Principal::server("*")));
    EXPECT_FALSE(isServerIdentifier("*"));
    EXPECT_FALSE(isServerIdentifier(""));
    EXPECT_TRUE(isServerIdentifier("www.example.com"));
}

TEST(AccessControlListTest, ForgetsAServer)
{
    AccessControlList list = parsed("Add=a+b&Get=*&Replace=a");
    EXPECT_TRUE(list.forget("a"));
    EXPECT_EQ(list.toText(), "Add=b&Get=*");
    EXPECT_FALSE(list.forget("a"));
}

TEST(AccessControlListTest, IsEmptyWhenItHasForgottenItsOnlyServer)
{
    AccessControlList list = parsed("Get=a");
    EXPECT_TRUE(list.forget("a"));
    EXPECT_TRUE(list.isEmpty());
}

TEST(AccessControlListTest, ACopyKeepsWhatItHad)
{
    AccessControlList list = parsed("Get=a");
    const AccessControlList copy = list;
    list.grant(Right::Get, "b");
    EXPECT_EQ(copy.toText(), "Get=a");
    EXPECT_EQ(list.toText(), "Get=a+b");
}

} // namespace

} // namespace client
