// Loading the stored profiles when a root is mounted.
#include "plugin_test.h"

#include <cstring>

namespace {

using namespace doubles;

class MountTest : public PluginTest {
protected:
    void Store(const std::string &name) { handset.napi.Store(name, Record("internet")); }

    static Mapping Mapped(const TreePtr &tree) { return PluginTreeProbe(*tree).Mapped(); }

    /// Loads a fresh tree that must refuse the mount with 1.
    TreePtr RefusedTree(const char *root)
    {
        TreePtr tree = NewTree(root);
        EXPECT_EQ(tree->LoadProfilesinDB(), 1);
        return tree;
    }
    /// Node names of the root's children that are registered, in order.
    Lines RootChildren(const TreePtr &tree) { return Children(tree, ""); }
};

// ---- The sequence of calls --------------------------------------------------------------------

TEST_F(MountTest, NapdefMountAsksAndWritesInThisOrder)
{
    handset.napi.Store("Office", Record("internet", "+4917", ""), 5);
    handset.napi.Store("Home", Record("", "", "+4918"), 12);
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"getSettingDirectory()",
                     "unlink(\"/settings/kub_napdef_profilemapping.cfg\")",
                     "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                     "getEntryKeyList(napdef, \"NAPIDEF_Profile\")",
                     "NAPI_ListAllProfile(null)",
                     "NAPI_ListAllProfile(2 slots)",
                     "NAPI_ReadProfile(\"Office\")",
                     "NAPI_GetProfileIDByName(\"Office\")",
                     "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\", \"Office\")",
                     "flush(napdef)",
                     "NAPI_ReadProfile(\"Home\")",
                     "NAPI_GetProfileIDByName(\"Home\")",
                     "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"12Ph3DC1\")",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"12Ph3DC1\", \"Home\")",
                     "flush(napdef)",
                     "SetNode(\"Office\")",
                     "removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                     "flush(napdef)",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\", \"Office\")",
                     "flush(napdef)",
                     "SetNode(\"Office/Bearer\")",
                     "SetNode(\"Office/Addr\")",
                     "SetNode(\"Office/DNS1\")",
                     "SetNode(\"Office/DNS2\")",
                     "SetNode(\"Office/Linger\")",
                     "SetNode(\"Office/Auth/PAP\")",
                     "SetNode(\"Office/Auth/PAP/AuthId\")",
                     "SetNode(\"Office/Auth/PAP/AuthPw\")",
                     "SetNode(\"Office/Auth\")",
                     "SetNode(\"Office/LineType\")",
                     "SetNode(\"Office/Speed\")",
                     "SetNode(\"Home\")",
                     "removeEntry(napdef, \"NAPIDEF_Profile\", \"12Ph3DC1\")",
                     "flush(napdef)",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"12Ph3DC1\", \"Home\")",
                     "flush(napdef)",
                     "SetNode(\"Home/Bearer\")",
                     "SetNode(\"Home/Addr\")",
                     "SetNode(\"Home/DNS1\")",
                     "SetNode(\"Home/DNS2\")",
                     "SetNode(\"Home/Linger\")",
                     "SetNode(\"Home/Auth/PAP\")",
                     "SetNode(\"Home/Auth/PAP/AuthId\")",
                     "SetNode(\"Home/Auth/PAP/AuthPw\")",
                     "SetNode(\"Home/Auth\")",
                     "SetNode(\"Home/LineType\")",
                     "SetNode(\"Home/Speed\")",
                     "SetNode(\"\")"}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Office"}, {"12Ph3DC1", "Home"}}));
    ExpectNothingLogged();
}

TEST_F(MountTest, ProxyMountAsksAndWritesInThisOrder)
{
    handset.napi.Store("Office", Record("internet", "", "+4918"), 5);
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Packet");
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"getSettingDirectory()",
                     "unlink(\"/settings/kub_proxy_profilemapping.cfg\")",
                     "SETUP_SET_Manager(\"/settings/kub_proxy_profilemapping.cfg\")",
                     "getEntryKeyList(proxy, \"PROXY_Profile\")",
                     "getEntryKeyList(proxy, \"PROXY_Conn\")",
                     "NAPI_ListAllProfile(null)",
                     "NAPI_ListAllProfile(1 slots)",
                     "NAPI_ReadProfile(\"Office\")",
                     "NAPI_GetProfileIDByName(\"Office\")",
                     "getSettingInfo(proxy, \"PROXY_Profile\", \"5\")",
                     "setSettingInfo(proxy, \"PROXY_Profile\", \"5\", \"Office\")",
                     "flush(proxy)",
                     "SetNode(\"Office\")",
                     "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph1\")",
                     "getSettingDirectory()",
                     "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                     "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                     "~SETUP_SET_Manager(napdef)",
                     "setSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph1\", \"Packet\")",
                     "flush(proxy)",
                     "SetNode(\"Office/Ph1/Conn\")",
                     "SetNode(\"Office/Ph1/Addr\")",
                     "SetNode(\"Office/Ph1/Port\")",
                     "SetNode(\"Office/Ph1/Port/PortNbr\")",
                     "SetNode(\"Office/Ph1\")",
                     "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph2\")",
                     "SetNode(\"Office/Ph2/Conn\")",
                     "SetNode(\"Office/Ph2/Addr\")",
                     "SetNode(\"Office/Ph2/Port\")",
                     "SetNode(\"Office/Ph2/Port/PortNbr\")",
                     "SetNode(\"Office/Ph2\")",
                     "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph3\")",
                     "getSettingDirectory()",
                     "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                     "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph3DC1\")",
                     "~SETUP_SET_Manager(napdef)",
                     "setSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph3\", \"Office\")",
                     "flush(proxy)",
                     "SetNode(\"Office/Ph3/Conn\")",
                     "SetNode(\"Office/Ph3/Addr\")",
                     "SetNode(\"Office/Ph3/Port\")",
                     "SetNode(\"Office/Ph3/Port/PortNbr\")",
                     "SetNode(\"Office/Ph3\")",
                     "SetNode(\"Office/UserEditable\")",
                     "SetNode(\"\")"}));
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, PROXY_GROUP), (Entries{{"5", "Office"}}));
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, CONN_GROUP),
              (Entries{{"Office/Ph1", "Packet"}, {"Office/Ph3", "Office"}}));
    ExpectLogged({TreeMessage("Leave: GetConnValue(), the Conn of  Ph2 has no related fields\n")});
}

