// Values between the engine's form and texts.

#include "node_value.h"

#include <gtest/gtest.h>

namespace client {

namespace {

std::string roundTrip(DmtData::Type type, const QByteArray &text)
{
    const Result<DmtData> value = parseValue(type, text);
    if (!value)
        return describe(value.outcome().status).toStdString();
    EXPECT_EQ(value->GetType(), type);
    return valueText(*value).toStdString();
}

const char *const refused = "415 Unsupported Format";

TEST(NodeValueTest, FormatsHaveTheNamesOfTheFormatProperty)
{
    EXPECT_EQ(formatName(DmtData::String), QStringLiteral("chr"));
    EXPECT_EQ(formatName(DmtData::Int), QStringLiteral("int"));
    EXPECT_EQ(formatName(DmtData::Bool), QStringLiteral("bool"));
    EXPECT_EQ(formatName(DmtData::Bin), QStringLiteral("bin"));
    EXPECT_EQ(formatName(DmtData::Node), QStringLiteral("node"));
    EXPECT_EQ(formatName(DmtData::Null), QStringLiteral("null"));
}

TEST(NodeValueTest, FormatsAreKnownInAnyCase)
{
    EXPECT_EQ(typeOfFormat(QStringLiteral("Chr")), DmtData::String);
    EXPECT_EQ(typeOfFormat(QStringLiteral("INT")), DmtData::Int);
    EXPECT_EQ(typeOfFormat(QStringLiteral("b64")), DmtData::Bin);
    EXPECT_EQ(typeOfFormat(QStringLiteral("null")), DmtData::Null);
}

TEST(NodeValueTest, FormatsThatNoNodeHasAreUnknown)
{
    for (const char *format : {"xml", "date", "time", "float", "", "string"})
        EXPECT_EQ(typeOfFormat(QString::fromLatin1(format)), std::nullopt);
}

TEST(NodeValueTest, TextsComeBackByteForByte)
{
    for (const char *text : {"", "internet", " outer blanks ", "B\xc3\xbcro", "a\nb\tc", "<&>"})
        EXPECT_EQ(roundTrip(DmtData::String, text), text);
}

TEST(NodeValueTest, ATextThatAPluginWouldCutOrMisreadIsRefused)
{
    EXPECT_EQ(roundTrip(DmtData::String, QByteArray("a\0b", 3)), refused);
    EXPECT_EQ(roundTrip(DmtData::String, "\xff"), refused);
    EXPECT_EQ(roundTrip(DmtData::String, "cut \xc3"), refused);
}

TEST(NodeValueTest, NumbersAreDecimalAndHave32Bits)
{
    EXPECT_EQ(roundTrip(DmtData::Int, "9600"), "9600");
    EXPECT_EQ(roundTrip(DmtData::Int, " -5\n"), "-5");
    EXPECT_EQ(roundTrip(DmtData::Int, "2147483647"), "2147483647");
    EXPECT_EQ(roundTrip(DmtData::Int, "-2147483648"), "-2147483648");
    for (const char *text : {"", "2147483648", "1.5", "0x10", "ten", "1 2"})
        EXPECT_EQ(roundTrip(DmtData::Int, text), refused) << text;
}

TEST(NodeValueTest, FlagsAreTrueOrFalse)
{
    EXPECT_EQ(roundTrip(DmtData::Bool, "true"), "true");
    EXPECT_EQ(roundTrip(DmtData::Bool, " false "), "false");
    for (const char *text : {"", "1", "0", "True", "yes"})
        EXPECT_EQ(roundTrip(DmtData::Bool, text), refused) << text;
}

TEST(NodeValueTest, BinaryValuesTravelAsBase64)
{
    EXPECT_EQ(roundTrip(DmtData::Bin, "AAECAw=="), "AAECAw==");
    EXPECT_EQ(roundTrip(DmtData::Bin, "AAEC\n Aw=="), "AAECAw==");
    EXPECT_EQ(roundTrip(DmtData::Bin, ""), "");
    EXPECT_EQ(roundTrip(DmtData::Bin, "not base64!"), refused);
}

TEST(NodeValueTest, OnlyTextsAndNullCanBeWithoutData)
{
    EXPECT_EQ(valueText(*parseValue(DmtData::String, std::nullopt)), "");
    EXPECT_EQ(parseValue(DmtData::Null, std::nullopt)->GetType(), DmtData::Null);
    EXPECT_EQ(parseValue(DmtData::Null, "")->GetType(), DmtData::Null);
    EXPECT_EQ(parseValue(DmtData::Null, "x").outcome().status, DmStatus::UnsupportedFormat);
    EXPECT_FALSE(parseValue(DmtData::Int, std::nullopt));
    EXPECT_FALSE(parseValue(DmtData::Bool, std::nullopt));
}

TEST(NodeValueTest, AnInteriorNodeHasNoValue)
{
    EXPECT_FALSE(parseValue(DmtData::Node, QByteArray("x")));
    EXPECT_EQ(valueText(DmtData(DMStringVector())), "");
}

TEST(NodeValueTest, AStringWithoutTextReadsAsEmpty)
{
    EXPECT_EQ(valueText(DmtData(static_cast<const char *>(nullptr))), "");
}

} // namespace

} // namespace client
