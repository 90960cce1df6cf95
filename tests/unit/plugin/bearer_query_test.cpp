// Questions about a profile: its bearers in the record and in the NAPDEF mapping file, and the node
// that it has there.
#include "plugin_test.h"

#include <cstring>

namespace {

using namespace doubles;

// ---- Bearers of a record -----------------------------------------------------------------------

class RecordBearerTest : public PluginTest {};

TEST_F(RecordBearerTest, APartExistsWhenItsAddressIsNotEmpty)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    for (int parts = 0; parts < 8; ++parts) {
        const NAP_PROFILE_S record =
            Record(parts & 1 ? "a" : "", parts & 2 ? "b" : "", parts & 4 ? "c" : "");
        EXPECT_EQ(tree->IsGPRS(&record), (parts & 1) != 0) << parts;
        EXPECT_EQ(tree->IsCSD(&record), (parts & 2) != 0) << parts;
        EXPECT_EQ(tree->IsCSD2(&record), (parts & 4) != 0) << parts;
    }
    ExpectNothingLogged();
    EXPECT_EQ(handset.journal.Lines(), Lines{});
}

TEST_F(RecordBearerTest, NothingButTheFirstByteOfTheAddressCounts)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    NAP_PROFILE_S record;
    std::memset(&record, 0xFF, sizeof record);
    for (const std::size_t address : {0x008u, 0x17Du, 0x23Cu})
        reinterpret_cast<unsigned char *>(&record)[address] = 0;
    EXPECT_FALSE(tree->IsGPRS(&record));
    EXPECT_FALSE(tree->IsCSD(&record));
    EXPECT_FALSE(tree->IsCSD2(&record));

    std::memset(&record, 0, sizeof record);
    for (const std::size_t address : {0x008u, 0x17Du, 0x23Cu})
        reinterpret_cast<unsigned char *>(&record)[address] = 0x80;
    EXPECT_TRUE(tree->IsGPRS(&record));
    EXPECT_TRUE(tree->IsCSD(&record));
    EXPECT_TRUE(tree->IsCSD2(&record));
}

TEST_F(RecordBearerTest, AnAddressThatFillsItsArrayIsReadWithinTheRecord)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    NAP_PROFILE_S record;
    std::memset(&record, 'x', sizeof record); // no terminator anywhere
    EXPECT_TRUE(tree->IsGPRS(&record));
    EXPECT_TRUE(tree->IsCSD(&record));
    EXPECT_TRUE(tree->IsCSD2(&record));
}

// ---- Bearers in the NAPDEF file ----------------------------------------------------------------

class NapdefBearerTest : public PluginTest {
protected:
    /// The flags of a fresh record of that ID after the query, as G, C and 2.
    std::string Bearers(const TreePtr &tree, const char *id)
    {
        ProfileInfo info;
        info.sProfileID = id;
        tree->GetBearFromNapCfg(&info);
        return Flags(info);
    }
    static std::string Flags(const ProfileInfo &info)
    {
        return std::string(info.bIsGPRS ? "G" : "") + (info.bIsCSD ? "C" : "") +
               (info.bIsCSD2 ? "2" : "");
    }
};

TEST_F(NapdefBearerTest, AreTheKeysThatTheFileHasForTheId)
{
    for (int keys = 0; keys < 8; ++keys) {
        handset.settings.disk.clear();
        handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "50Ph1DC1", "Another profile");
        for (int bearer = 0; bearer < 3; ++bearer)
            if (keys & (1 << bearer))
                handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP,
                                         "5Ph" + std::to_string(bearer + 1) + "DC1", "Office");
        const std::string expected =
            std::string(keys & 1 ? "G" : "") + (keys & 2 ? "C" : "") + (keys & 4 ? "2" : "");
        EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), expected);
    }
}

TEST_F(NapdefBearerTest, AreReadThroughAManagerOfTheirOwnWhateverTheKind)
{
    for (const char *const root : {CONN_ROOT, INTPROFS_ROOT}) {
        const TreePtr tree = LoadTree(root);
        Bearers(tree, "5");
        EXPECT_EQ(handset.journal.Take(),
                  (Lines{"getSettingDirectory()",
                         "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                         "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph1DC1\")",
                         "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph2DC1\")",
                         "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"5Ph3DC1\")",
                         "~SETUP_SET_Manager(napdef)"}));
        ExpectNothingLogged();
    }
}

TEST_F(NapdefBearerTest, AnEntryWithoutAValueCounts)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph3DC1", "");
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "2");
}

TEST_F(NapdefBearerTest, AreNoneWithoutAFileOrGroup)
{
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "");
    handset.settings.Preload(NAPDEF_FILE, "Some other group", "5Ph1DC1", "Office");
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "");
}

