// The NAPDEF node that each slot of a proxy refers to.
#include "plugin_test.h"

namespace {

using namespace doubles;

class ConnectionReferenceTest : public PluginTest {
protected:
    void SetUp() override
    {
        PluginTest::SetUp();
        tree = NewTree(INTPROFS_ROOT);
        ASSERT_EQ(tree->LoadProfileMapCfgFile(), 0);
        handset.journal.Clear();
        handset.log.Take();
    }
    void TearDown() override
    {
        tree.reset();
        PluginTest::TearDown();
    }

    /// A record of profile 5 with these bearers.
    static ProfileInfo Info(const std::string &flags)
    {
        ProfileInfo info;
        info.sProfileID = "5";
        info.bIsGPRS = flags.find('G') != std::string::npos;
        info.bIsCSD = flags.find('C') != std::string::npos;
        info.bIsCSD2 = flags.find('2') != std::string::npos;
        return info;
    }
    void StoreReference(const char *key, const char *value)
    {
        SETUP_SET_Manager &settings = *PluginTreeProbe(*tree).settings;
        settings.setSettingInfo(QString::fromLatin1(CONN_GROUP), QString::fromUtf8(key),
                                QString::fromUtf8(value), false);
        handset.journal.Clear();
    }
    Entries References() const { return handset.settings.OnDisk(PROXY_FILE, CONN_GROUP); }

    TreePtr tree;
};

const Lines ASK_NAPDEF_PH1{
    "getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph1\")", "getSettingDirectory()",
    "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
    "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")", "~SETUP_SET_Manager(napdef)"};

TEST_F(ConnectionReferenceTest, AStoredValueWinsWhateverTheBearers)
{
    StoreReference("Office/Ph2", "Home");
    const ProfileInfo info = Info("");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Office", "Ph2", value), ConnDefault::NotStored);
    EXPECT_STREQ(value.text(), "Home");
    EXPECT_EQ(handset.journal.Take(),
              (Lines{"getSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph2\")"}));
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, ABearerThatTheProfileLacksHasNoReference)
{
    const struct {
        const char *ph, *flags;
    } cases[] = {{"Ph1", "C2"},  {"Ph2", "G2"},  {"Ph3", "GC"}, {"Ph1", ""},
                 {"Ph4", "GC2"}, {"ph1", "GC2"}, {"", "GC2"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ph);
        const ProfileInfo info = Info(c.flags);
        DMString value("old");
        EXPECT_EQ(tree->GetConnValue(&info, "Office", c.ph, value), ConnDefault::NotStored);
        EXPECT_STREQ(value.text(), "");
        ExpectLogged({TreeMessage("Leave: GetConnValue(), the Conn of  " + std::string(c.ph) +
                                  " has no related fields\n")});
        EXPECT_EQ(handset.journal.Take(), (Lines{"getSettingInfo(proxy, \"PROXY_Conn\", \"Office/" +
                                                 std::string(c.ph) + "\")"}));
    }
    EXPECT_EQ(References(), Entries{});
}

TEST_F(ConnectionReferenceTest, TheDefaultIsTheNapdefNodeOfTheSameProfileAndBearer)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Internet");
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Office", "Ph1", value), ConnDefault::Stored);
    EXPECT_STREQ(value.text(), "Internet");
    Lines expected = ASK_NAPDEF_PH1;
    expected.push_back("setSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph1\", \"Internet\")");
    expected.push_back("flush(proxy)");
    EXPECT_EQ(handset.journal.Take(), expected);
    EXPECT_EQ(References(), (Entries{{"Office/Ph1", "Internet"}}));
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, TheDefaultIsTheProxysOwnNameWithoutANapdefEntry)
{
    for (const bool emptyEntry : {false, true}) {
        if (emptyEntry)
            handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "");
        const ProfileInfo info = Info("G");
        DMString value;
        EXPECT_EQ(tree->GetConnValue(&info, emptyEntry ? "Work" : "Office", "Ph1", value),
                  ConnDefault::Stored);
        EXPECT_STREQ(value.text(), emptyEntry ? "Work" : "Office");
    }
    EXPECT_EQ(References(), (Entries{{"Office/Ph1", "Office"}, {"Work/Ph1", "Work"}}));
}

TEST_F(ConnectionReferenceTest, EachSlotAsksForItsOwnBearer)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "One");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph2DC1", "Two");
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph3DC1", "Three");
    const ProfileInfo info = Info("GC2");
    for (const auto &[ph, expected] :
         {std::pair{"Ph1", "One"}, std::pair{"Ph2", "Two"}, std::pair{"Ph3", "Three"}}) {
        DMString value;
        EXPECT_EQ(tree->GetConnValue(&info, "Office", ph, value), ConnDefault::Stored);
        EXPECT_STREQ(value.text(), expected);
    }
    EXPECT_EQ(References(),
              (Entries{{"Office/Ph1", "One"}, {"Office/Ph2", "Two"}, {"Office/Ph3", "Three"}}));
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, AStoredEmptyValueIsReplacedByTheDefault)
{
    StoreReference("Office/Ph1", "");
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Office", "Ph1", value), ConnDefault::Stored);
    EXPECT_EQ(References(), (Entries{{"Office/Ph1", "Office"}}));
}

