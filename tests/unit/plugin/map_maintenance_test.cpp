// The map and its file follow a deleted node, a renamed node and a changed bearer.
#include "plugin_test.h"

namespace {

using namespace doubles;

/// A tree of each kind with node "Office" of profile 5, mapped and in the file.
class MapMaintenanceTest : public PluginTest {
protected:
    void SetUp() override
    {
        PluginTest::SetUp();
        napdef = Opened(CONN_ROOT);
        Put(napdef, "Office", "5Ph1DC1", "G");
        proxy = Opened(INTPROFS_ROOT);
        Put(proxy, "Office", "5", "GC");
        handset.journal.Clear();
        handset.log.Take();
    }
    void TearDown() override
    {
        napdef.reset();
        proxy.reset();
        PluginTest::TearDown();
    }

    TreePtr Opened(const char *root)
    {
        TreePtr tree = NewTree(root);
        EXPECT_EQ(tree->LoadProfileMapCfgFile(), 0);
        return tree;
    }
    static void Put(const TreePtr &tree, const char *node, const char *key,
                    const std::string &flags)
    {
        EXPECT_EQ(tree->PutProfileMap(node, NewInfo(key, flags)), 0);
    }
    void StoreReference(const char *key, const char *value)
    {
        SETUP_SET_Manager &settings = *PluginTreeProbe(*proxy).settings;
        settings.setSettingInfo(QString::fromLatin1(CONN_GROUP), QString::fromUtf8(key),
                                QString::fromUtf8(value), false);
        settings.flush();
        handset.journal.Clear();
    }
    static Mapping Mapped(const TreePtr &tree) { return PluginTreeProbe(*tree).Mapped(); }
    Entries NapdefOnDisk() const { return handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP); }
    Entries ProxyOnDisk() const { return handset.settings.OnDisk(PROXY_FILE, PROXY_GROUP); }
    Entries References() const { return handset.settings.OnDisk(PROXY_FILE, CONN_GROUP); }
    Entries NapdefInMemory() const { return handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP); }

    TreePtr napdef;
    TreePtr proxy;
};

// ---- A deleted node --------------------------------------------------------------------------

TEST_F(MapMaintenanceTest, DeletingANapdefNodeRemovesItsKeyWithOneFlush)
{
    EXPECT_EQ(napdef->DeleteProfileMap("Office"), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")", "flush(napdef)"}));
    EXPECT_EQ(Mapped(napdef), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), Entries{});
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Office"}}));
    ExpectNothingLogged();
}

TEST_F(MapMaintenanceTest, DeletingAProxyNodeRemovesItsReferencesTooWithOneFlush)
{
    StoreReference("Office/Ph1", "Home");
    StoreReference("Office/Ph2", "Home");
    StoreReference("Office/Ph3", "Home");
    StoreReference("Office 2/Ph1", "Home");

    EXPECT_EQ(proxy->DeleteProfileMap("Office"), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"removeEntry(proxy, \"PROXY_Profile\", \"5\")",
                     "removeEntry(proxy, \"PROXY_Conn\", \"Office/Ph1\")",
                     "removeEntry(proxy, \"PROXY_Conn\", \"Office/Ph2\")",
                     "removeEntry(proxy, \"PROXY_Conn\", \"Office/Ph3\")", "flush(proxy)"}));
    EXPECT_EQ(Mapped(proxy), Mapping{});
    EXPECT_EQ(ProxyOnDisk(), Entries{});
    EXPECT_EQ(References(), (Entries{{"Office 2/Ph1", "Home"}}));
    ExpectNothingLogged();
}

TEST_F(MapMaintenanceTest, AbsentReferencesOfADeletedNodeAreNotReported)
{
    EXPECT_EQ(proxy->DeleteProfileMap("Office"), 0);
    ExpectNothingLogged();
}

