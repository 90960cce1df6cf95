// A server renames profile nodes: the mapping follows, the stored profile keeps its name.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class RenameProfile : public StoryTest {};

TEST_F(RenameProfile, MovesTheNodeAndItsMappingUntilTheNextMount)
{
    Store("Office", {.gprsAddress = "office.apn"});
    Store("Home", {.csdAddress = "+4930"});
    Mount();

    EXPECT_EQ(Rename(Conn, "Office", "Team"), 0);
    const Lines oldSubtree = ConnSubtree("- ", "Office", {"GSM-GPRS", "office.apn", ""});
    const Lines newSubtree = ConnSubtree("+ ", "Team", {"GSM-GPRS", "office.apn", ""});
    EXPECT_EQ(Changes(), All({{"- napdef {Office}Ph1DC1 = Office"},
                              oldSubtree,
                              {"+ napdef {Office}Ph1DC1 = Team"},
                              newSubtree}));
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Team", "Home"})) << "it keeps its place";

    // The other root goes on referring to the old name.
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"Office\"");

    EXPECT_EQ(Replace(Conn, "Team/Addr", Text("work.apn")), 0);
    EXPECT_EQ(Changes(), (Lines{"- service Office: gprs address = \"office.apn\"",
                                "- Conn/Team/Addr = \"office.apn\"",
                                "+ service Office: gprs address = \"work.apn\"",
                                "+ Conn/Team/Addr = \"work.apn\""}));

    EXPECT_EQ(Rename(Conn, "Office", "Elsewhere"), 404);
    EXPECT_EQ(Rename(Conn, "Team", "Home"), 418);
    EXPECT_EQ(Rename(Conn, "Team", "Team"), 418);
    EXPECT_EQ(Rename(Conn, "Team/Addr", "Host"), 1);
    EXPECT_EQ(Rename(Conn, "Team/Addr", "DNS1"), 418);
    EXPECT_EQ(Changes(), Lines{});

    Remount();
    EXPECT_EQ(Changes(), All({{"- napdef {Office}Ph1DC1 = Team"},
                              ConnSubtree("- ", "Team", {"GSM-GPRS", "work.apn", ""}),
                              {"+ napdef {Office}Ph1DC1 = Office"},
                              ConnSubtree("+ ", "Office", {"GSM-GPRS", "work.apn", ""})}));
}

TEST_F(RenameProfile, MovesTheConnectionReferencesOfAProxyProfile)
{
    Store("Office", {.gprsAddress = "office.apn", .csd2Address = "+4940"});
    Mount();
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"Office\"");
    EXPECT_EQ(Get(IntProfs, "Office/Ph2/Conn"), "\"\"");

    EXPECT_EQ(Rename(IntProfs, "Office", "Team"), 0);
    const ProxyValues references = {.reference1 = "Office", .reference3 = "Office"};
    EXPECT_EQ(Changes(), All({{"- proxy {Office} = Office", "- reference Office/Ph1 = Office",
                               "- reference Office/Ph3 = Office"},
                              ProxySubtree("- ", "Office", references),
                              {"+ proxy {Office} = Team", "+ reference Team/Ph1 = Office",
                               "+ reference Team/Ph3 = Office"},
                              ProxySubtree("+ ", "Team", references)}));

    // Written and deleted under the new name.
    EXPECT_EQ(Replace(IntProfs, "Team/Ph2/Conn", Text("Home")), 0);
    EXPECT_EQ(Changes(), (Lines{"- IntProfs/Team/Ph2/Conn = \"\"", "+ reference Team/Ph2 = Home",
                                "+ IntProfs/Team/Ph2/Conn = \"Home\""}));
    EXPECT_EQ(Rename(IntProfs, "Team", "W"), 0);
    EXPECT_EQ(Rename(IntProfs, "W", "Office"), 0);
    EXPECT_EQ(Get(IntProfs, "Office/Ph2/Conn"), "\"Home\"");

    Remount();
    EXPECT_EQ(
        Changes(),
        All({{"- proxy {Office} = Team", "- reference Team/Ph1 = Office",
              "- reference Team/Ph2 = Home", "- reference Team/Ph3 = Office"},
             ProxySubtree("- ", "Team",
                          {.reference1 = "Office", .reference2 = "Home", .reference3 = "Office"}),
             {"+ proxy {Office} = Office", "+ reference Office/Ph1 = Office",
              "+ reference Office/Ph3 = Office"},
             ProxySubtree("+ ", "Office", references)}));
}

} // namespace
