// What the parser tells of a document before anybody has taken it for a message.

#include "xml_parser.h"

#include <gtest/gtest.h>
#include <map>

using namespace syncml;

namespace {

using Kind = XmlParser::EventKind;

struct Told {
    std::map<Kind, int> events;
    qsizetype textBytes = 0;
};

Told everythingToldOf(const QByteArray &document, const Limits &limits)
{
    XmlParser parser(document, limits);
    Told told;
    for (;;) {
        const XmlParser::Event event = parser.next();
        ++told.events[event.kind];
        told.textBytes += event.text.size();
        if (event.kind == Kind::Finished || event.kind == Kind::Refused)
            return told;
    }
}

TEST(XmlParserTest, TellsTextsWholeAndTagsInsideDataAsMarkup)
{
    const QByteArray document = "<Data xmlns:p='u'>a&amp;\r\nb<p:x y='&lt;'/></Data>";
    XmlParser parser(document, Limits());
    XmlParser::Event event = parser.next();
    EXPECT_EQ(event.kind, Kind::Start);
    EXPECT_EQ(event.element, Element::Data);
    EXPECT_EQ(event.text.toByteArray(), "");
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::Text);
    EXPECT_EQ(event.text.toByteArray(), "a&\nb");
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::Start);
    EXPECT_EQ(event.name.toByteArray(), "x");
    EXPECT_EQ(event.text.toByteArray(), "<p:x xmlns:p=\"u\" y=\"&lt;\"");
    EXPECT_EQ(parser.place().line, 2);
    EXPECT_EQ(parser.place().column, 1);
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::End);
    EXPECT_EQ(event.text.toByteArray(), "p:x");
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::End);
    EXPECT_EQ(event.text.toByteArray(), "");
    EXPECT_EQ(parser.next().kind, Kind::Finished);
}

TEST(XmlParserTest, TellsAttributesAfterTheirTagWhenTheyAreAskedFor)
{
    const QByteArray document = "<a xmlns:p='u' x='1&amp;\n2' p:y=''>\n<b/></a>";
    XmlParser parser(document, Limits(), XmlParser::Attributes::Told);
    XmlParser::Event event = parser.next();
    EXPECT_EQ(event.kind, Kind::Start);
    EXPECT_EQ(event.name.toByteArray(), "a");
    EXPECT_EQ(event.attributes, 2);
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::Attribute);
    EXPECT_EQ(event.name.toByteArray(), "x");
    EXPECT_EQ(event.text.toByteArray(), "1& 2");
    EXPECT_EQ(parser.place().line, 1);
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::Attribute);
    EXPECT_EQ(event.name.toByteArray(), "y");
    EXPECT_EQ(event.text.toByteArray(), "");
    EXPECT_EQ(parser.next().kind, Kind::Text);
    event = parser.next();
    EXPECT_EQ(event.kind, Kind::Start);
    EXPECT_EQ(event.name.toByteArray(), "b");
    EXPECT_EQ(event.attributes, 0);
    EXPECT_FALSE(everythingToldOf(document, Limits()).events.contains(Kind::Attribute));
}

// What is beyond a limit would be kept until somebody has taken what comes before it.

TEST(XmlParserTest, TellsNothingBeyondTheFirstElementThatIsTooDeep)
{
    Limits limits;
    limits.depth = 10;
    Told told = everythingToldOf("<x>" + QByteArray("<a>").repeated(2000), limits);
    EXPECT_EQ(told.events[Kind::Start], limits.depth + 1);
    EXPECT_EQ(told.events[Kind::End], 0);
}

TEST(XmlParserTest, TellsNoMoreTextThanOneTagBeyondTheLimit)
{
    Limits limits;
    limits.textBytes = 10'000;
    const QByteArray uri(1000, 'u');
    const Told told = everythingToldOf(
        "<Data xmlns:p='" + uri + "'>" + QByteArray("<p:x/>").repeated(2000) + "</Data>", limits);
    EXPECT_GT(told.textBytes, limits.textBytes);
    EXPECT_LT(told.textBytes, limits.textBytes + 2 * uri.size());
}

TEST(XmlParserTest, TellsWhatComesBeforeAFault)
{
    Told told = everythingToldOf("<a><b>x</b></c>", Limits());
    EXPECT_EQ(told.events[Kind::Start], 2);
    EXPECT_EQ(told.events[Kind::Text], 1);
    EXPECT_EQ(told.events[Kind::Refused], 1);
}

} // namespace