TEST_F(MapMaintenanceTest, DeletingClosesTheGapInTheMap)
{
    Put(napdef, "Home", "6Ph1DC1", "G");
    Put(napdef, "Work", "7Ph2DC1", "C");
    EXPECT_EQ(napdef->DeleteProfileMap("Home"), 0);
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}, {"Work", "7Ph2DC1 C"}}));
}

TEST_F(MapMaintenanceTest, DeletingAnUnmappedNodeFails)
{
    EXPECT_EQ(napdef->DeleteProfileMap("Home"), 1);
    ExpectLogged(
        {TreeMessage("Leave: DeleteProfileMap fail! Can not lookup Home in m_ProfileMaps!\n")});
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}}));
}

TEST_F(MapMaintenanceTest, DeletingGoesOnWhenTheKeyCannotBeRemoved)
{
    handset.faults.Fail("removeEntry");
    EXPECT_EQ(napdef->DeleteProfileMap("Office"), 0);
    ExpectLogged({TreeMessage("Warning: RenameProfileMapDB! removeEntry failed!\n")});
    EXPECT_EQ(handset.journal.Take().back(), "flush(napdef)");
    EXPECT_EQ(Mapped(napdef), Mapping{});
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, AFailedFlushOfADeletionKeepsTheMemoryEntry)
{
    handset.faults.Fail("flush");
    EXPECT_EQ(napdef->DeleteProfileMap("Office"), 1);
    ExpectLogged({TreeMessage("Leave: DeleteProfileMap! flush  Failed\n")});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(NapdefInMemory(), Entries{}) << "the manager has dropped the entry already";
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, KeysOfReferencesOfADeletedNodeAreItsBytesAsLatin1)
{
    Put(proxy, "Büro", "6", "G");
    StoreReference("BÃ¼ro/Ph1", "Home");
    EXPECT_EQ(proxy->DeleteProfileMap("Büro"), 0);
    EXPECT_EQ(References(), Entries{});
}

TEST_F(MapMaintenanceTest, WithoutAnOpenFileADeletionChangesTheMemoryOnly)
{
    const TreePtr bare = NewTree(INTPROFS_ROOT);
    PluginTreeProbe(*bare).Put("Office", "5", "G");
    EXPECT_EQ(bare->DeleteProfileMap("Office"), 0);
    EXPECT_EQ(Mapped(bare), Mapping{});
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

// ---- A renamed node ----------------------------------------------------------------------------

const std::string RENAMED = TreeMessage("Leave: RenameProfileMap!\n");

TEST_F(MapMaintenanceTest, RenamingKeepsTheKeyAndChangesItsName)
{
    ProfileInfo *const info = PluginTreeProbe(*napdef).Find("Office");
    EXPECT_EQ(napdef->RenameProfileMap("Office", "Work"), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\", \"Work\")",
                     "flush(napdef)"}));
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Work", "5Ph1DC1 G"}}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Find("Work"), info) << "the very same mapping";
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Work"}}));
    ExpectLogged({RENAMED});
}

TEST_F(MapMaintenanceTest, ARenamedNodeMovesToTheEndOfTheMap)
{
    Put(napdef, "Home", "6Ph1DC1", "G");
    EXPECT_EQ(napdef->RenameProfileMap("Office", "Work"), 0);
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Home", "6Ph1DC1 G"}, {"Work", "5Ph1DC1 G"}}));
}

TEST_F(MapMaintenanceTest, RenamingAProxyNodeMovesTheReferencesThatItHas)
{
    StoreReference("Office/Ph2", "Home");
    StoreReference("Office 2/Ph2", "Elsewhere");

    EXPECT_EQ(proxy->RenameProfileMap("Office", "Work"), 0);

    EXPECT_EQ(handset.journal.Take(),
              (Lines{"setSettingInfo(proxy, \"PROXY_Profile\", \"5\", \"Work\")", "flush(proxy)",
                     "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph1\")",
                     "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph2\")",
                     "removeEntry(proxy, \"PROXY_Conn\", \"Office/Ph2\")",
                     "setSettingInfo(proxy, \"PROXY_Conn\", \"Work/Ph2\", \"Home\")",
                     "flush(proxy)", "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph3\")"}));
    EXPECT_EQ(References(), (Entries{{"Work/Ph2", "Home"}, {"Office 2/Ph2", "Elsewhere"}}));
    ExpectLogged({RENAMED});
}

