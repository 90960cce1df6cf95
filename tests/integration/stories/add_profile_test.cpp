// A server adds profiles: leaf by leaf, over one that is stored already, and into a full store.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class AddProfile : public StoryTest {};

TEST_F(AddProfile, GrowsLeafByLeafAndIsThereAfterANewMount)
{
    Store("Home", {.gprsAddress = "home.apn"});
    Mount();

    EXPECT_EQ(AddInterior(Conn, "Office"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Office", "+ service Office: creation byte = 1",
                                "+ napdef {Office}Ph2DC1 = Office", "+ Conn/Office/"}));

    EXPECT_EQ(AddLeaf(Conn, "Office/Bearer", Text("GSM-GPRS")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- napdef {Office}Ph2DC1 = Office", "+ napdef {Office}Ph1DC1 = Office",
                     "+ Conn/Office/Bearer = \"GSM-GPRS\""}));

    EXPECT_EQ(AddLeaf(Conn, "Office/Addr", Text("office.apn")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Office: gprs address = \"office.apn\"",
                                "+ Conn/Office/Addr = \"office.apn\""}));

    EXPECT_EQ(AddLeaf(Conn, "Office/DNS1", Text("10.0.0.1")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Office: gprs dns1 = 10.0.0.1",
                                "+ Conn/Office/DNS1 = \"10.0.0.1\""}));

    EXPECT_EQ(AddLeaf(Conn, "Office/DNS2", Text("none")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ Conn/Office/DNS2 = \"0.0.0.0\""}));

    EXPECT_EQ(AddLeaf(Conn, "Office/Linger", Int(30)), 0);
    EXPECT_EQ(Changes(),
              (Lines{"+ service Office: gprs linger = 30", "+ Conn/Office/Linger = 30"}));

    EXPECT_EQ(AddLeaf(Conn, "Office/Auth/PAP/AuthId", Text("user")), 404);
    EXPECT_EQ(AddInterior(Conn, "Office/Auth"), 0);
    EXPECT_EQ(AddInterior(Conn, "Office/Auth/CHAP"), 1);
    EXPECT_EQ(AddInterior(Conn, "Office/Auth/PAP"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ Conn/Office/Auth/", "+ Conn/Office/Auth/PAP/"}));

    EXPECT_EQ(AddLeaf(Conn, "Office/Auth/PAP/AuthId", Text("user")), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office/Auth/PAP/AuthPw", Text("secret")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Office: gprs auth id = \"user\"",
                                "+ service Office: gprs password = \"secret\"",
                                "+ Conn/Office/Auth/PAP/AuthId = \"user\"",
                                "+ Conn/Office/Auth/PAP/AuthPw = \"secret\""}));

    // Packet data has neither line type nor speed: the writes succeed and nothing keeps them.
    EXPECT_EQ(AddLeaf(Conn, "Office/LineType", Text("V.110")), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office/Speed", Int(1200)), 1);
    EXPECT_EQ(AddLeaf(Conn, "Office/Speed", Int(9600)), 0);
    EXPECT_EQ(Changes(), (Lines{"+ Conn/Office/LineType = \"\"", "+ Conn/Office/Speed = 0"}));

    EXPECT_EQ(AddInterior(Conn, "Office"), 418);
    EXPECT_EQ(AddLeaf(Conn, "Office/Addr", Text("other")), 418);
    EXPECT_EQ(AddLeaf(Conn, "Nowhere/Addr", Text("other")), 404);
    EXPECT_EQ(Changes(), Lines{});

    Remount();
    EXPECT_EQ(Changes(), All({{"+ proxy {Office} = Office", "+ reference Office/Ph1 = Office"},
                              ProxySubtree("+ ", "Office", {.reference1 = "Office"})}));
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Home", "Office"}));
    EXPECT_EQ(ChildNames(Conn, "Office"),
              (Lines{"Bearer", "Addr", "DNS1", "DNS2", "Linger", "Auth", "LineType", "Speed"}));
}

