// Which bytes of the record a written leaf reaches, and what reading it back gives: all bearers
// times all leaves, and the proxy slots.
#include "server_change_test.h"

#include <QHostAddress>

#include <limits>

namespace {

using namespace doubles;

/// Lengths around an array's size, and far beyond it.
std::vector<std::size_t> LengthsAround(std::size_t size)
{
    return {0, 1, size - 1, size, size + 1, 10000};
}

/// A text of that length whose neighbouring bytes differ, so that a shifted copy shows.
std::string TextOf(std::size_t length)
{
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text += static_cast<char>('!' + i % 89);
    return text;
}

// ---- All bearers, all leaves -----------------------------------------------------------------------

class BearerFieldsTest : public ServerChangeTest,
                         public ::testing::WithParamInterface<PartOffsets> {
protected:
    void SetUp() override
    {
        ServerChangeTest::SetUp();
        tree = MountOffice(CONN_ROOT, part);
    }
    void TearDown() override
    {
        tree.reset();
        ServerChangeTest::TearDown();
    }

    /// Writes texts of many lengths; the record must differ from what it was in this array alone,
    /// and a record that is otherwise empty must give back what fits.
    void ExpectTextField(const char *leaf, std::size_t offset, std::size_t size)
    {
        const std::string path = std::string("Office/") + leaf;
        for (const std::size_t length : LengthsAround(size)) {
            const std::string text = TextOf(length);
            for (const RecordBytes &before : {PatternBytes(0), PatternBytes(1)}) {
                Stored() = ToRecord(before);
                EXPECT_EQ(Write(tree, path, Text(text)), 0);
                RecordBytes expected = before;
                PutText(expected, offset, size, text);
                EXPECT_TRUE(SameBytes(Stored(), expected)) << path << ", " << length << " bytes";
            }
            Stored() = ToRecord(RecordBytes{});
            EXPECT_EQ(Write(tree, path, Text(text)), 0);
            EXPECT_EQ(StringOf(Value(tree, path)), text.substr(0, size)) << path;
        }
        ExpectNothingLogged();
    }

    void ExpectAddressField(const char *leaf, std::size_t offset)
    {
        const std::string path = std::string("Office/") + leaf;
        const std::pair<const char *, std::uint32_t> addresses[] = {
            {"1.2.3.4", 0x01020304},         {"0.0.0.0", 0},
            {"255.255.255.255", 0xFFFFFFFF}, {"10.0.0.1", 0x0A000001},
            {"192.168.254.253", 0xC0A8FEFD}, {"128.0.0.0", 0x80000000}};
        for (const auto &[text, number] : addresses) {
            for (const RecordBytes &before : {PatternBytes(0), PatternBytes(1)}) {
                Stored() = ToRecord(before);
                EXPECT_EQ(Write(tree, path, Text(text)), 0);
                RecordBytes expected = before;
                PutNumber(expected, offset, 4, number);
                EXPECT_TRUE(SameBytes(Stored(), expected)) << path << ' ' << text;
            }
            EXPECT_EQ(StringOf(Value(tree, path)), text);
        }
    }

    void ExpectNoEffect(const char *leaf, const DmtData &value)
    {
        Stored() = ToRecord(PatternBytes(0));
        handset.napi.modified.clear();
        EXPECT_EQ(Write(tree, std::string("Office/") + leaf, value), 0);
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0))) << leaf;
        EXPECT_EQ(handset.napi.modified.size(), 1u) << "the record is rewritten all the same";
    }

    const PartOffsets &part = GetParam();
    TreePtr tree;
};

TEST_P(BearerFieldsTest, AddrFillsTheAddressOfItsPart)
{
    ExpectTextField("Addr", part.address, part.addressSize);
}

TEST_P(BearerFieldsTest, AuthIdFillsTheAuthIdOfItsPart)
{
    ExpectTextField("Auth/PAP/AuthId", part.authId, part.authSize);
}

TEST_P(BearerFieldsTest, AuthPwFillsThePasswordOfItsPart)
{
    ExpectTextField("Auth/PAP/AuthPw", part.authPassword, part.authSize);
}

