// The map between node names and profiles: in memory, in the mapping file, and how one is loaded
// from the other.
#include "plugin_test.h"

#include <random>

namespace {

using namespace doubles;

// Lines of opening the mapping file at the first load.
const Lines OPEN_NAPDEF{"getSettingDirectory()",
                        "unlink(\"/settings/kub_napdef_profilemapping.cfg\")",
                        "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                        "getEntryKeyList(napdef, \"NAPIDEF_Profile\")"};
const Lines OPEN_PROXY{"getSettingDirectory()",
                       "unlink(\"/settings/kub_proxy_profilemapping.cfg\")",
                       "SETUP_SET_Manager(\"/settings/kub_proxy_profilemapping.cfg\")",
                       "getEntryKeyList(proxy, \"PROXY_Profile\")"};

Lines Then(Lines left, const Lines &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const std::string REMOVE_FAILED = TreeMessage("Warning: RenameProfileMapDB! removeEntry failed!\n");
const std::string LOAD_FLUSH_FAILED = TreeMessage("Leave: LoadProfileMapCfgFile! flush  failed\n");

// ---- Numbers of ID keys ----------------------------------------------------------------------

class ProfileIdTest : public PluginTest {};

TEST_F(ProfileIdTest, IsTheDecimalNumberBeforeABearerSuffix)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const struct {
        const char *key;
        unsigned int id;
    } cases[] = {{"12Ph1DC1", 12},
                 {"12Ph2DC1", 12},
                 {"12Ph3DC1", 12},
                 {"12", 12},
                 {"0", 0},
                 {"1Ph1DC1", 1},
                 {"4294967295Ph3DC1", 4294967295u},
                 {"4294967295", 4294967295u}};
    for (const auto &c : cases) {
        unsigned int id = 77;
        EXPECT_TRUE(tree->ExtractProfileID(c.key, id)) << c.key;
        EXPECT_EQ(id, c.id) << c.key;
    }
    ExpectNothingLogged();
}

TEST_F(ProfileIdTest, FailsForAnythingElseAndIsThen0)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const struct {
        const char *key, *kept;
    } cases[] = {{"Ph1DC1", ""},
                 {"Ph2DC1", ""},
                 {"Ph3DC1", ""},
                 {"", ""},
                 {"x12", "x12"},
                 {"12x", "12x"},
                 {"12Ph4DC1", "12Ph4DC1"},
                 {"12ph1dc1", "12ph1dc1"},
                 {"12Ph1DC1 ", "12Ph1DC1 "},
                 {"12Ph1DC1Ph2DC1", "12Ph1DC1"},
                 {"-1", "-1"},
                 {"+12", "+12"},
                 {" 12", " 12"},
                 {"12 Ph1DC1", "12 "},
                 {"0x10", "0x10"},
                 {"1.5", "1.5"},
                 {"4294967296", "4294967296"},
                 {"99999999999999999999Ph1DC1", "99999999999999999999"},
                 {"%n%sPh1DC1", "%n%s"},
                 {"\xD9\xA1\xD9\xA2", "\xD9\xA1\xD9\xA2"}}; // digits of another script
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        unsigned int id = 77;
        EXPECT_FALSE(tree->ExtractProfileID(c.key, id));
        EXPECT_EQ(id, 0u);
        ExpectLogged({TreeMessage("ExtractProfileID() Failed: key = " + std::string(c.kept) +
                                  ", ID = 0\n")});
    }
    unsigned int id = 77;
    EXPECT_FALSE(tree->ExtractProfileID(DMString(), id));
    EXPECT_EQ(id, 0u);
    ExpectLogged({TreeMessage("ExtractProfileID() Failed: key = , ID = 0\n")});
}

// ---- The vectors behind the map --------------------------------------------------------------

class MapVectorsTest : public PluginTest {};

TEST_F(MapVectorsTest, PuttingAnExistingNameReplacesAndFreesWhatItHad)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe probe(*tree);
    probe.Put("Office", "1Ph1DC1", "G");
    probe.Put("Home", "2Ph1DC1", "G");
    const std::size_t blocks = dmnative_control::LiveBlocks();
    probe.Put("Office", "3Ph2DC1", "C");
    EXPECT_EQ(probe.Mapped(), (Mapping{{"Office", "3Ph2DC1 C"}, {"Home", "2Ph1DC1 G"}}));
    EXPECT_EQ(dmnative_control::LiveBlocks(), blocks) << "one ID key came and one went";
}

