// What a server reads: every leaf of every bearer, and what it gets when something fails.
#include "plugin_test.h"

#include <cstring>

namespace {

using namespace doubles;

/// A profile "Office" of ID 1 with the given record, mounted in both roots.
class ReadValueTest : public PluginTest {
protected:
    void Mount(const NAP_PROFILE_S &record)
    {
        handset.napi.Store("Office", record, 1);
        napdef = LoadTree(CONN_ROOT);
        proxy = LoadTree(INTPROFS_ROOT);
    }
    void TearDown() override
    {
        napdef.reset();
        proxy.reset();
        PluginTest::TearDown();
    }

    /// Gives an engine-kept leaf a value, past the plug-in's override.
    void Keep(const TreePtr &tree, const char *path, const DmtData &value)
    {
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        ASSERT_TRUE(node) << path;
        EXPECT_EQ(dynamic_cast<DmtRWPluginNode &>(*node).DmtRWPluginNode::SetValue(value), 0);
        handset.journal.Clear();
    }
    /// Status of reading the leaf; the output was "as it was" before.
    int Read(const TreePtr &tree, const char *path, DmtData &value)
    {
        value = DmtData("as it was");
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        return node->GetValue(value);
    }
    void ExpectFailure(const TreePtr &tree, const char *path, int status, const Lines &messages)
    {
        DmtData value;
        EXPECT_EQ(Read(tree, path, value), status);
        EXPECT_EQ(StringOf(value), "as it was");
        ExpectLogged(messages);
    }

    TreePtr napdef;
    TreePtr proxy;
};

// ---- The whole table -----------------------------------------------------------------------------

/// A record without a zero byte in which no run of bytes repeats within 255 bytes, so that a value
/// read from a wrong place or with a wrong width differs. Texts run on to its end.
NAP_PROFILE_S DistinctRecord()
{
    NAP_PROFILE_S record;
    auto *const bytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t i = 0; i < sizeof record; ++i)
        bytes[i] = static_cast<unsigned char>(1 + (i * 7 + i / 255) % 255);
    return record;
}

unsigned int ByteAt(const NAP_PROFILE_S &record, std::size_t offset)
{
    return reinterpret_cast<const unsigned char *>(&record)[offset];
}

std::string TextAt(const NAP_PROFILE_S &record, std::size_t offset)
{
    return std::string(reinterpret_cast<const char *>(&record) + offset, sizeof record - offset);
}

int LittleEndian16At(const NAP_PROFILE_S &record, std::size_t offset)
{
    return static_cast<int>(ByteAt(record, offset) | ByteAt(record, offset + 1) << 8);
}

/// Dotted text of the little-endian 32-bit number at the offset.
std::string AddressAt(const NAP_PROFILE_S &record, std::size_t offset)
{
    return std::to_string(ByteAt(record, offset + 3)) + "." +
           std::to_string(ByteAt(record, offset + 2)) + "." +
           std::to_string(ByteAt(record, offset + 1)) + "." +
           std::to_string(ByteAt(record, offset));
}

struct BearerColumn {
    const char *bearer;
    std::size_t addr, dns1, dns2, linger, authId, authPw;
};
constexpr BearerColumn BEARERS[] = {
    {"GSM-GPRS", 0x008, 0x138, 0x13C, 0x140, 0x06C, 0x0D0},
    {"GSM-CSD", 0x17D, 0x230, 0x234, 0x238, 0x1A9, 0x1E9},
    {"GSM-CSD2", 0x23C, 0x2EC, 0x2F0, 0x2F4, 0x268, 0x2A8},
};

TEST_F(ReadValueTest, EveryNapdefLeafComesFromItsPlaceInTheBearersPart)
{
    const NAP_PROFILE_S record = DistinctRecord();
    Mount(record);
    for (const BearerColumn &column : BEARERS) {
        SCOPED_TRACE(column.bearer);
        Keep(napdef, "Office/Bearer", DmtData(column.bearer));
        EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), TextAt(record, column.addr));
        EXPECT_EQ(StringOf(Value(napdef, "Office/DNS1")), AddressAt(record, column.dns1));
        EXPECT_EQ(StringOf(Value(napdef, "Office/DNS2")), AddressAt(record, column.dns2));
        EXPECT_EQ(IntOf(Value(napdef, "Office/Linger")), LittleEndian16At(record, column.linger));
        EXPECT_EQ(StringOf(Value(napdef, "Office/Auth/PAP/AuthId")), TextAt(record, column.authId));
        EXPECT_EQ(StringOf(Value(napdef, "Office/Auth/PAP/AuthPw")), TextAt(record, column.authPw));
    }
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, LineTypeAndSpeedComeFromTheSwitchedPartsCode)
{
    const struct {
        int code, speed;
        const char *lineType;
    } cases[] = {{0x47, 9600, "Isdn"},          {0x4B, 14400, "Isdn"},
                 {0x0E, 14400, "ANALOG-MODEM"}, {0x04, 2400, "ANALOG-MODEM"},
                 {0x00, 0, "ANALOG-MODEM"},     {0xFF, 0, "ANALOG-MODEM"}};
    NAP_PROFILE_S record = DistinctRecord();
    Mount(record);
    for (const auto &[bearer, offset] :
         {std::pair{"GSM-CSD", std::size_t{0x23B}}, std::pair{"GSM-CSD2", std::size_t{0x2F7}}}) {
        Keep(napdef, "Office/Bearer", DmtData(bearer));
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(bearer) + " " + std::to_string(c.code));
            auto *const bytes = reinterpret_cast<unsigned char *>(&handset.napi.profiles[0].record);
            bytes[0x23B] = bytes[0x2F7] = 0x06; // the other part says 4800
            bytes[offset] = static_cast<unsigned char>(c.code);
            EXPECT_EQ(IntOf(Value(napdef, "Office/Speed")), c.speed);
            EXPECT_EQ(StringOf(Value(napdef, "Office/LineType")), c.lineType);
        }
    }
}

