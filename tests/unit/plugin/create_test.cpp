// A server adds profile nodes, interior nodes and leaves.
#include "server_change_test.h"

namespace {

using namespace doubles;

class CreateTest : public ServerChangeTest {
protected:
    /// Slot 34. Keeps the node that came out in lastNode.
    int AddInterior(const TreePtr &tree, const std::string &path, const Lines &childNames = {})
    {
        DMStringVector names;
        for (const std::string &name : childNames)
            names.push_back(DMString(name.c_str()));
        return tree->CreateInteriorNodeInternal(path.c_str(), lastNode, names);
    }

    /// Slot 35.
    int AddLeaf(const TreePtr &tree, const std::string &path, const DmtData &value)
    {
        return tree->CreateLeafNodeInternal(path.c_str(), lastNode, value);
    }

    void TearDown() override
    {
        lastNode.reset();
        ServerChangeTest::TearDown();
    }

    std::int8_t &ProfileCount(const TreePtr &tree) { return PluginTreeProbe(*tree).profileCount; }

    JemSmartPtr<DmtNode> lastNode;
};

// ---- New profiles ------------------------------------------------------------------------------

TEST_F(CreateTest, NewProfileIsCreatedMappedAndRegisteredInThisOrder)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office"))", R"(GetNode(""))", R"(NAPI_IsProfileValid("Office"))",
                     "NAPI_GetMaxProfiles()", R"(NAPI_CreateProfile("Office"))",
                     R"(NAPI_GetProfileIDByName("Office"))",
                     R"(getSettingInfo(napdef, "NAPIDEF_Profile", "1Ph2DC1"))",
                     R"(setSettingInfo(napdef, "NAPIDEF_Profile", "1Ph2DC1", "Office"))",
                     "flush(napdef)", R"(SetNode("Office"))", R"(GetNode("Office"))"}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "1Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph2DC1", "Office"}}));
    EXPECT_EQ(ProfileCount(tree), 1);
    EXPECT_EQ(lastNode.get(), Node(tree, "Office").get());
    EXPECT_FALSE(lastNode->IsLeaf());
    EXPECT_EQ(Children(tree, "Office"), Lines{}) << "the server adds what is beneath it";
    EXPECT_EQ(Children(tree, ""), Lines{"Office"});
}

TEST_F(CreateTest, RecordOfANewProfileIsZeroButForItsCreationByte)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    ASSERT_EQ(AddInterior(tree, "Office"), 0);

    RecordBytes expected{};
    expected[1] = 1;
    ASSERT_EQ(handset.napi.created.size(), 1u);
    EXPECT_TRUE(SameBytes(handset.napi.created[0], expected));
}

TEST_F(CreateTest, NewProfileInTheProxyKindHasTheBareIdAndTheSameFlag)
{
    const TreePtr tree = LoadTree(INTPROFS_ROOT);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    EXPECT_EQ(TakeOutsideCalls(),
              (Lines{R"(NAPI_IsProfileValid("Office"))", "NAPI_GetMaxProfiles()",
                     R"(NAPI_CreateProfile("Office"))", R"(NAPI_GetProfileIDByName("Office"))",
                     R"(getSettingInfo(proxy, "PROXY_Profile", "1"))",
                     R"(setSettingInfo(proxy, "PROXY_Profile", "1", "Office"))", "flush(proxy)"}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "1 C"}}));
    EXPECT_EQ(ReferencesOnDisk(), Entries{}) << "no references before there are slots";
}

TEST_F(CreateTest, LargestIdIsWrittenAsAnUnsignedNumber)
{
    handset.napi.nextId = 4294967295u;
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    EXPECT_EQ(NapdefOnDisk(), (Entries{{"4294967295Ph2DC1", "Office"}}));
    EXPECT_EQ(AddLeaf(tree, "Office/Addr", Text("x")), 0);
    EXPECT_EQ(Stored().csdAddress[0], 'x');
}