TEST_F(MapVectorsTest, GrowsInFoursFromTheEnginesMemory)
{
    TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe probe(*tree);
    for (int count = 1; count <= 9; ++count) {
        probe.Put(std::to_string(count).c_str(), "1");
        const int capacity = (count + 3) / 4 * 4;
        EXPECT_EQ(probe.map.keys().capacity(), capacity);
        EXPECT_EQ(probe.map.values().capacity(), capacity);
    }
    EXPECT_EQ(dmnative_control::LiveBlocks("dmvector", 394), 2u);
    tree.reset();
    EXPECT_EQ(dmnative_control::LiveBlocks("dmvector", 394), 0u);
}

TEST_F(MapVectorsTest, AKeyIsTakenBackWhenItsRecordHasNoRoom)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    PluginTreeProbe probe(*tree);
    for (int vector = 1; vector <= 2; ++vector) { // keys, then values
        handset.faults.Clear();
        handset.faults.Fail("dmvector:394", vector);
        EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
        EXPECT_EQ(handset.faults.Fired(), 1);
        EXPECT_EQ(probe.map.keys().size(), 0);
        EXPECT_EQ(probe.map.values().size(), 0);
    }
}

/// Changes the map and a plain list of pairs alike and compares them after each step.
void CompareWithPlainList(ProfileMap &map, std::mt19937 &random)
{
    std::vector<std::pair<std::string, std::string>> list; // node name, ID key
    for (int step = 0; step < 4000; ++step) {
        const std::string name = "Node " + std::to_string(random() % 24);
        const auto place = std::find_if(list.begin(), list.end(),
                                        [&name](const auto &pair) { return pair.first == name; });
        const int expected = place == list.end() ? -1 : static_cast<int>(place - list.begin());
        ASSERT_EQ(map.find(name.c_str()), expected) << "step " << step;
        if (random() % 3 != 0) {
            const std::string key = std::to_string(step);
            if (expected < 0)
                list.emplace_back(name, key);
            else
                place->second = key;
            map.put(name.c_str(), NewInfo(key.c_str()));
        } else if (expected >= 0) {
            EXPECT_EQ(map.remove(expected)->sProfileID, place->second.c_str()) << "step " << step;
            list.erase(place);
        }
        ASSERT_EQ(map.size(), static_cast<int>(list.size())) << "step " << step;
        for (int i = 0; i < map.size(); ++i) {
            const auto &[node, key] = list[static_cast<std::size_t>(i)];
            ASSERT_STREQ(map.keys()[i].text(), node.c_str()) << "step " << step;
            ASSERT_STREQ(map.values()[i]->sProfileID.text(), key.c_str()) << "step " << step;
        }
    }
}

TEST_F(MapVectorsTest, AgreesWithAPlainListUnderAnySequenceOfChanges)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const TreePtr tree = NewTree(CONN_ROOT);
    CompareWithPlainList(PluginTreeProbe(*tree).map, random);
}

// ---- Loading the mapping file ----------------------------------------------------------------

class LoadMapTest : public PluginTest {
protected:
    /// A profile that the service knows.
    void Known(unsigned int id)
    {
        handset.napi.Store("Profile " + std::to_string(id), Record("internet"), id);
    }
    /// An entry that the fresh file of a mount holds.
    void Entry(const std::string &key, const std::string &nodeName)
    {
        handset.settings.unlinkKeepsFiles = true;
        handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, key, nodeName);
    }
    void ProxyEntry(const std::string &key, const std::string &nodeName)
    {
        handset.settings.unlinkKeepsFiles = true;
        handset.settings.Preload(PROXY_FILE, PROXY_GROUP, key, nodeName);
    }
    void ConnEntry(const std::string &key, const std::string &value)
    {
        handset.settings.unlinkKeepsFiles = true;
        handset.settings.Preload(PROXY_FILE, CONN_GROUP, key, value);
    }

    void SetUp() override
    {
        PluginTest::SetUp();
        napdef = NewTree(CONN_ROOT);
        proxy = NewTree(INTPROFS_ROOT);
    }
    void TearDown() override
    {
        napdef.reset();
        proxy.reset();
        PluginTest::TearDown();
    }

    TreePtr napdef;
    TreePtr proxy;
};