TEST_F(ReadValueTest, LineTypeAndSpeedOfPacketDataAreWhatTheEngineKeeps)
{
    NAP_PROFILE_S record = Record("internet", "+49");
    record.csdSpeedCode = 0x47;
    Mount(record);
    EXPECT_EQ(StringOf(Value(napdef, "Office/LineType")), "");
    EXPECT_EQ(IntOf(Value(napdef, "Office/Speed")), 0);

    Keep(napdef, "Office/LineType", DmtData("Isdn"));
    Keep(napdef, "Office/Speed", DmtData("whatever the engine holds"));
    EXPECT_EQ(StringOf(Value(napdef, "Office/LineType")), "Isdn");
    EXPECT_EQ(StringOf(Value(napdef, "Office/Speed")), "whatever the engine holds");
}

TEST_F(ReadValueTest, EveryProxyLeafComesFromItsPlace)
{
    NAP_PROFILE_S record = DistinctRecord();
    Mount(record);
    EXPECT_EQ(StringOf(Value(proxy, "Office/Ph1/Addr")), TextAt(record, 0x2F8));
    EXPECT_EQ(StringOf(Value(proxy, "Office/Ph2/Addr")), TextAt(record, 0x3C3));
    EXPECT_EQ(StringOf(Value(proxy, "Office/Ph3/Addr")), "");
    EXPECT_EQ(IntOf(Value(proxy, "Office/Ph1/Port/PortNbr")), LittleEndian16At(record, 0x35C));
    EXPECT_EQ(IntOf(Value(proxy, "Office/Ph2/Port/PortNbr")), LittleEndian16At(record, 0x428));
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, UserEditableIsTheInverseOfOneBit)
{
    Mount(Record("internet"));
    const std::uint32_t words[] = {0, 1, 0xFFFFFFFE, 0xFFFFFFFF, 2, 0x100, 0x80000000, 0x01000000};
    for (const std::uint32_t flags : words) {
        handset.napi.profiles[0].record.flags = flags;
        EXPECT_EQ(BoolOf(Value(proxy, "Office/UserEditable")), (flags & 1) == 0) << flags;
    }
}

TEST_F(ReadValueTest, NumbersAreUnsigned16Bits)
{
    NAP_PROFILE_S record = Record("internet");
    record.gprsLinger = 0xFFFF;
    record.proxy1Port = 0x8000;
    Mount(record);
    EXPECT_EQ(IntOf(Value(napdef, "Office/Linger")), 65535);
    EXPECT_EQ(IntOf(Value(proxy, "Office/Ph1/Port/PortNbr")), 32768);
}

TEST_F(ReadValueTest, NoAddressReadsAs0)
{
    Mount(Record("internet"));
    EXPECT_EQ(StringOf(Value(napdef, "Office/DNS1")), "0.0.0.0");
    EXPECT_EQ(StringOf(Value(napdef, "Office/DNS2")), "0.0.0.0");
}

TEST_F(ReadValueTest, APasswordIsReadInClear)
{
    NAP_PROFILE_S record = Record("internet");
    SetText(record.gprsAuthPassword, "s3cret");
    Mount(record);
    EXPECT_EQ(StringOf(Value(napdef, "Office/Auth/PAP/AuthPw")), "s3cret");
}

TEST_F(ReadValueTest, AFullArrayReadsOnIntoTheNextOne)
{
    NAP_PROFILE_S record = Record("", std::string(44, 'd'));
    SetText(record.csdAuthId, "user");
    Mount(record);
    EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), std::string(44, 'd').append("user"));
}

