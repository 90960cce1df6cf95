// What the plug-in knows of the profile record: fields, line types and speeds, addresses, and the
// names in a node's path.
#include "plugin_test.h"

#include <cstring>

namespace {

using namespace doubles;

// ---- Field table ---------------------------------------------------------------------------------

TEST(RecordFields, AreTheseNamesOfEachKindAndNoOthers)
{
    const struct {
        const char *name;
        bool napdef, proxy;
    } names[] = {
        {"Speed", true, false},        {"Addr", true, true},     {"DNS1", true, false},
        {"DNS2", true, false},         {"Linger", true, false},  {"LineType", true, false},
        {"AuthId", true, false},       {"AuthPw", true, false},  {"PortNbr", false, true},
        {"UserEditable", false, true}, {"Bearer", false, false}, {"Conn", false, false},
        {"Name", false, false},        {"", false, false},       {"Addr ", false, false},
        {" Addr", false, false},       {"addr", false, false},   {"ADDR", false, false},
        {"Add", false, false},         {"Addr2", false, false},  {"DNS", false, false},
        {"DNS3", false, false},        {"Auth", false, false},   {"PAP", false, false},
        {"Port", false, false},        {"Ph1", false, false},    {"PortNbr1", false, false}};
    for (const auto &n : names) {
        EXPECT_EQ(IsFieldInRecord(n.name, true), n.napdef) << n.name;
        EXPECT_EQ(IsFieldInRecord(n.name, false), n.proxy) << n.name;
    }
    EXPECT_FALSE(IsFieldInRecord(DMString(), true));
    EXPECT_FALSE(IsFieldInRecord(DMString(), false));
}

// ---- Line types and speeds ---------------------------------------------------------------------

struct CodeRow {
    int code;
    unsigned int bitRate;
    const char *lineType;
};
constexpr CodeRow CODES[] = {{0x0E, 14400, "ANALOG-MODEM"}, {0x07, 9600, "ANALOG-MODEM"},
                             {0x06, 4800, "ANALOG-MODEM"},  {0x04, 2400, "ANALOG-MODEM"},
                             {0x4B, 14400, "Isdn"},         {0x47, 9600, "Isdn"},
                             {0x46, 4800, "Isdn"},          {0x44, 2400, "Isdn"}};

TEST(SpeedCodes, EveryCodeHasOneRateAndLineType)
{
    for (int code = 0; code <= 0xFF; ++code) {
        CodeRow expected{code, 0, "ANALOG-MODEM"};
        for (const CodeRow &row : CODES)
            if (row.code == code)
                expected = row;
        const auto byte = static_cast<std::uint8_t>(code);
        EXPECT_EQ(SpeedCodeToBitRate(byte), expected.bitRate) << code;
        EXPECT_STREQ(SpeedCodeToLineType(byte).text(), expected.lineType) << code;
    }
}

TEST(SpeedCodes, EveryLineTypeHasACodeForEachRate)
{
    const struct {
        const char *lineType;
        int codes[5]; // of 0, 14400, 9600, 4800, 2400
    } rows[] = {{"ANALOG-MODEM", {0x00, 0x0E, 0x07, 0x06, 0x04}},
                {"Isdn", {0x00, 0x4B, 0x47, 0x46, 0x44}},
                {"V.110", {0x00, 0x0E, 0x07, 0x06, 0x04}},
                {"isdn", {0x00, 0x0E, 0x07, 0x06, 0x04}},
                {"", {0x00, 0x0E, 0x07, 0x06, 0x04}},
                {"Isdn ", {0x00, 0x0E, 0x07, 0x06, 0x04}}};
    constexpr unsigned int RATES[] = {0, 14400, 9600, 4800, 2400};
    for (const auto &row : rows) {
        for (int column = 0; column < 5; ++column)
            EXPECT_EQ(LineTypeToSpeedCode(row.lineType, RATES[column]), row.codes[column])
                << row.lineType << ' ' << RATES[column];
        for (const unsigned int unknown : {1u, 1200u, 2401u, 19200u, 4294967295u})
            EXPECT_EQ(LineTypeToSpeedCode(row.lineType, unknown), 0)
                << row.lineType << ' ' << unknown;
    }
}

TEST(SpeedCodes, AServerMayWriteTheseLineTypesAndRates)
{
    for (const char *const lineType : {"ANALOG-MODEM", "Isdn", "V.110"})
        EXPECT_TRUE(IsLineType(lineType)) << lineType;
    for (const char *const lineType : {"", "isdn", "ISDN", "V110", "ANALOG-MODEM ", "ANALOG"})
        EXPECT_FALSE(IsLineType(lineType)) << lineType;
    for (const int rate : {0, 14400, 9600, 4800, 2400})
        EXPECT_TRUE(IsBitRate(rate)) << rate;
    for (const int rate : {-1, 1, 1200, 2399, 14401, -9600, 2147483647, -2147483647 - 1})
        EXPECT_FALSE(IsBitRate(rate)) << rate;
}

// ---- Small conversions ---------------------------------------------------------------------------

TEST(Ipv4Text, HasTheMostSignificantByteFirst)
{
    EXPECT_STREQ(Ipv4ToText(0).text(), "0.0.0.0");
    EXPECT_STREQ(Ipv4ToText(0x0A000001).text(), "10.0.0.1");
    EXPECT_STREQ(Ipv4ToText(0x01020304).text(), "1.2.3.4");
    EXPECT_STREQ(Ipv4ToText(0xFFFFFFFF).text(), "255.255.255.255");
    EXPECT_STREQ(Ipv4ToText(0xC0A80164).text(), "192.168.1.100");
    EXPECT_STREQ(Ipv4ToText(0x7F000001).text(), "127.0.0.1");
    EXPECT_STREQ(Ipv4ToText(1).text(), "0.0.0.1");
}

TEST(DataTypeNames, FollowTheEnginesTypeCodes)
{
    EXPECT_STREQ(DataTypeName(DmtData()), "null");
    EXPECT_STREQ(DataTypeName(DmtData("")), "string");
    EXPECT_STREQ(DataTypeName(DmtData(0)), "int");
    EXPECT_STREQ(DataTypeName(DmtData(false)), "bool");
    EXPECT_STREQ(DataTypeName(DmtData(DMVector<unsigned char>())), "bin");
    EXPECT_STREQ(DataTypeName(DmtData(DMStringVector())), "node");
}

TEST(DataTypeNames, ANegativeTypeCodeIsANode)
{
    // The code is the first byte of a value.
    for (const int code : {-1, -128}) {
        DmtData value;
        *reinterpret_cast<signed char *>(&value) = static_cast<signed char>(code);
        ASSERT_EQ(value.GetType(), code);
        EXPECT_STREQ(DataTypeName(value), "node");
    }
}

TEST(RecordTexts, EndAtTheirTerminator)
{
    NAP_PROFILE_S record{};
    SetText(record.gprsAddress, "internet");
    SetText(record.gprsAuthId, "user");
    EXPECT_STREQ(RecordText(record, record.gprsAddress).text(), "internet");
    EXPECT_STREQ(RecordText(record, record.gprsAuthId).text(), "user");
    EXPECT_STREQ(RecordText(record, record.gprsAuthPassword).text(), "");
    SetText(record.csdAddress, std::string(43, 'c'));
    EXPECT_EQ(RecordText(record, record.csdAddress).text(), std::string(43, 'c'));
}

TEST(RecordTexts, RunOnIntoTheFollowingBytesWhenTheArrayIsFull)
{
    NAP_PROFILE_S record{};
    SetText(record.gprsAddress, std::string(100, 'a'));
    EXPECT_EQ(RecordText(record, record.gprsAddress).text(), std::string(100, 'a'));
    SetText(record.gprsAuthId, std::string(100, 'b'));
    SetText(record.gprsAuthPassword, "end");
    EXPECT_EQ(RecordText(record, record.gprsAddress).text(),
              std::string(100, 'a') + std::string(100, 'b') + "end");
}

TEST(RecordTexts, StopAtTheEndOfTheRecord)
{
    NAP_PROFILE_S records[2];
    std::memset(records, 'x', sizeof records);
    const NAP_PROFILE_S &record = records[0];
    EXPECT_EQ(RecordText(record, record.gprsAddress).length(), 1168u - 0x008);
    EXPECT_EQ(RecordText(record, record.csd2Address).length(), 1168u - 0x23C);
    EXPECT_EQ(RecordText(record, record.proxy2Address).length(), 1168u - 0x3C3);
}

// ---- Names in a path ---------------------------------------------------------------------------

class NodePathTest : public PluginTest {
protected:
    static JemSmartPtr<DM_NAPI_PluginNode> NodeAt(const TreePtr &tree, const char *path)
    {
        return new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(tree), path, DmtData(""));
    }
};