TEST_F(CreateTest, ChildrenAppearInTheOrderInWhichTheNodeLists)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    ASSERT_EQ(AddInterior(tree, "Office", {"Bearer", "Addr", "Linger"}), 0);
    EXPECT_EQ(Children(tree, "Office"), Lines{});
    ASSERT_EQ(AddLeaf(tree, "Office/Linger", Number(1)), 0);
    ASSERT_EQ(AddLeaf(tree, "Office/Other", Text("")), 0);
    ASSERT_EQ(AddLeaf(tree, "Office/Bearer", Text("GSM-CSD")), 0);

    EXPECT_EQ(Children(tree, "Office"), (Lines{"Bearer", "Linger", "Other"}));
}

TEST_F(CreateTest, ServersOwnSlotEndsInTheSameOperation)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(tree->CreateInteriorNode("Office", lastNode), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "1Ph2DC1 C"}}));
}

TEST_F(CreateTest, StoredProfileIsAdoptedWithoutCountingOrAskingForRoom)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    handset.napi.Store("Office", ToRecord(PatternBytes(0)), 7);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    ExpectNothingLogged();
    EXPECT_EQ(TakeOutsideCalls(),
              (Lines{R"(NAPI_IsProfileValid("Office"))", R"(NAPI_GetProfileIDByName("Office"))",
                     R"(getSettingInfo(napdef, "NAPIDEF_Profile", "7Ph2DC1"))",
                     R"(setSettingInfo(napdef, "NAPIDEF_Profile", "7Ph2DC1", "Office"))",
                     "flush(napdef)"}));
    EXPECT_EQ(ProfileCount(tree), 0);
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    EXPECT_TRUE(handset.napi.created.empty());
}

TEST_F(CreateTest, PartBeforeTheMarkerNamesTheProfileAndTheWholeNameTheNode)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "Office&&_PH1_DC1&&_x"), 0);

    EXPECT_NE(handset.napi.Find("Office"), nullptr);
    EXPECT_EQ(handset.napi.profiles.size(), 1u);
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office&&_PH1_DC1&&_x", "1Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph2DC1", "Office&&_PH1_DC1&&_x"}}));
    EXPECT_TRUE(Exists(tree, "Office&&_PH1_DC1&&_x"));
}

TEST_F(CreateTest, NameThatIsEmptyBeforeTheMarkerGoesToTheServiceWhichRefusesIt)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "&&_PH1"), 1);

    ExpectMessages({"T Leave:CreateInteriorNodeInternal: NAPI_CreateProfile failed! return 2\n"});
    EXPECT_EQ(TakeOutsideCalls(), (Lines{R"(NAPI_IsProfileValid(""))", "NAPI_GetMaxProfiles()",
                                         R"(NAPI_CreateProfile(""))"}));
    EXPECT_FALSE(Exists(tree, "&&_PH1"));
}

TEST_F(CreateTest, NameOf64BytesIsReportedAndGoesOnWithTheFullName)
{
    const std::string name(64, 'n');
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, name), 1);

    ExpectMessages({"T Leave: CreateInteriorNodeInternal() fail!Profile name too long\n",
                    "T Leave:CreateInteriorNodeInternal: NAPI_CreateProfile failed! return 2\n"});
    EXPECT_EQ(TakeOutsideCalls(),
              (Lines{"NAPI_IsProfileValid(\"" + name + "\")", "NAPI_GetMaxProfiles()",
                     "NAPI_CreateProfile(\"" + name + "\")"}));
    EXPECT_EQ(ProfileCount(tree), 0);
    EXPECT_EQ(Mapped(tree), Mapping{});
}

TEST_F(CreateTest, TooLongNameSucceedsWhenTheServiceHasIt)
{
    const std::string name(64, 'n');
    const TreePtr tree = LoadTree(CONN_ROOT);
    handset.napi.Store(name, Record(""), 9);

    EXPECT_EQ(AddInterior(tree, name), 0);

    ExpectMessages({"T Leave: CreateInteriorNodeInternal() fail!Profile name too long\n"});
    EXPECT_EQ(Mapped(tree), (Mapping{{name, "9Ph2DC1 C"}}));
}

TEST_F(CreateTest, OnlyTheProfilesNameCountsForItsLength)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, std::string(63, 'n')), 0);
    EXPECT_EQ(AddInterior(tree, std::string(63, 'm') + "&&_" + std::string(100, 'x')), 0);
    ExpectNothingLogged();

    // A name deeper in a profile is measured as well.
    EXPECT_EQ(AddInterior(tree, std::string(63, 'n') + "/" + std::string(64, 'd')), 0);
    ExpectMessages({"T Leave: CreateInteriorNodeInternal() fail!Profile name too long\n"});
    // And before it is looked for.
    EXPECT_EQ(AddInterior(tree, std::string(63, 'n') + "/" + std::string(64, 'd')), 418);
    ExpectMessages({"T Leave: CreateInteriorNodeInternal() fail!Profile name too long\n"});
}

