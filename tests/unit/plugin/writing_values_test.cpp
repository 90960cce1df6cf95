// Writing a node's value: what is validated in which order, what is asked of whom, and what a
// failure leaves behind. What reaches which byte of the record is in record_fields_write_test.cpp,
// the write of a Bearer leaf in bearer_move_test.cpp.
#include "server_change_test.h"

#include <limits>

namespace {

using namespace doubles;

constexpr char setValueFailed[] = "N Leave: SetValue()! SetValueInternal() failed!\n";

class WriteTest : public ServerChangeTest {};

// ---- Interior nodes and nothing to write ---------------------------------------------------------

TEST_F(WriteTest, InteriorNodeIsLeftToTheEngine)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(Write(tree, "Office/Auth", Text("x")), 405);

    ExpectMessages({"N Leave: SetValue()! DmtRWPluginNode::SetValue() failed!\n"});
    EXPECT_EQ(handset.journal.Take(), (Lines{R"(SetValue("Office/Auth"))"}));
}

TEST_F(WriteTest, InteriorNodeSucceedsWhenTheEngineTakesTheValue)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    handset.faults.LeaveUntouched("SetValue");

    EXPECT_EQ(Write(tree, "Office", Text("x")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), (Lines{R"(SetValue("Office"))"}));
}

TEST_F(WriteTest, InteriorNodeNamedLikeALeafIsNotValidated)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    const JemSmartPtr<DmtNode> node(new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(tree),
                                                           "Office/x/Speed", DMStringVector()));
    handset.faults.Fail("SetValue", 1, 507);

    EXPECT_EQ(node->SetValue(Number(1200)), 507);

    ExpectMessages({"N Leave: SetValue()! DmtRWPluginNode::SetValue() failed!\n"});
}

TEST_F(WriteTest, NoValueIsNothingToWrite)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    for (const char *const name : {"Speed", "LineType", "Bearer", "Addr"}) {
        const JemSmartPtr<DmtNode> node = Node(tree, std::string("Office/") + name);
        EXPECT_EQ(static_cast<DM_NAPI_PluginNode &>(*node).SetValueInternal(nullptr), 0);
    }
    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(WriteTest, NodeWhoseTreeIsGoneFailsWithoutAskingAnyone)
{
    TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    std::vector<JemSmartPtr<DmtNode>> leaves;
    for (const char *const path : {"Office/Addr", "Office/Bearer", "Office/Speed"})
        leaves.push_back(Node(tree, path));
    leaves.push_back(NewLeaf(tree, "Office/Name", Text("")));
    tree.reset();
    handset.journal.Clear();

    for (const JemSmartPtr<DmtNode> &leaf : leaves)
        EXPECT_EQ(leaf->SetValue(DmtData(9600)), 500);

    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

TEST_F(WriteTest, NothingIsPutIntoARecordOnceTheTreeIsGone)
{
    TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    const JemSmartPtr<DmtNode> leaf = Node(tree, "Office/Addr");
    tree.reset();
    NAP_PROFILE_S record = ToRecord(PatternBytes(0));
    EXPECT_EQ(static_cast<DM_NAPI_PluginNode &>(*leaf).SetValueforNAPDEF(DMString("Addr"), &record,
                                                                         Text("changed")),
              500);
    EXPECT_TRUE(SameBytes(record, PatternBytes(0)));
}

// ---- Validation comes first, in both kinds --------------------------------------------------------

class WriteInBothKindsTest : public WriteTest, public ::testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
        WriteTest::SetUp();
        tree = MountOffice(GetParam(), CSD_PART, PatternBytes(0));
        PutLeaf(tree, "Office/LineType", Text("kept"));
        PutLeaf(tree, "Office/Speed", Number(-7));
    }
    void TearDown() override
    {
        tree.reset();
        WriteTest::TearDown();
    }

    TreePtr tree;
};

