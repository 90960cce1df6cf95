// Names that a server can send: none may crash, spoil a file or touch another profile.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class HostileNames : public StoryTest {
protected:
    void SetUp() override
    {
        Store("Home", {.gprsAddress = "home.apn"});
        Mount();
    }
};

class AcceptedName : public HostileNames, public ::testing::WithParamInterface<std::string> {};

TEST_P(AcceptedName, IsAddedRenamedAndDeletedWithoutTouchingAnotherProfile)
{
    const std::string name = GetParam();
    const std::string profile = name.substr(0, name.find("&&_"));

    ASSERT_EQ(AddInterior(Conn, name), 0);
    EXPECT_EQ(Changes(),
              (Lines{"+ service " + profile, "+ service " + profile + ": creation byte = 1",
                     "+ napdef {" + profile + "}Ph2DC1 = " + name, "+ Conn/" + name + "/"}));
    EXPECT_EQ(AddLeaf(Conn, name + "/Addr", Text("+49")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service " + profile + ": csd address = \"+49\"",
                                "+ Conn/" + name + "/Addr = \"+49\""}));

    EXPECT_EQ(Rename(Conn, name, "Plain"), 0);
    EXPECT_EQ(Rename(Conn, "Plain", name), 0);
    EXPECT_EQ(Changes(), Lines{});

    EXPECT_EQ(Delete(Conn, name), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- service " + profile, "- service " + profile + ": creation byte = 1",
                     "- service " + profile + ": csd address = \"+49\"",
                     "- napdef {" + profile + "}Ph2DC1 = " + name, "- Conn/" + name + "/",
                     "- Conn/" + name + "/Addr = \"+49\""}));
}

TEST_P(AcceptedName, NamesAProxyProfileAndKeysItsReferences)
{
    const std::string name = GetParam();
    const std::string profile = name.substr(0, name.find("&&_"));

    ASSERT_EQ(AddInterior(IntProfs, name), 0);
    ASSERT_EQ(AddInterior(IntProfs, name + "/Ph1"), 0);
    EXPECT_EQ(AddLeaf(IntProfs, name + "/Ph1/Conn", Text(name)), 0);
    EXPECT_EQ(
        Changes(),
        (Lines{"+ service " + profile, "+ service " + profile + ": creation byte = 1",
               "+ proxy {" + profile + "} = " + name, "+ reference " + name + "/Ph1 = " + name,
               "+ IntProfs/" + name + "/", "+ IntProfs/" + name + "/Ph1/",
               "+ IntProfs/" + name + "/Ph1/Conn = " + Quoted(name)}));

    EXPECT_EQ(Delete(IntProfs, name), 0);
    EXPECT_EQ(
        Changes(),
        (Lines{"- service " + profile, "- service " + profile + ": creation byte = 1",
               "- proxy {" + profile + "} = " + name, "- reference " + name + "/Ph1 = " + name,
               "- IntProfs/" + name + "/", "- IntProfs/" + name + "/Ph1/",
               "- IntProfs/" + name + "/Ph1/Conn = " + Quoted(name)}));
}

INSTANTIATE_TEST_SUITE_P(Names, AcceptedName,
                         ::testing::Values("100%s%n%x%d", "%999999999d", "line\nbreak\r\n",
                                           "\n[NAPIDEF_Profile]\n1=x", "key=value", "[group]",
                                           "#comment", "; comment", "back\\slash", " outer blanks ",
                                           "tab\t", "\x01\x7f", "1Ph1DC1", "1", "007", "-1",
                                           "Office&&_", "Office&&_&&_x", "Office&&_Ph1DC1", "Home ",
                                           "home", "Bearer", "Ph1", "Auth", std::string(63, 'n')),
                         [](const auto &info) { return std::to_string(info.index); });

TEST_F(HostileNames, ThatTheProfileServiceRefusesChangeNothing)
{
    const std::string refused[] = {std::string(64, 'n'),
                                   std::string(10000, 'n'),
                                   std::string(10000, '%'),
                                   "&&_x",
                                   "&&_",
                                   ".",
                                   "..",
                                   "*",
                                   "\xff\xfe",
                                   "half a character \xc3",
                                   std::string(64, 'n') + "&&_x"};
    for (const std::string &name : refused) {
        EXPECT_EQ(AddInterior(Conn, name), 1) << Quoted(name);
        EXPECT_EQ(AddInterior(IntProfs, name), 1) << Quoted(name);
        EXPECT_EQ(Changes(), Lines{}) << Quoted(name);
    }
}

TEST_F(HostileNames, InARenameReachTheFileAndHarmNothing)
{
    const std::string names[] = {
        std::string(10000, 'n'), "%n%n%n%s", "a\nb=c\n[x]", "1Ph1DC1", "\xc3\xa4", "&&_"};
    std::string current = "Home";
    for (const std::string &name : names) {
        EXPECT_EQ(Rename(Conn, current, name), 0) << Quoted(name);
        const Lines changes = Changes();
        EXPECT_EQ(changes.size(), 26u);
        EXPECT_EQ(changes.at(0), "- napdef {Home}Ph1DC1 = " + current);
        EXPECT_EQ(changes.at(13), "+ napdef {Home}Ph1DC1 = " + name);
        EXPECT_EQ(Get(Conn, name + "/Addr"), "\"home.apn\"");
        current = name;
    }
    // Not UTF-8: the tree keeps the bytes, the file shows a replacement for what is none.
    EXPECT_EQ(Rename(Conn, current, "\xff"), 0);
    EXPECT_EQ(Changes().at(13), "+ napdef {Home}Ph1DC1 = \xef\xbf\xbd");
    EXPECT_EQ(Get(Conn, "\xff/Addr"), "\"home.apn\"");

    EXPECT_NE(Rename(Conn, "\xff", ""), 0);
    EXPECT_NE(Rename(Conn, "\xff", "a/b"), 0);
    EXPECT_EQ(Changes(), Lines{});
    Remount();
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Home"}));
}

TEST_F(HostileNames, EqualToTheIDKeyOfAnotherProfileStayApartFromIt)
{
    Unmount();
    Store("Other", {.gprsAddress = "other.apn"});
    Mount();
    // Texts that are, or look like, keys of the mapping file.
    for (const char *const name : {"1", "2", "1Ph1DC1", "Ph1DC1"}) {
        ASSERT_EQ(Rename(Conn, "Other", name), 0);
        EXPECT_EQ(Get(Conn, std::string(name) + "/Addr"), "\"other.apn\"");
        EXPECT_EQ(Replace(Conn, std::string(name) + "/Addr", Text("changed.apn")), 0);
        EXPECT_EQ(Get(Conn, "Home/Addr"), "\"home.apn\"");
        EXPECT_EQ(Replace(Conn, std::string(name) + "/Addr", Text("other.apn")), 0);
        ASSERT_EQ(Rename(Conn, name, "Other"), 0);
    }
    EXPECT_EQ(Changes(), Lines{});
}

} // namespace
