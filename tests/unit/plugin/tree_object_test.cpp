// The tree object: its kind, its members, its path operations and the names behind its nodes.
#include "plugin_test.h"

namespace {

using namespace doubles;

class TreeObjectTest : public PluginTest {};

// ---- Construction and destruction --------------------------------------------------------------

TEST_F(TreeObjectTest, StartsEmptyAsTheKindOfItsRoot)
{
    for (const bool napdef : {true, false}) {
        SCOPED_TRACE(napdef);
        const TreePtr tree = NewTree(napdef ? CONN_ROOT : INTPROFS_ROOT);
        const PluginTreeProbe probe(*tree);

        EXPECT_EQ(probe.isNAPDEF, napdef ? 1 : 0);
        EXPECT_EQ(probe.groupName.toStdString(), napdef ? "NAPIDEF_Profile" : "PROXY_Profile");
        EXPECT_EQ(probe.profileNameList, nullptr);
        EXPECT_EQ(probe.settings, nullptr);
        EXPECT_EQ(probe.map.size(), 0);
        EXPECT_EQ(probe.map.keys().capacity(), 0);
        EXPECT_EQ(probe.map.values().capacity(), 0);
        EXPECT_STREQ(tree->GetRootPath().text(), napdef ? CONN_ROOT : INTPROFS_ROOT);
    }
    EXPECT_EQ(handset.journal.Lines(), Lines{});
    ExpectNothingLogged();
}

TEST_F(TreeObjectTest, AnyRootThatContainsTheProxyRootIsOfTheProxyKind)
{
    for (const char *const root :
         {"x./DevDetail/Ext/Conf/IntProfs/Profiles", "./DevDetail/Ext/Conf/IntProfs/Profiles/y"}) {
        const TreePtr tree = NewTree(root);
        EXPECT_EQ(PluginTreeProbe(*tree).isNAPDEF, 0) << root;
        EXPECT_EQ(PluginTreeProbe(*tree).groupName.toStdString(), PROXY_GROUP) << root;
    }
}

TEST_F(TreeObjectTest, AnyOtherRootIsOfTheNapdefKind)
{
    for (const char *const root : {"", "./Elsewhere", "./DevDetail/Ext/Conf/IntProfs/Profile",
                                   "./DevDetail/Ext/Conf/intprofs/Profiles"}) {
        const TreePtr tree = NewTree(root);
        EXPECT_EQ(PluginTreeProbe(*tree).isNAPDEF, 1) << root;
        EXPECT_EQ(PluginTreeProbe(*tree).groupName.toStdString(), NAPDEF_GROUP) << root;
    }
}

TEST_F(TreeObjectTest, DestructionFreesEveryMappingTheNameListAndTheSettingsFile)
{
    TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe probe(*tree);
    for (int i = 0; i < 9; ++i)
        probe.Put(("Node" + std::to_string(i)).c_str(), "1Ph1DC1");
    probe.map.put(DMString("Null entry"), nullptr);
    probe.profileNameList.reset(new char[64]);
    probe.settings =
        std::make_unique<SETUP_SET_Manager>(QString::fromStdString(NAPDEF_FILE), false);
    handset.journal.Clear();

    tree.reset();

    EXPECT_EQ(handset.journal.Lines(), (Lines{"~SETUP_SET_Manager(napdef)"}));
    ExpectNothingLogged();
    // The fixture looks for what is left.
}

/// A settings file that counts the engine's blocks when it is closed.
class FileThatCountsBlocks : public SETUP_SET_Manager {
public:
    explicit FileThatCountsBlocks(std::size_t &blocksAtClose)
        : SETUP_SET_Manager(QString::fromStdString(NAPDEF_FILE), false),
          m_blocksAtClose(blocksAtClose)
    {
    }
    ~FileThatCountsBlocks() override { m_blocksAtClose = dmnative_control::LiveBlocks(); }

private:
    std::size_t &m_blocksAtClose;
};

TEST_F(TreeObjectTest, DestructionFreesTheMappingsThenTheFileThenTheNames)
{
    TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe probe(*tree);
    probe.Put("Office", "1Ph1DC1");
    probe.Put("Home", "2Ph1DC1");
    std::size_t blocksAtClose = 0;
    probe.settings = std::make_unique<FileThatCountsBlocks>(blocksAtClose);
    const std::size_t blocks = dmnative_control::LiveBlocks();

    tree.reset();

    EXPECT_EQ(blocksAtClose, blocks - 2) << "both ID keys are gone, names and vectors are not";
}

TEST_F(TreeObjectTest, DestroyingATreeWhoseLoadFailedHalfWayFreesWhatWasMapped)
{
    for (int i = 1; i <= 6; ++i)
        handset.napi.Store("Profile" + std::to_string(i), Record("internet"));
    handset.faults.Fail("NAPI_GetProfileIDByName", 6);
    TreePtr tree = NewTree(CONN_ROOT);

    EXPECT_EQ(tree->LoadProfilesinDB(), 1);
    EXPECT_EQ(PluginTreeProbe(*tree).map.size(), 5);
    EXPECT_EQ(handset.settings.OpenManagers(), 1);

    tree.reset();
    EXPECT_EQ(handset.settings.OpenManagers(), 0);
}

// ---- Paths ------------------------------------------------------------------------------------

TEST_F(TreeObjectTest, ParseNodePathSplitsAtTheLastSlash)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const struct {
        const char *path, *parent, *name;
    } cases[] = {{"a/b/c", "a/b", "c"}, {"c", "", "c"},   {"a/b/", "a/b", ""}, {"/c", "", "c"},
                 {"/", "", ""},         {"", "", ""},     {"a//b", "a/", "b"}, {"a//", "a/", ""},
                 {"%s/%n", "%s", "%n"}, {"é/ü", "é", "ü"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        DMString parent("old");
        DMString name("old");
        tree->ParseNodePath(c.path, parent, name);
        EXPECT_STREQ(parent.text(), c.parent);
        EXPECT_STREQ(name.text(), c.name);
    }
    DMString parent("old");
    DMString name("old");
    tree->ParseNodePath(DMString(), parent, name);
    EXPECT_STREQ(parent.text(), "");
    EXPECT_STREQ(name.text(), "");
    ExpectNothingLogged();
}

TEST_F(TreeObjectTest, ParseLogicalIdTakesWhatStandsBeforeTheFirstMarker)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const struct {
        const char *name, *logicalId;
    } cases[] = {{"Office&&_PH1_DC1", "Office"},
                 {"Office", "Office"},
                 {"&&_PH1_DC1", ""},
                 {"", ""},
                 {"A&&_B&&_C", "A"},
                 {"A&&B", "A&&B"},
                 {"A&_B", "A&_B"},
                 {"A&&&_B", "A&"},
                 {"A&&_", "A"}};
    for (const auto &c : cases) {
        DMString logicalId("old");
        tree->ParseLogicalId(c.name, logicalId);
        EXPECT_STREQ(logicalId.text(), c.logicalId) << c.name;
    }
    ExpectNothingLogged();
}