TEST_F(LoadMapTest, OpensAFreshNapdefFile)
{
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Take(), OPEN_NAPDEF);
    EXPECT_NE(PluginTreeProbe(*napdef).settings, nullptr);
    EXPECT_FALSE(handset.settings.HasFile(NAPDEF_FILE))
        << "there is no file before the first flush";
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, OpensAFreshProxyFileAndLooksAtItsReferences)
{
    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Take(), Then(OPEN_PROXY, {"getEntryKeyList(proxy, \"PROXY_Conn\")"}));
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, TheFileNameIsAppendedToTheDirectoryAsItIs)
{
    handset.settings.directory = "/settings/sub-";
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Only({"unlink", "SETUP_SET_Manager"}),
              (Lines{"unlink(\"/settings/sub-kub_napdef_profilemapping.cfg\")",
                     "SETUP_SET_Manager(\"/settings/sub-kub_napdef_profilemapping.cfg\")"}));
}

TEST_F(LoadMapTest, ADirectoryWithNonAsciiCharactersIsUnlinkedInItsFileEncoding)
{
    handset.settings.directory = "/settings/Einstellungen für/";
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Only({"unlink"}),
              (Lines{"unlink(\"/settings/Einstellungen für/kub_napdef_profilemapping.cfg\")"}));
}

TEST_F(LoadMapTest, DiscardsWhatAnEarlierMountLeft)
{
    Known(5);
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Old name");
    handset.settings.Preload(PROXY_FILE, PROXY_GROUP, "5", "Old name");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_FALSE(handset.settings.HasFile(NAPDEF_FILE));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), Mapping{});
    EXPECT_TRUE(handset.settings.HasFile(PROXY_FILE)) << "the other kind's file stays";
}

TEST_F(LoadMapTest, AFileThatCannotBeUnlinkedIsNoError)
{
    handset.faults.Fail("unlink");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, TheSecondLoadOfATreeKeepsItsOpenFile)
{
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    handset.journal.Clear();
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Take(), (Lines{"getEntryKeyList(napdef, \"NAPIDEF_Profile\")"}));
}

TEST_F(LoadMapTest, FailsWithoutMemoryForTheSettingsManager)
{
    handset.faults.Fail("new");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 1);
    ExpectLogged({TreeMessage("Leave: LoadProfileMapCfgFile! new SETUP_SET_Manager failed!\n")});
    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{"getSettingDirectory()", "unlink(\"/settings/kub_napdef_profilemapping.cfg\")"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).settings, nullptr);
}

TEST_F(LoadMapTest, KeepsKnownProfilesInTheOrderOfTheirKeys)
{
    Known(5);
    Known(10);
    Known(7);
    Entry("5Ph1DC1", "Five");
    Entry("10Ph2DC1", "Ten");
    Entry("7Ph3DC1", "Seven");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(handset.journal.Take(),
              Then(OPEN_NAPDEF, {"NAPI_GetProfileNameByID(10)", "NAPI_GetProfileNameByID(5)",
                                 "NAPI_GetProfileNameByID(7)"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(),
              (Mapping{{"Ten", "10Ph2DC1 C"}, {"Five", "5Ph1DC1 G"}, {"Seven", "7Ph3DC1 2"}}));
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, ABareNumberKeyIsKeptWithoutABearer)
{
    Known(7);
    Entry("7", "Seven");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"Seven", "7"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), (Entries{{"7", "Seven"}}));
    ExpectLogged({TreeMessage("error format\n")});
}

