// A server sets the proxies of a profile.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class ProxySettings : public StoryTest {};

TEST_F(ProxySettings, ReachTheRecordAndTheReferencesReachTheMappingFile)
{
    Store("Office", {.gprsAddress = "office.apn"});
    Mount();

    EXPECT_EQ(Replace(IntProfs, "Office/Ph1/Addr", Text("proxy.example")), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph1/Port/PortNbr", Int(8080)), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- IntProfs/Office/Ph1/Addr = \"\"", "- IntProfs/Office/Ph1/Port/PortNbr = 0",
                     "+ service Office: proxy1 address = \"proxy.example\"",
                     "+ service Office: proxy1 port = 8080",
                     "+ IntProfs/Office/Ph1/Addr = \"proxy.example\"",
                     "+ IntProfs/Office/Ph1/Port/PortNbr = 8080"}));

    EXPECT_EQ(Replace(IntProfs, "Office/Ph2/Addr", Text("second.example")), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph2/Port/PortNbr", Int(65537)), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- IntProfs/Office/Ph2/Addr = \"\"", "- IntProfs/Office/Ph2/Port/PortNbr = 0",
                     "+ service Office: proxy2 address = \"second.example\"",
                     "+ service Office: proxy2 port = 1",
                     "+ IntProfs/Office/Ph2/Addr = \"second.example\"",
                     "+ IntProfs/Office/Ph2/Port/PortNbr = 1"}))
        << "a port keeps its low 16 bits";

    // The record has no third slot.
    EXPECT_EQ(Replace(IntProfs, "Office/Ph3/Addr", Text("third.example")), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph3/Port/PortNbr", Int(3)), 0);
    EXPECT_EQ(Changes(), Lines{});

    EXPECT_EQ(Replace(IntProfs, "Office/UserEditable", Bool(false)), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- IntProfs/Office/UserEditable = true", "+ service Office: flags = 1",
                     "+ IntProfs/Office/UserEditable = false"}));

    EXPECT_EQ(Replace(IntProfs, "Office/Ph1/Conn", Text("H\xc3\xb4tel")), 0);
    EXPECT_EQ(Replace(IntProfs, "Office/Ph3/Conn", Text("Elsewhere")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- reference Office/Ph1 = Office", "- IntProfs/Office/Ph1/Conn = \"Office\"",
                     "- IntProfs/Office/Ph3/Conn = \"\"", "+ reference Office/Ph1 = H\xc3\xb4tel",
                     "+ reference Office/Ph3 = Elsewhere",
                     "+ IntProfs/Office/Ph1/Conn = \"H\\xc3\\xb4tel\"",
                     "+ IntProfs/Office/Ph3/Conn = \"Elsewhere\""}));

    EXPECT_EQ(GetChildren(IntProfs, "Office/Ph1"),
              (Lines{"Conn = \"H\\xc3\\xb4tel\"", "Addr = \"proxy.example\""}));
    EXPECT_EQ(GetChildren(IntProfs, "Office"), (Lines{"UserEditable = false"}));

    // References are made again by every mount; the record is not.
    Remount();
    EXPECT_EQ(
        Changes(),
        (Lines{"- reference Office/Ph1 = H\xc3\xb4tel", "- reference Office/Ph3 = Elsewhere",
               "- IntProfs/Office/Ph1/Conn = \"H\\xc3\\xb4tel\"",
               "- IntProfs/Office/Ph3/Conn = \"Elsewhere\"", "+ reference Office/Ph1 = Office",
               "+ IntProfs/Office/Ph1/Conn = \"Office\"", "+ IntProfs/Office/Ph3/Conn = \"\""}));
}

} // namespace