TEST_F(MapMaintenanceTest, RenamingMovesAnEmptyReferenceToo)
{
    StoreReference("Office/Ph1", "");
    StoreReference("Office/Ph3", "Büro");
    EXPECT_EQ(proxy->RenameProfileMap("Office", "Work"), 0);
    EXPECT_EQ(References(), (Entries{{"Work/Ph1", ""}, {"Work/Ph3", "Büro"}}));
    EXPECT_EQ(handset.journal.Only({"flush"}).size(), 3u) << "one each, and one for the name";
}

TEST_F(MapMaintenanceTest, RenamingCountsTheOldNameInBytes)
{
    Put(proxy, "Büro", "6", "G");
    StoreReference("BÃ¼ro/Ph1", "Heim");
    EXPECT_EQ(proxy->RenameProfileMap("Büro", "Höhle"), 0);
    EXPECT_EQ(References(), (Entries{{"HÃ¶hle/Ph1", "Heim"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Office"}, {"6", "Höhle"}}));
}

TEST_F(MapMaintenanceTest, TroubleWithReferencesDoesNotFailARename)
{
    StoreReference("Office/Ph1", "Home");
    StoreReference("Office/Ph2", "Home");
    handset.faults.FailFrom("removeEntry");
    handset.faults.FailFrom("setSettingInfo", 2);
    handset.faults.FailFrom("flush", 2);
    EXPECT_EQ(proxy->RenameProfileMap("Office", "Work"), 0);
    ExpectLogged({RENAMED});
    EXPECT_EQ(handset.journal.Only({"setSettingInfo", "flush"}).size(), 6u);
    EXPECT_EQ(Mapped(proxy), (Mapping{{"Work", "5 GC"}}));
}

TEST_F(MapMaintenanceTest, ANapdefRenameLeavesReferencesToTheOldName)
{
    StoreReference("Office/Ph1", "Office");
    EXPECT_EQ(napdef->RenameProfileMap("Office", "Work"), 0);
    EXPECT_EQ(References(), (Entries{{"Office/Ph1", "Office"}}));
}

TEST_F(MapMaintenanceTest, RenamingAnUnmappedNodeFails)
{
    EXPECT_EQ(napdef->RenameProfileMap("Home", "Work"), 1);
    ExpectLogged(
        {TreeMessage("Leave: RenameProfileMap fail! Can not lookup Home in m_ProfileMaps!\n")});
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}}));
}