TEST_P(WriteInBothKindsTest, IllegalLineTypeIsRefusedBeforeAnythingIsAsked)
{
    for (const char *const illegal : {"isdn", "ISDN", "", "Isdn ", " Isdn", "V110", "V.110\n",
                                      "ANALOG_MODEM", "analog-modem", "Isd", "V.1100"}) {
        EXPECT_EQ(Write(tree, "Office/LineType", Text(illegal)), 1) << illegal;
        ExpectMessages(
            {"N Leave: SetValueInternal()! failed! Calltype illegal \n", setValueFailed});
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/LineType")), "kept");
}

TEST_P(WriteInBothKindsTest, IllegalSpeedIsRefusedBeforeAnythingIsAsked)
{
    for (const int illegal : {1200, -1, 1, 2399, 2401, 4801, 9599, 14401, 19200, -2400, 65536,
                              std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(Write(tree, "Office/Speed", Number(illegal)), 1) << illegal;
        ExpectMessages({"N Leave: SetValueInternal()! failed! Speed illegal \n", setValueFailed});
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    EXPECT_EQ(IntOf(EngineValue(tree, "Office/Speed")), -7);
}

TEST_P(WriteInBothKindsTest, ValueOfAnotherTypeIsRefusedWithTheStatusOfTheGetter)
{
    for (const DmtData &value : {Number(9600), DmtData(true), DmtData()}) {
        EXPECT_EQ(Write(tree, "Office/LineType", value), 415);
        ExpectMessages({"N Leave: SetValueInternal()! GetString() failed!\n", setValueFailed});
    }
    for (const DmtData &value : {Text("9600"), DmtData(true), DmtData()}) {
        EXPECT_EQ(Write(tree, "Office/Speed", value), 415);
        ExpectMessages({"N Leave: SetValueInternal()! GetInt() failed!\n", setValueFailed});
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_P(WriteInBothKindsTest, EngineKeptLeafIsKeptWithoutAskingTheService)
{
    PutLeaf(tree, "Office/Name", Text("old"));

    EXPECT_EQ(Write(tree, "Office/Name", Number(3)), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(), (Lines{R"(SetValue("Office/Name"))"}));
    EXPECT_EQ(IntOf(EngineValue(tree, "Office/Name")), 3);
}

TEST_P(WriteInBothKindsTest, StatusOfTheEngineForAnEngineKeptLeafIsPassedOn)
{
    PutLeaf(tree, "Office/Name", Text("old"));
    handset.faults.Fail("SetValue", 1, 507);

    EXPECT_EQ(Write(tree, "Office/Name", Text("new")), 507);

    ExpectMessages({setValueFailed});
}

TEST_P(WriteInBothKindsTest, UnmappedProfileIsRefusedBeforeTheServiceIsAsked)
{
    for (const char *const name : {"Addr", "Bearer", "Conn"}) {
        PutLeaf(tree, std::string("Nobody/") + name, Text("GSM-CSD"));
        EXPECT_EQ(Write(tree, std::string("Nobody/") + name, Text("GSM-GPRS")), 1);
        ExpectMessages({"T Leave:GetProfileName! Can not find Nobody in m_ProfileMaps!\n",
                        "N Leave: SetValueInternal()! GetProfileName() failed!\n", setValueFailed});
        EXPECT_EQ(StringOf(EngineValue(tree, std::string("Nobody/") + name)), "GSM-CSD");
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_P(WriteInBothKindsTest, ProfileThatTheServiceDoesNotKnowIsRefused)
{
    handset.napi.profiles.clear();

    EXPECT_EQ(NewLeaf(tree, "Office/Addr", Text(""))->SetValue(Text("x")), 1);

    ExpectMessages({"T Leave:GetProfileName! NAPI_GetProfileNameByID failed, return 3!\n",
                    "N Leave: SetValueInternal()! GetProfileName() failed!\n", setValueFailed});
    EXPECT_EQ(handset.journal.Take(), (Lines{"NAPI_GetProfileNameByID(5)"}));
}

TEST_P(WriteInBothKindsTest, UnreadableProfileFailsForConnAndBearerToo)
{
    for (const char *const name : {"Addr", "Bearer", "Conn"}) {
        PutLeaf(tree, std::string("Office/") + name, Text("GSM-CSD"));
        handset.faults.Fail("NAPI_ReadProfile", 1, 42);
        const Mapping before = Mapped(tree);

        EXPECT_EQ(Write(tree, std::string("Office/") + name, Text("GSM-GPRS")), 1) << name;

        ExpectMessages({"N Leave: SetValueInternal()! NAPI_ReadProfile() failed! return 42\n",
                        setValueFailed});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
        EXPECT_EQ(Mapped(tree), before);
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    }
}

TEST_P(WriteInBothKindsTest, KeyWithoutANumberIsRefused)
{
    PutLeaf(tree, "Office/Addr", Text(""));
    for (const char *const key : {"", "Ph1DC1", "x5", "5x", "-5", "+5", " 5", "5 ", "0x5", "5.0",
                                  "4294967296", "99999999999999999999Ph1DC1", "5Ph4DC1", "5ph1dc1",
                                  "5Ph1DC1Ph1DC1", "%n5", "5\nPh2DC1"}) {
        PluginTreeProbe(*tree).Find("Office")->sProfileID = key;

        EXPECT_EQ(Write(tree, "Office/Addr", Text("x")), 1) << key;

        Lines messages = handset.log.Take();
        EXPECT_EQ(std::count(messages.begin(), messages.end(),
                             TreeMessage("Leave:GetProfileName! ExtractProfileID failed!\n")),
                  1)
            << key;
    }
    // Bearer leaf and service stay untouched.
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, WriteInBothKindsTest, ::testing::Values(CONN_ROOT, INTPROFS_ROOT));

TEST_F(WriteTest, LegalLineTypeAndSpeedAreEngineKeptInTheProxyKind)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    PutLeaf(tree, "Office/LineType", Text(""));
    PutLeaf(tree, "Office/Speed", Number(0));

    EXPECT_EQ(Write(tree, "Office/LineType", Text("Isdn")), 0);
    EXPECT_EQ(Write(tree, "Office/Speed", Number(4800)), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(SetValue("Office/LineType"))", R"(SetValue("Office/Speed"))"}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/LineType")), "Isdn");
    EXPECT_EQ(IntOf(EngineValue(tree, "Office/Speed")), 4800);
}

TEST_F(WriteTest, NamesOfTheOtherKindAreEngineKept)
{
    const TreePtr conn = MountOffice(CONN_ROOT);
    for (const char *const name : {"PortNbr", "UserEditable", "addr", "Addr ", "ADDR", "Auth"}) {
        PutLeaf(conn, std::string("Office/x/") + name, Text(""));
        EXPECT_EQ(Write(conn, std::string("Office/x/") + name, Text("v")), 0) << name;
        EXPECT_EQ(TakeOutsideCalls(), Lines{}) << name;
    }
    const TreePtr proxy = LoadTree(INTPROFS_ROOT);
    for (const char *const name :
         {"DNS1", "DNS2", "Linger", "AuthId", "AuthPw", "addr", "portnbr", "UserEditable2"}) {
        PutLeaf(proxy, std::string("Office/x/") + name, Text(""));
        EXPECT_EQ(Write(proxy, std::string("Office/x/") + name, Text("v")), 0) << name;
        EXPECT_EQ(TakeOutsideCalls(), Lines{}) << name;
    }
}

// ---- Fields of the record: the way there ------------------------------------------------------------

TEST_F(WriteTest, FieldIsReadChangedAndWrittenBackAndNotKeptByTheEngine)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(Write(tree, "Office/Auth/PAP/AuthId", Text("user")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     R"(GetNode("Office/Bearer"))", R"(NAPI_ModifyProfile("Office"))"}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Auth/PAP/AuthId")), "");
    EXPECT_EQ(StringOf(Value(tree, "Office/Auth/PAP/AuthId")), "user");
}

TEST_F(WriteTest, ProxyFieldIsReadChangedAndWrittenBackAndNotKeptByTheEngine)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);

    EXPECT_EQ(Write(tree, "Office/Ph2/Addr", Text("proxy")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     R"(NAPI_ModifyProfile("Office"))"}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Ph2/Addr")), "");
    EXPECT_EQ(StringOf(Value(tree, "Office/Ph2/Addr")), "proxy");
}

TEST_F(WriteTest, FailedModifyDropsTheChange)
{
    const TreePtr conn = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    const TreePtr proxy = LoadTree(INTPROFS_ROOT);
    for (const auto &[tree, path] :
         {std::pair{conn, "Office/Addr"}, std::pair{proxy, "Office/Ph1/Addr"}}) {
        handset.faults.Fail("NAPI_ModifyProfile", 1, -5);

        EXPECT_EQ(Write(tree, path, Text("x")), 1);

        ExpectMessages({"N Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return -5\n",
                        setValueFailed});
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
    }
}

TEST_F(WriteTest, FieldOfAnotherTypeFailsWithTheStatusOfTheGetterAndIsNotWrittenBack)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    const std::pair<const char *, DmtData> writes[] = {
        {"Office/Addr", Number(1)},           {"Office/DNS1", Number(1)},
        {"Office/DNS2", DmtData(true)},       {"Office/Linger", Text("30")},
        {"Office/Linger", DmtData()},         {"Office/Auth/PAP/AuthId", DmtData()},
        {"Office/Auth/PAP/AuthPw", Number(0)}};
    for (const auto &[path, value] : writes) {
        EXPECT_EQ(Write(tree, path, value), 415) << path;
        ExpectMessages(
            {"N Leave: SetValueforNAPDEF()! GetInt() ,GetBoolean or GetString() failed!\n",
             "N Leave: SetValueInternal()! SetValueforNAPDEF or SetValueforPROXY() failed!\n",
             setValueFailed});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
    }
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

TEST_F(WriteTest, StringWithoutTextIsTheEmptyText)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));

    EXPECT_EQ(Write(tree, "Office/Addr", DmtData(static_cast<const char *>(nullptr))), 0);

    RecordBytes expected = PatternBytes(0);
    Zero(expected, 0x008, 100);
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

// ---- The bearer that selects the part -----------------------------------------------------------------

TEST_F(WriteTest, EmptyOrUnreadableBearerIsReportedAndCountsAsCircuitSwitchedData)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    for (const DmtData &bearer : {Text(""), Number(1), DmtData()}) {
        Stored() = ToRecord(PatternBytes(0));
        SetEngineValue(tree, "Office/Bearer", bearer);

        EXPECT_EQ(Write(tree, "Office/Addr", Text("x")), 0);

        ExpectMessages({"N Leave: SetValueforNAPDEF! Get Bearer value failed, "
                        "sBearerNodePath = Office/Bearer!\n"});
        RecordBytes expected = PatternBytes(0);
        PutText(expected, 0x17D, 44, "x");
        EXPECT_TRUE(SameBytes(Stored(), expected));
    }
}