TEST_F(LoadMapTest, AKeyWithoutANumberIsRemovedAndFlushed)
{
    Known(5);
    Entry("4xPh1DC1", "Rubbish");
    Entry("5Ph1DC1", "Five");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(handset.journal.Take(),
              Then(OPEN_NAPDEF, {"removeEntry(napdef, \"NAPIDEF_Profile\", \"4xPh1DC1\")",
                                 "flush(napdef)", "NAPI_GetProfileNameByID(5)"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"Five", "5Ph1DC1 G"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), (Entries{{"5Ph1DC1", "Five"}}));
    ExpectLogged({TreeMessage("ExtractProfileID() Failed: key = 4x, ID = 0\n")});
}

TEST_F(LoadMapTest, AnEntryWhoseProfileIsGoneIsRemovedAndFlushed)
{
    Entry("5Ph1DC1", "Gone");
    Entry("6Ph1DC1", "Gone too");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(
        handset.journal.Take(),
        Then(OPEN_NAPDEF,
             {"NAPI_GetProfileNameByID(5)", "removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
              "flush(napdef)", "NAPI_GetProfileNameByID(6)",
              "removeEntry(napdef, \"NAPIDEF_Profile\", \"6Ph1DC1\")", "flush(napdef)"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), Mapping{});
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), Entries{});
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, OfTwoEntriesWithOneNodeNameTheSmallerKeyIsKept)
{
    Known(5);
    Known(6);
    Entry("5Ph1DC1", "Office");
    Entry("6Ph2DC1", "Office");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(handset.journal.Take(),
              Then(OPEN_NAPDEF,
                   {"NAPI_GetProfileNameByID(5)", "NAPI_GetProfileNameByID(6)",
                    "removeEntry(napdef, \"NAPIDEF_Profile\", \"6Ph2DC1\")", "flush(napdef)"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"Office", "5Ph1DC1 G"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(LoadMapTest, AStaleEntryThatCannotBeRemovedIsReportedAndLeft)
{
    Known(6);
    Entry("5Ph1DC1", "Gone");
    Entry("6Ph1DC1", "Six");
    handset.faults.Fail("removeEntry");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);

    ExpectLogged({REMOVE_FAILED});
    EXPECT_EQ(handset.journal.Take(),
              Then(OPEN_NAPDEF, {"NAPI_GetProfileNameByID(5)",
                                 "removeEntry(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                                 "flush(napdef)", "NAPI_GetProfileNameByID(6)"}));
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"Six", "6Ph1DC1 G"}}));
}

TEST_F(LoadMapTest, AFailedFlushEndsTheLoadAndKeepsWhatWasMappedSoFar)
{
    Known(1);
    Known(3);
    Entry("1Ph1DC1", "One");
    Entry("2Ph1DC1", "Gone");
    Entry("3Ph1DC1", "Three");
    handset.faults.Fail("flush");

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 1);

    ExpectLogged({LOAD_FLUSH_FAILED});
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"One", "1Ph1DC1 G"}}));
    EXPECT_EQ(handset.journal.Take().back(), "flush(napdef)");
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"1Ph1DC1", "One"}, {"3Ph1DC1", "Three"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP).size(), 3u);
}

TEST_F(LoadMapTest, FailsWithoutMemoryForARecord)
{
    Known(1);
    Known(2);
    Entry("1Ph1DC1", "One");
    Entry("2Ph1DC1", "Two");
    handset.faults.Fail("new", 3); // the first is the settings manager

    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 1);

    ExpectLogged({TreeMessage("Leave: LoadProfilesinDB :  Allocate memory  failed\n")});
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"One", "1Ph1DC1 G"}}));
}

TEST_F(LoadMapTest, NodeNamesOfTheFileAreUtf8)
{
    Known(5);
    Entry("5Ph1DC1", "Büro");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(PluginTreeProbe(*napdef).Mapped(), (Mapping{{"Büro", "5Ph1DC1 G"}}));
}

TEST_F(LoadMapTest, AProxyEntryTakesItsBearersFromTheNapdefFile)
{
    Known(5);
    ProxyEntry("5", "Office");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Any name");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph3DC1", "");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "6Ph2DC1", "Other");

    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(
        handset.journal.Take(),
        Then(OPEN_PROXY, {"NAPI_GetProfileNameByID(5)", "getSettingDirectory()",
                          "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                          "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                          "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph2DC1\")",
                          "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph3DC1\")",
                          "~SETUP_SET_Manager(napdef)", "getEntryKeyList(proxy, \"PROXY_Conn\")"}));
    EXPECT_EQ(PluginTreeProbe(*proxy).Mapped(), (Mapping{{"Office", "5 G2"}}));
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, AConnectionReferenceOfAnUnmappedNodeIsRemovedAndFlushed)
{
    Known(5);
    ProxyEntry("5", "Office");
    ConnEntry("Gone/Ph2", "Home");
    ConnEntry("Office/Ph1", "Home");
    ConnEntry("abc", "too short for a suffix");

    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(handset.journal.Only({"removeEntry", "flush"}),
              (Lines{"removeEntry(proxy, \"PROXY_Conn\", \"Gone/Ph2\")", "flush(proxy)",
                     "removeEntry(proxy, \"PROXY_Conn\", \"abc\")", "flush(proxy)"}));
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, CONN_GROUP), (Entries{{"Office/Ph1", "Home"}}));
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, AConnectionReferenceThatCannotBeRemovedIsNotReported)
{
    ConnEntry("Gone/Ph2", "Home");
    handset.faults.Fail("removeEntry");
    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Take().back(), "flush(proxy)");
    ExpectNothingLogged();
}

