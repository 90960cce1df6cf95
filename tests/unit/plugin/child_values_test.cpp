// Reading and writing all leaf children of a node in one call.
#include "server_change_test.h"

namespace {

using namespace doubles;

class ChildValuesTest : public ServerChangeTest {
protected:
    /// The map as "name = value" lines; also holds that every key has its value.
    static Lines Pairs(const DmtChildValuesMap &map)
    {
        EXPECT_EQ(map.keys().size(), map.values().size());
        Lines lines;
        for (int i = 0; i < map.size(); ++i) {
            const DmtData &value = map.values()[i];
            lines.push_back(std::string(map.keys()[i].text()) + " = " +
                            (value.GetType() == DmtData::Int    ? std::to_string(IntOf(value))
                             : value.GetType() == DmtData::Bool ? BoolOf(value) ? "true" : "false"
                             : value.GetType() == DmtData::Null ? "null"
                                                                : '"' + StringOf(value) + '"'));
        }
        return lines;
    }

    static DmtChildValuesMap Values(const std::vector<std::pair<const char *, DmtData>> &pairs)
    {
        DmtChildValuesMap map;
        for (const auto &[name, value] : pairs)
            map.put(DMString(name), value);
        return map;
    }

    DmtChildValuesMap map;
    void TearDown() override
    {
        map.clear();
        ServerChangeTest::TearDown();
    }
};

// ---- Reading ---------------------------------------------------------------------------------------

TEST_F(ChildValuesTest, LeavesOfAProfileComeInTheirOrderWithoutInteriorNodes)
{
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART);
    Stored() = Record("", "+4930");
    Stored().csdDns1 = 0x01020304;
    Stored().csdLinger = 30;
    Stored().csdSpeedCode = 0x47;

    EXPECT_EQ(tree->GetChildValuesMap("Office", map), 0);

    EXPECT_EQ(Pairs(map), (Lines{R"(Bearer = "GSM-CSD")", R"(Addr = "+4930")",
                                 R"(DNS1 = "1.2.3.4")", R"(DNS2 = "0.0.0.0")", "Linger = 30",
                                 R"(LineType = "Isdn")", "Speed = 9600"}));
    ExpectNothingLogged();
    const Lines calls = handset.journal.Take();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0], R"(GetNode("Office"))");
    EXPECT_EQ(calls[1], R"(GetChildNodes("Office"))");
    EXPECT_EQ(std::count(calls.begin(), calls.end(), R"(NAPI_ReadProfile("Office"))"), 6)
        << "one for each field, none for the Bearer";
}

TEST_F(ChildValuesTest, DeeperLeavesAreReadWhereTheyAre)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Stored() = Record("apn");
    SetText(Stored().gprsAuthId, "user");

    EXPECT_EQ(tree->GetChildValuesMap("Office/Auth/PAP", map), 0);
    EXPECT_EQ(Pairs(map), (Lines{R"(AuthId = "user")", R"(AuthPw = "")"}));
}

TEST_F(ChildValuesTest, NodeWithoutLeafChildrenGivesAnEmptyMap)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    map = Values({{"Left over", Text("x")}});

    EXPECT_EQ(tree->GetChildValuesMap("Office/Auth", map), 0);
    EXPECT_EQ(Pairs(map), Lines{});
    map = Values({{"Left over", Text("x")}});
    EXPECT_EQ(tree->GetChildValuesMap("", map), 0);
    EXPECT_EQ(Pairs(map), Lines{});
}

TEST_F(ChildValuesTest, PortOfTheThirdSlotIsANullValue)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);

    EXPECT_EQ(tree->GetChildValuesMap("Office/Ph3/Port", map), 0);
    EXPECT_EQ(Pairs(map), Lines{"PortNbr = null"});
    EXPECT_EQ(tree->GetChildValuesMap("Office/Ph1", map), 0);
    EXPECT_EQ(Pairs(map), (Lines{R"(Conn = "Office")", R"(Addr = "")"}));
    EXPECT_EQ(tree->GetChildValuesMap("Office", map), 0);
    EXPECT_EQ(Pairs(map), (Lines{"UserEditable = true"}));
}

