// Events as a person types them.

#include "client_event.h"
#include "noted.h"

#include <gtest/gtest.h>

namespace client {

namespace {

/// "type|text|format|mark|source|correlator", or "!" and what is wrong.
std::string fieldsOf(const char *text)
{
    QString error;
    const auto event = noted(parseGenericAlert(QString::fromUtf8(text)), error);
    if (!event)
        return "! " + error.toStdString();
    EXPECT_EQ(event->code, AlertCode::GenericAlert);
    return (event->type + u'|' + QString::fromUtf8(event->data) + u'|' + event->format + u'|' +
            event->mark.value_or(QString()) + u'|' + event->source.value_or(QString()) + u'|' +
            event->correlator.value_or(QString()))
        .toStdString();
}

bool isTaken(const char *text)
{
    return !fieldsOf(text).starts_with("!");
}

TEST(GenericAlert, HasATypeAndAText)
{
    EXPECT_EQ(fieldsOf("Reversed-Domain-Name: org.example.down=1"),
              "Reversed-Domain-Name: org.example.down|1|chr|||");
    EXPECT_EQ(fieldsOf("Content-Type: text/plain; charset=utf-8"),
              "Content-Type: text/plain; charset|utf-8|chr|||")
        << "the first equals sign ends the type";
    EXPECT_EQ(fieldsOf("Content-Type: text/vnd.x+xml=a=b c"),
              "Content-Type: text/vnd.x+xml|a=b c|chr|||");
}

TEST(GenericAlert, HasFieldsInFrontOfTheType)
{
    EXPECT_EQ(fieldsOf("mark=critical source=./A/B%20C format=int  correlator=x=7 "
                       "Reversed-Domain-Name: org.example=-5"),
              "Reversed-Domain-Name: org.example|-5|int|critical|./A/B%20C|x=7");
}

TEST(GenericAlert, OtherTypesAreRefused)
{
    for (const char *const text :
         {"Reversed-Domain-Name:=1", "Reversed-Domain-Name: org..example=1",
          "Reversed-Domain-Name: org.example other=1", "Reversed-Domain-Name: .org=1",
          "Content-Type: text=1", "Content-Type: /plain=1", "Content-Type: text/=1",
          "Content-Type: text/plain; a\nb=1", "Content-Type: text/plain\n=1",
          "Content-Type: text/plain;\n=1", "Reversed-Domain-Name: a.b\n=1",
          "Reversed-Domain-Name: org.example"})
        EXPECT_FALSE(isTaken(text)) << text;
    EXPECT_EQ(fieldsOf("Reversed-Domain-Name: org.example"), "! there is no TYPE=TEXT");
    EXPECT_EQ(fieldsOf(""), "! there is no TYPE=TEXT");
    EXPECT_EQ(fieldsOf("Content-Type: text=1"),
              "! the type is written as Content-Type: text/plain or Reversed-Domain-Name: "
              "org.example.event");
    EXPECT_EQ(fieldsOf("org.example=1"),
              "! \"org.example=1\" is neither mark=, source=, format= or correlator= nor the "
              "beginning of Content-Type: or Reversed-Domain-Name:");
}

TEST(GenericAlert, FieldsHaveValuesThatTheProtocolKnows)
{
    const std::string type = " Reversed-Domain-Name: org.example=1";
    for (const char *const mark :
         {"fatal", "critical", "minor", "warning", "informational", "harmless", "indeterminate"})
        EXPECT_TRUE(isTaken(("mark=" + (mark + type)).c_str())) << mark;
    EXPECT_EQ(fieldsOf(("mark=loud" + type).c_str()),
              "! mark \"loud\" is not one of fatal, critical, minor, warning, informational, "
              "harmless, indeterminate");
    EXPECT_EQ(fieldsOf(("format=node" + type).c_str()),
              "! format \"node\" is not one of chr, int, bool, b64, xml");
    EXPECT_EQ(fieldsOf(("source=./A/" + type).c_str()),
              "! source \"./A/\" is not the URI of a node");
    EXPECT_EQ(fieldsOf(("source=./A?prop=Name" + type).c_str()),
              "! source \"./A?prop=Name\" is not the URI of a node");
    EXPECT_EQ(fieldsOf(("correlator=" + type).c_str()), "! correlator \"\" is empty");
}

TEST(GenericAlert, TextFitsTheFormat)
{
    EXPECT_TRUE(isTaken("format=b64 Content-Type: a/b=QUJD"));
    EXPECT_TRUE(isTaken("format=bool Content-Type: a/b=true"));
    EXPECT_TRUE(isTaken("format=xml Content-Type: a/b=<x/>"));
    EXPECT_EQ(fieldsOf("format=int Content-Type: a/b=five"), "! the text is not of the format int");
    EXPECT_FALSE(isTaken("format=b64 Content-Type: a/b=?"));
    EXPECT_FALSE(isTaken("format=bool Content-Type: a/b=1"));
}

TEST(ClientEventTest, HasATypeAndAText)
{
    QString error;
    const auto event = noted(parseClientEvent(QStringLiteral("org.example.up=a=b")), error);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->type, QStringLiteral("org.example.up"));
    EXPECT_EQ(event->data, "a=b");
    EXPECT_FALSE(noted(parseClientEvent(QStringLiteral("=text")), error));
    EXPECT_FALSE(noted(parseClientEvent(QStringLiteral("type")), error));
}

} // namespace

} // namespace client
