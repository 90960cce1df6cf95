// Provisioning documents in both encodings.

#include "provisioning_document.h"
#include "vectors.h"

#include <gtest/gtest.h>

using namespace client::bootstrap;

namespace {

constexpr char head[] = "\x03\x0B\x6A"; // without its string table

QByteArray wbxml(const QByteArray &body, const QByteArray &table = {})
{
    const auto high = static_cast<char>(0x80 | table.size() >> 7);
    const auto low = static_cast<char>(table.size() & 0x7F);
    return QByteArray(head) + high + low + table + body;
}

/// A document of one characteristic of type A with these attributes of a parm.
QByteArray wbxmlParm(const QByteArray &attributes, const QByteArray &table = {})
{
    return wbxml(bytes("\x45\xC6\x50\x03"
                       "A\0\x01\x87") +
                     attributes + "\x01\x01\x01",
                 table);
}

std::string faultOf(const QByteArray &bytes, const ProvisioningLimits &limits = {})
{
    const auto document = readProvisioningDocument(bytes, limits);
    return document ? std::string() : document.error().toStdString();
}

TEST(ProvisioningDocumentTest, BothEncodingsOfOneDocumentAreEqual)
{
    const auto fromXml = readProvisioningDocument(vectorFile("cp.xml"));
    const auto fromWbxml = readProvisioningDocument(vectorFile("cp.wbxml"));
    ASSERT_TRUE(fromXml) << fromXml.error().toStdString();
    ASSERT_TRUE(fromWbxml) << fromWbxml.error().toStdString();
    EXPECT_EQ(*fromXml, *fromWbxml);
    ASSERT_EQ(fromXml->characteristics.size(), 3u);
    const Characteristic &accessPoint = fromXml->characteristics[0];
    EXPECT_EQ(accessPoint.type, QStringLiteral("NAPDEF"));
    ASSERT_EQ(accessPoint.parms.size(), 7u);
    EXPECT_EQ(accessPoint.parms[2], (Parm{QStringLiteral("BEARER"), QStringLiteral("GSM-GPRS")}));
    ASSERT_EQ(accessPoint.parts.size(), 1u);
    EXPECT_EQ(accessPoint.parts[0].type, QStringLiteral("NAPAUTHINFO"));
    const Characteristic &application = fromXml->characteristics[2];
    EXPECT_EQ(application.parms.back(), (Parm{QStringLiteral("INIT"), std::nullopt}));
}

TEST(ProvisioningDocumentTest, APublishedOneIsRead)
{
    const auto document = readProvisioningDocument(vectorFile("published-userpin.wbxml"));
    ASSERT_TRUE(document) << document.error().toStdString();
    ASSERT_EQ(document->characteristics.size(), 7u);
    EXPECT_EQ(document->characteristics[1].parms[0].value, QStringLiteral("w2"));
    EXPECT_EQ(document->characteristics[6].type, QStringLiteral("NAPDEF"));
    EXPECT_EQ(document->characteristics[6].parms[4].value, QStringLiteral("APN"));
}

struct ParmRow {
    const char *what;
    QByteArray attributes;
    QByteArray table;
    Parm parm;

