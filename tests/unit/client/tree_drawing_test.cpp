// Showing trees to people and to programs.

#include "tree_drawing.h"

#include "mounted_tree.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace client::cli {

namespace {

class TreeDrawingTest : public MountedTree {
protected:
    std::vector<ListedNode> listing(const char *path) const
    {
        return tree.list(*tree.find(profile(path)), TreeView::Values::Read);
    }
    std::string draw(const char *path, Secrets secrets = Secrets::Mask,
                     const Painter &painter = Painter(false)) const
    {
        return drawTree(listing(path), secrets, painter).join(u'\n').toStdString();
    }
    QJsonObject json(const char *path, Secrets secrets = Secrets::Mask) const
    {
        return treeToJson(listing(path), secrets);
    }
    static QJsonObject child(const QJsonObject &object, int index)
    {
        return object[u"children"].toArray().at(index).toObject();
    }
};

TEST_F(TreeDrawingTest, ValuesOfAllLeavesStandInColumns)
{
    EXPECT_EQ(draw("Office"), "./Ext/Profiles/Office\n"
                              "├── Addr        chr   internet\n"
                              "├── Linger      int   30\n"
                              "├── Enabled     bool  true\n"
                              "├── Port        int\n"
                              "└── Auth\n"
                              "    └── AuthPw  chr   ********");
}

TEST_F(TreeDrawingTest, BranchesGoOnPastASubtree)
{
    memory->addLeaf("Office/Last", DmtData("x"));
    EXPECT_EQ(draw("Office"), "./Ext/Profiles/Office\n"
                              "├── Addr        chr   internet\n"
                              "├── Linger      int   30\n"
                              "├── Enabled     bool  true\n"
                              "├── Port        int\n"
                              "├── Auth\n"
                              "│   └── AuthPw  chr   ********\n"
                              "└── Last        chr   x");
}

TEST_F(TreeDrawingTest, SecretsAreShownWhenAskedFor)
{
    EXPECT_NE(draw("Office", Secrets::Show).find("AuthPw  chr   secret"), std::string::npos);
}

TEST_F(TreeDrawingTest, AnEmptyPasswordIsNoSecret)
{
    tree.replace(profile("Office/Auth/AuthPw"), text(""));
    EXPECT_NE(draw("Office").find("AuthPw  chr   \"\""), std::string::npos);
}

TEST_F(TreeDrawingTest, ALeafThatCannotBeReadShowsItsStatus)
{
    memory->failures = {{"get Home/Addr", 1}};
    EXPECT_EQ(draw("Home"), "./Ext/Profiles/Home\n"
                            "└── Addr  chr   500 Command Failed");
    EXPECT_EQ(child(json("Home"), 0)[u"status"], 500);
    EXPECT_FALSE(child(json("Home"), 0).contains(u"value"));
}

TEST_F(TreeDrawingTest, WhatAServerWroteCannotSteerTheTerminal)
{
    tree.replace(profile("Home/Addr"), text("a\x1b[2Jb\nc\td\xc2\x9b"));
    EXPECT_EQ(draw("Home"), "./Ext/Profiles/Home\n"
                            "└── Addr  chr   a\\x1b[2Jb\\nc\\td\\xc2\\x9b");
}

TEST_F(TreeDrawingTest, ColoursWrapTheTextAndKeepTheColumns)
{
    const std::string coloured = draw("Home", Secrets::Mask, Painter(true));
    EXPECT_EQ(coloured, "\x1b[1;34m./Ext/Profiles/Home\x1b[0m\n"
                        "\x1b[2m└── \x1b[0mAddr  \x1b[2mchr \x1b[0m  home.example");
}

TEST_F(TreeDrawingTest, JsonHasTypedValues)
{
    const QJsonObject office = json("Office");
    EXPECT_EQ(office[u"name"], QStringLiteral("Office"));
    EXPECT_EQ(office[u"uri"], QStringLiteral("./Ext/Profiles/Office"));
    EXPECT_EQ(office[u"format"], QStringLiteral("node"));
    EXPECT_EQ(office[u"children"].toArray().size(), 5);
    EXPECT_EQ(child(office, 0)[u"value"], QStringLiteral("internet"));
    EXPECT_EQ(child(office, 1)[u"value"], 30);
    EXPECT_EQ(child(office, 2)[u"value"], true);
    EXPECT_TRUE(child(office, 3)[u"value"].isNull());
    EXPECT_EQ(child(office, 3)[u"format"], QStringLiteral("int"));
}

TEST_F(TreeDrawingTest, JsonMasksSecretsAndSaysSo)
{
    const QJsonObject masked = child(child(json("Office"), 4), 0);
    EXPECT_EQ(masked[u"value"], QStringLiteral("********"));
    EXPECT_EQ(masked[u"masked"], true);
    const QJsonObject shown = child(child(json("Office", Secrets::Show), 4), 0);
    EXPECT_EQ(shown[u"value"], QStringLiteral("secret"));
    EXPECT_FALSE(shown.contains(u"masked"));
}

TEST_F(TreeDrawingTest, AnInteriorNodeWithoutChildrenIsStillInterior)
{
    memory->addInterior("Empty");
    EXPECT_EQ(draw("Empty"), "./Ext/Profiles/Empty");
    EXPECT_EQ(json("Empty")[u"children"].toArray().size(), 0);
    EXPECT_TRUE(json("Empty").contains(u"children"));
}

} // namespace

} // namespace client::cli