TEST_F(ChildValuesTest, ReadOfAMissingNodeEmptiesTheMap)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    map = Values({{"Left over", Text("x")}});

    EXPECT_EQ(tree->GetChildValuesMap("Office/No%s", map), 404);

    ExpectMessages({"T Leave: GetChildValuesMap! The node: Office/No%s is not exist!\n"});
    EXPECT_EQ(Pairs(map), Lines{});
    handset.faults.Fail("GetNode", 1, 507);
    EXPECT_EQ(tree->GetChildValuesMap("Office", map), 507);
}

TEST_F(ChildValuesTest, StatusOfFailingChildrenIsPassedOn)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    map = Values({{"Left over", Text("x")}});
    handset.faults.Fail("GetChildNodes", 1, 507);

    EXPECT_EQ(tree->GetChildValuesMap("Office", map), 507);

    ExpectMessages({"T Leave: GetChildValuesMap! GetChildNodes failed!\n"});
    EXPECT_EQ(Pairs(map), Lines{});

    EXPECT_EQ(tree->GetChildValuesMap("Office/Addr", map), 405) << "a leaf has no children";
    ExpectMessages({"T Leave: GetChildValuesMap! GetChildNodes failed!\n"});
}

TEST_F(ChildValuesTest, UnreadableLeafEndsTheReadAndKeepsWhatWasCollected)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Stored() = Record("apn");
    handset.faults.Fail("NAPI_ReadProfile", 2, 42);

    EXPECT_EQ(tree->GetChildValuesMap("Office", map), 1);

    ExpectMessages({"N Leave: GetValue() fail! NAPI_ReadProfile() return 42! \n",
                    "T Leave: GetChildValuesMap! GetChildNodes failed!\n"});
    EXPECT_EQ(Pairs(map), (Lines{R"(Bearer = "GSM-GPRS")", R"(Addr = "apn")"}));
    EXPECT_EQ(handset.journal.Only({"NAPI_ReadProfile"}).size(), 2u);
}

TEST_F(ChildValuesTest, SecondChildOfTheSameNameReplacesTheValueOfTheFirst)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    // Two registered nodes that go by one name.
    tree->SetNode("Office/Auth/A", NewLeaf(tree, "Office/Auth/Same", Text("first")));
    tree->SetNode("Office/Auth/B", NewLeaf(tree, "Office/Auth/Other", Text("middle")));
    tree->SetNode("Office/Auth/C", NewLeaf(tree, "Office/Auth/Same", Number(3)));

    EXPECT_EQ(tree->GetChildValuesMap("Office/Auth", map), 0);

    EXPECT_EQ(Pairs(map), (Lines{"Same = 3", R"(Other = "middle")"}));
}

TEST_F(ChildValuesTest, KeysAndValuesStayPairedWhenMemoryRunsShort)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Stored() = Record("apn");
    const Lines all = [&] {
        EXPECT_EQ(tree->GetChildValuesMap("Office", map), 0);
        return Pairs(map);
    }();
    int fired = 0;
    for (const bool fromThenOn : {false, true}) {
        for (int nth = 1; nth < 100; ++nth) {
            handset.faults.Clear();
            handset.faults.Add({"dmvector:394", nth, fromThenOn, FaultKind::Fails, 0});
            map.clear();
            EXPECT_EQ(tree->GetChildValuesMap("Office", map), 0) << nth;
            // What is there is right; what found no room is missing with key and value.
            for (const std::string &pair : Pairs(map))
                EXPECT_NE(std::find(all.begin(), all.end(), pair), all.end()) << pair;
            if (handset.faults.Fired() == 0) {
                EXPECT_EQ(Pairs(map), all);
                break;
            }
            ++fired;
        }
    }
    EXPECT_GT(fired, 0);
    handset.faults.Clear();
}

// ---- Writing ----------------------------------------------------------------------------------------