TEST_F(NapdefBearerTest, SeeOnlyWhatIsOnTheDisk)
{
    const TreePtr napdef = LoadTree(CONN_ROOT);
    PluginTreeProbe(*napdef).settings->setSettingInfo(
        QString::fromLatin1(NAPDEF_GROUP), QStringLiteral("5Ph1DC1"), QStringLiteral("x"), false);
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "");
    PluginTreeProbe(*napdef).settings->flush();
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "G");
}

TEST_F(NapdefBearerTest, AreOnlyEverAdded)
{
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    ProfileInfo info;
    info.sProfileID = "5";
    info.bIsCSD = true;
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Office");
    tree->GetBearFromNapCfg(&info);
    EXPECT_EQ(Flags(info), "GC");
    handset.settings.disk.clear();
    tree->GetBearFromNapCfg(&info);
    EXPECT_EQ(Flags(info), "GC");
}

TEST_F(NapdefBearerTest, ANullRecordAsksNothing)
{
    const TreePtr tree = NewTree(INTPROFS_ROOT);
    tree->GetBearFromNapCfg(nullptr);
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

TEST_F(NapdefBearerTest, AnEmptyIdIsTheEmptyText)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "Ph2DC1", "Office");
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), nullptr), "C");
}

TEST_F(NapdefBearerTest, AreNoneWithoutMemoryForTheManager)
{
    handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, "5Ph1DC1", "Office");
    handset.faults.Fail("new");
    EXPECT_EQ(Bearers(NewTree(INTPROFS_ROOT), "5"), "");
    EXPECT_EQ(handset.faults.Fired(), 1);
}

// ---- Node in the NAPDEF file ---------------------------------------------------------------------

class NapdefNameTest : public PluginTest {
protected:
    std::string NapdefName(const char *id, const char *phName)
    {
        const DMString profileId(id);
        DMString name("as it was");
        NewTree(INTPROFS_ROOT)->GetNapdefName(&profileId, phName, name);
        return name.text();
    }
    void Entry(const std::string &key, const std::string &nodeName)
    {
        handset.settings.Preload(NAPDEF_FILE, NAPDEF_GROUP, key, nodeName);
    }
};

TEST_F(NapdefNameTest, IsTheEntryOfTheIdWithTheSlotsBearer)
{
    Entry("5Ph1DC1", "Packet");
    Entry("5Ph2DC1", "Switched");
    Entry("5Ph3DC1", "Switched too");
    Entry("5", "Bare");
    EXPECT_EQ(NapdefName("5", "Ph1"), "Packet");
    EXPECT_EQ(NapdefName("5", "Ph2"), "Switched");
    EXPECT_EQ(NapdefName("5", "Ph3"), "Switched too");
    EXPECT_EQ(NapdefName("5", "Ph4"), "Bare");
    EXPECT_EQ(NapdefName("5", ""), "Bare");
    EXPECT_EQ(NapdefName("5", "ph1"), "Bare");
}

TEST_F(NapdefNameTest, IsReadThroughAManagerOfItsOwn)
{
    const struct {
        const char *phName, *key;
    } cases[] = {{"Ph1", "5Ph1DC1"}, {"Ph2", "5Ph2DC1"}, {"Ph3", "5Ph3DC1"}, {"Ph4", "5"}};
    for (const auto &c : cases) {
        NapdefName("5", c.phName);
        EXPECT_EQ(
            handset.journal.Take(),
            (Lines{"getSettingDirectory()",
                   "SETUP_SET_Manager(\"/settings/kub_napdef_profilemapping.cfg\")",
                   "getSettingInfo(napdef, \"NAPIDEF_Profile\", \"" + std::string(c.key) + "\")",
                   "~SETUP_SET_Manager(napdef)"}));
    }
    ExpectNothingLogged();
}

TEST_F(NapdefNameTest, IsEmptyWithoutAnEntry)
{
    EXPECT_EQ(NapdefName("5", "Ph1"), "");
    Entry("5Ph1DC1", "");
    EXPECT_EQ(NapdefName("5", "Ph1"), "");
}

TEST_F(NapdefNameTest, IsEmptyWithoutMemoryForTheManager)
{
    Entry("5Ph1DC1", "Packet");
    handset.faults.Fail("new");
    EXPECT_EQ(NapdefName("5", "Ph1"), "");
    EXPECT_EQ(handset.faults.Fired(), 1);
}

TEST_F(NapdefNameTest, IsUtf8)
{
    Entry("5Ph1DC1", "همراه اول");
    EXPECT_EQ(NapdefName("5", "Ph1"), "همراه اول");
}

TEST_F(NapdefNameTest, ANullIdAsksNothing)
{
    DMString name("as it was");
    NewTree(INTPROFS_ROOT)->GetNapdefName(nullptr, "Ph1", name);
    EXPECT_STREQ(name.text(), "as it was");
    EXPECT_EQ(handset.journal.Take(), Lines{});
}

} // namespace