    friend void PrintTo(const ParmRow &row, std::ostream *out) { *out << row.what; }
};

const ParmRow parms[] = {
    {"a token for the name and one for the value",
     "\x10\x06\xAB",
     {},
     {QStringLiteral("BEARER"), QStringLiteral("GSM-GPRS")}},
    {"the first token of a run and the last",
     "\x07\x06\x8C",
     {},
     {QStringLiteral("NAME"), QStringLiteral("MAN")}},
    {"a name in words", bytes("\x05\x03INIT\0"), {}, {QStringLiteral("INIT"), std::nullopt}},
    {"pieces of a value",
     bytes("\x07\x06\x03"
           "a\0\x02\x82\x2C\x83\x00\x89"),
     bytes("bc\0"),
     {QStringLiteral("NAME"), QStringLiteral("a\u012Cbc") + QStringLiteral("APN")}},
    {"names from the string table",
     bytes("\x04\x00\x83\x05\x04\x0A\x03v\0"),
     bytes("name\0SOME\0value\0"),
     {QStringLiteral("SOME"), QStringLiteral("v")}},
    {"the second code page",
     bytes("\x00\x01\x36\x06\x03w7\0"),
     {},
     {QStringLiteral("APPID"), QStringLiteral("w7")}},
    {"a page that changes inside a value",
     bytes("\x00\x01\x33\x06\x91\x92\x00\x00\x89"),
     {},
     {QStringLiteral("AAUTHTYPE"), QStringLiteral("HTTP-BASICAPN")}},
    {"a name that is on both pages",
     bytes("\x00\x01\x23\x06\x03"
           "80\0"),
     {},
     {QStringLiteral("PORTNBR"), QStringLiteral("80")}},
    {"an empty value", bytes("\x07\x06\x03\0"), {}, {QStringLiteral("NAME"), QString()}},
};

class WbxmlParmTest : public testing::TestWithParam<ParmRow> {};

TEST_P(WbxmlParmTest, IsRead)
{
    const auto document =
        readProvisioningDocument(wbxmlParm(GetParam().attributes, GetParam().table));
    ASSERT_TRUE(document) << document.error().toStdString();
    ASSERT_EQ(document->characteristics.size(), 1u);
    ASSERT_EQ(document->characteristics[0].parms.size(), 1u);
    EXPECT_EQ(document->characteristics[0].parms[0], GetParam().parm);
}

INSTANTIATE_TEST_SUITE_P(Wbxml, WbxmlParmTest, testing::ValuesIn(parms));

TEST(ProvisioningDocumentTest, PagesOfTagsAndOfAttributesAreApartAndLast)
{
    // APPLICATION on page 1 of the attributes, APPADDR after it without another change of that
    // page, though the page of the tags was chosen anew.
    const auto document = readProvisioningDocument(
        wbxml(bytes("\x45\xC6\x00\x01\x55\x01\x00\x00\xC6\x56\x01\x01\x01\x01")));
    ASSERT_TRUE(document) << document.error().toStdString();
    EXPECT_EQ(document->characteristics.at(0).type, QStringLiteral("APPLICATION"));
    EXPECT_EQ(document->characteristics.at(0).parts.at(0).type, QStringLiteral("APPADDR"));
}

TEST(ProvisioningDocumentTest, ThePublicIdMayStandInTheStringTable)
{
    const QByteArray text("-//WAPFORUM//DTD PROV 1.0//EN\0", 30);
    const QByteArray rest = bytes("\x6A\x1E") + text + "\x05";
    EXPECT_EQ(faultOf(bytes("\x03\x00\x00") + rest), "");
    EXPECT_NE(faultOf(bytes("\x03\x00\x03") + rest), "");
}

struct RefusedDocumentRow {
    const char *reason;
    QByteArray document;