TEST_F(NodePathTest, ParentIsTheSegmentBeforeTheName)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const struct {
        const char *path, *parent, *grandParent;
    } cases[] = {{"", "", ""},
                 {"A", "", ""},
                 {"A/B", "A", ""},
                 {"A/B/C", "B", ""},
                 {"A/B/C/D", "C", "B"},
                 {"Office/Ph1/Port/PortNbr", "Port", "Ph1"},
                 {"A/B/C/D/E", "D", "C"},
                 {"Büro/Ph2/Port/PortNbr", "Port", "Ph2"},
                 {"/B", "", ""},
                 {"%s/%n/%x/%d", "%x", "%n"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        const auto node = NodeAt(tree, c.path);
        EXPECT_STREQ(node->GetParentNodeName().text(), c.parent);
        EXPECT_STREQ(node->GetGrandParentNodeName().text(), c.grandParent);
    }
    ExpectNothingLogged();
}

TEST_F(NodePathTest, TheProfileNodeIsTheFirstSegmentBeneathTheRoot)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = NewTree(root);
        const struct {
            const char *path, *profile;
        } cases[] = {{"", ""},
                     {"Office", "Office"},
                     {"Office/Addr", "Office"},
                     {"Office/Auth/PAP/AuthId", "Office"},
                     {"Büro/Addr", "Büro"},
                     {"/Addr", ""}};
        for (const auto &c : cases)
            EXPECT_STREQ(NodeAt(tree, c.path)->GetProfileNodeName().text(), c.profile) << c.path;
    }
    ExpectNothingLogged();
}

TEST_F(NodePathTest, ANodeOutsideTheRootOfItsKindHasNoProfileNode)
{
    EXPECT_STREQ(NodeAt(NewTree("./Elsewhere"), "Office/Addr")->GetProfileNodeName().text(), "");
    // Of the NAPDEF kind, mounted elsewhere; a path may still contain the root.
    const TreePtr tree = NewTree(".");
    EXPECT_STREQ(
        NodeAt(tree, "DevDetail/Ext/Conf/Conn/Profiles/Office/Addr")->GetProfileNodeName().text(),
        "Office");
    EXPECT_STREQ(NodeAt(tree, "DevDetail/Ext/Conf/IntProfs/Profiles/Office/Addr")
                     ->GetProfileNodeName()
                     .text(),
                 "");
}

TEST_F(NodePathTest, ARootWithinALongerOneCounts)
{
    const TreePtr tree = NewTree("x./DevDetail/Ext/Conf/IntProfs/Profiles/y");
    EXPECT_STREQ(NodeAt(tree, "Office/Addr")->GetProfileNodeName().text(), "y");
}

} // namespace
