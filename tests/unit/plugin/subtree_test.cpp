// The nodes of one profile: shape, order, formats and first values.
#include "plugin_test.h"

namespace {

using namespace doubles;

class SubtreeTest : public PluginTest {
protected:
    /// A tree with node "P" of profile 5 in its map, and no file.
    TreePtr Mapped(const char *root, const std::string &flags, const char *key)
    {
        TreePtr tree = NewTree(root);
        m_info = PluginTreeProbe(*tree).Put("P", key, flags);
        handset.journal.Clear();
        return tree;
    }
    TreePtr Built(const char *root, const std::string &flags)
    {
        TreePtr tree = Mapped(root, flags, root == CONN_ROOT ? "5Ph1DC1" : "5");
        EXPECT_EQ(tree->LoadSubTreeofProfile("P", m_info), 0);
        return tree;
    }

    /// The value that the engine keeps in the node, past the plug-in's override.
    DmtData KeptValue(const TreePtr &tree, const std::string &path)
    {
        DmtData value;
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        EXPECT_TRUE(node) << path;
        if (node) {
            EXPECT_TRUE(node->IsLeaf()) << path;
            EXPECT_EQ(dynamic_cast<DmtPluginNode &>(*node).DmtPluginNode::GetValue(value), 0);
        }
        return value;
    }
    void ExpectString(const TreePtr &tree, const std::string &path, const char *text)
    {
        const DmtData value = KeptValue(tree, path);
        EXPECT_EQ(int{value.GetType()}, int{DmtData::String}) << path;
        EXPECT_EQ(StringOf(value), text) << path;
    }
    void ExpectInt0(const TreePtr &tree, const std::string &path)
    {
        const DmtData value = KeptValue(tree, path);
        EXPECT_EQ(int{value.GetType()}, int{DmtData::Int}) << path;
        EXPECT_EQ(IntOf(value), 0) << path;
    }

    ProfileInfo *m_info = nullptr;
};

TEST_F(SubtreeTest, NapdefNodesAreRegisteredInThisOrder)
{
    const TreePtr tree = Built(CONN_ROOT, "G");
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"SetNode(\"P\")", "SetNode(\"P/Bearer\")", "SetNode(\"P/Addr\")",
                     "SetNode(\"P/DNS1\")", "SetNode(\"P/DNS2\")", "SetNode(\"P/Linger\")",
                     "SetNode(\"P/Auth/PAP\")", "SetNode(\"P/Auth/PAP/AuthId\")",
                     "SetNode(\"P/Auth/PAP/AuthPw\")", "SetNode(\"P/Auth\")",
                     "SetNode(\"P/LineType\")", "SetNode(\"P/Speed\")"}));
    ExpectNothingLogged();
}

TEST_F(SubtreeTest, NapdefNodesHaveTheseChildrenAndFirstValues)
{
    const TreePtr tree = Built(CONN_ROOT, "G");
    EXPECT_EQ(Children(tree, "P"),
              (Lines{"Bearer", "Addr", "DNS1", "DNS2", "Linger", "Auth", "LineType", "Speed"}));
    EXPECT_EQ(Children(tree, "P/Auth"), (Lines{"PAP"}));
    EXPECT_EQ(Children(tree, "P/Auth/PAP"), (Lines{"AuthId", "AuthPw"}));
    for (const char *const interior : {"P", "P/Auth", "P/Auth/PAP"})
        EXPECT_FALSE(Node(tree, interior)->IsLeaf()) << interior;
    ExpectString(tree, "P/Bearer", "GSM-GPRS");
    for (const char *const leaf :
         {"P/Addr", "P/DNS1", "P/DNS2", "P/Auth/PAP/AuthId", "P/Auth/PAP/AuthPw", "P/LineType"})
        ExpectString(tree, leaf, "");
    ExpectInt0(tree, "P/Linger");
    ExpectInt0(tree, "P/Speed");
}

TEST_F(SubtreeTest, ProxyNodesAreRegisteredInThisOrder)
{
    const TreePtr tree = Built(INTPROFS_ROOT, "");
    Lines expected{"SetNode(\"P\")"};
    for (const std::string ph : {"P/Ph1", "P/Ph2", "P/Ph3"})
        for (const char *const node : {"/Conn", "/Addr", "/Port", "/Port/PortNbr", ""})
            expected.push_back("SetNode(\"" + ph + node + "\")");
    expected.push_back("SetNode(\"P/UserEditable\")");
    EXPECT_EQ(handset.journal.Take(), expected);
}

