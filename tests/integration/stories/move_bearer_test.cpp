// A profile is moved through all bearers and back by writes of its Bearer leaf.
#include "story_fixture.h"
#include "subtrees.h"

namespace {

class MoveBearer : public StoryTest {
protected:
    /// A GSM-GPRS profile that has a value in every leaf.
    void MountOffice()
    {
        Store("Office", {.gprsAddress = "office.apn"});
        Mount();
        ASSERT_EQ(Replace(Conn, "Office/DNS1", Text("10.0.0.1")), 0);
        ASSERT_EQ(Replace(Conn, "Office/DNS2", Text("10.0.0.2")), 0);
        ASSERT_EQ(Replace(Conn, "Office/Linger", Int(30)), 0);
        ASSERT_EQ(Replace(Conn, "Office/Auth/PAP/AuthId", Text("user")), 0);
        ASSERT_EQ(Replace(Conn, "Office/Auth/PAP/AuthPw", Text("secret")), 0);
        Changes();
    }

    /// Lines of the Office profile's part in the service.
    static Lines Part(const std::string &sign, const std::string &part,
                      const std::string &speedCode = "")
    {
        const std::string field = sign + "service Office: " + part + " ";
        Lines lines = {field + "address = \"office.apn\"", field + "auth id = \"user\"",
                       field + "password = \"secret\"",    field + "dns1 = 10.0.0.1",
                       field + "dns2 = 10.0.0.2",          field + "linger = 30"};
        if (!speedCode.empty())
            lines.push_back(field + "speed code = " + speedCode);
        return lines;
    }
};

TEST_F(MoveBearer, CarriesEverythingThroughAllBearersAndBack)
{
    MountOffice();

    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-CSD")), 0);
    EXPECT_EQ(Changes(),
              All({Part("- ", "gprs"),
                   {"- napdef {Office}Ph1DC1 = Office", "- Conn/Office/Bearer = \"GSM-GPRS\"",
                    "- Conn/Office/LineType = \"\""},
                   Part("+ ", "csd"),
                   {"+ napdef {Office}Ph2DC1 = Office", "+ Conn/Office/Bearer = \"GSM-CSD\"",
                    "+ Conn/Office/LineType = \"ANALOG-MODEM\""}}));

    // A line type without a speed is not kept: both share one code.
    EXPECT_EQ(Replace(Conn, "Office/LineType", Text("Isdn")), 0);
    EXPECT_EQ(Changes(), Lines{});
    EXPECT_EQ(Replace(Conn, "Office/Speed", Int(9600)), 0);
    EXPECT_EQ(Changes(), (Lines{"- Conn/Office/Speed = 0", "+ service Office: csd speed code = 7",
                                "+ Conn/Office/Speed = 9600"}));
    EXPECT_EQ(Replace(Conn, "Office/LineType", Text("Isdn")), 0);
    EXPECT_EQ(
        Changes(),
        (Lines{"- service Office: csd speed code = 7", "- Conn/Office/LineType = \"ANALOG-MODEM\"",
               "+ service Office: csd speed code = 71", "+ Conn/Office/LineType = \"Isdn\""}));

    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-CSD2")), 0);
    EXPECT_EQ(Changes(),
              All({Part("- ", "csd", "71"),
                   {"- napdef {Office}Ph2DC1 = Office", "- Conn/Office/Bearer = \"GSM-CSD\""},
                   Part("+ ", "csd2", "71"),
                   {"+ napdef {Office}Ph3DC1 = Office", "+ Conn/Office/Bearer = \"GSM-CSD2\""}}));

    // The same bearer again moves nothing.
    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-CSD2")), 0);
    EXPECT_EQ(Changes(), Lines{});
    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GPRS")), 1);
    EXPECT_EQ(Changes(), Lines{});

    // The other root learns the new bearer at its next mount.
    EXPECT_EQ(Get(IntProfs, "Office/Ph1/Conn"), "\"Office\"");
    Remount();
    EXPECT_EQ(
        Changes(),
        (Lines{"- reference Office/Ph1 = Office", "- IntProfs/Office/Ph1/Conn = \"Office\"",
               "- IntProfs/Office/Ph3/Conn = \"\"", "+ reference Office/Ph3 = Office",
               "+ IntProfs/Office/Ph1/Conn = \"\"", "+ IntProfs/Office/Ph3/Conn = \"Office\""}));

    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-CSD")), 0);
    EXPECT_EQ(Changes(),
              All({Part("- ", "csd2", "71"),
                   {"- napdef {Office}Ph3DC1 = Office", "- Conn/Office/Bearer = \"GSM-CSD2\""},
                   Part("+ ", "csd", "71"),
                   {"+ napdef {Office}Ph2DC1 = Office", "+ Conn/Office/Bearer = \"GSM-CSD\""}}));

    // Packet data has no speed code; line type and speed are what the engine has kept.
    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-GPRS")), 0);
    EXPECT_EQ(Changes(),
              All({Part("- ", "csd", "71"),
                   {"- napdef {Office}Ph2DC1 = Office", "- Conn/Office/Bearer = \"GSM-CSD\"",
                    "- Conn/Office/LineType = \"Isdn\"", "- Conn/Office/Speed = 9600"},
                   Part("+ ", "gprs"),
                   {"+ napdef {Office}Ph1DC1 = Office", "+ Conn/Office/Bearer = \"GSM-GPRS\"",
                    "+ Conn/Office/LineType = \"\"", "+ Conn/Office/Speed = 0"}}));

    Remount();
    EXPECT_EQ(
        Changes(),
        (Lines{"- reference Office/Ph3 = Office", "- IntProfs/Office/Ph1/Conn = \"\"",
               "- IntProfs/Office/Ph3/Conn = \"Office\"", "+ reference Office/Ph1 = Office",
               "+ IntProfs/Office/Ph1/Conn = \"Office\"", "+ IntProfs/Office/Ph3/Conn = \"\""}));
}

TEST_F(MoveBearer, CutsTextsToTheRoomOfCircuitSwitchedData)
{
    const std::string longText(60, 'a');
    Store("Office", {.gprsAddress = longText});
    Mount();
    EXPECT_EQ(Replace(Conn, "Office/Auth/PAP/AuthId", Text("user")), 0);
    Changes();

    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-CSD")), 0);
    // The full address has no terminator, so that reading it runs on into the next field.
    const std::string cut(44, 'a');
    EXPECT_EQ(
        Changes(),
        (Lines{"- service Office: gprs address = " + Quoted(longText),
               "- service Office: gprs auth id = \"user\"", "- napdef {Office}Ph1DC1 = Office",
               "- Conn/Office/Bearer = \"GSM-GPRS\"", "- Conn/Office/Addr = " + Quoted(longText),
               "- Conn/Office/LineType = \"\"", "+ service Office: csd address = " + Quoted(cut),
               "+ service Office: csd auth id = \"user\"", "+ napdef {Office}Ph2DC1 = Office",
               "+ Conn/Office/Bearer = \"GSM-CSD\"", "+ Conn/Office/Addr = " + Quoted(cut + "user"),
               "+ Conn/Office/LineType = \"ANALOG-MODEM\""}));

    EXPECT_EQ(Replace(Conn, "Office/Bearer", Text("GSM-GPRS")), 0);
    EXPECT_EQ(Get(Conn, "Office/Addr"), Quoted(cut));
    EXPECT_EQ(Get(Conn, "Office/Auth/PAP/AuthId"), "\"user\"");
}

TEST_F(MoveBearer, AFirstWriteOfAnUnknownBearerIsRefusedAndLeavesNoBearer)
{
    Mount();
    EXPECT_EQ(AddInterior(Conn, "Office"), 0);
    EXPECT_EQ(AddLeaf(Conn, "Office/Bearer", Text("GPRS")), 1);
    EXPECT_EQ(Changes(), (Lines{"+ service Office", "+ service Office: creation byte = 1",
                                "+ napdef {Office}Ph2DC1 = Office", "+ Conn/Office/"}))
        << "an Add checks the text before there is a leaf";

    EXPECT_EQ(AddLeaf(Conn, "Office/Bearer", Text("GSM-CSD2")), 0);
    EXPECT_EQ(Changes(),
              (Lines{"- napdef {Office}Ph2DC1 = Office", "+ napdef {Office}Ph3DC1 = Office",
                     "+ Conn/Office/Bearer = \"GSM-CSD2\""}));
}

} // namespace