// ---- Which profiles, under which names -----------------------------------------------------------

TEST_F(MountTest, NoStoredProfileMountsAnEmptyTree)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = NewTree(root);
        EXPECT_EQ(tree->LoadProfilesinDB(), 0);
        EXPECT_EQ(Mapped(tree), Mapping{});
        EXPECT_EQ(RootChildren(tree), Lines{});
        EXPECT_EQ(PluginTreeProbe(*tree).profileCount, 0);
        EXPECT_NE(PluginTreeProbe(*tree).profileNameList, nullptr);
        EXPECT_EQ(
            handset.journal.Only({"NAPI_ListAllProfile", "SetNode"}),
            (Lines{"NAPI_ListAllProfile(null)", "NAPI_ListAllProfile(0 slots)", "SetNode(\"\")"}));
        handset.journal.Clear();
        const JemSmartPtr<DmtNode> rootNode = Node(tree, "");
        ASSERT_TRUE(rootNode);
        EXPECT_FALSE(rootNode->IsLeaf());
    }
}

TEST_F(MountTest, ChildrenOfTheRootComeInListedOrder)
{
    for (const char *const name : {"Zulu", "Alpha", "Mike"})
        Store(name);
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT})
        EXPECT_EQ(RootChildren(LoadTree(root)), (Lines{"Zulu", "Alpha", "Mike"}));
}

TEST_F(MountTest, EntriesKeptFromTheFileComeBeforeTheListedProfiles)
{
    handset.napi.Store("First", Record("a"), 1);
    handset.napi.Store("Second", Record("b"), 2);
    handset.settings.unlinkKeepsFiles = true;
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "2Ph1DC1", "Chosen by a server");

    const TreePtr tree = LoadTree(CONN_ROOT);

    EXPECT_EQ(Mapped(tree), (Mapping{{"Chosen by a server", "2Ph1DC1 G"},
                                     {"First", "1Ph1DC1 G"},
                                     {"Second", "2Ph1DC1 G"}}));
    EXPECT_EQ(RootChildren(tree), (Lines{"Chosen by a server", "First", "Second"}));
}