TEST_F(TreeObjectTest, APathHasAnEmptyNodeNameWhenItIsEmptyOrEndsInASlash)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    for (const char *const path : {"", "/", "a/", "a/b/"})
        EXPECT_TRUE(tree->HasEmptyNodeName(path)) << path;
    for (const char *const path : {"a", "/a", "a/b", " "})
        EXPECT_FALSE(tree->HasEmptyNodeName(path)) << path;
    EXPECT_TRUE(tree->HasEmptyNodeName(DMString()));
}

// ---- Profile names --------------------------------------------------------------------------

TEST_F(TreeObjectTest, ProfileNameComesFromTheServiceByTheNumericId)
{
    handset.napi.Store("Stored name", Record("internet"), 12);
    const struct {
        const char *root, *key;
    } cases[] = {{CONN_ROOT, "12Ph1DC1"},
                 {CONN_ROOT, "12Ph2DC1"},
                 {CONN_ROOT, "12Ph3DC1"},
                 {CONN_ROOT, "12"},
                 {INTPROFS_ROOT, "12"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        const TreePtr tree = NewTree(c.root);
        PluginTreeProbe(*tree).Put("Node", c.key);
        DMString name;
        EXPECT_EQ(tree->GetProfileName("Node", name), 0);
        EXPECT_STREQ(name.text(), "Stored name");
        EXPECT_EQ(handset.journal.Take(), (Lines{"NAPI_GetProfileNameByID(12)"}));
    }
    ExpectNothingLogged();
}

TEST_F(TreeObjectTest, ProfileNameOf63BytesIsWhole)
{
    const std::string longest(63, 'n');
    handset.napi.Store(longest, Record("internet"), 1);
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    PluginTreeProbe(*tree).Put("Node", "1");
    DMString name;
    EXPECT_EQ(tree->GetProfileName("Node", name), 0);
    EXPECT_EQ(name.text(), longest);
}

TEST_F(TreeObjectTest, ProfileNameWithoutATerminatorEndsWithItsSlot)
{
    handset.napi.Store("Office", Record("internet"), 1);
    handset.napi.nameOfEveryId.emplace().fill('x');
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    PluginTreeProbe(*tree).Put("Node", "1");
    DMString name;
    tree->GetProfileName("Node", name);
    EXPECT_LE(name.length(), 64u);
}

TEST_F(TreeObjectTest, TheFirstOfTwoEqualNodeNamesGivesTheProfile)
{
    handset.napi.Store("First", Record("internet"), 1);
    handset.napi.Store("Second", Record("internet"), 2);
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    PluginTreeProbe probe(*tree);
    probe.Put("Other", "2");
    probe.Put("Node", "1");
    probe.Put("node", "2"); // names are case-sensitive
    DMString name;
    EXPECT_EQ(tree->GetProfileName("Node", name), 0);
    EXPECT_STREQ(name.text(), "First");
}

TEST_F(TreeObjectTest, ProfileNameOfAnUnmappedNodeFails)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    DMString name("as it was");
    EXPECT_EQ(tree->GetProfileName("Of%nfi%sce", name), 1);
    EXPECT_STREQ(name.text(), "as it was");
    ExpectLogged(
        {TreeMessage("Leave:GetProfileName! Can not find Of%nfi%sce in m_ProfileMaps!\n")});
    EXPECT_EQ(handset.journal.Lines(), Lines{});
}