TEST_F(LoadMapTest, AFailedFlushAfterAConnectionReferenceEndsTheLoad)
{
    ConnEntry("Gone/Ph1", "Home");
    ConnEntry("Gone/Ph2", "Home");
    handset.faults.Fail("flush");
    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 1);
    ExpectLogged({LOAD_FLUSH_FAILED});
    EXPECT_EQ(handset.journal.Only({"removeEntry"}),
              (Lines{"removeEntry(proxy, \"PROXY_Conn\", \"Gone/Ph1\")"}));
}

TEST_F(LoadMapTest, KeysOfConnectionReferencesAreTheNodeNamesBytesAsLatin1)
{
    Known(5);
    ProxyEntry("5", "Büro");
    ConnEntry("B\u00C3\u00BCro/Ph1", "Home"); // the two bytes of the letter, each a character
    ConnEntry("Büro/Ph2", "Home");

    EXPECT_EQ(proxy->LoadProfileMapCfgFile(), 0);

    EXPECT_EQ(PluginTreeProbe(*proxy).Mapped(), (Mapping{{"Büro", "5"}}));
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, CONN_GROUP),
              (Entries{{"B\u00C3\u00BCro/Ph1", "Home"}}));
}

TEST_F(LoadMapTest, TheNapdefKindDoesNotLookAtConnectionReferences)
{
    handset.settings.unlinkKeepsFiles = true;
    handset.settings.Preload(NAPDEF_FILE, CONN_GROUP, "Gone/Ph1", "Home");
    EXPECT_EQ(napdef->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(handset.journal.Take(), OPEN_NAPDEF);
}

// ---- Inserting ---------------------------------------------------------------------------------

/// Both insertions, on a tree of the NAPDEF kind with an open, empty file.
class InsertTest : public PluginTest {
protected:
    void SetUp() override
    {
        PluginTest::SetUp();
        tree = NewTree(CONN_ROOT);
        ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
        handset.journal.Clear();
        handset.log.Take();
    }
    void TearDown() override
    {
        tree.reset();
        PluginTest::TearDown();
    }

    /// What the tree's manager has in memory for the key before the test.
    void InFile(const char *key, const char *value)
    {
        PluginTreeProbe(*tree).settings->setSettingInfo(QString::fromLatin1(NAPDEF_GROUP),
                                                        QString::fromLatin1(key),
                                                        QString::fromLatin1(value), false);
        handset.journal.Clear();
    }

    TreePtr tree;
};

const Lines WRITE_OFFICE{"getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                         "setSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\", \"Office\")",
                         "flush(napdef)"};

TEST_F(InsertTest, PutWritesTheFileThenMapsTheNode)
{
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(), WRITE_OFFICE);
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP), (Entries{{"5Ph1DC1", "Office"}}));
    ExpectNothingLogged();
}

TEST_F(InsertTest, PutOfAMappedNameChangesNothingAndSucceeds)
{
    ASSERT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    handset.journal.Clear();

    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph2DC1")), 0);

    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
    ExpectNothingLogged();
}

TEST_F(InsertTest, PutLeavesAFileEntryThatHasANameAsItIs)
{
    InFile("5Ph1DC1", "Earlier");
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")"}));
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Earlier"}}));
}

TEST_F(InsertTest, PutFillsAFileEntryThatIsEmpty)
{
    InFile("5Ph1DC1", "");
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(), WRITE_OFFICE);
}

TEST_F(InsertTest, PutFailsWhenTheEntryCannotBeSet)
{
    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 1);
    ExpectLogged({TreeMessage("Leave: PutProfileMap! setSettingInfo failed\n")});
    EXPECT_EQ(handset.journal.Only({"flush"}), Lines{});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), Mapping{});
}

TEST_F(InsertTest, PutFailsWhenTheFileCannotBeFlushed)
{
    handset.faults.Fail("flush");
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 1);
    ExpectLogged({TreeMessage("Leave: PutProfileMap! flush  failed\n")});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), Mapping{});
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Office"}}));
    EXPECT_FALSE(handset.settings.HasFile(NAPDEF_FILE));
}