TEST_P(BearerFieldsTest, FullTextIsReadOnIntoTheNextField)
{
    Stored() = ToRecord(RecordBytes{});
    const std::string address(part.addressSize, 'a');
    ASSERT_EQ(Write(tree, "Office/Auth/PAP/AuthId", Text("next")), 0);
    ASSERT_EQ(Write(tree, "Office/Addr", Text(address)), 0);

    EXPECT_EQ(StringOf(Value(tree, "Office/Addr")), address + "next");
}

TEST_P(BearerFieldsTest, DnsServersTakeTheirNumbers)
{
    ExpectAddressField("DNS1", part.dns1);
    ExpectAddressField("DNS2", part.dns2);
}

TEST_P(BearerFieldsTest, TextThatIsNoDottedQuadLeavesTheServerAsItWas)
{
    const std::string texts[] = {"none",
                                 "",
                                 "1.2.3",
                                 "127.1",
                                 "1",
                                 "4294967295",
                                 "0x7f.0.0.1",
                                 "0x7f000001",
                                 "+1.2.3.4",
                                 "1.+2.3.4",
                                 "-1.2.3.4",
                                 "1.2.3.-4",
                                 "1. 2.3.4",
                                 "1 .2.3.4",
                                 "1.2.3.4 5",
                                 "1.2.3.4 5.6.7.8",
                                 "1.2.3.4 .",
                                 " ",
                                 " \r\n\t ",
                                 "\x1c\x31.2.3.4",         // a separator, but no white space
                                 "\x7f\x31.2.3.4",         // a control character
                                 "\xe2\x80\x8b\x31.2.3.4", // zero width space
                                 "\xef\xbb\xbf\x31.2.3.4", // byte order mark
                                 "\xe1\xa0\x8e\x31.2.3.4", // Mongolian vowel separator
                                 "\xa0\x31.2.3.4",         // white space of Latin-1, no UTF-8
                                 "1.2.3.4\xc2",            // half a character
                                 "1.2.3.4.5",
                                 "1.2.3.4.",
                                 ".1.2.3.4",
                                 "1..2.3",
                                 "1.2.3.",
                                 "...",
                                 "256.1.1.1",
                                 "1.2.3.256",
                                 "1.2.999.4",
                                 "0001.2.3.4",
                                 "1.2.3.0004",
                                 "::1",
                                 "::ffff:1.2.3.4",
                                 "fe80::1%eth0",
                                 "1.2.3.4/24",
                                 "1.2.3.4:53",
                                 "1,2,3,4",
                                 "a.b.c.d",
                                 "1.2.3.x",
                                 "1.2.3.4%s",
                                 "\xd9\xa1.2.3.4",
                                 "\xff\xfe",
                                 std::string(10000, '1'),
                                 std::string(10000, '.')};
    for (const std::string &text : texts) {
        ExpectNoEffect("DNS1", Text(text));
        ExpectNoEffect("DNS2", Text(text));
        ExpectNothingLogged();
    }
}

TEST_P(BearerFieldsTest, WhiteSpaceAroundADottedQuadIsCutAsQtsAddressClassCutsIt)
{
    std::vector<std::string> whiteSpaces = {"\r\n    ", "\n\n", "\t \t"};
    for (char32_t character = 1; character < 0x3100; ++character)
        if (QChar::isSpace(character))
            whiteSpaces.push_back(QString::fromUcs4(&character, 1).toStdString());
    ASSERT_GT(whiteSpaces.size(), 20u);
    for (const std::string &blank : whiteSpaces) {
        for (const std::string &text :
             {blank + "10.8.0.1", "10.8.0.1" + blank, blank + "10.8.0.1" + blank}) {
            QHostAddress qts;
            ASSERT_TRUE(qts.setAddress(QString::fromStdString(text))) << text;
            Stored() = ToRecord(PatternBytes(0));
            EXPECT_EQ(Write(tree, "Office/DNS2", Text(text)), 0);
            EXPECT_EQ(StringOf(Value(tree, "Office/DNS2")), qts.toString().toStdString()) << text;
        }
    }
    ExpectNothingLogged();
}