TEST_F(WriteTest, MissingBearerLeafCountsAsCircuitSwitchedDataWithoutAWord)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    DropNode(tree, "Office/Bearer");

    EXPECT_EQ(Write(tree, "Office/Auth/PAP/AuthPw", Text("x")), 0);

    ExpectNothingLogged();
    RecordBytes expected = PatternBytes(0);
    PutText(expected, 0x1E9, 64, "x");
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

TEST_F(WriteTest, UnknownBearerIsRefused)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    SetEngineValue(tree, "Office/Bearer", Text("gsm-%s"));
    const std::pair<const char *, DmtData> writes[] = {{"Office/Addr", Text("x")},
                                                       {"Office/DNS1", Text("1.2.3.4")},
                                                       {"Office/Linger", Number(1)},
                                                       {"Office/Speed", Number(9600)},
                                                       {"Office/LineType", Text("Isdn")}};
    for (const auto &[path, value] : writes) {
        EXPECT_EQ(Write(tree, path, value), 1) << path;
        ExpectMessages(
            {"N Leave: SetValueforNAPDEF()! Invalid Bearer type: gsm-%s\n",
             "N Leave: SetValueInternal()! SetValueforNAPDEF or SetValueforPROXY() failed!\n",
             setValueFailed});
    }
    EXPECT_TRUE(handset.napi.modified.empty());
}

