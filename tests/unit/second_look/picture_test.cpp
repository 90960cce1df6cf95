#include "mounted_tree.h"
#include "picture.h"

#include <gtest/gtest.h>

namespace client {
namespace {

class PictureTest : public MountedTree {
protected:
    Picture picture(const char *path) { return pictureOf(tree, profile(path)); }
};

TEST_F(PictureTest, HasTheNodeAndEverythingBeneathItWithFormatAndValue)
{
    memory->failures = {{"get Office/Port", 1}, {"read all Office", 1}};
    const Picture seen = picture("Office");
    using Values = std::map<std::string, std::pair<std::string, std::optional<QByteArray>>>;
    Values found;
    for (const auto &[uri, node] : seen) {
        EXPECT_EQ(uri, node.uri);
        found[uri.toUri().toStdString()] = {node.format.toStdString(), node.value};
    }
    EXPECT_EQ(found, (Values{{"./Ext/Profiles/Office", {"node", std::nullopt}},
                             {"./Ext/Profiles/Office/Addr", {"chr", "internet"}},
                             {"./Ext/Profiles/Office/Auth", {"node", std::nullopt}},
                             {"./Ext/Profiles/Office/Auth/AuthPw", {"chr", "secret"}},
                             {"./Ext/Profiles/Office/Enabled", {"bool", "true"}},
                             {"./Ext/Profiles/Office/Linger", {"int", "30"}},
                             {"./Ext/Profiles/Office/Port", {"int", std::nullopt}}}));
    EXPECT_EQ(seen.at(profile("Office/Addr")).status, DmStatus::Ok);
    EXPECT_EQ(seen.at(profile("Office/Port")).status, DmStatus::CommandFailed);
}

TEST_F(PictureTest, OfANodeThatIsNotThereIsEmpty)
{
    EXPECT_TRUE(picture("Nowhere").empty());
}

TEST_F(PictureTest, ADifferenceSaysWhatAppearedChangedAndWent)
{
    const Picture before = picture("Office");
    ASSERT_TRUE(tree.replace(profile("Office/Linger"), text("31")));
    ASSERT_TRUE(tree.add(profile("Office/New"), typed("chr", "x")));
    ASSERT_TRUE(tree.remove(profile("Office/Addr")));
    const Picture after = picture("Office");
    const TreeDifference found = difference(before, after);
    ASSERT_EQ(found.appeared.size(), 1U);
    EXPECT_EQ(found.appeared[0], after.at(profile("Office/New")));
    ASSERT_EQ(found.changed.size(), 1U);
    EXPECT_EQ(found.changed[0].before, "30");
    EXPECT_EQ(found.changed[0].after, after.at(profile("Office/Linger")));
    EXPECT_EQ(found.went, std::vector{profile("Office/Addr")});
    EXPECT_FALSE(found.isEmpty());
    EXPECT_TRUE(difference(after, after).isEmpty());

    Picture applied = before;
    apply(found, applied);
    EXPECT_EQ(applied, after);
}

TEST_F(PictureTest, EachPartOfADifferenceAloneIsOne)
{
    const SeenNode node{profile("Office"), QStringLiteral("node"), std::nullopt};
    EXPECT_FALSE((TreeDifference{{node}, {}, {}}).isEmpty());
    EXPECT_FALSE((TreeDifference{{}, {{std::nullopt, node}}, {}}).isEmpty());
    EXPECT_FALSE((TreeDifference{{}, {}, {node.uri}}).isEmpty());
}

TEST_F(PictureTest, AnotherFormatOrStatusIsAChange)
{
    SeenNode node{profile("Office/Addr"), QStringLiteral("chr"), "x"};
    const Picture before{{node.uri, node}};
    node.format = QStringLiteral("int");
    EXPECT_EQ(difference(before, {{node.uri, node}}).changed.size(), 1U);
    node.format = QStringLiteral("chr");
    node.status = DmStatus::CommandFailed;
    EXPECT_EQ(difference(before, {{node.uri, node}}).changed.size(), 1U);
}

} // namespace
} // namespace client
