// Serialised trees of a server as they are read: both encodings, every limit, every fault.

#include "tnds_reader.h"

#include <QByteArrayList>
#include <gtest/gtest.h>

namespace client {

namespace {

QByteArray tree(const QByteArray &nodes, const QByteArray &version = "1.2")
{
    return "<MgmtTree xmlns='syncml:dmddf1.2'><VerDTD>" + version + "</VerDTD>" + nodes +
           "</MgmtTree>";
}

/// "depth name path format type acl title value", each node in brackets; what is missing is "-".
/// Or the status, and what the reason has behind "the serialised tree".
std::string summary(const QByteArray &document, const TndsLimits &limits = {})
{
    const auto nodes = readTnds(document, limits);
    if (!nodes)
        return std::to_string(static_cast<int>(nodes.error().status)) +
               nodes.error().reason.mid(QStringLiteral("the serialised tree").size()).toStdString();
    const auto text = [](const std::optional<QByteArray> &bytes) {
        return bytes ? "'" + bytes->toStdString() + "'" : std::string("-");
    };
    std::string all;
    for (const TndsNode &node : *nodes) {
        all += "[" + std::to_string(node.depth);
        for (const QString &word : {node.name, node.path, node.format, node.type})
            all += " " + (word.isEmpty() ? std::string("-") : word.toStdString());
        for (const auto &bytes : {node.acl, node.title, node.value})
            all += " " + text(bytes);
        all += "]";
    }
    return all;
}

/// An account as a bootstrap message has it: WBXML 1.2, with the public id as text.
QByteArray accountInWbxml()
{
    return QByteArray::fromHex(
        "0200006a1b2d2f2f4f4d412f2f4454442d444d2d44444620312e322f2f454e000002607703312e320001646603"
        "5372763100016f46034765743d636f6d2e6578616d706c652e646d265265706c6163653d636f6d2e6578616d70"
        "6c652e646d00015c250175510375726e3a6f6d613a6d6f3a6f6d612d646d2d646d6163633a312e300001010164"
        "6603417070494400016f5c0b01756103746578742f706c61696e00010101760377370001016466035365727665"
        "72494400016f5c0b01756103746578742f706c61696e000101017603636f6d2e6578616d706c652e646d000101"
        "6466034e616d6500016f5c0b01756103746578742f706c61696e0001010176034578616d706c6520444d000101"
        "64660350726566436f6e52656600016f5c0b01756103746578742f706c61696e0001010176032e2f496e626f78"
        "2f4e6574310001010101");
}

const char accountInXml[] =
    "<?xml version='1.0' encoding='UTF-8'?>"
    "<!DOCTYPE MgmtTree PUBLIC '-//OMA//DTD-DM-DDF 1.2//EN' 'dm_ddf-v1_2.dtd'>"
    "<MgmtTree><VerDTD>1.2</VerDTD><Node><NodeName>Srv1</NodeName><RTProperties>"
    "<ACL>Get=com.example.dm&amp;Replace=com.example.dm</ACL><Format><node/></Format>"
    "<Type><DDFName>urn:oma:mo:oma-dm-dmacc:1.0</DDFName></Type></RTProperties>"
    "<Node><NodeName>AppID</NodeName><RTProperties><Format><chr/></Format><Type><MIME>text/plain"
    "</MIME></Type></RTProperties><Value>w7</Value></Node>"
    "<Node><NodeName>ServerID</NodeName><RTProperties><Format><chr/></Format><Type><MIME>text/plain"
    "</MIME></Type></RTProperties><Value>com.example.dm</Value></Node>"
    "<Node><NodeName>Name</NodeName><RTProperties><Format><chr/></Format><Type><MIME>text/plain"
    "</MIME></Type></RTProperties><Value>Example DM</Value></Node>"
    "<Node><NodeName>PrefConRef</NodeName><RTProperties><Format><chr/></Format><Type><MIME>"
    "text/plain</MIME></Type></RTProperties><Value>./Inbox/Net1</Value></Node></Node></MgmtTree>";

// ---- What is read --------------------------------------------------------------------------------

TEST(TndsReader, GivesTheSameNodesFromBothEncodings)
{
    EXPECT_EQ(summary(accountInXml), "[0 Srv1 - node urn:oma:mo:oma-dm-dmacc:1.0 "
                                     "'Get=com.example.dm&Replace=com.example.dm' - -]"
                                     "[1 AppID - chr text/plain - - 'w7']"
                                     "[1 ServerID - chr text/plain - - 'com.example.dm']"
                                     "[1 Name - chr text/plain - - 'Example DM']"
                                     "[1 PrefConRef - chr text/plain - - './Inbox/Net1']");
    EXPECT_EQ(summary(accountInWbxml()), summary(accountInXml));
}

TEST(TndsReader, TakesElementsInAnyOrderAndLeavesOutWhatItDoesNotKnow)
{
    EXPECT_EQ(summary("<t:MgmtTree xmlns:t='syncml:dmddf1.2'><t:Man>M</t:Man>"
                      "<t:Node><t:Node><t:NodeName>B</t:NodeName></t:Node>"
                      "<t:RTProperties><t:VerNo>7</t:VerNo><t:Title>T</t:Title><t:Name>x</t:Name>"
                      "</t:RTProperties><t:DFProperties><t:Format><t:int/></t:Format>"
                      "</t:DFProperties><t:Path>./X</t:Path><t:NodeName> A </t:NodeName></t:Node>"
                      "<t:VerDTD>1.2</t:VerDTD></t:MgmtTree>"),
              "[0 A ./X - - - 'T' -][1 B - - - - - -]");
}

TEST(TndsReader, KeepsAValueAsItIs)
{
    const auto value = [](const char *text) {
        return summary(tree(QByteArray("<Node><Value>") + text + "</Value></Node>"));
    };
    EXPECT_EQ(value(" a\n&lt;b&gt; "), "[0 - - - - - - ' a\n<b> ']");
    EXPECT_EQ(value("<![CDATA[<x/>]]>&amp;"), "[0 - - - - - - '<x/>&']");
    EXPECT_EQ(value(""), "[0 - - - - - - '']");
    EXPECT_EQ(summary(tree("<Node/>")), "[0 - - - - - - -]");
}

TEST(TndsReader, TellsTheValuesOfSecretLeavesHoweverTheyCome)
{
    const auto secrets = [](const QByteArray &nodes) {
        QByteArrayList texts;
        for (const QByteArray &secret : secretsOf(*readTnds(tree(nodes).toBase64())))
            texts.push_back(secret);
        return texts.join(' ').toStdString();
    };
    EXPECT_EQ(secrets("<Node><NodeName>AuthPw</NodeName><Value>a&amp;b</Value></Node>"
                      "<Node><NodeName>Auth%50w</NodeName><RTProperties><Format><b64/></Format>"
                      "</RTProperties><Value>eHl6</Value></Node>"
                      "<Node><Value>unknown</Value></Node>"
                      "<Node><NodeName>Addr</NodeName><Value>internet</Value></Node>"),
              "a&b eHl6 xyz unknown");
}

// ---- What is refused -----------------------------------------------------------------------------

struct Refusal {
    const char *name;
    QByteArray document;
    const char *summary;
};

class TndsReaderRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(TndsReaderRefusal, SaysWhatIsWrongAndWhere)
{
    EXPECT_EQ(summary(GetParam().document), GetParam().summary);
}

const Refusal refusals[] = {
    {"Empty", "", "415 is neither XML nor WBXML"},
    {"OtherBytes", "hello", "415 is neither XML nor WBXML"},
    {"OtherDocument", "<SyncML/>", "415: line 1, column 0: SyncML is not a serialised tree"},
    {"BrokenOff", "<MgmtTree><VerDTD>1.2</VerDTD><Node>",
     "400: line 1, column 36: no element found"},
    {"OtherVersion", tree("<Node/>", "2.0"),
     "415: line 1, column 45: VerDTD 2.0 is not supported, only 1.2 is"},
    {"NoVersion", "<MgmtTree><Node/></MgmtTree>",
     "400: line 1, column 0: the tree does not name its VerDTD"},
    {"NoNode", tree(""), "400: line 1, column 0: the tree has no Node"},
    {"ValueAboveNodes", tree("<Node><NodeName>A</NodeName><Value>1</Value><Node/></Node>"),
     "400: line 1, column 105: the node A has both a value and nodes beneath it"},
    {"TwoValues", tree("<Node><NodeName>A</NodeName><Value/><Value>1</Value></Node>"),
     "400: line 1, column 90: the node A has two values"},
    {"TwoFormats", tree("<Node><RTProperties><Format><chr/><int/></Format></RTProperties></Node>"),
     "400: line 1, column 88: the node  has two formats"},
    {"PathOfAnInnerNode", tree("<Node><Node><NodeName>A</NodeName><Path>./X</Path></Node></Node>"),
     "400: line 1, column 104: the node A has a Path, but is inside another node"},
    {"MarkupInAValue", tree("<Node><Value><b/></Value></Node>"),
     "400: line 1, column 67: b inside Value, which holds text only"},
    {"EntityOfItsOwn", "<!DOCTYPE MgmtTree [<!ENTITY a 'b'>]><MgmtTree/>",
     "400: line 1, column 19: the document type has declarations of its own"},
    {"WbxmlOfAnotherKind", QByteArray::fromHex("0200006a").append("\x04xyz", 5),
     "415: byte 9: public id 'xyz' is not of a tree"},
    {"WbxmlTagOfAMessage", QByteArray::fromHex("02016a006d01"),
     "400: byte 5: tag 0x2d of code page 0 is not known"},
    {"WbxmlTagOfNoTree", QByteArray::fromHex("02016a0000027d01"),
     "400: byte 7: tag 0x3d of code page 2 is not known"},
};

INSTANTIATE_TEST_SUITE_P(, TndsReaderRefusal, testing::ValuesIn(refusals),
                         [](const auto &info) { return std::string(info.param.name); });

// ---- Limits --------------------------------------------------------------------------------------

TEST(TndsReader, TakesNoMoreNodesThanItsLimit)
{
    TndsLimits limits;
    limits.nodes = 3;
    EXPECT_EQ(summary(tree("<Node/><Node><Node/></Node>"), limits).substr(0, 2), "[0");
    EXPECT_EQ(summary(tree("<Node/><Node><Node/></Node><Node/>"), limits),
              "413: line 1, column 81: more than 3 nodes");
}

TEST(TndsReader, TakesNoMoreElementsInsideEachOtherThanItsLimit)
{
    const auto deep = [](int nodes) {
        return tree(QByteArray("<Node>").repeated(nodes) + QByteArray("</Node>").repeated(nodes));
    };
    EXPECT_EQ(summary(deep(TndsLimits().depth - 1)).substr(0, 2), "[0");
    EXPECT_EQ(summary(deep(TndsLimits().depth)).substr(0, 4), "413:");
    // A million of them must not reach the stack.
    EXPECT_EQ(summary("<MgmtTree><VerDTD>1.2</VerDTD>" + QByteArray("<Node>").repeated(600'000))
                  .substr(0, 4),
              "413:");
    QByteArray inWbxml = QByteArray::fromHex("02016a000002607703312e320001");
    inWbxml.append(QByteArray("\x64").repeated(1'000'000));
    EXPECT_EQ(summary(inWbxml).substr(0, 4), "413:");
}

TEST(TndsReader, TakesNoMoreBytesThanItsLimit)
{
    TndsLimits limits;
    limits.bytes = 200;
    EXPECT_EQ(summary(tree("<Node><Value>short</Value></Node>"), limits).substr(0, 2), "[0");
    EXPECT_EQ(summary(tree("<Node><Value>" + QByteArray(200, 'x') + "</Value></Node>"), limits)
                  .substr(0, 4),
              "413:");
    // A string table that is referred to again and again.
    QByteArray table = QByteArray::fromHex("02016a1f") + QByteArray(30, 'x') + '\0';
    table += QByteArray::fromHex("000260") + QByteArray::fromHex("6476");
    table += QByteArray::fromHex("8300").repeated(10);
    EXPECT_EQ(summary(table, limits).substr(0, 4), "413:");
}

} // namespace

} // namespace client