TEST_F(CreateTest, NodeThatIsThereIsLeftAlone)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    for (const char *const path : {"Office", "Office/Auth", "Office/Addr", ""}) {
        EXPECT_EQ(AddInterior(tree, path), 418) << path;
        EXPECT_EQ(handset.journal.Take(), (Lines{"GetNode(\"" + std::string(path) + "\")"}));
        EXPECT_EQ(AddLeaf(tree, path, Text("x")), 418) << path;
        EXPECT_EQ(handset.journal.Take(), (Lines{"GetNode(\"" + std::string(path) + "\")"}));
    }
    ExpectNothingLogged();
    EXPECT_FALSE(lastNode);
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

TEST_F(CreateTest, MissingParentIsReportedWithItsPathAndItsStatus)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "Nobody/Auth/PAP"), 404);
    ExpectMessages({"T Leave:CreateInteriorNodeInternal() fail! Parent node: Nobody/Auth is not "
                    "exist!\n"});
    EXPECT_EQ(AddLeaf(tree, "Nobody/Auth/PAP", Text("x")), 404);
    ExpectMessages(
        {"T Leave:CreateLeafNodeInternal() fail! Parent node: Nobody/Auth is not exist!\n"});

    // The status is whatever the engine answers.
    handset.faults.Fail("GetNode", 2, 507);
    EXPECT_EQ(AddInterior(tree, "Office"), 507);
    ExpectMessages({"T Leave:CreateInteriorNodeInternal() fail! Parent node:  is not exist!\n"});
    handset.faults.Fail("GetNode", 2, 508);
    EXPECT_EQ(AddLeaf(tree, "Office", Text("x")), 508);
    ExpectMessages({"T Leave:CreateLeafNodeInternal() fail! Parent node:  is not exist!\n"});
    EXPECT_EQ(TakeOutsideCalls(), Lines{});
    EXPECT_FALSE(lastNode);
}

// ---- Room in the service -----------------------------------------------------------------------------

struct Room {
    std::int8_t count;
    int maximum;
    bool isThere;
};

void PrintTo(const Room &room, std::ostream *out)
{
    *out << int{room.count} << " of " << room.maximum;
}

class RoomTest : public CreateTest, public ::testing::WithParamInterface<Room> {};

TEST_P(RoomTest, CountIsComparedAsASignedNumberWithTheMaximum)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    ProfileCount(tree) = GetParam().count;
    handset.napi.maxProfiles = GetParam().maximum;
    handset.faults.LeaveUntouched("NAPI_CreateProfile"); // the double would count for itself
    handset.napi.Store("Stored", Record(""));

    const int status = AddInterior(tree, "Office");

    EXPECT_EQ(status, 1) << "refused, or created without an ID";
    if (GetParam().isThere) {
        ExpectMessages({"T Leave:CreateInteriorNodeInternal():NAPI_GetProfileIDByName  failed! "
                        "return 3\n"});
        EXPECT_EQ(ProfileCount(tree), static_cast<std::int8_t>(GetParam().count + 1));
    } else {
        ExpectMessages(
            {"T Leave: CreateInteriorNodeInternal()! Profile number reaches maximum!\n"});
        EXPECT_EQ(ProfileCount(tree), GetParam().count);
        EXPECT_EQ(TakeOutsideCalls(),
                  (Lines{R"(NAPI_IsProfileValid("Office"))", "NAPI_GetMaxProfiles()"}));
        EXPECT_EQ(AddInterior(tree, "Stored"), 0) << "a stored profile needs no room";
        EXPECT_EQ(ProfileCount(tree), GetParam().count);
    }
    EXPECT_FALSE(Exists(tree, "Office"));
}

