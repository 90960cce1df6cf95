// A server renames profile nodes: the mapping follows, the stored profile keeps its name.
#include "handset.h"
#include "subtrees.h"

namespace {

class RenameProfile : public HandsetTest {};

TEST_F(RenameProfile, MovesTheNodeAndItsMappingUntilTheNextMount)
{
    Store("Office", {.gprsAddress = "office.apn"});
    Store("Home", {.csdAddress = "+4930"});
    Mount();

    EXPECT_EQ(Rename(Conn, "Office", "Work"), 0);
    const Lines oldSubtree = ConnSubtree("- ", "Office", {"GSM-GPRS", "office.apn", ""});
    const Lines newSubtree = ConnSubtree("+ ", "Work", {"GSM-GPRS", "office.apn", ""});
    EXPECT_EQ(Changes(), All({{"- napdef {Office}Ph1DC1 = Office"},
                              oldSubtree,
                              {"+ napdef {Office}Ph1DC1 = Work"},
                              newSubtree}));
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Work", "Home"})) << "it keeps its place";

    // The other root goes on referring to the old name.
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"Office\"");

    EXPECT_EQ(Replace(Conn, "Work/Addr", Text("work.apn")), 0);
    EXPECT_EQ(Changes(), (Lines{"- service Office: gprs address = \"office.apn\"",
                                "- Conn/Work/Addr = \"office.apn\"",
                                "+ service Office: gprs address = \"work.apn\"",
                                "+ Conn/Work/Addr = \"work.apn\""}));

    EXPECT_EQ(Rename(Conn, "Office", "Elsewhere"), 404);
    EXPECT_EQ(Rename(Conn, "Work", "Home"), 418);
    EXPECT_EQ(Rename(Conn, "Work", "Work"), 418);
    EXPECT_EQ(Rename(Conn, "Work/Addr", "Host"), 1);
    EXPECT_EQ(Rename(Conn, "Work/Addr", "DNS1"), 418);
    EXPECT_EQ(Changes(), Lines{});

    Remount();
    EXPECT_EQ(Changes(), All({{"- napdef {Office}Ph1DC1 = Work"},
                              ConnSubtree("- ", "Work", {"GSM-GPRS", "work.apn", ""}),
                              {"+ napdef {Office}Ph1DC1 = Office"},
                              ConnSubtree("+ ", "Office", {"GSM-GPRS", "work.apn", ""})}));
}

TEST_F(RenameProfile, MovesTheConnectionReferencesOfAProxyProfile)
{
    Store("Office", {.gprsAddress = "office.apn", .csd2Address = "+4940"});
    Mount();
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"Office\"");
    EXPECT_EQ(Get(IntProfs, "Office/Ph2/Conn"), "\"\"");

    EXPECT_EQ(Rename(IntProfs, "Office", "Work"), 0);
    const ProxyValues references = {.reference1 = "Office", .reference3 = "Office"};
    EXPECT_EQ(Changes(), All({{"- proxy {Office} = Office", "- reference Office/Ph1 = Office",
                               "- reference Office/Ph3 = Office"},
                              ProxySubtree("- ", "Office", references),
                              {"+ proxy {Office} = Work", "+ reference Work/Ph1 = Office",
                               "+ reference Work/Ph3 = Office"},
                              ProxySubtree("+ ", "Work", references)}));

    // Written and deleted under the new name.
    EXPECT_EQ(Replace(IntProfs, "Work/Ph2/Conn", Text("Home")), 0);
    EXPECT_EQ(Changes(), (Lines{"- IntProfs/Work/Ph2/Conn = \"\"", "+ reference Work/Ph2 = Home",
                                "+ IntProfs/Work/Ph2/Conn = \"Home\""}));
    EXPECT_EQ(Rename(IntProfs, "Work", "W"), 0);
    EXPECT_EQ(Rename(IntProfs, "W", "Office"), 0);
    EXPECT_EQ(Get(IntProfs, "Office/Ph2/Conn"), "\"Home\"");

    Remount();
    EXPECT_EQ(
        Changes(),
        All({{"- proxy {Office} = Work", "- reference Work/Ph1 = Office",
              "- reference Work/Ph2 = Home", "- reference Work/Ph3 = Office"},
             ProxySubtree("- ", "Work",
                          {.reference1 = "Office", .reference2 = "Home", .reference3 = "Office"}),
             {"+ proxy {Office} = Office", "+ reference Office/Ph1 = Office",
              "+ reference Office/Ph3 = Office"},
             ProxySubtree("+ ", "Office", references)}));
}

} // namespace