TEST_F(MapMaintenanceTest, ARenameThatCannotBeWrittenChangesNothing)
{
    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(proxy->RenameProfileMap("Office", "Work"), 1);
    ExpectLogged({TreeMessage("Leave: RenameProfileMap! setSettingInfo failed!\n")});
    EXPECT_EQ(handset.journal.Only({"flush", "getSettingInfo"}), Lines{});
    EXPECT_EQ(Mapped(proxy), (Mapping{{"Office", "5 GC"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Office"}}));
}

TEST_F(MapMaintenanceTest, AFailedFlushOfARenameLeavesTheFilesMemoryChanged)
{
    handset.faults.Fail("flush");
    EXPECT_EQ(napdef->RenameProfileMap("Office", "Work"), 1);
    ExpectLogged({TreeMessage("Leave: RenameProfileMap! flush  failed\n")});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(NapdefInMemory(), (Entries{{"5Ph1DC1", "Work"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, RenamingOntoAMappedNameTakesItsPlaceInTheMap)
{
    Put(napdef, "Home", "6Ph2DC1", "C");
    Put(napdef, "Work", "7Ph1DC1", "G");

    EXPECT_EQ(napdef->RenameProfileMap("Office", "Home"), 0);

    EXPECT_EQ(Mapped(napdef), (Mapping{{"Home", "5Ph1DC1 G"}, {"Work", "7Ph1DC1 G"}}));
    // The fixture sees to it that nothing of the replaced mapping leaks.
}

TEST_F(MapMaintenanceTest, RenamingToTheSameNameKeepsEverything)
{
    StoreReference("Office/Ph1", "Home");
    EXPECT_EQ(proxy->RenameProfileMap("Office", "Office"), 0);
    EXPECT_EQ(Mapped(proxy), (Mapping{{"Office", "5 GC"}}));
    EXPECT_EQ(References(), (Entries{{"Office/Ph1", "Home"}}));
    EXPECT_EQ(ProxyOnDisk(), (Entries{{"5", "Office"}}));
}

TEST_F(MapMaintenanceTest, WithoutAnOpenFileARenameChangesTheMemoryOnly)
{
    const TreePtr bare = NewTree(INTPROFS_ROOT);
    PluginTreeProbe(*bare).Put("Office", "5", "G");
    EXPECT_EQ(bare->RenameProfileMap("Office", "Work"), 0);
    EXPECT_EQ(Mapped(bare), (Mapping{{"Work", "5 G"}}));
    EXPECT_EQ(handset.journal.Take(), Lines{});
    ExpectLogged({RENAMED});
}

// ---- A changed bearer ----------------------------------------------------------------------------

TEST_F(MapMaintenanceTest, ABearerMovesTheKeyInTwoFlushedSteps)
{
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD2"), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")", "flush(napdef)",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph3DC1\", \"Office\")",
                     "flush(napdef)"}));
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph3DC1 2"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph3DC1", "Office"}}));
    ExpectNothingLogged();
}

TEST_F(MapMaintenanceTest, EveryBearerHasItsSuffixAndFlagFromEveryOther)
{
    const struct {
        const char *bearer, *mapped;
    } bearers[] = {{"GSM-GPRS", "5Ph1DC1 G"}, {"GSM-CSD", "5Ph2DC1 C"}, {"GSM-CSD2", "5Ph3DC1 2"}};
    for (const auto &from : bearers) {
        for (const auto &to : bearers) {
            SCOPED_TRACE(std::string(from.bearer) + " to " + to.bearer);
            ASSERT_EQ(napdef->RenameProfileMapDB("Office", from.bearer), 0);
            ASSERT_EQ(napdef->RenameProfileMapDB("Office", to.bearer), 0);
            EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", to.mapped}}));
            EXPECT_EQ(NapdefOnDisk(), (Entries{{std::string(to.mapped).substr(0, 7), "Office"}}));
        }
    }
}

TEST_F(MapMaintenanceTest, TheSameBearerIsRemovedAndWrittenAgain)
{
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-GPRS"), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")", "flush(napdef)",
                     "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\", \"Office\")",
                     "flush(napdef)"}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, ABareKeyGetsASuffix)
{
    Put(napdef, "Bare", "7", "");
    EXPECT_EQ(napdef->RenameProfileMapDB("Bare", "GSM-CSD"), 0);
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph1DC1 G"}, {"Bare", "7Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}, {"7Ph2DC1", "Bare"}}));
}

TEST_F(MapMaintenanceTest, AChangedBearerKeepsThePlaceInTheMap)
{
    Put(napdef, "Home", "6Ph1DC1", "G");
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD"), 0);
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph2DC1 C"}, {"Home", "6Ph1DC1 G"}}));
}