TEST_F(MountTest, TheNapdefKindMapsAProfileOnceByItsFirstBearer)
{
    const struct {
        const char *gprs, *csd, *csd2, *mapped;
    } cases[] = {{"a", "", "", "1Ph1DC1 G"},  {"", "b", "", "1Ph2DC1 C"},
                 {"", "", "c", "1Ph3DC1 2"},  {"a", "b", "", "1Ph1DC1 G"},
                 {"a", "", "c", "1Ph1DC1 G"}, {"", "b", "c", "1Ph2DC1 C"},
                 {"a", "b", "c", "1Ph1DC1 G"}};
    for (const auto &c : cases) {
        handset.napi.profiles.clear();
        handset.napi.Store("Office", Record(c.gprs, c.csd, c.csd2), 1);
        const TreePtr tree = LoadTree(CONN_ROOT);
        EXPECT_EQ(Mapped(tree), (Mapping{{"Office", c.mapped}}));
        EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP),
                  (Entries{{std::string(c.mapped).substr(0, 7), "Office"}}));
    }
}

TEST_F(MountTest, TheProxyKindMapsAProfileOnceWithAllItsBearers)
{
    for (int bearers = 1; bearers < 8; ++bearers) {
        handset.napi.profiles.clear();
        handset.napi.Store(
            "Office",
            Record(bearers & 1 ? "a" : "", bearers & 2 ? "b" : "", bearers & 4 ? "c" : ""), 1);
        const std::string flags = std::string(bearers & 1 ? "G" : "") + (bearers & 2 ? "C" : "") +
                                  (bearers & 4 ? "2" : "");
        EXPECT_EQ(Mapped(LoadTree(INTPROFS_ROOT)), (Mapping{{"Office", "1 " + flags}}));
    }
}

TEST_F(MountTest, AProfileWithoutABearerIsLeftOutSilently)
{
    NAP_PROFILE_S record{};
    std::strcpy(record.proxy1Address, "proxy");
    std::strcpy(record.gprsAuthId, "user");
    handset.napi.Store("Proxy only", record);
    Store("Office");
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = NewTree(root);
        EXPECT_EQ(tree->LoadProfilesinDB(), 0);
        EXPECT_EQ(RootChildren(tree), (Lines{"Office"}));
        EXPECT_EQ(handset.journal.Only({"NAPI_GetProfileIDByName"}),
                  (Lines{"NAPI_GetProfileIDByName(\"Office\")"}));
        handset.journal.Clear();
        handset.log.Take();
    }
}

TEST_F(MountTest, AProfileThatCannotBeReadIsLeftOutSilently)
{
    for (const char *const name : {"One", "Two", "Three"})
        Store(name);
    handset.faults.Fail("NAPI_ReadProfile", 2);
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(RootChildren(tree), (Lines{"One", "Three"}));
    ExpectNothingLogged();
}

TEST_F(MountTest, NamesThatBeginWithANonAsciiByteAreNumbered)
{
    for (const char *const name : {"Ñet", "Büro", "Office", "همراه اول", "\x80", "\x7F"})
        Store(name);
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT})
        EXPECT_EQ(RootChildren(LoadTree(root)),
                  (Lines{"PX1", "Büro", "Office", "PX2", "PX3", "\x7F"}));
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, PROXY_GROUP)["4"], "PX2");
}

TEST_F(MountTest, OnlyProfilesThatAreMountedAreNumbered)
{
    handset.napi.Store("Ñ without bearer", NAP_PROFILE_S{});
    Store("Ñ unreadable");
    Store("Ñ mounted");
    handset.faults.Fail("NAPI_ReadProfile", 2);
    EXPECT_EQ(RootChildren(LoadTree(CONN_ROOT)), (Lines{"PX1"}));
}

TEST_F(MountTest, AValueUnderANumberedNameComesFromTheProfilesOwnName)
{
    handset.napi.Store("Ñet", Record("apn.example"));
    const TreePtr tree = LoadTree(CONN_ROOT);
    EXPECT_EQ(StringOf(Value(tree, "PX1/Addr")), "apn.example");
    EXPECT_EQ(TakeOutsideCalls(),
              (Lines{"NAPI_GetProfileNameByID(1)", "NAPI_ReadProfile(\"Ñet\")"}));
}