TEST_F(WriteTest, LeafOutsideTheTableIsNotSupported)
{
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART);
    const JemSmartPtr<DmtNode> node = Node(tree, "Office/Addr");
    const auto &leaf = static_cast<const DM_NAPI_PluginNode &>(*node);
    for (const char *const name : {"Name", "Bearer", "PortNbr", "UserEditable", "addr", ""}) {
        NAP_PROFILE_S record = ToRecord(PatternBytes(0));
        EXPECT_EQ(leaf.SetValueforNAPDEF(name, &record, Text("x")), 1);
        ExpectMessages({std::string("N Leave: SetValueforNAPDEF()! The node ") + name +
                        " is not supported!\n"});
        EXPECT_TRUE(SameBytes(record, PatternBytes(0)));
    }
    for (const char *const name : {"Name", "Conn", "DNS1", "addr", ""}) {
        NAP_PROFILE_S record = ToRecord(PatternBytes(0));
        EXPECT_EQ(leaf.SetValueforPROXY(name, &record, Text("x")), 1);
        ExpectMessages({std::string("N Leave: SetValueforPROXY() fail! The node ") + name +
                        " is not supported!\n"});
        EXPECT_TRUE(SameBytes(record, PatternBytes(0)));
    }
}

// ---- Conn ------------------------------------------------------------------------------------------------