TEST_F(AddProfile, StartsOnCircuitSwitchedDataWhenNoBearerIsWritten)
{
    Mount();
    EXPECT_EQ(AddInterior(Conn, "Office"), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office/Addr", Text("+4930123")), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Office", "+ service Office: creation byte = 1",
                                "+ service Office: csd address = \"+4930123\"",
                                "+ napdef {Office}Ph2DC1 = Office", "+ Conn/Office/",
                                "+ Conn/Office/Addr = \"+4930123\""}));

    Remount();
    EXPECT_EQ(Get(Conn, "Office/Bearer"), "\"GSM-CSD\"");
    EXPECT_EQ(Get(Conn, "Office/LineType"), "\"ANALOG-MODEM\"");
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"\"");
    EXPECT_EQ(Get(IntProfs, "Office/Ph2/Conn"), "\"Office\"");
}

TEST_F(AddProfile, AdoptsAStoredProfileOfThatName)
{
    Store("Blank", {.proxy1Address = "proxy.example"});
    Store("Home", {.gprsAddress = "home.apn"});
    Mount();
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Home"})) << "a profile without bearer is not mapped";

    EXPECT_EQ(AddInterior(Conn, "Blank"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ napdef {Blank}Ph2DC1 = Blank", "+ Conn/Blank/"}));

    EXPECT_EQ(AddInterior(IntProfs, "Blank"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ proxy {Blank} = Blank", "+ IntProfs/Blank/"}));

    // A second node for the bearer that the first one has.
    EXPECT_EQ(AddInterior(Conn, "Blank&&_PH2_DC1"), 1);
    EXPECT_EQ(Changes(), Lines{});

    EXPECT_EQ(AddLeaf(Conn, "Blank/Bearer", Text("GSM-GPRS")), 0);
    EXPECT_EQ(AddInterior(Conn, "Blank&&_PH2_DC1"), 0);
    EXPECT_EQ(AddLeaf(Conn, "Blank&&_PH2_DC1/Addr", Text("+4940")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- napdef {Blank}Ph2DC1 = Blank", "+ service Blank: csd address = \"+4940\"",
                     "+ napdef {Blank}Ph1DC1 = Blank", "+ napdef {Blank}Ph2DC1 = Blank&&_PH2_DC1",
                     "+ Conn/Blank/Bearer = \"GSM-GPRS\"", "+ Conn/Blank&&_PH2_DC1/",
                     "+ Conn/Blank&&_PH2_DC1/Addr = \"+4940\""}));

    EXPECT_EQ(AddInterior(IntProfs, "Blank/Ph1"), 0);
    EXPECT_EQ(AddLeaf(IntProfs, "Blank/Ph1/Addr", Text("new.example")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- service Blank: proxy1 address = \"proxy.example\"",
                     "+ service Blank: proxy1 address = \"new.example\"", "+ IntProfs/Blank/Ph1/",
                     "+ IntProfs/Blank/Ph1/Addr = \"new.example\""}));

    // The names that the server chose live as long as the mount.
    Remount();
    EXPECT_EQ(ChildNames(Conn, ""), (Lines{"Blank", "Home"}));
    EXPECT_EQ(Get(Conn, "Blank/Bearer"), "\"GSM-CSD\"");
    EXPECT_EQ(Get(Conn, "Blank/Addr"), "\"+4940\"");
    EXPECT_EQ(Get(IntProfs, "Blank/Ph1/Addr"), "\"new.example\"");
    EXPECT_EQ(Get(IntProfs, "Blank/Ph2/Conn"), "\"Blank\"");
}

TEST_F(AddProfile, IsRefusedByAFullStoreAndCountsUntilTheNextMount)
{
    for (int i = 1; i < HANDSET_MAX_PROFILES; ++i)
        Store("P" + std::to_string(i), {.gprsAddress = "apn" + std::to_string(i)});
    Mount();

    EXPECT_EQ(AddInterior(Conn, "Last"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ service Last", "+ service Last: creation byte = 1",
                                "+ napdef {Last}Ph2DC1 = Last", "+ Conn/Last/"}));
    EXPECT_EQ(AddInterior(Conn, "OneTooMany"), 1);
    EXPECT_EQ(Changes(), Lines{});

    // A stored profile needs no room.
    EXPECT_EQ(AddInterior(Conn, "P1&&_PH2_DC1"), 0);
    EXPECT_EQ(Changes(), (Lines{"+ napdef {P1}Ph2DC1 = P1&&_PH2_DC1", "+ Conn/P1&&_PH2_DC1/"}));

    // The other root counted the profiles before the last one came; the service itself refuses.
    EXPECT_EQ(AddInterior(IntProfs, "OneTooMany"), 1);
    EXPECT_EQ(Changes(), Lines{});

    // Room in the service is seen by the next mount only.
    EXPECT_EQ(Delete(Conn, "Last"), 0);
    EXPECT_EQ(Changes(), (Lines{"- service Last", "- service Last: creation byte = 1",
                                "- napdef {Last}Ph2DC1 = Last", "- Conn/Last/"}));
    EXPECT_EQ(AddInterior(Conn, "OneTooMany"), 1);
    EXPECT_EQ(Changes(), Lines{});
    Remount();
    EXPECT_EQ(AddInterior(Conn, "OneTooMany"), 0);
    EXPECT_EQ(Changes(), (Lines{"- napdef {P1}Ph2DC1 = P1&&_PH2_DC1", "- Conn/P1&&_PH2_DC1/",
                                "+ service OneTooMany", "+ service OneTooMany: creation byte = 1",
                                "+ napdef {OneTooMany}Ph2DC1 = OneTooMany", "+ Conn/OneTooMany/"}));
}

TEST_F(AddProfile, WritesSeveralLeavesInOneCallUpToTheFirstFailure)
{
    Store("Office", {.gprsAddress = "office.apn"});
    Mount();

    EXPECT_EQ(ReplaceChildren(Conn, "Office",
                              {{"Addr", Text("new.apn")}, {"Auth", Text("x")}, {"Linger", Int(5)}}),
              0);
    EXPECT_EQ(Changes(), (Lines{"- service Office: gprs address = \"office.apn\"",
                                "- Conn/Office/Addr = \"office.apn\"", "- Conn/Office/Linger = 0",
                                "+ service Office: gprs address = \"new.apn\"",
                                "+ service Office: gprs linger = 5",
                                "+ Conn/Office/Addr = \"new.apn\"", "+ Conn/Office/Linger = 5"}));

    EXPECT_EQ(ReplaceChildren(Conn, "Office",
                              {{"Linger", Int(6)}, {"Nothing", Int(1)}, {"Addr", Text("x")}}),
              404);
    EXPECT_EQ(ReplaceChildren(Conn, "Office", {{"DNS1", Text("1.2.3.4")}, {"Speed", Int(1)}}), 1);
    EXPECT_EQ(Changes(),
              (Lines{"- service Office: gprs linger = 5", "- Conn/Office/DNS1 = \"0.0.0.0\"",
                     "- Conn/Office/Linger = 5", "+ service Office: gprs dns1 = 1.2.3.4",
                     "+ service Office: gprs linger = 6", "+ Conn/Office/DNS1 = \"1.2.3.4\"",
                     "+ Conn/Office/Linger = 6"}));

    EXPECT_EQ(GetChildren(Conn, "Office"),
              (Lines{"Bearer = \"GSM-GPRS\"", "Addr = \"new.apn\"", "DNS1 = \"1.2.3.4\"",
                     "DNS2 = \"0.0.0.0\"", "Linger = 6", "LineType = \"\"", "Speed = 0"}));
    EXPECT_EQ(GetChildren(Conn, "Office/Auth"), Lines{});
    EXPECT_EQ(GetChildren(Conn, "Nothing"), (Lines{"status 404"}));
    EXPECT_EQ(GetChildren(IntProfs, "Office/Ph3/Port"), (Lines{"PortNbr = null"}));

    Remount();
    EXPECT_EQ(Changes(), Lines{});
}

} // namespace