TEST_F(MountTest, OfTwoProfilesWithOneNodeNameTheFirstListedHasIt)
{
    handset.napi.Store("Ñet", Record("a"), 1);
    handset.napi.Store("PX1", Record("b"), 2);
    handset.napi.Store("PX2", Record("c"), 3);
    handset.napi.Store("Žet", Record("d"), 4);
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(Mapped(tree), (Mapping{{"PX1", "1Ph1DC1 G"}, {"PX2", "3Ph1DC1 G"}}));
    EXPECT_EQ(RootChildren(tree), (Lines{"PX1", "PX2"}));
    ExpectNothingLogged();
}

TEST_F(MountTest, TheNumberAfterPxKeepsItsFirstFourDigits)
{
    // 10000 is cut to 1000, a name that is taken by then, and so are the numbers that follow.
    handset.napi.Store("Ñet", Record("internet"));
    NameSlot name{};
    std::strcpy(name.data(), "Ñet");
    handset.napi.listedSlots.emplace(10010, name);
    handset.faults.FailFrom("SetNode"); // the nodes are of no interest here
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    ASSERT_EQ(tree->LoadProfilesinDB(), 0);
    const PluginTreeProbe probe(*tree);
    EXPECT_EQ(probe.map.size(), 9999);
    EXPECT_STREQ(probe.map.keys()[0].text(), "PX1");
    EXPECT_STREQ(probe.map.keys()[999].text(), "PX1000");
    EXPECT_STREQ(probe.map.keys()[9998].text(), "PX9999");
}

TEST_F(MountTest, NamesOf63BytesAreNotCut)
{
    const std::string ascii(63, 'n');
    std::string mixed = "x";
    while (mixed.size() < 63)
        mixed += "ü";
    Store(ascii);
    Store(mixed);
    const TreePtr tree = LoadTree(CONN_ROOT);
    EXPECT_EQ(RootChildren(tree), (Lines{ascii, mixed}));
    EXPECT_EQ(StringOf(Value(tree, mixed + "/Auth/PAP/AuthId")), "");
    EXPECT_EQ(StringOf(Value(tree, mixed + "/Addr")), "internet");
}

TEST_F(MountTest, NamesThatLookLikeFormatsAreOnlyText)
{
    const std::string hostile = "%s%s%n%99999d%%";
    handset.napi.Store(hostile, Record("%n%s", "%s", "%x"));
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT})
        EXPECT_EQ(RootChildren(LoadTree(root)), (Lines{hostile}));
}

TEST_F(MountTest, IdsAreUnsigned)
{
    handset.napi.Store("Office", Record("internet"), 4294967295u);
    EXPECT_EQ(Mapped(LoadTree(CONN_ROOT)), (Mapping{{"Office", "4294967295Ph1DC1 G"}}));
    EXPECT_EQ(Mapped(LoadTree(INTPROFS_ROOT)), (Mapping{{"Office", "4294967295 G"}}));
}

TEST_F(MountTest, AnIdOf0IsAnId)
{
    handset.napi.Store("Office", Record("internet"), 0);
    const TreePtr tree = LoadTree(CONN_ROOT);
    EXPECT_EQ(Mapped(tree), (Mapping{{"Office", "0Ph1DC1 G"}}));
    EXPECT_EQ(StringOf(Value(tree, "Office/Addr")), "internet");
}

// ---- How many -----------------------------------------------------------------------------------

TEST_F(MountTest, TheCountIsCutTo8BitsButEveryProfileIsMounted)
{
    const struct {
        int profiles, count;
    } cases[] = {{127, 127}, {128, -128}, {255, -1}, {256, 0}, {300, 44}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.profiles);
        handset.napi.profiles.clear();
        handset.napi.nextId = 1;
        for (int i = 0; i < c.profiles; ++i)
            Store("Profile " + std::to_string(i));
        const TreePtr tree = LoadTree(INTPROFS_ROOT);
        EXPECT_EQ(PluginTreeProbe(*tree).profileCount, c.count);
        EXPECT_EQ(PluginTreeProbe(*tree).map.size(), c.profiles);
        EXPECT_EQ(RootChildren(tree).size(), static_cast<std::size_t>(c.profiles));
    }
}

