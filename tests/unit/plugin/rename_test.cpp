// A server renames nodes: only profile nodes may be, and their mapping follows.
#include "server_change_test.h"

namespace {

using namespace doubles;

class RenameTest : public ServerChangeTest {};

constexpr char success[] = "T Leave: RenameProfileMap!\n"; // prints although nothing failed

TEST_F(RenameTest, ProfileNodeIsRenamedInTheEngineTheFileAndMemory)
{
    handset.napi.Store("First", Record("a"), 1);
    const TreePtr tree = MountOffice(CONN_ROOT, GPRS_PART, PatternBytes(0));
    handset.napi.Store("Last", Record("a"));

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    ExpectMessages({success});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office"))", R"(GetNode("Work"))", R"(Rename("Office"))",
                     R"(setSettingInfo(napdef, "NAPIDEF_Profile", "5Ph1DC1", "Work"))",
                     "flush(napdef)"}));
    EXPECT_EQ(Children(tree, ""), (Lines{"First", "Work"}));
    EXPECT_FALSE(Exists(tree, "Office"));
    EXPECT_TRUE(Exists(tree, "Work/Auth/PAP/AuthPw"));
    EXPECT_EQ(Mapped(tree), (Mapping{{"First", "1Ph1DC1 G"}, {"Work", "5Ph1DC1 G"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"1Ph1DC1", "First"}, {"5Ph1DC1", "Work"}}));
    EXPECT_TRUE(SameBytes(Stored(), PatternBytes(0))) << "the profile keeps its name and data";
    EXPECT_EQ(Write(tree, "Work/Linger", Number(9)), 0);
    EXPECT_EQ(IntOf(Value(tree, "Work/Linger")), 9);
}

TEST_F(RenameTest, RenamedEntryMovesAfterTheOthersInMemory)
{
    handset.napi.Store("First", Record("a"), 1);
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->RenameNode("First", "Second"), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}, {"Second", "1Ph1DC1 G"}}));
}

TEST_F(RenameTest, ReferencesOfAProxyProfileMoveAlongOneByOne)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    ASSERT_EQ(Write(tree, "Office/Ph2/Conn", Text("Home")), 0);
    handset.journal.Clear();

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    ExpectMessages({success});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{R"(GetNode("Office"))", R"(GetNode("Work"))", R"(Rename("Office"))",
                     R"(setSettingInfo(proxy, "PROXY_Profile", "5", "Work"))", "flush(proxy)",
                     R"(getSettingInfo(proxy, "PROXY_Conn", "Office/Ph1"))",
                     R"(removeEntry(proxy, "PROXY_Conn", "Office/Ph1"))",
                     R"(setSettingInfo(proxy, "PROXY_Conn", "Work/Ph1", "Office"))", "flush(proxy)",
                     R"(getSettingInfo(proxy, "PROXY_Conn", "Office/Ph2"))",
                     R"(removeEntry(proxy, "PROXY_Conn", "Office/Ph2"))",
                     R"(setSettingInfo(proxy, "PROXY_Conn", "Work/Ph2", "Home"))", "flush(proxy)",
                     R"(getSettingInfo(proxy, "PROXY_Conn", "Office/Ph3"))"}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Work"}}));
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Work/Ph1", "Office"}, {"Work/Ph2", "Home"}}));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Work", "5 G"}}));
}

TEST_F(RenameTest, EmptyReferenceMovesToo)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    ASSERT_EQ(Write(tree, "Office/Ph1/Conn", Text("")), 0);

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Work/Ph1", ""}}));
}

TEST_F(RenameTest, ReferencesOfOtherProfilesAndReferencesToThisOneStay)
{
    handset.napi.Store("Off", Record("a"), 4);
    handset.napi.Store("Office2", Record("a"), 6);
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    ASSERT_EQ(Write(tree, "Off/Ph1/Conn", Text("Office")), 0);

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    EXPECT_EQ(ReferencesOnDisk(),
              (Entries{{"Off/Ph1", "Office"}, {"Office2/Ph1", "Office2"}, {"Work/Ph1", "Office"}}));
}

TEST_F(RenameTest, NapdefKindLeavesReferencesAlone)
{
    handset.settings.Preload(PROXY_FILE, CONN_GROUP, "Office/Ph1", "Office");
    const TreePtr tree = MountOffice(CONN_ROOT);

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Office/Ph1", "Office"}}));
}