INSTANTIATE_TEST_SUITE_P(Numbers, RoomTest,
                         ::testing::Values(Room{0, 1, true}, Room{1, 1, false}, Room{2, 1, false},
                                           Room{0, 0, false}, Room{126, 127, true},
                                           Room{127, 127, false}, Room{127, 128, true},
                                           Room{-128, 127, true}, Room{-1, 0, true},
                                           Room{-1, -1, false}, Room{0, -1, false},
                                           Room{127, 100000, true}));

TEST_F(CreateTest, EveryCreatedProfileIsCountedAndNoAdoptedOne)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    handset.napi.Store("Stored", Record(""));
    handset.napi.maxProfiles = 3;

    EXPECT_EQ(AddInterior(tree, "A"), 0);
    EXPECT_EQ(AddInterior(tree, "Stored"), 0);
    EXPECT_EQ(AddInterior(tree, "B"), 0);
    EXPECT_EQ(ProfileCount(tree), 2);
    ASSERT_EQ(tree->DeleteNode("A"), 0);
    EXPECT_EQ(ProfileCount(tree), 2) << "a deleted profile goes on counting";
}

// ---- What a failure leaves behind -----------------------------------------------------------------

/// A call that fails while "Office" is added to an empty handset, and what is there then.
struct AddFault {
    const char *site;
    const char *message;   ///< the first one
    std::size_t calls;     ///< how many of the calls of an Add were made
    int profiles;          ///< stored, and counted by the tree
    Entries inMemory = {}; ///< of the mapping file
    int statusOfNextTry = 0;
    bool isMappingFault = false; ///< a second message says so
};

void PrintTo(const AddFault &fault, std::ostream *out)
{
    *out << fault.site << " fails";
}

class FailedAddTest : public CreateTest, public ::testing::WithParamInterface<AddFault> {};

TEST_P(FailedAddTest, LeavesTheProfileUnmapped)
{
    const AddFault &fault = GetParam();
    const TreePtr tree = LoadTree(CONN_ROOT);
    handset.faults.Fail(fault.site, 1, 42);

    EXPECT_EQ(AddInterior(tree, "Office"), 1);

    Lines messages{fault.message};
    if (fault.isMappingFault)
        messages.push_back("T Leave:CreateInteriorNodeInternal: AddProfileMap failed\n");
    ExpectMessages(messages);
    Lines calls{R"(NAPI_IsProfileValid("Office"))",
                "NAPI_GetMaxProfiles()",
                R"(NAPI_CreateProfile("Office"))",
                R"(NAPI_GetProfileIDByName("Office"))",
                R"(getSettingInfo(napdef, "NAPIDEF_Profile", "1Ph2DC1"))",
                R"(setSettingInfo(napdef, "NAPIDEF_Profile", "1Ph2DC1", "Office"))",
                "flush(napdef)"};
    calls.resize(fault.calls);
    EXPECT_EQ(TakeOutsideCalls(), calls);
    EXPECT_EQ(handset.napi.profiles.size(), static_cast<std::size_t>(fault.profiles));
    EXPECT_EQ(ProfileCount(tree), fault.profiles);
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP), fault.inMemory);
    EXPECT_EQ(NapdefOnDisk(), Entries{});
    EXPECT_FALSE(Exists(tree, "Office"));
    EXPECT_EQ(Children(tree, ""), Lines{});
    EXPECT_FALSE(lastNode);

    // The server may try again: a profile that was stored is adopted, and not counted again.
    EXPECT_EQ(AddInterior(tree, "Office"), fault.statusOfNextTry);
    EXPECT_EQ(ProfileCount(tree), 1);
}

INSTANTIATE_TEST_SUITE_P(
    AllCalls, FailedAddTest,
    ::testing::Values(
        AddFault{"NAPI_CreateProfile",
                 "T Leave:CreateInteriorNodeInternal: NAPI_CreateProfile failed! return 42\n", 3,
                 0},
        AddFault{"new", "T Leave:CreateInteriorNodeInternal() fail: Allocate memory  failed\n", 3,
                 1},
        AddFault{
            "NAPI_GetProfileIDByName",
            "T Leave:CreateInteriorNodeInternal():NAPI_GetProfileIDByName  failed! return 42\n", 4,
            1},
        AddFault{
            "setSettingInfo", "T Leave: AddProfileMap:setSettingInfo  Failed\n", 6, 1, {}, 0, true},
        AddFault{"flush",
                 "T Leave: AddProfileMap:flush  Failed\n",
                 7,
                 1,
                 {{"1Ph2DC1", "Office"}},
                 1,
                 true}));