TEST_F(ChildValuesTest, LeavesAreWrittenInTheOrderOfTheMapAndInteriorNodesSkipped)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->SetChildValuesMap("Office", Values({{"Linger", Number(30)},
                                                        {"Auth", Text("ignored")},
                                                        {"Addr", Text("apn")}})),
              0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office/Linger"))", "NAPI_GetProfileNameByID(5)",
                     R"(NAPI_ReadProfile("Office"))", R"(GetNode("Office/Bearer"))",
                     R"(NAPI_ModifyProfile("Office"))", R"(GetNode("Office/Auth"))",
                     R"(GetNode("Office/Addr"))", "NAPI_GetProfileNameByID(5)",
                     R"(NAPI_ReadProfile("Office"))", R"(GetNode("Office/Bearer"))",
                     R"(NAPI_ModifyProfile("Office"))"}));
    EXPECT_STREQ(Stored().gprsAddress, "apn");
    EXPECT_EQ(Stored().gprsLinger, 30);
}

TEST_F(ChildValuesTest, EmptyMapIsNothingToDoWhateverTheNode)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(tree->SetChildValuesMap("Nobody", DmtChildValuesMap()), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(ChildValuesTest, UnknownKeyEndsTheWriteAfterTheEarlierOnes)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(
        tree->SetChildValuesMap(
            "Office", Values({{"Linger", Number(30)}, {"No%s", Text("x")}, {"Addr", Text("apn")}})),
        404);

    ExpectMessages({"T Leave: SetChildValuesMap fail! The node: Office/No%s is not exist!\n"});
    EXPECT_EQ(Stored().gprsLinger, 30);
    EXPECT_EQ(Stored().gprsAddress[0], '\0');
    handset.faults.Fail("GetNode", 1, 507);
    EXPECT_EQ(tree->SetChildValuesMap("Office", Values({{"Linger", Number(1)}})), 507);
    EXPECT_EQ(tree->SetChildValuesMap("Nobody", Values({{"Linger", Number(1)}})), 404);
}

TEST_F(ChildValuesTest, RefusedValueEndsTheWriteAfterTheEarlierOnes)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->SetChildValuesMap(
                  "Office",
                  Values({{"Linger", Number(30)}, {"Speed", Number(1200)}, {"Addr", Text("apn")}})),
              1);

    ExpectMessages({"N Leave: SetValueInternal()! failed! Speed illegal \n",
                    "N Leave: SetValue()! SetValueInternal() failed!\n",
                    "T Leave: SetChildValuesMap! SetValue failed!\n"});
    EXPECT_EQ(Stored().gprsLinger, 30);
    EXPECT_EQ(Stored().gprsAddress[0], '\0');
    EXPECT_EQ(tree->SetChildValuesMap("Office", Values({{"Addr", Number(1)}})), 415);
}

TEST_F(ChildValuesTest, ChildrenOfTheRootAreLookedForAfterASlash)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->SetChildValuesMap("", Values({{"Office", Text("x")}})), 404);

    ExpectMessages({"T Leave: SetChildValuesMap fail! The node: /Office is not exist!\n"});
    EXPECT_EQ(handset.journal.Take(), (Lines{R"(GetNode("/Office"))"}));
}

TEST_F(ChildValuesTest, BearerOfTheMapAppliesToTheLeavesBeneathIt)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    Stored() = Record("apn");

    EXPECT_EQ(tree->SetChildValuesMap("Office", Values({{"Bearer", Text("GSM-CSD2")},
                                                        {"Speed", Number(9600)},
                                                        {"Addr", Text("+49")}})),
              0);

    EXPECT_STREQ(Stored().csd2Address, "+49");
    EXPECT_EQ(Stored().csd2SpeedCode, 7);
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph3DC1", "Office"}}));
}

TEST_F(ChildValuesTest, WhatIsReadCanBeWrittenBack)
{
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART);
    Stored() = Record("", "+4930");
    Stored().csdSpeedCode = 0x44;
    const RecordBytes before = ToBytes(Stored());
    ASSERT_EQ(tree->GetChildValuesMap("Office", map), 0);

    EXPECT_EQ(tree->SetChildValuesMap("Office", map), 0);

    EXPECT_TRUE(SameBytes(Stored(), before));
}

} // namespace