TEST_F(MountTest, ProfilesThatVanishBetweenTheTwoListCallsAreNotLookedFor)
{
    for (const char *const name : {"One", "Two"})
        Store(name);
    handset.napi.announcedCount = 5;
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(handset.journal.Only({"NAPI_ListAllProfile", "NAPI_ReadProfile"}),
              (Lines{"NAPI_ListAllProfile(null)", "NAPI_ListAllProfile(5 slots)",
                     "NAPI_ReadProfile(\"One\")", "NAPI_ReadProfile(\"Two\")"}));
    EXPECT_EQ(PluginTreeProbe(*tree).profileCount, 5) << "as the first call said";
}

TEST_F(MountTest, ProfilesThatAreAddedBetweenTheTwoListCallsAreLeftForTheNextMount)
{
    for (const char *const name : {"One", "Two", "Three"})
        Store(name);
    handset.napi.announcedCount = 2;
    EXPECT_EQ(RootChildren(LoadTree(CONN_ROOT)), (Lines{"One", "Two"}));
}

TEST_F(MountTest, TheNameListIsOf64ByteSlots)
{
    for (const char *const name : {"One", "Two", "Three"})
        Store(name);
    const TreePtr tree = LoadTree(CONN_ROOT);
    EXPECT_EQ(handset.lastArrayBytes, 3u * 64u);
    const char *const names = PluginTreeProbe(*tree).profileNameList.get();
    EXPECT_STREQ(names, "One");
    EXPECT_STREQ(names + 64, "Two");
    EXPECT_STREQ(names + 128, "Three");
}

TEST_F(MountTest, TheSizeOfTheNameListDoesNotWrapAround)
{
    handset.napi.announcedCount = 0x04000001; // times 64 is 64 in 32 bits
    handset.faults.Fail("new[]");
    RefusedTree(CONN_ROOT);
    EXPECT_EQ(handset.lastArrayBytes, 0x04000001ull * 64);
}

TEST_F(MountTest, ASlotWithoutATerminatorDoesNotSpoilTheOthers)
{
    Store("Office");
    NameSlot full;
    full.fill('x');
    NameSlot office{};
    std::strcpy(office.data(), "Office");
    handset.napi.listedSlots = {office, full};
    EXPECT_EQ(RootChildren(LoadTree(CONN_ROOT)), (Lines{"Office"}));
    handset.napi.listedSlots = {full, office};
    EXPECT_EQ(RootChildren(LoadTree(CONN_ROOT)), (Lines{"Office"}));
}

TEST_F(MountTest, AServiceThatSaysNothingMountsAnEmptyTree)
{
    Store("Office");
    handset.faults.LeaveUntouched("NAPI_ListAllProfile", 1);
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(RootChildren(tree), Lines{});
}

// ---- Failures --------------------------------------------------------------------------------

TEST_F(MountTest, FailsWhenTheMappingFileCannotBeLoaded)
{
    Store("Office");
    handset.faults.Fail("new", 1);
    RefusedTree(CONN_ROOT);
    ExpectLogged({TreeMessage("Leave: LoadProfileMapCfgFile! new SETUP_SET_Manager failed!\n"),
                  TreeMessage("Leave: LoadProfilesinDB! LoadProfileMapCfgFile failed\n")});
    EXPECT_EQ(handset.journal.Only({"NAPI_ListAllProfile"}), Lines{});
}

TEST_F(MountTest, FailsWhenTheProfilesCannotBeListed)
{
    Store("Office");
    for (const int call : {1, 2}) {
        SCOPED_TRACE(call);
        handset.faults.Clear();
        handset.faults.Fail("NAPI_ListAllProfile", call, 6);
        const TreePtr tree = RefusedTree(CONN_ROOT);
        ExpectLogged({TreeMessage("Leave: LoadProfilesinDB : NAPI_ListAllProfile failed! return 6! "
                                  "Not load profiles in fs!\n")});
        EXPECT_EQ(handset.journal.Only({"NAPI_ReadProfile", "SetNode"}), Lines{});
        EXPECT_EQ(Mapped(tree), Mapping{});
    }
}

TEST_F(MountTest, FailsWithoutMemoryForTheNameList)
{
    Store("Office");
    handset.faults.Fail("new[]");
    const TreePtr tree = RefusedTree(CONN_ROOT);
    ExpectLogged({TreeMessage("Leave: LoadProfilesinDB fail: Allocate memory failed! Not load "
                              "profiles in fs!\n")});
    EXPECT_EQ(handset.journal.Only({"NAPI_ListAllProfile"}), (Lines{"NAPI_ListAllProfile(null)"}));
    EXPECT_EQ(PluginTreeProbe(*tree).profileNameList, nullptr);
}