    friend void PrintTo(const RefusedDocumentRow &row, std::ostream *out) { *out << row.reason; }
};

const RefusedDocumentRow refusedDocuments[] = {
    {"neither XML nor WBXML", "hello"},
    {"neither XML nor WBXML", ""},
    // ---- WBXML
    {"public id 0x1201 is not that of provisioning", bytes("\x02\xA4\x01\x6A\x00")},
    {"character set 4 is not supported", bytes("\x03\x0B\x04\x00\x05")},
    {"120 bytes announced", bytes("\x03\x0B\x6A\x78\x05")},
    {"tag 0x08 of code page 0 is not known", wbxml("\x08")},
    {"there is no code page 2", wbxml(bytes("\x00\x02\x05"))},
    {"attribute 0x17 of code page 1 is not known", wbxmlParm(bytes("\x00\x01\x17"))},
    {"value 0x84 of code page 0 is not known", wbxmlParm("\x07\x06\x84")},
    {"value 0xc3 of code page 0 is not known", wbxmlParm("\x07\x06\xC3\x01x")},
    {"no string of at most 2048 bytes at 9", wbxmlParm("\x07\x06\x83\x09", bytes("abc\0"))},
    {"no string of at most 2048 bytes at 0",
     wbxmlParm(bytes("\x07\x06\x83\x00"), QByteArray(2049, 'x') + '\0')},
    {"entity 55296 is not a character", wbxmlParm(bytes("\x07\x06\x02\x83\xB0\x00"))},
    {"bytes after the end of the document", wbxml("\x05x")},
    {"an end without an element", wbxml("\x01")},
    {"text between the elements", wbxml(bytes("\x45\x03x\0\x01"))},
    {"the attribute name stands there twice", wbxmlParm("\x07\x08")},
    {"the attribute value is not UTF-8", wbxmlParm(bytes("\x07\x06\x03\xFF\0"))},
    {"a parm without a name", wbxmlParm("\x06\x89")},
    {"a parm has an attribute of another element", wbxmlParm("\x07\x50")},
    {"a characteristic without a type", wbxml("\x45\x46\x01\x01")},
    {"a parm has no place here", wbxml("\x45\x87\x07\x01\x01")},
    {"a wap-provisioningdoc has no place here", wbxml("\x45\x05\x01")},
    {"a characteristic has no place here", wbxml("\xC6\x51\x01\x01")},
    // ---- XML
    {"not in UTF-8", "<wap-provisioningdoc>\xFF</wap-provisioningdoc>"},
    {"the document type has declarations of its own",
     "<!DOCTYPE d [<!ENTITY e 'x'>]><wap-provisioningdoc/>"},
    {"the entity e is not known", "<!DOCTYPE d SYSTEM 'file:///etc/passwd'>"
                                  "<wap-provisioningdoc>&e;</wap-provisioningdoc>"},
    {"an attribute has an entity that is not known",
     "<!DOCTYPE d SYSTEM 'x'><wap-provisioningdoc version='&e;'/>"},
    {"an element that a provisioning document does not have", documentOf("<other/>")},
    {"an element that a provisioning document does not have", "<Data/>"},
    {"an attribute that a provisioning document does not have",
     documentOf("<characteristic type='A' other='b'/>")},
    {"text between the elements", documentOf("text")},
    {"a parm without a name",
     documentOf("<characteristic type='A'><parm value='b'/></characteristic>")},
    {"a characteristic has no place here",
     documentOf("<characteristic type='A'><parm name='b'><characteristic type='C'/></parm>"
                "</characteristic>")},
    {"line 2, column 3: a characteristic without a type", documentOf("\n  <characteristic/>\n")},
};

class RefusedDocumentTest : public testing::TestWithParam<RefusedDocumentRow> {};

TEST_P(RefusedDocumentTest, SaysWhatIsWrong)
{
    const std::string fault = faultOf(GetParam().document);
    EXPECT_NE(fault.find(GetParam().reason), std::string::npos) << fault;
}

INSTANTIATE_TEST_SUITE_P(BothEncodings, RefusedDocumentTest, testing::ValuesIn(refusedDocuments));

TEST(ProvisioningDocumentTest, OneThatBreaksOffIsRefusedAtEachByte)
{
    for (const char *const file : {"cp.wbxml", "published-userpin.wbxml"}) {
        const QByteArray whole = vectorFile(file);
        for (qsizetype size = 0; size < whole.size(); ++size)
            EXPECT_NE(faultOf(whole.first(size)), "") << file << ' ' << size;
    }
    const QByteArray xml = vectorFile("cp.xml");
    for (qsizetype size = 0; size < xml.size() - 1; ++size)
        EXPECT_NE(faultOf(xml.first(size)), "") << size;
}

// ---- Limits --------------------------------------------------------------------------------------

QByteArray repeated(const QByteArray &text, int times)
{
    return text.repeated(times);
}

QByteArray nested(int depth)
{
    return documentOf(repeated("<characteristic type='A'>", depth) +
                      repeated("</characteristic>", depth));
}

QByteArray nestedWbxml(int depth)
{
    return wbxml("\x45" + repeated("\xC6\x51\x01", depth) + repeated("\x01", depth) + "\x01");
}

QByteArray parmOf(qsizetype nameBytes, qsizetype valueBytes)
{
    return documentOf("<characteristic type='A'><parm name='" + QByteArray(nameBytes, 'n') +
                      "' value='" + QByteArray(valueBytes, 'v') + "'/></characteristic>");
}

TEST(ProvisioningLimitsTest, EachIsTakenAndOneMoreIsNot)
{
    const ProvisioningLimits limits;
    EXPECT_EQ(faultOf(nested(limits.depth)), "");
    EXPECT_NE(faultOf(nested(limits.depth + 1)).find("inside each other"), std::string::npos);
    EXPECT_EQ(faultOf(nestedWbxml(limits.depth)), "");
    EXPECT_NE(faultOf(nestedWbxml(limits.depth + 1)).find("inside each other"), std::string::npos);
    const QByteArray one = "<characteristic type='A'/>";
    EXPECT_EQ(faultOf(documentOf(repeated(one, limits.elements - 1))), "");
    EXPECT_NE(faultOf(documentOf(repeated(one, limits.elements))).find("more than 1000 elements"),
              std::string::npos);
    EXPECT_EQ(faultOf(wbxml("\x45" + repeated("\x86\x51\x01", limits.elements - 1) + "\x01")), "");
    EXPECT_NE(faultOf(wbxml("\x45" + repeated("\x86\x51\x01", limits.elements) + "\x01")), "");
    EXPECT_EQ(faultOf(parmOf(limits.nameBytes, limits.valueBytes)), "");
    EXPECT_NE(faultOf(parmOf(limits.nameBytes + 1, 0)).find("name has more than 64 bytes"),
              std::string::npos);
    EXPECT_NE(faultOf(parmOf(1, limits.valueBytes + 1)).find("value has more than 2048 bytes"),
              std::string::npos);
    const QByteArray xml = documentOf("");
    EXPECT_EQ(faultOf(xml + QByteArray(limits.bytes - xml.size(), '\n')), "");
    EXPECT_NE(faultOf(xml + QByteArray(limits.bytes - xml.size() + 1, '\n')).find("65536 bytes"),
              std::string::npos);
}

TEST(ProvisioningLimitsTest, PiecesOfAValueCountTogether)
{
    const QByteArray table = QByteArray(100, 'x') + '\0';
    const auto parm = [&table](int pieces) {
        return wbxmlParm("\x07\x06" + repeated(bytes("\x83\0"), pieces), table);
    };
    EXPECT_EQ(faultOf(parm(20)), "");
    EXPECT_NE(faultOf(parm(21)).find("a value of more than 2048 bytes"), std::string::npos);
}

} // namespace