TEST_P(BearerFieldsTest, PartsOfADottedQuadAreDecimalWhateverTheirZeroes)
{
    ASSERT_EQ(Write(tree, "Office/DNS1", Text("010.008.000.001")), 0);
    EXPECT_EQ(StringOf(Value(tree, "Office/DNS1")), "10.8.0.1");
}

TEST_P(BearerFieldsTest, LingerKeepsTheLow16Bits)
{
    const std::pair<int, int> lingers[] = {{0, 0},
                                           {1, 1},
                                           {30, 30},
                                           {258, 258},
                                           {65535, 65535},
                                           {65536, 0},
                                           {65537, 1},
                                           {-1, 65535},
                                           {-65536, 0},
                                           {0x12345678, 0x5678},
                                           {std::numeric_limits<int>::max(), 65535},
                                           {std::numeric_limits<int>::min(), 0}};
    for (const auto &[written, kept] : lingers) {
        for (const RecordBytes &before : {PatternBytes(0), PatternBytes(1)}) {
            Stored() = ToRecord(before);
            EXPECT_EQ(Write(tree, "Office/Linger", Number(written)), 0);
            RecordBytes expected = before;
            PutNumber(expected, part.linger, 2, static_cast<std::uint32_t>(kept));
            EXPECT_TRUE(SameBytes(Stored(), expected)) << written;
        }
        EXPECT_EQ(IntOf(Value(tree, "Office/Linger")), kept);
    }
}

// ---- Line type and speed, which share one byte ------------------------------------------------------

TEST_P(BearerFieldsTest, SpeedChangesTheCodeWithinTheLineTypeThatItHas)
{
    if (part.speedCode == 0) {
        for (const int speed : {0, 14400, 9600, 4800, 2400})
            ExpectNoEffect("Speed", Number(speed));
        EXPECT_EQ(IntOf(Value(tree, "Office/Speed")), 0) << "and the engine keeps nothing";
        return;
    }
    const int speeds[] = {0, 14400, 9600, 4800, 2400};
    const int analog[] = {0x00, 0x0E, 0x07, 0x06, 0x04};
    const int isdn[] = {0x00, 0x4B, 0x47, 0x46, 0x44};
    for (int i = 0; i < 5; ++i) {
        for (int before = 0; before < 256; ++before) {
            const bool isIsdn = std::find(isdn + 1, isdn + 5, before) != isdn + 5;
            RecordBytes expected = PatternBytes(0);
            expected[part.speedCode] = static_cast<std::uint8_t>(before);
            Stored() = ToRecord(expected);
            EXPECT_EQ(Write(tree, "Office/Speed", Number(speeds[i])), 0);
            expected[part.speedCode] = static_cast<std::uint8_t>(isIsdn ? isdn[i] : analog[i]);
            EXPECT_TRUE(SameBytes(Stored(), expected)) << speeds[i] << " over code " << before;
        }
        EXPECT_EQ(IntOf(Value(tree, "Office/Speed")), speeds[i]);
    }
}

