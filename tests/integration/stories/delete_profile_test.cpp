// A profile goes when the last subtree that shows it goes; before that only its part is cleared.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class DeleteProfile : public StoryTest {};

TEST_F(DeleteProfile, FromConnAndThenFromIntprofs)
{
    Store("Office", {.gprsAddress = "office.apn", .proxy1Address = "proxy.example"});
    Store("Home", {.gprsAddress = "home.apn"});
    Mount();

    // A deeper node leaves the tree only.
    EXPECT_EQ(Delete(Conn, "Office/Addr"), 0);
    EXPECT_EQ(Changes(), (Lines{"- Conn/Office/Addr = \"office.apn\""}));
    EXPECT_EQ(Delete(Conn, "Office/Addr"), 0) << "what is not there counts as deleted";
    EXPECT_EQ(Delete(Conn, "Nowhere"), 0);
    EXPECT_EQ(Changes(), Lines{});

    EXPECT_EQ(Delete(Conn, "Office"), 0);
    Lines subtree = ConnSubtree("- ", "Office", {"GSM-GPRS", "office.apn", ""});
    subtree.erase(subtree.begin() + 2); // the leaf that went before
    EXPECT_EQ(Changes(), All({{"- service Office: gprs address = \"office.apn\"",
                               "- napdef {Office}Ph1DC1 = Office"},
                              subtree}));

    EXPECT_EQ(Delete(IntProfs, "Office"), 0);
    EXPECT_EQ(
        Changes(),
        All({{"- service Office", "- service Office: proxy1 address = \"proxy.example\"",
              "- proxy {Office} = Office", "- reference Office/Ph1 = Office"},
             ProxySubtree("- ", "Office", {.reference1 = "Office", .address1 = "proxy.example"})}));
    Remount();
    EXPECT_EQ(Changes(), Lines{});
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Home"}));
}

TEST_F(DeleteProfile, FromIntprofsAndThenFromConn)
{
    Store("Office",
          {.gprsAddress = "office.apn", .proxy1Address = "proxy.example", .editable = false});
    Mount();
    EXPECT_EQ(Replace(IntProfs, "Office/Ph1/Port/PortNbr", Int(8080)), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph2/Addr", Text("second.example")), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph2/Port/PortNbr", Int(3128)), 0);
    Changes();

    EXPECT_EQ(Delete(IntProfs, "Office"), 0);
    Lines changes = Changes();
    ASSERT_GE(changes.size(), 7u);
    EXPECT_EQ(Lines(changes.begin(), changes.begin() + 7),
              (Lines{"- service Office: flags = 1",
                     "- service Office: proxy1 address = \"proxy.example\"",
                     "- service Office: proxy1 port = 8080",
                     "- service Office: proxy2 address = \"second.example\"",
                     "- service Office: proxy2 port = 3128", "- proxy {Office} = Office",
                     "- reference Office/Ph1 = Office"}));
    EXPECT_EQ(ChildNames(IntProfs, ""), Lines{});

    EXPECT_EQ(Delete(Conn, "Office"), 0);
    EXPECT_EQ(Changes(),
              All({{"- service Office", "- service Office: gprs address = \"office.apn\"",
                    "- napdef {Office}Ph1DC1 = Office"},
                   ConnSubtree("- ", "Office", {"GSM-GPRS", "office.apn", ""})}));
}