TEST_F(WriteTest, ReferenceIsStoredFlushedAndKeptByTheEngine)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT, GPRS_PART, PatternBytes(0));

    EXPECT_EQ(Write(tree, "Office/Ph2/Conn", Text("H\xc3\xb4tel")), 0);

    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     "setSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph2\", \"H\xc3\xb4tel\")",
                     "flush(proxy)", R"(SetValue("Office/Ph2/Conn"))"}));
    EXPECT_EQ(ReferencesOnDisk(),
              (Entries{{"Office/Ph1", "Office"}, {"Office/Ph2", "H\xc3\xb4tel"}}));
    EXPECT_EQ(StringOf(Value(tree, "Office/Ph2/Conn")), "H\xc3\xb4tel");
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0)));
}

TEST_F(WriteTest, AnyTextIsAReference)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    for (const std::string &text : {std::string(), std::string("no such node"),
                                    std::string("%s%n/&&_\n=["), std::string(10000, 'r')}) {
        EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Text(text)), 0);
        EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Office/Ph1", text}}));
        EXPECT_EQ(StringOf(Value(tree, "Office/Ph1/Conn")), text);
    }
}

TEST_F(WriteTest, ReferenceThatIsNoTextIsRefused)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);

    EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Number(1)), 415);

    ExpectMessages({"N Leave: SetValueInternal()! GetString() failed!\n", setValueFailed});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))"}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Ph1/Conn")), "Office");
}

TEST_F(WriteTest, ReferenceThatCannotBeStoredIsNotKeptByTheEngine)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    const Entries before{{"Office/Ph1", "Office"}};

    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Text("Home")), 1);
    ExpectMessages({"T Leave: SetConnValue! setSettingInfo failed!\n",
                    "N Leave: SetValueInternal()! SetConnValue() failed!\n", setValueFailed});
    EXPECT_EQ(handset.settings.InMemory(PROXY_FILE, CONN_GROUP), before);

    handset.faults.Fail("flush");
    EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Text("Home")), 1);
    ExpectMessages({"T Leave: SetConnValue! flush  failed\n",
                    "N Leave: SetValueInternal()! SetConnValue() failed!\n", setValueFailed});
    EXPECT_EQ(ReferencesOnDisk(), before);
    EXPECT_EQ(handset.settings.InMemory(PROXY_FILE, CONN_GROUP), (Entries{{"Office/Ph1", "Home"}}));
    EXPECT_EQ(StringOf(EngineValue(tree, "Office/Ph1/Conn")), "Office");
}

TEST_F(WriteTest, StatusOfTheEngineForAReferenceIsPassedOn)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    handset.faults.Fail("SetValue", 1, 507);

    EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Text("Home")), 507);

    ExpectMessages({setValueFailed});
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Office/Ph1", "Home"}}));
}

TEST_F(WriteTest, WithoutAMappingFileAReferenceIsKeptByTheEngineOnly)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    CloseMappingFile(tree);

    EXPECT_EQ(Write(tree, "Office/Ph1/Conn", Text("Home")), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     R"(SetValue("Office/Ph1/Conn"))"}));
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Office/Ph1", "Office"}}));
    EXPECT_EQ(StringOf(Value(tree, "Office/Ph1/Conn")), "Home");
}

TEST_F(WriteTest, ConnIsHandledByNameInTheNapdefKindToo)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    PutLeaf(tree, "Office/Ph7/Conn", Text(""));

    EXPECT_EQ(Write(tree, "Office/Ph7/Conn", Text("Home")), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(5)", R"(NAPI_ReadProfile("Office"))",
                     R"(setSettingInfo(napdef, "PROXY_Conn", "Office/Ph7", "Home"))",
                     "flush(napdef)", R"(SetValue("Office/Ph7/Conn"))"}));
}

TEST_F(WriteTest, KeyOfAReferenceIsTheNodeNamesBytes)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    ASSERT_EQ(tree->RenameNode("Office", "B\xc3\xbcro"), 0);
    handset.journal.Clear();

    EXPECT_EQ(Write(tree, "B\xc3\xbcro/Ph1/Conn", Text("x")), 0);

    // Each byte of the name is one character of the key.
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"B\xc3\x83\xc2\xbcro/Ph1", "x"}}));
}

} // namespace