TEST_F(MountTest, FailsWhenTheIdOfOneProfileCannotBeFound)
{
    for (const char *const name : {"One", "Two", "Three"})
        Store(name);
    handset.faults.Fail("NAPI_GetProfileIDByName", 2, 3);
    const TreePtr tree = RefusedTree(CONN_ROOT);
    ExpectLogged(
        {TreeMessage("Leave: LoadProfilesinDB : NAPI_GetProfileIDByName failed! return 3\n")});
    EXPECT_EQ(Mapped(tree), (Mapping{{"One", "1Ph1DC1 G"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), (Entries{{"1Ph1DC1", "One"}}))
        << "what was flushed stays";
    EXPECT_EQ(handset.journal.Only({"SetNode"}), Lines{});
}

TEST_F(MountTest, FailsWithoutMemoryForARecord)
{
    const struct {
        const char *root, *gprs, *csd, *csd2, *message;
    } cases[] = {
        {INTPROFS_ROOT, "a", "", "", "Leave:LoadProfilesinDB :  Allocate memory  failed\n"},
        {CONN_ROOT, "a", "", "", "Leave: LoadProfilesinDB :  Allocate memory  failed\n"},
        {CONN_ROOT, "", "b", "", "Leave: LoadProfilesinDB :  Allocate memory  failed\n"},
        {CONN_ROOT, "", "", "c", "Leave:LoadProfilesinDB: Allocate memory failed\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.message);
        handset.napi.profiles.clear();
        handset.napi.Store("Office", Record(c.gprs, c.csd, c.csd2));
        handset.faults.Clear();
        handset.faults.Fail("new", 2); // the first is the settings manager
        const TreePtr tree = RefusedTree(c.root);
        ExpectLogged({TreeMessage(c.message)});
        EXPECT_EQ(Mapped(tree), Mapping{});
    }
}

TEST_F(MountTest, FailsWithoutMemoryForARecordOfALaterBearer)
{
    handset.napi.Store("Office", Record("a", "b", "c"));
    for (const int record : {2, 3}) {
        handset.faults.Clear();
        handset.faults.Fail("new", 1 + record);
        const TreePtr tree = RefusedTree(CONN_ROOT);
        ExpectLogged(
            {TreeMessage(record == 2 ? "Leave: LoadProfilesinDB :  Allocate memory  failed\n"
                                     : "Leave:LoadProfilesinDB: Allocate memory failed\n")});
        EXPECT_EQ(PluginTreeProbe(*tree).map.size(), 1);
    }
}

TEST_F(MountTest, FailsWhenAMappingCannotBeWritten)
{
    handset.napi.Store("Office", Record("a", "b", "c"));
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        handset.faults.Clear();
        handset.faults.Fail("setSettingInfo");
        RefusedTree(root);
        ExpectLogged({TreeMessage("Leave: PutProfileMap! setSettingInfo failed\n"),
                      TreeMessage("Leave:LoadProfilesinDB : PutProfileMap  failed\n")});

        handset.faults.Clear();
        handset.faults.Fail("flush");
        const TreePtr tree = RefusedTree(root);
        ExpectLogged({TreeMessage("Leave: PutProfileMap! flush  failed\n"),
                      TreeMessage("Leave:LoadProfilesinDB : PutProfileMap  failed\n")});
        EXPECT_EQ(Mapped(tree), Mapping{});
    }
}

TEST_F(MountTest, ASubtreeThatFailsDoesNotFailTheMount)
{
    Store("One");
    Store("Two");
    handset.faults.Fail("flush", 3); // the two insertions flush before any subtree is built
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(RootChildren(tree), (Lines{"One", "Two"}));
    EXPECT_FALSE(Node(tree, "One/Bearer"));
    EXPECT_TRUE(Node(tree, "Two/Bearer"));
    ExpectLogged({TreeMessage("Leave: RenameProfileMapDB! flush  Failed\n"),
                  TreeMessage("Leave: LoadChildrenofProfile()! RenameProfileMapDB() failed! Not "
                              "load this profile!\n")});
}

TEST_F(MountTest, AProfileWhoseSubtreeFailsKeepsItsPlaceUnderTheRoot)
{
    handset.napi.Store("One", Record("", "+4917"));
    handset.napi.Store("Two", Record("", "+4917"));
    handset.faults.Fail("flush", 3);   // the bearer of "One" is refused
    handset.faults.Fail("SetNode", 1); // and its own node is not registered
    const TreePtr tree = NewTree(CONN_ROOT);
    ASSERT_EQ(tree->LoadProfilesinDB(), 0);
    ASSERT_FALSE(Node(tree, "One"));

    // The root has listed it all the same: a node that is registered later has its place.
    tree->SetNode("One", JemSmartPtr<DmtNode>(new DM_NAPI_PluginNode(
                             JemSmartPtr<DmtPluginTree>(tree), "One", DMStringVector())));
    EXPECT_EQ(RootChildren(tree), (Lines{"One", "Two"}));
}

TEST_F(MountTest, TroubleToRegisterANodeIsIgnored)
{
    Store("Office");
    handset.faults.FailFrom("SetNode");
    const TreePtr tree = NewTree(CONN_ROOT);
    EXPECT_EQ(tree->LoadProfilesinDB(), 0);
    EXPECT_EQ(handset.journal.Only({"SetNode"}).size(), 13u) << "twelve nodes and the root";
    ExpectNothingLogged();
}

// ---- Any single failure -----------------------------------------------------------------------

/// Mounts once with a fault at the nth call of anything outside. A mount that fails is refused with
/// 1 and a message and leaves the out-pointer alone; whatever happens, nothing is left behind and
/// the next mount succeeds.
/// @return whether the fault hit anything.
bool MountWithFault(const char *root, int nth, bool fromThenOn)
{
    SCOPED_TRACE(std::string(root) + ", call " + std::to_string(nth) +
                 (fromThenOn ? " and all that follow" : ""));
    const std::size_t blocksBefore = dmnative_control::LiveBlocks();
    HandsetDoubles handset;
    handset.napi.Store("Office", Record("internet", "+4917", "+4918"));
    handset.napi.Store("Ñet", Record("", "+4917"));
    handset.settings.unlinkKeepsFiles = true;
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "1Ph1DC1", "Kept");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "77Ph1DC1", "Stale");
    handset.settings.Preload(PROXY_FILE, PROXY_GROUP, "1", "Kept");
    handset.settings.Preload(PROXY_FILE, CONN_GROUP, "Gone/Ph1", "Stale");
    handset.faults.Add({"", nth, fromThenOn, FaultKind::Fails, 99});
    {
        JemSmartPtr<DmtPluginTree> tree;
        const int status = DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree);
        EXPECT_TRUE(status == 0 || status == 1) << status;
        EXPECT_EQ(status == 0, static_cast<bool>(tree));
        if (status != 0) {
            EXPECT_FALSE(handset.log.Text().empty()) << "a refused mount says why";
        }
    }
    const bool hit = handset.faults.Fired() > 0;
    EXPECT_EQ(dmnative_control::LiveBlocks(), blocksBefore);
    EXPECT_EQ(handset.settings.OpenManagers(), 0);

    handset.faults.Clear();
    JemSmartPtr<DmtPluginTree> tree;
    EXPECT_EQ(DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree), 0);
    return hit;
}

class MountFaultSweep : public ::testing::TestWithParam<std::tuple<std::string, bool>> {};

TEST_P(MountFaultSweep, NothingIsLeftBehindAndTheNextMountSucceeds)
{
    const auto &[root, fromThenOn] = GetParam();
    int nth = 1;
    while (nth < 500 && MountWithFault(root.c_str(), nth, fromThenOn))
        ++nth;
    EXPECT_GT(nth, 40) << "the mount makes that many calls";
    EXPECT_LT(nth, 500);
}

INSTANTIATE_TEST_SUITE_P(
    , MountFaultSweep,
    ::testing::Combine(::testing::Values<std::string>(CONN_ROOT, INTPROFS_ROOT), ::testing::Bool()),
    [](const auto &sweep) {
        return std::string(std::get<0>(sweep.param) == CONN_ROOT ? "NapdefKind" : "ProxyKind") +
               (std::get<1>(sweep.param) ? "FromThenOn" : "Once");
    });

} // namespace