TEST_F(RenameTest, KeyOfAReferenceIsBuiltFromTheBytesOfBothNames)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);

    // "B\xc3\xbcro" has five characters and six bytes; each byte is one character of the key.
    ASSERT_EQ(tree->RenameNode("Office", "B\xc3\xbcro"), 0);
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"B\xc3\x83\xc2\xbcro/Ph1", "Office"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "B\xc3\xbcro"}}));

    ASSERT_EQ(tree->RenameNode("B\xc3\xbcro", "T\xc3\xbcr"), 0);
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"T\xc3\x83\xc2\xbcr/Ph1", "Office"}}));

    ASSERT_EQ(tree->RenameNode("T\xc3\xbcr", "Work"), 0);
    EXPECT_EQ(ReferencesOnDisk(), (Entries{{"Work/Ph1", "Office"}}));
}

TEST_F(RenameTest, WithoutAMappingFileEngineAndMemoryFollow)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root);
        CloseMappingFile(tree);

        EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

        EXPECT_EQ(TakeOutsideCalls(), Lines{});
        EXPECT_EQ(Mapped(tree).at(0).first, "Work");
        EXPECT_TRUE(Exists(tree, "Work"));
    }
}

// ---- Refusals, in their order --------------------------------------------------------------------

TEST_F(RenameTest, MissingNodeIsReportedFirst)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    for (const auto &[path, newName] :
         {std::pair{"Nobody", "Office"}, std::pair{"Office/Nothing", "Addr"},
          std::pair{"Nobody", "Work"}}) {
        EXPECT_EQ(tree->RenameNode(path, newName), 404);
        ExpectMessages(
            {std::string("T Leave: RenameNode fail! The node: ") + path + " is not exist!\n"});
        EXPECT_EQ(handset.journal.Take(), (Lines{std::string("GetNode(\"") + path + "\")"}));
    }
    handset.faults.Fail("GetNode", 1, 507);
    EXPECT_EQ(tree->RenameNode("Office", "Work"), 507);
    ExpectMessages({"T Leave: RenameNode fail! The node: Office is not exist!\n"});
}

TEST_F(RenameTest, TakenNameIsReportedBeforeTheRuleOfProfileNodes)
{
    handset.napi.Store("Home", Record("a"), 1);
    const TreePtr tree = MountOffice(CONN_ROOT);
    const struct {
        const char *path;
        const char *newName;
        const char *newPath;
    } renames[] = {{"Office", "Home", "Home"},
                   {"Office", "Office", "Office"},
                   {"Office/Addr", "DNS1", "Office/DNS1"},
                   {"Office/Addr", "Auth", "Office/Auth"},
                   {"Office/Auth/PAP/AuthId", "AuthPw", "Office/Auth/PAP/AuthPw"},
                   {"Office", "", ""},
                   {"", "Office", "Office"},
                   {"Office", "Home/Addr", "Home/Addr"}};
    for (const auto &rename : renames) {
        handset.journal.Clear();
        EXPECT_EQ(tree->RenameNode(rename.path, rename.newName), 418)
            << rename.path << " to " << rename.newName;
        ExpectMessages({std::string("T Leave: RenameNode fail! The node with newname: ") +
                        rename.newPath + " is exist!\n"});
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{std::string("GetNode(\"") + rename.path + "\")",
                         std::string("GetNode(\"") + rename.newPath + "\")"}));
    }
    EXPECT_EQ(Mapped(tree), (Mapping{{"Home", "1Ph1DC1 G"}, {"Office", "5Ph1DC1 G"}}));
}

TEST_F(RenameTest, DeeperNodesMayNotBeRenamed)
{
    for (const auto &[root, path] :
         {std::pair{CONN_ROOT, "Office/Addr"}, std::pair{CONN_ROOT, "Office/Auth"},
          std::pair{CONN_ROOT, "Office/Auth/PAP"}, std::pair{INTPROFS_ROOT, "Office/Ph1"},
          std::pair{INTPROFS_ROOT, "Office/Ph1/Conn"}}) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(root);
        const Mapping mapped = Mapped(tree);

        EXPECT_EQ(tree->RenameNode(path, "Host"), 1);

        ExpectMessages({std::string("T Leave: RenameNode fail! The node: ") + path +
                        " can not be renamed!\n"});
        EXPECT_EQ(handset.journal.Only({"Rename", "setSettingInfo", "flush"}), Lines{});
        EXPECT_TRUE(Exists(tree, path));
        EXPECT_EQ(Mapped(tree), mapped);
    }
}