TEST_F(InsertTest, WithoutAnOpenFileOnlyTheMemoryChanges)
{
    const TreePtr bare = NewTree(CONN_ROOT);
    EXPECT_EQ(bare->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(bare->AddProfileMap("Home", NewInfo("6Ph1DC1")), 0);
    EXPECT_EQ(PluginTreeProbe(*bare).Mapped(),
              (Mapping{{"Office", "5Ph1DC1"}, {"Home", "6Ph1DC1"}}));
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(InsertTest, NodeNamesGoToTheFileAsUtf8)
{
    EXPECT_EQ(tree->PutProfileMap("Büro", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(tree->AddProfileMap("Žabka", NewInfo("6Ph1DC1")), 0);
    EXPECT_EQ(handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Büro"}, {"6Ph1DC1", "Žabka"}}));
}

TEST_F(InsertTest, TheProxyKindUsesItsOwnGroupAndFile)
{
    const TreePtr proxy = NewTree(INTPROFS_ROOT);
    ASSERT_EQ(proxy->LoadProfileMapCfgFile(), 0);
    EXPECT_EQ(proxy->PutProfileMap("Office", NewInfo("5")), 0);
    EXPECT_EQ(proxy->AddProfileMap("Home", NewInfo("6")), 0);
    EXPECT_EQ(handset.settings.OnDisk(PROXY_FILE, PROXY_GROUP),
              (Entries{{"5", "Office"}, {"6", "Home"}}));
    EXPECT_FALSE(handset.settings.HasFile(NAPDEF_FILE));
}

TEST_F(InsertTest, AddWritesTheFileThenMapsTheNode)
{
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(), WRITE_OFFICE);
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
    ExpectNothingLogged();
}

TEST_F(InsertTest, AddRefusesAMappedName)
{
    ASSERT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    handset.journal.Clear();
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("6Ph1DC1")), 1);
    ExpectLogged({TreeMessage(
        "Leave: AddProfileMap fail! Node named Office has exist in m_ProfileMaps!\n")});
    EXPECT_EQ(handset.journal.Take(), Lines{});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), (Mapping{{"Office", "5Ph1DC1"}}));
}

TEST_F(InsertTest, AddRefusesAnIdKeyThatHasANodeName)
{
    InFile("5Ph1DC1", "Earlier");
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 1);
    ExpectLogged({TreeMessage("??? Leave: AddProfileMap:setSettingInfo  Failed, the entry of "
                              "profileid+suffix has exist\n")});
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")"}));
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), Mapping{});
}

TEST_F(InsertTest, AddRefusesAnIdKeyEvenWhenItHasTheVeryName)
{
    InFile("5Ph1DC1", "Office");
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 1);
}

TEST_F(InsertTest, AddTakesAnIdKeyWhoseNameIsEmpty)
{
    InFile("5Ph1DC1", "");
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(), WRITE_OFFICE);
}

TEST_F(InsertTest, AddFailsWhenTheEntryCannotBeSet)
{
    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 1);
    ExpectLogged({TreeMessage("Leave: AddProfileMap:setSettingInfo  Failed\n")});
    EXPECT_EQ(handset.journal.Only({"flush"}), Lines{});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), Mapping{});
}

TEST_F(InsertTest, AddFailsWhenTheFileCannotBeFlushed)
{
    handset.faults.Fail("flush");
    EXPECT_EQ(tree->AddProfileMap("Office", NewInfo("5Ph1DC1")), 1);
    ExpectLogged({TreeMessage("Leave: AddProfileMap:flush  Failed\n")});
    EXPECT_EQ(PluginTreeProbe(*tree).Mapped(), Mapping{});
    EXPECT_EQ(handset.settings.InMemory(NAPDEF_FILE, NAPDEF_GROUP),
              (Entries{{"5Ph1DC1", "Office"}}));
}

TEST_F(InsertTest, AnEntryThatCannotBeReadCountsAsAbsent)
{
    handset.faults.Fail("getSettingInfo");
    EXPECT_EQ(tree->PutProfileMap("Office", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(handset.journal.Take(), WRITE_OFFICE);
}

TEST_F(InsertTest, NamesThatLookLikeFormatsAreOnlyText)
{
    ASSERT_EQ(tree->AddProfileMap("%s%n%99999d", NewInfo("5Ph1DC1")), 0);
    EXPECT_EQ(tree->AddProfileMap("%s%n%99999d", NewInfo("6Ph1DC1")), 1);
    ExpectLogged({TreeMessage(
        "Leave: AddProfileMap fail! Node named %s%n%99999d has exist in m_ProfileMaps!\n")});
}

} // namespace