TEST_F(SubtreeTest, ProxyNodesHaveTheseChildrenAndFirstValues)
{
    const TreePtr tree = Built(INTPROFS_ROOT, "");
    EXPECT_EQ(Children(tree, "P"), (Lines{"Ph1", "Ph2", "Ph3", "UserEditable"}));
    for (const std::string ph : {"P/Ph1", "P/Ph2", "P/Ph3"}) {
        EXPECT_EQ(Children(tree, ph), (Lines{"Conn", "Addr", "Port"}));
        EXPECT_EQ(Children(tree, ph + "/Port"), (Lines{"PortNbr"}));
        EXPECT_FALSE(Node(tree, ph)->IsLeaf());
        EXPECT_FALSE(Node(tree, ph + "/Port")->IsLeaf());
        ExpectString(tree, ph + "/Conn", "");
        ExpectString(tree, ph + "/Addr", "");
        ExpectInt0(tree, ph + "/Port/PortNbr");
    }
    const DmtData editable = KeptValue(tree, "P/UserEditable");
    EXPECT_EQ(int{editable.GetType()}, int{DmtData::Bool});
    EXPECT_TRUE(BoolOf(editable));
}

TEST_F(SubtreeTest, InteriorNodesListTheirChildrenFromTheStart)
{
    // A child that is registered last still has the place that its parent listed it at.
    const struct {
        const char *root, *late, *parent;
        Lines children;
    } cases[] = {
        {CONN_ROOT,
         "P/Bearer",
         "P",
         {"Bearer", "Addr", "DNS1", "DNS2", "Linger", "Auth", "LineType", "Speed"}},
        {CONN_ROOT, "P/Auth/PAP/AuthId", "P/Auth/PAP", {"AuthId", "AuthPw"}},
        {INTPROFS_ROOT, "P/Ph1", "P", {"Ph1", "Ph2", "Ph3", "UserEditable"}},
        {INTPROFS_ROOT, "P/Ph2/Conn", "P/Ph2", {"Conn", "Addr", "Port"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.late);
        Lines registered;
        {
            Built(c.root, "");
            registered = handset.journal.Only({"SetNode"});
            handset.journal.Clear();
        }
        const auto place = std::find(registered.begin(), registered.end(),
                                     "SetNode(\"" + std::string(c.late) + "\")");
        ASSERT_NE(place, registered.end());
        handset.faults.Clear();
        handset.faults.Fail("SetNode", static_cast<int>(place - registered.begin()) + 1);
        const TreePtr tree = Built(c.root, "");
        ASSERT_FALSE(Node(tree, c.late));

        tree->SetNode(c.late, JemSmartPtr<DmtNode>(new DM_NAPI_PluginNode(
                                  JemSmartPtr<DmtPluginTree>(tree), c.late, DmtData(""))));

        EXPECT_EQ(Children(tree, c.parent), c.children);
    }
}

TEST_F(SubtreeTest, ConnHoldsTheConnectionReference)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Packet");
    const TreePtr tree = Built(INTPROFS_ROOT, "G2");
    ExpectString(tree, "P/Ph1/Conn", "Packet");
    ExpectString(tree, "P/Ph2/Conn", "");
    ExpectString(tree, "P/Ph3/Conn", "P");
    ExpectLogged({TreeMessage("Leave: GetConnValue(), the Conn of  Ph2 has no related fields\n")});
}

TEST_F(SubtreeTest, ConnHoldsAReferenceThatCouldNotBeStored)
{
    handset.napi.Store("P", Record("internet"), 5);
    TreePtr tree = NewTree(INTPROFS_ROOT);
    ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
    ProfileInfo *const info = PluginTreeProbe(*tree).Put("P", "5", "G");
    handset.log.Take();
    handset.faults.Fail("flush");
    EXPECT_EQ(tree->LoadSubTreeofProfile("P", info), 0);
    ExpectString(tree, "P/Ph1/Conn", "P");
    ExpectLogged({TreeMessage("Leave: SetConnValue! flush  failed\n"),
                  TreeMessage("Leave: GetConnValue! SetConnValue failed\n"),
                  TreeMessage("Leave: GetConnValue(), the Conn of  Ph2 has no related fields\n"),
                  TreeMessage("Leave: GetConnValue(), the Conn of  Ph3 has no related fields\n")});
}

TEST_F(SubtreeTest, BearerFollowsTheFlagsGprsThenCsd2ThenCsd)
{
    const struct {
        const char *flags, *bearer, *mapped;
    } cases[] = {{"G", "GSM-GPRS", "5Ph1DC1 G"},  {"C", "GSM-CSD", "5Ph2DC1 C"},
                 {"2", "GSM-CSD2", "5Ph3DC1 2"},  {"", "GSM-CSD", "5Ph2DC1 C"},
                 {"GC", "GSM-GPRS", "5Ph1DC1 G"}, {"G2", "GSM-GPRS", "5Ph1DC1 G"},
                 {"C2", "GSM-CSD2", "5Ph3DC1 2"}, {"GC2", "GSM-GPRS", "5Ph1DC1 G"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.flags);
        const TreePtr tree = Built(CONN_ROOT, c.flags);
        ExpectString(tree, "P/Bearer", c.bearer);
        EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"P", c.mapped}}))
            << "the mapping follows";
    }
}