TEST_F(CreateTest, NameThatIsMappedAlreadyIsRefusedAndTheNewProfileStays)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    PluginTreeProbe(*tree).Put("Office", "9Ph1DC1", "G");

    EXPECT_EQ(AddInterior(tree, "Office"), 1);

    ExpectMessages({"T Leave: AddProfileMap fail! Node named Office has exist in m_ProfileMaps!\n",
                    "T Leave:CreateInteriorNodeInternal: AddProfileMap failed\n"});
    EXPECT_EQ(handset.journal.Only({"getSettingInfo", "setSettingInfo", "flush", "SetNode"}),
              Lines{});
    EXPECT_NE(handset.napi.Find("Office"), nullptr);
    EXPECT_EQ(ProfileCount(tree), 1);
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "9Ph1DC1 G"}}));
    EXPECT_FALSE(Exists(tree, "Office"));
}

TEST_F(CreateTest, KeyThatMapsAnotherNodeIsRefused)
{
    handset.napi.Store("Office", Record("", "+49"), 5);
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddInterior(tree, "Office&&_PH2_DC1"), 1);

    ExpectMessages({"T ??? Leave: AddProfileMap:setSettingInfo  Failed, the entry of "
                    "profileid+suffix has exist\n",
                    "T Leave:CreateInteriorNodeInternal: AddProfileMap failed\n"});
    EXPECT_EQ(handset.journal.Only({"setSettingInfo", "flush", "SetNode"}), Lines{});
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
}

TEST_F(CreateTest, KeyWithAnEmptyNameIsFree)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    handset.napi.Store("Office", Record(""), 5);
    PluginTreeProbe(*tree).settings->setSettingInfo(
        QStringLiteral("NAPIDEF_Profile"), QStringLiteral("5Ph2DC1"), QStringLiteral(""), false);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph2DC1", "Office"}}));
}

TEST_F(CreateTest, WithoutAMappingFileANewProfileIsMappedInMemory)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    CloseMappingFile(tree);

    EXPECT_EQ(AddInterior(tree, "Office"), 0);

    EXPECT_EQ(TakeOutsideCalls(),
              (Lines{R"(NAPI_IsProfileValid("Office"))", "NAPI_GetMaxProfiles()",
                     R"(NAPI_CreateProfile("Office"))", R"(NAPI_GetProfileIDByName("Office"))"}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "1Ph2DC1 C"}}));
}

TEST_F(CreateTest, NodeThatCannotBeFetchedBackIsReportedAndEverythingElseStays)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    handset.faults.Fail("GetNode", 3, 507);
    EXPECT_EQ(AddInterior(tree, "Office"), 507);
    ExpectMessages({"T Leave: CreateInteriorNodeInternal(): GetNode Office failed\n"});
    EXPECT_FALSE(lastNode);
    EXPECT_TRUE(Exists(tree, "Office"));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph2DC1", "Office"}}));

    // A registration that failed shows in the same way.
    handset.faults.Fail("SetNode");
    EXPECT_EQ(AddInterior(tree, "Office/Auth"), 404);
    ExpectMessages({"T Leave: CreateInteriorNodeInternal(): GetNode Office/Auth failed\n"});

    handset.journal.Clear();
    handset.faults.Fail("GetNode", 3, 508);
    EXPECT_EQ(AddLeaf(tree, "Office/Addr", Text("x")), 508);
    ExpectMessages({"T Leave:CreateLeafNodeInternal()! GetNode Office/Addr failed\n"});
    EXPECT_EQ(TakeOutsideCalls(), Lines{}) << "the value is not written";
    EXPECT_TRUE(Exists(tree, "Office/Addr"));
    EXPECT_FALSE(lastNode);
}

// ---- Deeper interior nodes -----------------------------------------------------------------------------

TEST_F(CreateTest, DeeperNodeIsOnlyRegistered)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root);

        EXPECT_EQ(AddInterior(tree, "Office/New", {"Child"}), 0);

        EXPECT_EQ(handset.journal.Take(),
                  (Lines{R"(GetNode("Office/New"))", R"(GetNode("Office"))",
                         R"(SetNode("Office/New"))", R"(GetNode("Office/New"))"}));
        EXPECT_EQ(lastNode.get(), Node(tree, "Office/New").get());
        EXPECT_EQ(ProfileCount(tree), 1);
        lastNode.reset();
    }
}