TEST_F(ReadValueTest, ThePortOfTheThirdSlotLeavesTheCallersValue)
{
    Mount(Record("internet"));
    DmtData value;
    EXPECT_EQ(Read(proxy, "Office/Ph3/Port/PortNbr", value), 0);
    EXPECT_EQ(StringOf(value), "as it was");
    ExpectNothingLogged();
}

// ---- Calls outside -------------------------------------------------------------------------------

TEST_F(ReadValueTest, EachReadAsksTheServiceAfresh)
{
    Mount(Record("internet"));
    const Lines read{"NAPI_GetProfileNameByID(1)", "NAPI_ReadProfile(\"Office\")",
                     "GetNode(\"Office/Bearer\")"};
    EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), "internet");
    EXPECT_EQ(handset.journal.Take(), read);

    SetText(handset.napi.profiles[0].record.gprsAddress, "changed");
    EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), "changed");
    EXPECT_EQ(handset.journal.Take(), read);

    Value(proxy, "Office/UserEditable");
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"NAPI_GetProfileNameByID(1)", "NAPI_ReadProfile(\"Office\")"}));
}

TEST_F(ReadValueTest, ALeafThatTheEngineKeepsAsksNobody)
{
    Mount(Record("internet"));
    EXPECT_EQ(StringOf(Value(napdef, "Office/Bearer")), "GSM-GPRS");
    EXPECT_EQ(StringOf(Value(proxy, "Office/Ph1/Conn")), "Office");
    const JemSmartPtr<DmtNode> name(
        new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(napdef), "Office/Name", DmtData("kept")));
    DmtData value;
    EXPECT_EQ(name->GetValue(value), 0);
    EXPECT_EQ(StringOf(value), "kept");
    EXPECT_EQ(handset.journal.Take(), Lines{});
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, FieldsOfTheOtherKindAreKeptByTheEngine)
{
    Mount(Record("internet"));
    const struct {
        const TreePtr &tree;
        const char *path;
    } cases[] = {{napdef, "Office/UserEditable"}, {napdef, "Office/PortNbr"},
                 {proxy, "Office/DNS1"},          {proxy, "Office/Speed"},
                 {proxy, "Office/AuthPw"},        {proxy, "Office/LineType"}};
    for (const auto &c : cases) {
        const JemSmartPtr<DmtNode> node(
            new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(c.tree), c.path, DmtData("kept")));
        DmtData value;
        EXPECT_EQ(node->GetValue(value), 0);
        EXPECT_EQ(StringOf(value), "kept") << c.path;
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(ReadValueTest, AReadKeepsNoReferenceToTheTree)
{
    Mount(Record("internet"));
    Value(napdef, "Office/Addr");
    Value(napdef, "Office/Bearer");
    EXPECT_EQ(napdef->RefCount(), 1);
    handset.faults.Fail("NAPI_ReadProfile");
    DmtData value;
    Read(napdef, "Office/Addr", value);
    EXPECT_EQ(napdef->RefCount(), 1);
}

// ---- The bearer ------------------------------------------------------------------------------

TEST_F(ReadValueTest, WithoutABearerLeafTheSwitchedPartIsRead)
{
    Mount(Record("packet", "switched", "switched too"));
    EXPECT_EQ(napdef->DmtRWPluginTree::DeleteNode("Office/Bearer"), 0);
    EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), "switched");
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, WithAnEmptyOrUnreadableBearerTheSwitchedPartIsRead)
{
    Mount(Record("packet", "switched", "switched too"));
    for (const DmtData &bearer : {DmtData(""), DmtData(5), DmtData(true), DmtData(),
                                  DmtData(static_cast<const char *>(nullptr))}) {
        Keep(napdef, "Office/Bearer", bearer);
        EXPECT_EQ(StringOf(Value(napdef, "Office/Addr")), "switched");
    }
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, AnUnknownBearerFails)
{
    Mount(Record("packet", "switched"));
    for (const std::string bearer : {"GPRS", "gsm-gprs", "GSM-CSD3", "%n%s"}) {
        Keep(napdef, "Office/Bearer", DmtData(bearer.c_str()));
        ExpectFailure(
            napdef, "Office/Addr", 1,
            {NodeMessage("Leave: GetValueforNAPDEF() fail! Invalid Bearer type: " + bearer + "\n"),
             NodeMessage("Leave: GetValue() fail! GetValueforNAPDEF or GetValueforPROXY return "
                         "1\n")});
    }
}

// ---- Failures ----------------------------------------------------------------------------------

TEST_F(ReadValueTest, FailsWhenTheProfileNameIsUnknown)
{
    Mount(Record("internet"));
    handset.faults.Fail("NAPI_GetProfileNameByID", 1, 42);
    ExpectFailure(
        napdef, "Office/Addr", 1,
        {TreeMessage("Leave:GetProfileName! NAPI_GetProfileNameByID failed, return 42!\n"),
         NodeMessage("Leave: GetValue() fail! GetProfileName() return error!\n")});
}