TEST_F(RenameTest, StatusOfTheEngineIsPassedOnAndTheMappingStays)
{
    const TreePtr tree = MountOffice(CONN_ROOT);

    handset.faults.Fail("Rename", 1, 507);
    EXPECT_EQ(tree->RenameNode("Office", "Work"), 507);
    ExpectMessages({"T Leave: RenameNode! Rename failed\n"});

    EXPECT_EQ(tree->RenameNode("Office", "a/b"), 405) << "the engine takes one segment only";
    ExpectMessages({"T Leave: RenameNode! Rename failed\n"});

    EXPECT_EQ(TakeOutsideCalls(), Lines{});
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
}

// ---- What a failing mapping leaves behind ---------------------------------------------------------

TEST_F(RenameTest, UnmappedNodeKeepsItsNewName)
{
    const TreePtr tree = LoadTree(CONN_ROOT);
    PutLeaf(tree, "Note", Text(""));

    EXPECT_EQ(tree->RenameNode("Note", "Work"), 1);

    ExpectMessages({"T Leave: RenameProfileMap fail! Can not lookup Note in m_ProfileMaps!\n",
                    "T Leave: RenameNode! RenameProfileMap failed!\n"});
    EXPECT_TRUE(Exists(tree, "Work"));
    EXPECT_FALSE(Exists(tree, "Note"));
    EXPECT_EQ(TakeOutsideCalls(), Lines{});
}

TEST_F(RenameTest, FailedWriteOfTheFileKeepsTheOldNameInMemory)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    handset.faults.Fail("setSettingInfo");

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 1);

    ExpectMessages({"T Leave: RenameProfileMap! setSettingInfo failed!\n",
                    "T Leave: RenameNode! RenameProfileMap failed!\n"});
    EXPECT_TRUE(Exists(tree, "Work")) << "nothing is rolled back";
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Office"}}));
    EXPECT_EQ(handset.journal.Only({"flush"}), Lines{});
}

TEST_F(RenameTest, FailedFlushLeavesTheNewNameInTheManagerAndTheOldOneInMemory)
{
    const TreePtr tree = MountOffice(INTPROFS_ROOT);
    handset.faults.Fail("flush");

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 1);

    ExpectMessages({"T Leave: RenameProfileMap! flush  failed\n",
                    "T Leave: RenameNode! RenameProfileMap failed!\n"});
    EXPECT_TRUE(Exists(tree, "Work"));
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "5 G"}}));
    EXPECT_EQ(handset.settings.InMemory(PROXY_FILE, PROXY_GROUP), (Entries{{"5", "Work"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Office"}}));
    EXPECT_EQ(handset.journal.Only({"getSettingInfo", "removeEntry"}), Lines{});
}

TEST_F(RenameTest, FailuresWhileReferencesMoveAreNotLookedAt)
{
    const struct {
        const char *site;
        int nth;
        Entries onDisk;
    } faults[] = {
        {"removeEntry",
         1,
         {{"Office/Ph1", "Office"}, {"Work/Ph1", "Office"}, {"Work/Ph2", "Home"}}},
        {"setSettingInfo", 2, {{"Work/Ph2", "Home"}}},
        {"flush", 2, {{"Work/Ph1", "Office"}, {"Work/Ph2", "Home"}}}, // carried by the next flush
        {"flush", 3, {{"Work/Ph1", "Office"}, {"Office/Ph2", "Home"}}}};
    for (const auto &fault : faults) {
        handset.napi.profiles.clear();
        const TreePtr tree = MountOffice(INTPROFS_ROOT);
        ASSERT_EQ(Write(tree, "Office/Ph2/Conn", Text("Home")), 0);
        handset.faults.Fail(fault.site, fault.nth);

        EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

        ExpectMessages({success});
        EXPECT_EQ(ReferencesOnDisk(), fault.onDisk) << fault.site << fault.nth;
        EXPECT_EQ(Mapped(tree), (Mapping{{"Work", "5 G"}}));
    }
}

TEST_F(RenameTest, NameThatIsStillMappedLosesItsRecordAndNothingLeaks)
{
    const TreePtr tree = MountOffice(CONN_ROOT);
    // Mapped without a node, as a delete leaves it whose flush failed.
    PluginTreeProbe(*tree).Put("Work", "9Ph3DC1", "2");

    EXPECT_EQ(tree->RenameNode("Office", "Work"), 0);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Work", "5Ph1DC1 G"}}));
}

} // namespace