TEST_F(CreateTest, PapIsTheOnlyNodeBeneathAuth)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root);
        for (const char *const path : {"Office/x", "Office/x/Auth", "Office/AuthX", "Office/XAuth",
                                       "Office/auth", "Office/Auth/"})
            ASSERT_EQ(
                tree->SetNode(path, JemSmartPtr<DmtNode>(new DM_NAPI_PluginNode(
                                        JemSmartPtr<DmtPluginTree>(tree), path, DMStringVector()))),
                0);
        if (!Exists(tree, "Office/Auth")) {
            ASSERT_EQ(AddInterior(tree, "Office/Auth"), 0);
        }
        handset.journal.Clear();

        for (const char *const path :
             {"Office/Auth/CHAP", "Office/x/Auth/CHAP", "Office/Auth/pap", "Office/Auth/PAP2"}) {
            EXPECT_EQ(AddInterior(tree, path), 1) << path;
            ExpectMessages(
                {"T Leave:CreateInteriorNodeInternal() fail, the Auth type is not PAP\n"});
            EXPECT_FALSE(Exists(tree, path));
        }
        for (const char *const path :
             {"Office/x/Auth/PAP", "Office/AuthX/CHAP", "Office/XAuth/CHAP", "Office/auth/CHAP"}) {
            EXPECT_EQ(AddInterior(tree, path), 0) << path;
            ExpectNothingLogged();
        }
        EXPECT_EQ(TakeOutsideCalls(), Lines{});
        lastNode.reset();
    }
}

TEST_F(CreateTest, ProfileCalledAuthTakesAnyChild)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    ASSERT_EQ(AddInterior(tree, "Auth"), 0);

    EXPECT_EQ(AddInterior(tree, "Auth/CHAP"), 0);

    ExpectNothingLogged();
}

TEST_F(CreateTest, MissingParentAndExistingNodeComeBeforeTheRuleOfAuth)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    EXPECT_EQ(AddInterior(tree, "Nobody/Auth/CHAP"), 404);
}

// ---- Leaves --------------------------------------------------------------------------------------------------

TEST_F(CreateTest, LeafIsRegisteredFetchedAndWrittenThroughToTheRecord)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    ASSERT_EQ(AddInterior(tree, "Office"), 0);
    handset.journal.Clear();

    EXPECT_EQ(AddLeaf(tree, "Office/Addr", Text("+4930")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office/Addr"))", R"(GetNode("Office"))",
                     R"(SetNode("Office/Addr"))", R"(GetNode("Office/Addr"))",
                     "NAPI_GetProfileNameByID(1)", R"(NAPI_ReadProfile("Office"))",
                     R"(GetNode("Office/Bearer"))", R"(NAPI_ModifyProfile("Office"))"}));
    EXPECT_STREQ(Stored().csdAddress, "+4930");
    EXPECT_TRUE(lastNode->IsLeaf());
    EXPECT_EQ(lastNode.get(), Node(tree, "Office/Addr").get());
    EXPECT_EQ(StringOf(Value(tree, "Office/Addr")), "+4930");
}

TEST_F(CreateTest, EverySlotThatAddsALeafEndsInTheSameOperation)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    EXPECT_EQ(tree->CreateLeafNode("Office/A", lastNode, Text("a")), 0);
    EXPECT_EQ(tree->CreateLeafNode("Office/B", lastNode, Text("b"), 0), 0);
    EXPECT_EQ(tree->CreateLeafNodeForwarder("Office/C", lastNode, Text("c")), 0);
    EXPECT_EQ(tree->CreateLeafNodeForwarder("Office/C", lastNode, Text("c")), 418);
    EXPECT_EQ(tree->CreateLeafNodeForwarder("Office/Bearer2/x", lastNode, Text("c")), 404);
    for (const char *const name : {"A", "B", "C"})
        EXPECT_TRUE(Exists(tree, std::string("Office/") + name));
    EXPECT_EQ(StringOf(Value(tree, "Office/C")), "c");
}