TEST_F(TreeObjectTest, ProfileNameFailsWhenTheKeyHasNoNumber)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe(*tree).Put("Office", "Ph1DC1");
    DMString name("as it was");
    EXPECT_EQ(tree->GetProfileName("Office", name), 1);
    EXPECT_STREQ(name.text(), "as it was");
    ExpectLogged({TreeMessage("ExtractProfileID() Failed: key = , ID = 0\n"),
                  TreeMessage("Leave:GetProfileName! ExtractProfileID failed!\n")});
    EXPECT_EQ(handset.journal.Lines(), Lines{});
}

TEST_F(TreeObjectTest, ProfileNameFailsWhenTheServiceDoesNotKnowTheId)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe(*tree).Put("Office", "5Ph1DC1");
    DMString name("as it was");
    handset.faults.Fail("NAPI_GetProfileNameByID", 1, -17);
    EXPECT_EQ(tree->GetProfileName("Office", name), 1);
    EXPECT_STREQ(name.text(), "as it was");
    ExpectLogged(
        {TreeMessage("Leave:GetProfileName! NAPI_GetProfileNameByID failed, return -17!\n")});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
}

// A path that is put together has room for the usual length, and goes to the heap beyond it.
TEST(PathInTheMakingTest, OfAnyLengthGoesDownAndComesBackUp)
{
    for (std::size_t length = 0; length < 300; ++length) {
        const std::string top(length, 'x');
        NodePath path(top);
        EXPECT_EQ(path.text(), top);
        const std::size_t above = path.Enter("Auth");
        EXPECT_EQ(path.text(), top + "/Auth");
        const std::size_t aboveThat = path.Enter("PAP");
        EXPECT_EQ(path.text(), top + "/Auth/PAP");
        path.Leave(aboveThat);
        EXPECT_EQ(path.text(), top + "/Auth");
        path.Leave(above);
        EXPECT_EQ(path.text(), top);
        path.Leave(path.Enter(std::string(200, 'y')));
        EXPECT_EQ(path.text(), top);
        path.Enter("Speed");
        EXPECT_EQ(path.text(), top + "/Speed");
    }
}

} // namespace