TEST_F(SubtreeTest, ARefusedBearerLeavesTheOtherSevenChildren)
{
    TreePtr tree = NewTree(CONN_ROOT);
    ProfileInfo info; // of a node that is not in the map
    info.sProfileID = "5Ph1DC1";
    info.bIsGPRS = true;

    EXPECT_EQ(tree->LoadSubTreeofProfile("P", &info), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"SetNode(\"P\")", "SetNode(\"P/Addr\")", "SetNode(\"P/DNS1\")",
                     "SetNode(\"P/DNS2\")", "SetNode(\"P/Linger\")", "SetNode(\"P/Auth/PAP\")",
                     "SetNode(\"P/Auth/PAP/AuthId\")", "SetNode(\"P/Auth/PAP/AuthPw\")",
                     "SetNode(\"P/Auth\")", "SetNode(\"P/LineType\")", "SetNode(\"P/Speed\")"}));
    EXPECT_FALSE(Node(tree, "P/Bearer"));
    ExpectLogged(
        {TreeMessage("Leave: RenameProfileMapDB fail! Can not lookup P in m_ProfileMaps!\n"),
         TreeMessage("Leave: LoadChildrenofProfile()! RenameProfileMapDB() failed! Not load this "
                     "profile!\n")});
}

TEST_F(SubtreeTest, OneChildIsBuiltWithAllBeneathIt)
{
    const TreePtr tree = Mapped(CONN_ROOT, "G", "5Ph1DC1");
    EXPECT_EQ(tree->LoadChildrenofProfile("P", m_info, "Auth"), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"SetNode(\"P/Auth/PAP\")", "SetNode(\"P/Auth/PAP/AuthId\")",
                     "SetNode(\"P/Auth/PAP/AuthPw\")", "SetNode(\"P/Auth\")"}));
    EXPECT_EQ(tree->LoadChildrenofProfile("P", m_info, "Linger"), 0);
    EXPECT_EQ(handset.journal.Take(), (Lines{"SetNode(\"P/Linger\")"}));
}

TEST_F(SubtreeTest, ARefusedBearerIsReportedByItsChild)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    ProfileInfo info;
    EXPECT_EQ(tree->LoadChildrenofProfile("P", &info, "Bearer"), 1);
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(SubtreeTest, AnUnknownChildIsAnEmptyStringLeaf)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = Mapped(root, "G", "5");
        for (const char *const name : {"Name", "Other", "bearer", "auth", "ph1"}) {
            EXPECT_EQ(tree->LoadChildrenofProfile("P", m_info, name), 0);
            ExpectString(tree, "P/" + std::string(name), "");
        }
    }
}

TEST_F(SubtreeTest, NamesOfTheOtherKindAreUnknownChildren)
{
    const TreePtr napdef = Mapped(CONN_ROOT, "G", "5");
    for (const char *const name : {"Ph1", "UserEditable", "PortNbr"}) {
        EXPECT_EQ(napdef->LoadChildrenofProfile("P", m_info, name), 0);
        ExpectString(napdef, "P/" + std::string(name), "");
    }
    const TreePtr proxy = Mapped(INTPROFS_ROOT, "G", "5");
    for (const char *const name : {"Bearer", "Auth", "Speed", "Linger"}) {
        EXPECT_EQ(proxy->LoadChildrenofProfile("P", m_info, name), 0);
        ExpectString(proxy, "P/" + std::string(name), "");
    }
}

TEST_F(SubtreeTest, AnEmptyNodeNameIsTheEmptyText)
{
    TreePtr tree = NewTree(CONN_ROOT);
    ProfileInfo *const info = PluginTreeProbe(*tree).Put("", nullptr, "G");
    EXPECT_EQ(tree->LoadSubTreeofProfile(DMString(), info), 0);
    const Lines calls = handset.journal.Take();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0], "SetNode(\"\")");
    EXPECT_EQ(calls[1], "SetNode(\"/Bearer\")");
}

TEST_F(SubtreeTest, NodesAre144BytesOfTheEnginesSiteAndOnlyTheEngineHoldsThem)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = Mapped(root, "", "5");
        const AllocationWatch watch;
        tree->LoadSubTreeofProfile("P", m_info);
        EXPECT_EQ(watch.SitesOfSize(144), Lines(root == CONN_ROOT ? 12 : 17, "jem_defs:255"));
        EXPECT_EQ(Node(tree, "P")->RefCount(), 2) << "the tree's and this test's";
        EXPECT_EQ(tree->RefCount(), 1) << "a node does not keep its tree alive";
    }
}

TEST_F(SubtreeTest, LeavesMoveTheirValuesWhole)
{
    const TreePtr tree = Built(CONN_ROOT, "G");
    for (const char *const path : {"P", "P/Bearer", "P/Auth/PAP/AuthId"})
        EXPECT_EQ(Node(tree, path)->HasChunkedValue(), 0) << path;
}

} // namespace