struct IllegalLeaf {
    const char *name;
    DmtData value;
};

class IllegalLeafTest : public CreateTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(IllegalLeafTest, IsRefusedWithoutATrace)
{
    const IllegalLeaf leaves[] = {
        {"Bearer", Number(1)},        {"Bearer", Text("GPRS")},     {"Bearer", Text("")},
        {"Bearer", Text("gsm-gprs")}, {"Bearer", Text("GSM-CSD3")}, {"Bearer", DmtData()},
        {"Bearer", DmtData(true)},    {"Bearer", Text("GSM-CSD ")}, {"LineType", Text("ISDN")},
        {"LineType", Text("isdn")},   {"LineType", Text("")},       {"LineType", Number(0)},
        {"LineType", Text("V.110 ")}, {"LineType", DmtData()},      {"Speed", Text("9600")},
        {"Speed", Number(1200)},      {"Speed", Number(-1)},        {"Speed", DmtData(true)},
        {"Speed", Number(9601)},      {"Speed", DmtData()},         {"Speed", Number(19200)}};
    const TreePtr tree = MountOffice(GetParam(), CSD_PART, PatternBytes(0));
    for (const char *const name : {"Bearer", "LineType", "Speed"})
        if (Exists(tree, std::string("Office/") + name))
            DropNode(tree, std::string("Office/") + name);
    const Mapping before = Mapped(tree);

    for (const auto &[name, value] : leaves) {
        const std::string path = std::string("Office/") + name;
        EXPECT_EQ(AddLeaf(tree, path, value), 1) << path;
        ExpectMessages(
            {std::string("T Leave:CreateLeafNodeInternal() fail!illegal ") + name + "/n"});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"GetNode(\"" + path + "\")", R"(GetNode("Office"))"}));
        EXPECT_FALSE(Exists(tree, path));
        // Missing parents are found first.
        EXPECT_EQ(AddLeaf(tree, std::string("Nobody/") + name, value), 404);
        handset.log.Take();
        handset.journal.Clear();
    }
    EXPECT_FALSE(lastNode);
    EXPECT_EQ(Mapped(tree), before);
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, IllegalLeafTest, ::testing::Values(CONN_ROOT, INTPROFS_ROOT));

TEST_F(CreateTest, LegalValuesOfTheCheckedLeavesAreWritten)
{
    const TreePtr tree = MountOffice(CONN_ROOT, CSD_PART);
    for (const char *const bearer : {"GSM-GPRS", "GSM-CSD2", "GSM-CSD"}) {
        DropNode(tree, "Office/Bearer");
        EXPECT_EQ(AddLeaf(tree, "Office/Bearer", Text(bearer)), 0) << bearer;
        EXPECT_EQ(StringOf(Value(tree, "Office/Bearer")), bearer);
    }
    for (const int speed : {0, 14400, 4800, 2400, 9600}) {
        DropNode(tree, "Office/Speed");
        EXPECT_EQ(AddLeaf(tree, "Office/Speed", Number(speed)), 0) << speed;
        EXPECT_EQ(IntOf(Value(tree, "Office/Speed")), speed);
    }
    for (const char *const type : {"ANALOG-MODEM", "Isdn", "V.110"}) {
        DropNode(tree, "Office/LineType");
        EXPECT_EQ(AddLeaf(tree, "Office/LineType", Text(type)), 0) << type;
    }
    EXPECT_EQ(Stored().csdSpeedCode, 0x07) << "V.110 at 9600";
    ExpectNothingLogged();
}

TEST_F(CreateTest, OtherLeavesTakeAnyValueAndKeepIt)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    for (const DmtData &value : {Text("text"), Number(7), DmtData(false), DmtData()}) {
        EXPECT_EQ(AddLeaf(tree, "Office/Name", value), 0);
        EXPECT_EQ(EngineValue(tree, "Office/Name").GetType(), value.GetType());
        DropNode(tree, "Office/Name");
    }
    EXPECT_EQ(AddLeaf(tree, "Office/bearer", Text("anything")), 0);
    EXPECT_EQ(AddLeaf(tree, "Office/Speed2", Text("anything")), 0);
    ExpectNothingLogged();
}