TEST_P(BearerFieldsTest, LineTypeChangesTheCodeAtTheSpeedThatItHas)
{
    if (part.speedCode == 0) {
        for (const char *const type : {"ANALOG-MODEM", "Isdn", "V.110"})
            ExpectNoEffect("LineType", Text(type));
        EXPECT_EQ(StringOf(Value(tree, "Office/LineType")), "") << "and the engine keeps nothing";
        return;
    }
    const auto codeAfter = [](const std::string &type, int before) {
        const bool isdn = type == "Isdn";
        switch (before) {
        case 0x0E:
        case 0x4B:
            return isdn ? 0x4B : 0x0E;
        case 0x07:
        case 0x47:
            return isdn ? 0x47 : 0x07;
        case 0x06:
        case 0x46:
            return isdn ? 0x46 : 0x06;
        case 0x04:
        case 0x44:
            return isdn ? 0x44 : 0x04;
        default:
            return 0x00;
        }
    };
    for (const std::string type : {"ANALOG-MODEM", "Isdn", "V.110"}) {
        for (int before = 0; before < 256; ++before) {
            RecordBytes expected = PatternBytes(1);
            expected[part.speedCode] = static_cast<std::uint8_t>(before);
            Stored() = ToRecord(expected);
            EXPECT_EQ(Write(tree, "Office/LineType", Text(type)), 0);
            const int after = codeAfter(type, before);
            expected[part.speedCode] = static_cast<std::uint8_t>(after);
            EXPECT_TRUE(SameBytes(Stored(), expected)) << type << " over code " << before;
            EXPECT_EQ(StringOf(Value(tree, "Office/LineType")),
                      type == "Isdn" && after != 0 ? "Isdn" : "ANALOG-MODEM");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllBearers, BearerFieldsTest, ::testing::ValuesIn(ALL_PARTS),
                         [](const auto &info) {
                             std::string name = info.param.bearer;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

// ---- Proxy slots -----------------------------------------------------------------------------------------

class ProxyFieldsTest : public ServerChangeTest {
protected:
    void SetUp() override
    {
        ServerChangeTest::SetUp();
        tree = MountOffice(INTPROFS_ROOT, GPRS_PART, PatternBytes(0));
    }
    void TearDown() override
    {
        tree.reset();
        ServerChangeTest::TearDown();
    }

    void ExpectAddress(const char *path, std::size_t offset)
    {
        for (const std::size_t length : LengthsAround(100)) {
            const std::string text = TextOf(length);
            for (const RecordBytes &before : {PatternBytes(0), PatternBytes(1)}) {
                Stored() = ToRecord(before);
                EXPECT_EQ(Write(tree, path, Text(text)), 0);
                RecordBytes expected = before;
                PutText(expected, offset, 100, text);
                EXPECT_TRUE(SameBytes(Stored(), expected)) << path << ", " << length << " bytes";
            }
            Stored() = ToRecord(RecordBytes{});
            EXPECT_EQ(Write(tree, path, Text(text)), 0);
            EXPECT_EQ(StringOf(Value(tree, path)), text.substr(0, 100));
        }
    }

    void ExpectPort(const char *path, std::size_t offset)
    {
        const std::pair<int, int> ports[] = {{0, 0},         {80, 80},        {8080, 8080},
                                             {65535, 65535}, {65536, 0},      {65617, 81},
                                             {-1, 65535},    {0x1234, 0x1234}};
        for (const auto &[written, kept] : ports) {
            for (const RecordBytes &before : {PatternBytes(0), PatternBytes(1)}) {
                Stored() = ToRecord(before);
                EXPECT_EQ(Write(tree, path, Number(written)), 0);
                RecordBytes expected = before;
                PutNumber(expected, offset, 2, static_cast<std::uint32_t>(kept));
                EXPECT_TRUE(SameBytes(Stored(), expected)) << path << ' ' << written;
            }
            EXPECT_EQ(IntOf(Value(tree, path)), kept);
        }
    }

    /// Writes a value that must succeed and leave every byte as it was.
    void ExpectNoEffect(const std::string &path, const DmtData &value)
    {
        Stored() = ToRecord(PatternBytes(0));
        handset.napi.modified.clear();
        EXPECT_EQ(Write(tree, path, value), 0) << path;
        EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0))) << path;
        EXPECT_EQ(handset.napi.modified.size(), 1u) << "the record is rewritten all the same";
        ExpectNothingLogged();
    }

    TreePtr tree;
};

TEST_F(ProxyFieldsTest, AddressesOfBothSlots)
{
    ExpectAddress("Office/Ph1/Addr", 0x2F8);
    ExpectAddress("Office/Ph2/Addr", 0x3C3);
}

TEST_F(ProxyFieldsTest, PortsOfBothSlotsKeepTheLow16Bits)
{
    ExpectPort("Office/Ph1/Port/PortNbr", 0x35C);
    ExpectPort("Office/Ph2/Port/PortNbr", 0x428);
}

TEST_F(ProxyFieldsTest, OtherSlotsHaveNoPlaceInTheRecord)
{
    ExpectNoEffect("Office/Ph3/Addr", Text("third"));
    ExpectNoEffect("Office/Ph3/Port/PortNbr", Number(3));
    for (const char *const path : {"Office/Addr", "Office/ph1/Addr", "Office/Ph1/x/Addr"}) {
        PutLeaf(tree, path, Text(""));
        ExpectNoEffect(path, Text("x"));
    }
    for (const char *const path : {"Office/PortNbr", "Office/Ph1/PortNbr", "Office/Ph1/x/y/PortNbr",
                                   "Office/PH2/x/PortNbr"}) {
        PutLeaf(tree, path, Number(0));
        ExpectNoEffect(path, Number(1));
    }
}

TEST_F(ProxyFieldsTest, SlotIsTakenFromTheNamesAboveTheLeaf)
{
    // Any node between slot and number will do; it is the grandparent that counts.
    PutLeaf(tree, "Office/Ph2/Elsewhere/PortNbr", Number(0));
    EXPECT_EQ(Write(tree, "Office/Ph2/Elsewhere/PortNbr", Number(0x0102)), 0);
    RecordBytes expected = PatternBytes(0);
    PutNumber(expected, 0x428, 2, 0x0102);
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

TEST_F(ProxyFieldsTest, ProfileCalledLikeASlotIsTheSlotOfItsOwnAddressOnly)
{
    ASSERT_EQ(tree->RenameNode("Office", "Ph1"), 0);
    handset.log.Take();
    // A number directly beneath a profile's child has no grandparent, whatever the profile's name.
    PutLeaf(tree, "Ph1/Port/PortNbr", Number(0));
    ExpectNoEffect("Ph1/Port/PortNbr", Number(1));

    Stored() = ToRecord(PatternBytes(0));
    PutLeaf(tree, "Ph1/Addr", Text(""));
    EXPECT_EQ(Write(tree, "Ph1/Addr", Text("x")), 0);
    RecordBytes expected = PatternBytes(0);
    PutText(expected, 0x2F8, 100, "x");
    EXPECT_TRUE(SameBytes(Stored(), expected));
}

TEST_F(ProxyFieldsTest, UserEditableIsTheInverseOfTheLowestFlag)
{
    for (int flags = 0; flags < 256; ++flags) {
        for (const bool editable : {true, false}) {
            RecordBytes expected = PatternBytes(0);
            expected[0x004] = static_cast<std::uint8_t>(flags);
            Stored() = ToRecord(expected);
            EXPECT_EQ(Write(tree, "Office/UserEditable", DmtData(editable)), 0);
            expected[0x004] = static_cast<std::uint8_t>(editable ? flags & 0xFE : flags | 0x01);
            EXPECT_TRUE(SameBytes(Stored(), expected)) << flags << editable;
            EXPECT_EQ(BoolOf(Value(tree, "Office/UserEditable")), editable);
        }
    }
}

TEST_F(ProxyFieldsTest, ValueOfAnotherTypeCountsAsTheDefault)
{
    for (const DmtData &value : {Text("false"), Number(0), DmtData()}) {
        RecordBytes expected = PatternBytes(0);
        expected[0x004] = 0xFF;
        Stored() = ToRecord(expected);
        EXPECT_EQ(Write(tree, "Office/UserEditable", value), 0);
        expected[0x004] = 0xFE;
        EXPECT_TRUE(SameBytes(Stored(), expected)) << "true is the default";
    }
    for (const DmtData &value : {Text("8080"), DmtData(true), DmtData()}) {
        Stored() = ToRecord(PatternBytes(0));
        EXPECT_EQ(Write(tree, "Office/Ph1/Port/PortNbr", value), 0);
        RecordBytes expected = PatternBytes(0);
        Zero(expected, 0x35C, 2);
        EXPECT_TRUE(SameBytes(Stored(), expected)) << "0 is the default";
    }
    for (const DmtData &value : {Number(1), DmtData(true), DmtData()}) {
        Stored() = ToRecord(PatternBytes(0));
        EXPECT_EQ(Write(tree, "Office/Ph2/Addr", value), 0);
        RecordBytes expected = PatternBytes(0);
        Zero(expected, 0x3C3, 100);
        EXPECT_TRUE(SameBytes(Stored(), expected)) << "the empty text is the default";
    }
    ExpectNothingLogged(); // the tolerance is not a failure
}

} // namespace