TEST_F(ConnectionReferenceTest, ADefaultThatCannotBeSetIsStillTheValue)
{
    handset.faults.Fail("setSettingInfo");
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Office", "Ph1", value), ConnDefault::NotStored);
    EXPECT_STREQ(value.text(), "Office");
    ExpectLogged({TreeMessage("Leave: SetConnValue! setSettingInfo failed!\n"),
                  TreeMessage("Leave: GetConnValue! SetConnValue failed\n")});
    EXPECT_EQ(handset.journal.Only({"flush"}), Lines{});
}

TEST_F(ConnectionReferenceTest, ADefaultThatCannotBeFlushedIsStillTheValue)
{
    handset.faults.Fail("flush");
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Office", "Ph1", value), ConnDefault::NotStored);
    EXPECT_STREQ(value.text(), "Office");
    ExpectLogged({TreeMessage("Leave: SetConnValue! flush  failed\n"),
                  TreeMessage("Leave: GetConnValue! SetConnValue failed\n")});
    EXPECT_EQ(handset.settings.InMemory(PROXY_FILE, CONN_GROUP),
              (Entries{{"Office/Ph1", "Office"}}));
    EXPECT_EQ(References(), Entries{});
}

TEST_F(ConnectionReferenceTest, WithoutAnOpenFileTheDefaultIsComputedAndNotKept)
{
    const TreePtr bare = NewTree(INTPROFS_ROOT);
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(bare->GetConnValue(&info, "Office", "Ph1", value), ConnDefault::Stored);
    EXPECT_STREQ(value.text(), "Office");
    EXPECT_EQ(handset.journal.Take(), Lines(ASK_NAPDEF_PH1.begin() + 1, ASK_NAPDEF_PH1.end()));
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, SettingWritesAndFlushes)
{
    EXPECT_EQ(tree->SetConnValue("Office", "Ph2", "Home"), 0);
    EXPECT_EQ(
        handset.journal.Take(),
        (Lines{"setSettingInfo(proxy, \"PROXY_Conn\", \"Office/Ph2\", \"Home\")", "flush(proxy)"}));
    EXPECT_EQ(References(), (Entries{{"Office/Ph2", "Home"}}));
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, SettingTakesAnyTextAndAnySlot)
{
    EXPECT_EQ(tree->SetConnValue("Office", "Ph9", "No such node"), 0);
    EXPECT_EQ(tree->SetConnValue("", "", ""), 0);
    EXPECT_EQ(tree->SetConnValue("Office", "Ph1", DMString()), 0);
    EXPECT_EQ(References(),
              (Entries{{"Office/Ph9", "No such node"}, {"/", ""}, {"Office/Ph1", ""}}));
}

TEST_F(ConnectionReferenceTest, ValuesAreUtf8AndKeysTheBytesAsLatin1)
{
    EXPECT_EQ(tree->SetConnValue("Büro", "Ph1", "移动彩信"), 0);
    EXPECT_EQ(References(), (Entries{{"BÃ¼ro/Ph1", "移动彩信"}}));
    const ProfileInfo info = Info("G");
    DMString value;
    EXPECT_EQ(tree->GetConnValue(&info, "Büro", "Ph1", value), ConnDefault::NotStored);
    EXPECT_STREQ(value.text(), "移动彩信");
}

TEST_F(ConnectionReferenceTest, SettingWithoutAnOpenFileIsAcceptedAndNotKept)
{
    const TreePtr bare = NewTree(INTPROFS_ROOT);
    EXPECT_EQ(bare->SetConnValue("Office", "Ph1", "Home"), 0);
    EXPECT_EQ(handset.journal.Take(), Lines{});
    ExpectNothingLogged();
}

TEST_F(ConnectionReferenceTest, SettingFailsWhenTheEntryCannotBeSet)
{
    handset.faults.Fail("setSettingInfo");
    EXPECT_EQ(tree->SetConnValue("Office", "Ph1", "Home"), 1);
    ExpectLogged({TreeMessage("Leave: SetConnValue! setSettingInfo failed!\n")});
    EXPECT_EQ(handset.journal.Only({"flush"}), Lines{});
}

TEST_F(ConnectionReferenceTest, SettingFailsWhenTheFileCannotBeFlushed)
{
    handset.faults.Fail("flush");
    EXPECT_EQ(tree->SetConnValue("Office", "Ph1", "Home"), 1);
    ExpectLogged({TreeMessage("Leave: SetConnValue! flush  failed\n")});
    EXPECT_EQ(handset.settings.InMemory(PROXY_FILE, CONN_GROUP), (Entries{{"Office/Ph1", "Home"}}));
}

} // namespace