TEST_F(MapMaintenanceTest, AnUnknownBearerLeavesABareKeyWithoutFlags)
{
    for (const char *const bearer : {"GPRS", "", "gsm-gprs", "GSM-GPRS ", "GSM-CSD3", "%s%n"}) {
        SCOPED_TRACE(bearer);
        ASSERT_EQ(napdef->RenameProfileMapDB("Office", "GSM-GPRS"), 0);
        handset.journal.Clear();
        handset.log.Take();

        EXPECT_EQ(napdef->RenameProfileMapDB("Office", bearer), 1);

        ExpectLogged({TreeMessage("Leave: RenameProfileMapDB fail! illegal Bearer value: " +
                                  std::string(bearer) + "!\n")});
        EXPECT_EQ(handset.journal.Take(), Lines{}) << "the file is not touched";
        EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5"}}));
        EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));

        // The next good bearer finds nothing to remove under the bare key.
        EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-GPRS"), 0);
        ExpectLogged({TreeMessage("Warning: RenameProfileMapDB! removeEntry failed!\n")});
    }
}

TEST_F(MapMaintenanceTest, TheBearerOfAnUnmappedNodeFails)
{
    EXPECT_EQ(napdef->RenameProfileMapDB("Home", "GSM-CSD"), 1);
    ExpectLogged(
        {TreeMessage("Leave: RenameProfileMapDB fail! Can not lookup Home in m_ProfileMaps!\n")});
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(MapMaintenanceTest, AKeyThatCannotBeRemovedIsReportedAndTheNewOneWritten)
{
    handset.faults.Fail("removeEntry");
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD"), 0);
    ExpectLogged({TreeMessage("Warning: RenameProfileMapDB! removeEntry failed!\n")});
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}, {"5Ph2DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, AFailedFlushAfterTheRemovalLeavesTheMemoryWithTheNewBearer)
{
    handset.faults.Fail("flush", 1);
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD"), 1);
    ExpectLogged({TreeMessage("Leave: RenameProfileMapDB! flush  Failed\n")});
    EXPECT_EQ(handset.journal.Only({"setSettingInfo"}), Lines{});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}}));
    EXPECT_EQ(NapdefInMemory(), Entries{});
}

TEST_F(MapMaintenanceTest, ANewKeyThatCannotBeSetLeavesTheFileWithoutTheOld)
{
    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD"), 1);
    ExpectLogged({TreeMessage("Leave: RenameProfileMapDB! setSettingInfo failed!\n")});
    EXPECT_EQ(handset.journal.Only({"flush"}).size(), 1u);
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), Entries{});
}

TEST_F(MapMaintenanceTest, AFailedFlushAfterTheNewKeyFails)
{
    handset.faults.Fail("flush", 2);
    EXPECT_EQ(napdef->RenameProfileMapDB("Office", "GSM-CSD"), 1);
    ExpectLogged({TreeMessage("Leave: RenameProfileMapDB! flush  failed\n")});
    EXPECT_EQ(Mapped(napdef), (Mapping{{"Office", "5Ph2DC1 C"}}));
    EXPECT_EQ(NapdefOnDisk(), Entries{});
    EXPECT_EQ(NapdefInMemory(), (Entries{{"5Ph2DC1", "Office"}}));
}

TEST_F(MapMaintenanceTest, WithoutAnOpenFileABearerChangesTheMemoryOnly)
{
    const TreePtr bare = NewTree(CONN_ROOT);
    PluginTreeProbe(*bare).Put("Office", "5Ph1DC1", "G");
    EXPECT_EQ(bare->RenameProfileMapDB("Office", "GSM-CSD2"), 0);
    EXPECT_EQ(Mapped(bare), (Mapping{{"Office", "5Ph3DC1 2"}}));
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(MapMaintenanceTest, ABearerWritesTheNodeNameAsUtf8)
{
    Put(napdef, "Büro", "6Ph1DC1", "G");
    EXPECT_EQ(napdef->RenameProfileMapDB("Büro", "GSM-CSD"), 0);
    EXPECT_EQ(NapdefOnDisk(), (Entries{{"5Ph1DC1", "Office"}, {"6Ph2DC1", "Büro"}}));
}

} // namespace
