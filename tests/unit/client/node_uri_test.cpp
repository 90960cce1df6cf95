// Addresses as servers write them.

#include "node_uri.h"

#include <gtest/gtest.h>

namespace client {

namespace {

std::string names(const Result<Address> &address)
{
    if (!address)
        return describe(address.outcome().status).toStdString();
    std::string joined;
    for (const QByteArray &name : address->node.names())
        joined += "[" + name.toStdString() + "]";
    return joined.empty() ? "root" : joined;
}

std::string parsed(const char *uri, const UriLimits &limits = {})
{
    return names(parseAddress(QString::fromUtf8(uri), limits));
}

TEST(NodeUriTest, TheSameNodeIsNamedWithAndWithoutTheLeadingDot)
{
    EXPECT_EQ(parsed("./A/B"), "[A][B]");
    EXPECT_EQ(parsed("A/B"), "[A][B]");
}

TEST(NodeUriTest, ADotAloneIsTheRoot)
{
    EXPECT_EQ(parsed("."), "root");
}

TEST(NodeUriTest, WhiteSpaceAroundAnAddressIsIgnored)
{
    EXPECT_EQ(parsed(" \n\t./A/B \r\n"), "[A][B]");
}

TEST(NodeUriTest, NamesAreUnescapedAndKeepTheirCase)
{
    EXPECT_EQ(parsed("./My%20Office/B%c3%BCro"), "[My Office][B\xc3\xbcro]");
    EXPECT_EQ(parsed("./My Office/B\xc3\xbcro"), "[My Office][B\xc3\xbcro]");
    EXPECT_EQ(parsed("./A%25/b"), "[A%][b]");
}

TEST(NodeUriTest, ADotInsideANameIsAllowed)
{
    EXPECT_EQ(parsed("./a.b/.c/..."), "[a.b][.c][...]");
}

TEST(NodeUriTest, AnEscapedSlashBelongsToTheName)
{
    EXPECT_EQ(parsed("./A%2FB/C"), "[A/B][C]");
}

TEST(NodeUriTest, ANodeContainsWhatIsBeneathItAndNothingThatIsCalledAlike)
{
    const NodeUri node({"A", "B"});
    EXPECT_TRUE(node.contains(node));
    EXPECT_TRUE(node.contains(NodeUri({"A", "B", "C"})));
    EXPECT_FALSE(node.contains(NodeUri({"A", "BC"})));
    EXPECT_FALSE(node.contains(NodeUri({"A"})));
    EXPECT_TRUE(NodeUri().contains(node));
}

TEST(NodeUriTest, WhatIsBeneathANodeComesRightAfterIt)
{
    EXPECT_LT(NodeUri(), NodeUri({"A"}));
    EXPECT_LT(NodeUri({"A"}), NodeUri({"A", "B"}));
    EXPECT_LT(NodeUri({"A", "B"}), NodeUri({"A\x01"}));
    EXPECT_LT(NodeUri({"A", "B"}), NodeUri({"A\xFF"}));
}

TEST(NodeUriTest, TheParentLacksTheLastName)
{
    EXPECT_EQ(NodeUri({"A", "B/C"}).parent(), NodeUri({"A"}));
    EXPECT_EQ(NodeUri({"A"}).parent(), NodeUri());
    EXPECT_EQ(NodeUri({"A"}).child("B"), NodeUri({"A", "B"}));
    EXPECT_EQ(NodeUri().child("B"), NodeUri({"B"}));
}

class ImpossibleAddress : public testing::TestWithParam<const char *> {};

TEST_P(ImpossibleAddress, AnswersNotFound)
{
    EXPECT_EQ(parsed(GetParam()), "404 Not Found");
}

INSTANTIATE_TEST_SUITE_P(NodeUriTest, ImpossibleAddress,
                         testing::Values("", "   ", "/", "./", "A/", "./A/", "/A", "//A", "./A//B",
                                         ".//A", "..", "../A", "./../A", "./A/..", "./A/./B",
                                         "././A", "./A/.", "*", "./A/*", "./A%", "./A%4", "./A%4g",
                                         "./A%00", "./%2E%2E/A", "?prop=Name"));

TEST(NodeUriTest, TheLongestAddressesAreAcceptedAndOneMoreIsNot)
{
    const UriLimits limits{.maxDepth = 2, .maxTotalLength = 9, .maxSegmentLength = 3};
    EXPECT_EQ(parsed("./abc/def", limits), "[abc][def]");
    EXPECT_EQ(parsed("a/b/c", limits), "414 URI Too Long");
    EXPECT_EQ(parsed("./a/bcde", limits), "414 URI Too Long");
    EXPECT_EQ(parsed("./a?prop=x", limits), "414 URI Too Long");
}

TEST(NodeUriTest, LimitsCountCharactersAndNotBytes)
{
    const UriLimits limits{.maxDepth = 0, .maxTotalLength = 0, .maxSegmentLength = 3};
    EXPECT_EQ(parsed("./\xc3\xa4\xc3\xb6\xc3\xbc", limits), "[\xc3\xa4\xc3\xb6\xc3\xbc]");
    EXPECT_EQ(parsed("./\xc3\xa4\xc3\xb6\xc3\xbc\xc3\x9f", limits), "414 URI Too Long");
}

TEST(NodeUriTest, ALimitOfZeroIsNone)
{
    const std::string name(100'000, 'x');
    EXPECT_EQ(parsed(name.c_str()), "[" + name + "]");
}

TEST(NodeUriTest, AQueryNamesAPropertyOrAListing)
{
    const auto property = parseAddress(QStringLiteral("./A?prop=Name"), {});
    EXPECT_EQ(property->query, Address::Query::Property);
    EXPECT_EQ(property->argument, QStringLiteral("Name"));
    EXPECT_EQ(names(property), "[A]");

    const auto listing = parseAddress(QStringLiteral(".?list=StructData"), {});
    EXPECT_EQ(listing->query, Address::Query::List);
    EXPECT_EQ(listing->argument, QStringLiteral("StructData"));

    EXPECT_EQ(parseAddress(QStringLiteral("./A"), {})->query, Address::Query::None);
    for (const char *unknown : {"./A?", "./A?Prop=Name", "./A?x=1"})
        EXPECT_EQ(parseAddress(QString::fromLatin1(unknown), {})->query, Address::Query::Unknown);
}

TEST(NodeUriTest, WrittenAddressesAreReadBack)
{
    const NodeUri uri({"My Office", "100%", "a/b", "?x", "B\xc3\xbcro", "l\nf"});
    EXPECT_EQ(uri.toUri(), "./My%20Office/100%25/a%2Fb/%3Fx/B%C3%BCro/l%0Af");
    EXPECT_EQ(parseAddress(QString::fromUtf8(uri.toUri()), {})->node, uri);
    EXPECT_EQ(NodeUri().toUri(), ".");
}

TEST(NodeUriTest, AddressesForPeopleEscapeOnlyWhatWouldBeMisread)
{
    const NodeUri uri({"My Office", "100%", "a/b", "?x", "B\xc3\xbcro", "l\nf", " x "});
    EXPECT_EQ(uri.toDisplay(),
              QString::fromUtf8("./My Office/100%25/a%2Fb/%3Fx/B\xc3\xbcro/l%0Af/%20x%20"));
    EXPECT_EQ(parseAddress(uri.toDisplay(), {})->node, uri);
}

TEST(NodeUriTest, NamesThatAreNoUtf8AreEscapedByteByByte)
{
    const NodeUri uri({QByteArray("a\xff")});
    EXPECT_EQ(uri.toDisplay(), QStringLiteral("./a%FF"));
    EXPECT_EQ(parseAddress(uri.toDisplay(), {})->node, uri);
}

TEST(NodeUriTest, ANodeContainsItselfAndWhatIsBeneathIt)
{
    const NodeUri a({"A"});
    EXPECT_TRUE(a.contains(a));
    EXPECT_TRUE(a.contains(NodeUri({"A", "B"})));
    EXPECT_TRUE(NodeUri().contains(a));
    EXPECT_FALSE(a.contains(NodeUri()));
    EXPECT_FALSE(a.contains(NodeUri({"AB"})));
}

TEST(NodeUriTest, NewNamesAreCheckedBeforeAPluginSeesThem)
{
    const UriLimits limits{.maxDepth = 0, .maxTotalLength = 0, .maxSegmentLength = 3};
    EXPECT_EQ(checkNewName("abc", limits).status, DmStatus::Ok);
    EXPECT_EQ(checkNewName("a.b", limits).status, DmStatus::Ok);
    for (const char *name : {"", ".", "..", "*", "a/b"})
        EXPECT_EQ(checkNewName(name, limits).status, DmStatus::NotAllowed) << name;
    EXPECT_EQ(checkNewName(QByteArray("a\0b", 3), limits).status, DmStatus::NotAllowed);
    EXPECT_EQ(checkNewName("abcd", limits).status, DmStatus::UriTooLong);
}

} // namespace

} // namespace client