TEST_F(ReadValueTest, FailsWhenTheProfileCannotBeRead)
{
    Mount(Record("internet"));
    handset.faults.Fail("NAPI_ReadProfile", 1, -5);
    ExpectFailure(proxy, "Office/Ph1/Addr", 1,
                  {NodeMessage("Leave: GetValue() fail! NAPI_ReadProfile() return -5! \n")});
}

TEST_F(ReadValueTest, FailsForAnAddressUnderAnUnknownSlot)
{
    Mount(Record("internet"));
    for (const char *const path : {"Office/Ph4/Addr", "Office/Addr", "Office/ph1/Addr"}) {
        SCOPED_TRACE(path);
        const JemSmartPtr<DmtNode> node(
            new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(proxy), path, DmtData("kept")));
        DmtData value("as it was");
        EXPECT_EQ(node->GetValue(value), 1);
        EXPECT_EQ(StringOf(value), "as it was");
        ExpectLogged(
            {NodeMessage("Leave: GetValueforPROXY() fail, The node Addr is not supported\n"),
             NodeMessage("Leave: GetValue() fail! GetValueforNAPDEF or GetValueforPROXY return "
                         "1\n")});
    }
}

TEST_F(ReadValueTest, FailsForALeafThatNoPartHas)
{
    Mount(Record("internet"));
    const NAP_PROFILE_S record = Record("internet");
    auto &node = dynamic_cast<DM_NAPI_PluginNode &>(*Node(napdef, "Office/Addr"));
    for (const char *const name : {"Name", "Bearer", "PortNbr", ""}) {
        DmtData value("as it was");
        EXPECT_EQ(node.GetValueforNAPDEF(name, &record, value), 1);
        EXPECT_EQ(StringOf(value), "as it was");
        ExpectLogged({NodeMessage("Leave: GetValueforNAPDEF() fail! The node " + std::string(name) +
                                  " is not supported\n")});
    }
}

TEST_F(ReadValueTest, AProxyLeafThatNoSlotHasSucceedsAndLeavesTheCallersValue)
{
    Mount(Record("internet"));
    const NAP_PROFILE_S record = Record("internet");
    auto &node = dynamic_cast<DM_NAPI_PluginNode &>(*Node(proxy, "Office/Ph1/Addr"));
    DmtData value("as it was");
    EXPECT_EQ(node.GetValueforPROXY("Name", &record, value), 0);
    EXPECT_EQ(StringOf(value), "as it was");
    EXPECT_EQ(node.GetValueforPROXY("PortNbr", &record, value), 0)
        << "its grandparent is not a slot";
    EXPECT_EQ(StringOf(value), "as it was");
    ExpectNothingLogged();
}

TEST_F(ReadValueTest, FailsForANodeOutsideTheMap)
{
    Mount(Record("internet"));
    const JemSmartPtr<DmtNode> node(new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(napdef),
                                                           "Elsewhere/Addr", DmtData("kept")));
    DmtData value("as it was");
    EXPECT_EQ(node->GetValue(value), 1);
    EXPECT_EQ(StringOf(value), "as it was");
    ExpectLogged({TreeMessage("Leave:GetProfileName! Can not find Elsewhere in m_ProfileMaps!\n"),
                  NodeMessage("Leave: GetValue() fail! GetProfileName() return error!\n")});
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(ReadValueTest, FailsOnceTheTreeIsGone)
{
    Mount(Record("internet"));
    const JemSmartPtr<DmtNode> record = Node(napdef, "Office/Addr");
    const JemSmartPtr<DmtNode> kept = Node(napdef, "Office/Bearer");
    napdef.reset();
    handset.journal.Clear();
    for (const auto &node : {record, kept}) {
        DmtData value("as it was");
        EXPECT_NE(node->GetValue(value), 0);
        EXPECT_EQ(StringOf(value), "as it was");
        const auto &plugin = dynamic_cast<DM_NAPI_PluginNode &>(*node);
        EXPECT_STREQ(plugin.GetProfileNodeName().text(), "");
    }
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(ReadValueTest, NothingIsTakenFromARecordOnceTheTreeIsGone)
{
    Mount(Record("internet"));
    const JemSmartPtr<DmtNode> node = Node(napdef, "Office/Addr");
    napdef.reset();
    const NAP_PROFILE_S record = Record("internet");
    DmtData value("as it was");
    EXPECT_EQ(dynamic_cast<DM_NAPI_PluginNode &>(*node).GetValueforNAPDEF(DMString("Addr"), &record,
                                                                          value),
              500);
    EXPECT_EQ(StringOf(value), "as it was");
}

} // namespace