TEST_F(CreateTest, FirstBearerMovesTheMappingOfANewProfile)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    ASSERT_EQ(AddInterior(tree, "Office"), 0);
    ASSERT_EQ(AddLeaf(tree, "Office/Addr", Text("apn")), 0);

    EXPECT_EQ(AddLeaf(tree, "Office/Bearer", Text("GSM-GPRS")), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "1Ph1DC1 G"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "Office"}}));
    EXPECT_STREQ(Stored().gprsAddress, "apn");
    EXPECT_EQ(Stored().csdAddress[0], '\0');
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Bearer")), "GSM-GPRS");
}

TEST_F(CreateTest, LeafWhoseValueCannotBeWrittenStaysWithItsFirstValue)
{
    const struct {
        const char *root;
        const char *path;
        DmtData value;
        std::string first; ///< what the engine keeps
    } leaves[] = {{CONN_ROOT, "Office/Linger", Number(30), "int 0"},
                  {CONN_ROOT, "Office/Speed", Number(9600), "int 0"},
                  {CONN_ROOT, "Office/Addr", Text("x"), "string "},
                  {CONN_ROOT, "Office/LineType", Text("Isdn"), "string "},
                  {CONN_ROOT, "Office/Bearer", Text("GSM-CSD2"), "string "},
                  {CONN_ROOT, "Office/DNS1", Text("1.2.3.4"), "string "},
                  {INTPROFS_ROOT, "Office/UserEditable", DmtData(false), "bool 1"},
                  {INTPROFS_ROOT, "Office/PortNbr", Number(80), "int 0"},
                  {INTPROFS_ROOT, "Office/Addr", Text("x"), "string "},
                  {INTPROFS_ROOT, "Office/Conn", Text("x"), "string "}};
    for (const auto &leaf : leaves) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(leaf.root, CSD_PART, PatternBytes(0));
        if (Exists(tree, leaf.path))
            DropNode(tree, leaf.path);
        handset.faults.Fail("NAPI_ReadProfile", 1, 42);

        EXPECT_EQ(AddLeaf(tree, leaf.path, leaf.value), 1) << leaf.path;

        ExpectMessages({"N Leave: SetValueInternal()! NAPI_ReadProfile() failed! return 42\n",
                        "T Leave: CreateLeafNode()! SetValueInternal failed! 1\n"});
        ASSERT_TRUE(Exists(tree, leaf.path));
        const DmtData kept = EngineValue(tree, leaf.path);
        const std::string text =
            kept.GetType() == DmtData::Int    ? "int " + std::to_string(IntOf(kept))
            : kept.GetType() == DmtData::Bool ? "bool " + std::to_string(BoolOf(kept))
                                              : "string " + StringOf(kept);
        EXPECT_EQ(text, leaf.first) << leaf.path;
        lastNode.reset();
    }
}

TEST_F(CreateTest, StatusOfTheFailedWriteIsPassedOn)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    DropNode(tree, "Office/Linger");

    EXPECT_EQ(AddLeaf(tree, "Office/Linger", Text("30")), 415);

    ExpectMessages(
        {"N Leave: SetValueforNAPDEF()! GetInt() ,GetBoolean or GetString() failed!\n",
         "N Leave: SetValueInternal()! SetValueforNAPDEF or SetValueforPROXY() failed!\n",
         "T Leave: CreateLeafNode()! SetValueInternal failed! 415\n"});
    EXPECT_TRUE(Exists(tree, "Office/Linger"));
    EXPECT_TRUE(handset.napi.modified.empty());
}

TEST_F(CreateTest, LeafAtTheRootIsNoProfile)
{
    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(AddLeaf(tree, "Note", Text("text")), 0);

    EXPECT_EQ(TakeOutsideCalls(), Lines{});
    EXPECT_EQ(Mapped(tree), Mapping{});
    EXPECT_EQ(StringOf(Value(tree, "Note")), "text");
    // A field needs a profile.
    EXPECT_EQ(AddLeaf(tree, "Addr", Text("text")), 1);
    ExpectMessages({"T Leave:GetProfileName! Can not find Addr in m_ProfileMaps!\n",
                    "N Leave: SetValueInternal()! GetProfileName() failed!\n",
                    "T Leave: CreateLeafNode()! SetValueInternal failed! 1\n"});
}

} // namespace