TEST_F(DeleteProfile, OfThreeBearersPartByPartOverSeveralMounts)
{
    Store("Office", {.gprsAddress = "apn", .csdAddress = "+4930", .csd2Address = "+4940"});
    Mount();

    EXPECT_EQ(Delete(Conn, "Office"), 0);
    EXPECT_EQ(Changes(),
              All({{"- service Office: gprs address = \"apn\"", "- napdef {Office}Ph1DC1 = Office"},
                   ConnSubtree("- ", "Office", {"GSM-GPRS", "apn", ""})}));
    // The next bearer of the profile shows at the next mount.
    Remount();
    EXPECT_EQ(Changes(),
              All({{"- reference Office/Ph1 = Office", "- IntProfs/Office/Ph1/Conn = \"Office\"",
                    "+ napdef {Office}Ph2DC1 = Office"},
                   ConnSubtree("+ ", "Office", {"GSM-CSD", "+4930", "ANALOG-MODEM"}),
                   {"+ IntProfs/Office/Ph1/Conn = \"\""}}));

    EXPECT_EQ(Delete(Conn, "Office"), 0);
    EXPECT_EQ(Changes(), All({{"- service Office: csd address = \"+4930\"",
                               "- napdef {Office}Ph2DC1 = Office"},
                              ConnSubtree("- ", "Office", {"GSM-CSD", "+4930", "ANALOG-MODEM"})}));
    Remount();
    EXPECT_EQ(Get(Conn, "Office/Bearer"), "\"GSM-CSD2\"");
    EXPECT_EQ(Get(Conn, "Office/Addr"), "\"+4940\"");
    Changes();

    EXPECT_EQ(Delete(Conn, "Office"), 0);
    EXPECT_EQ(Changes(), All({{"- service Office: csd2 address = \"+4940\"",
                               "- napdef {Office}Ph3DC1 = Office"},
                              ConnSubtree("- ", "Office", {"GSM-CSD2", "+4940", "ANALOG-MODEM"})}));

    EXPECT_EQ(Delete(IntProfs, "Office"), 0);
    EXPECT_EQ(Changes(), All({{"- service Office", "- proxy {Office} = Office",
                               "- reference Office/Ph3 = Office"},
                              ProxySubtree("- ", "Office", {.reference3 = "Office"})}));
}

TEST_F(DeleteProfile, OfThreeNodesInOneMountPartByPart)
{
    Store("Office", {.gprsAddress = "apn"});
    Mount();
    EXPECT_EQ(AddInterior(Conn, "Office&&_PH3_DC1"), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office&&_PH3_DC1/Bearer", Text("GSM-CSD2")), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office&&_PH3_DC1/Addr", Text("+4940")), 0);
    EXPECT_EQ(AddInterior(Conn, "Office&&_PH2_DC1"), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office&&_PH2_DC1/Addr", Text("+4930")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"+ service Office: csd address = \"+4930\"",
                     "+ service Office: csd2 address = \"+4940\"",
                     "+ napdef {Office}Ph2DC1 = Office&&_PH2_DC1",
                     "+ napdef {Office}Ph3DC1 = Office&&_PH3_DC1", "+ Conn/Office&&_PH3_DC1/",
                     "+ Conn/Office&&_PH3_DC1/Bearer = \"GSM-CSD2\"",
                     "+ Conn/Office&&_PH3_DC1/Addr = \"+4940\"", "+ Conn/Office&&_PH2_DC1/",
                     "+ Conn/Office&&_PH2_DC1/Addr = \"+4930\""}));

    EXPECT_EQ(Delete(IntProfs, "Office"), 0);
    EXPECT_EQ(Delete(Conn, "Office"), 0);
    EXPECT_EQ(Changes(),
              All({{"- service Office: gprs address = \"apn\"", "- napdef {Office}Ph1DC1 = Office",
                    "- proxy {Office} = Office", "- reference Office/Ph1 = Office"},
                   ConnSubtree("- ", "Office", {"GSM-GPRS", "apn", ""}),
                   ProxySubtree("- ", "Office", {.reference1 = "Office"})}));

    EXPECT_EQ(Delete(Conn, "Office&&_PH2_DC1"), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- service Office: csd address = \"+4930\"",
                     "- napdef {Office}Ph2DC1 = Office&&_PH2_DC1", "- Conn/Office&&_PH2_DC1/",
                     "- Conn/Office&&_PH2_DC1/Addr = \"+4930\""}));

    EXPECT_EQ(Delete(Conn, "Office&&_PH3_DC1"), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- service Office", "- service Office: csd2 address = \"+4940\"",
                     "- napdef {Office}Ph3DC1 = Office&&_PH3_DC1", "- Conn/Office&&_PH3_DC1/",
                     "- Conn/Office&&_PH3_DC1/Bearer = \"GSM-CSD2\"",
                     "- Conn/Office&&_PH3_DC1/Addr = \"+4940\""}));
}

} // namespace
