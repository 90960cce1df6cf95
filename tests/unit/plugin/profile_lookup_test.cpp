// Look-ups of mapped profiles by node name: the place that a name has, through every change of the
// map.
#include "plugin_test.h"

namespace {

using namespace doubles;

class ProfileLookupTest : public PluginTest {
protected:
    void TearDown() override
    {
        m_map.reset(); // the fixture looks for blocks that are left
        PluginTest::TearDown();
    }

    /// Every name must be found where it stands, and no other name at all.
    void ExpectNames(const Lines &names)
    {
        Lines found;
        for (const DMString &name : map.keys()) {
            EXPECT_EQ(map.find(name.text()), static_cast<int>(found.size())) << name.text();
            found.push_back(name.text());
        }
        EXPECT_EQ(found, names);
        EXPECT_EQ(map.size(), static_cast<int>(names.size()));
        EXPECT_EQ(map.keys().size(), map.values().size());
    }

    const char *KeyAt(int index) const { return map.values()[index]->sProfileID.text(); }

private:
    std::unique_ptr<ProfileMap> m_map = std::make_unique<ProfileMap>();

protected:
    ProfileMap &map = *m_map;
};

TEST_F(ProfileLookupTest, ANameIsFoundWhereItWasPut)
{
    EXPECT_EQ(map.find("Office"), -1);
    EXPECT_EQ(map.put("Office", NewInfo("1")), 0);
    EXPECT_EQ(map.put("Home", NewInfo("2")), 1);
    ExpectNames({"Office", "Home"});
    EXPECT_STREQ(KeyAt(0), "1");
    EXPECT_STREQ(KeyAt(1), "2");
    EXPECT_EQ(map.find("office"), -1);
    EXPECT_EQ(map.find(""), -1);
}

TEST_F(ProfileLookupTest, ANameThatIsThereKeepsItsPlaceAndGetsTheNewValue)
{
    map.put("Office", NewInfo("1"));
    map.put("Home", NewInfo("1"));
    EXPECT_EQ(map.put("Office", NewInfo("2")), 0);
    ExpectNames({"Office", "Home"});
    EXPECT_STREQ(KeyAt(0), "2");
}

TEST_F(ProfileLookupTest, WhatIsRemovedIsHandedOut)
{
    map.put("Office", NewInfo("1"));
    const ProfileInfo *const kept = map.values()[0];
    const std::unique_ptr<ProfileInfo> removed = map.remove(0);
    EXPECT_EQ(removed.get(), kept);
    EXPECT_STREQ(removed->sProfileID.text(), "1");
}

TEST_F(ProfileLookupTest, FreedValuesLeaveTheNames)
{
    const std::size_t blocks = dmnative_control::LiveBlocks();
    map.put("Office", NewInfo("1"));
    const std::size_t withoutKey = dmnative_control::LiveBlocks() - 1;
    EXPECT_GT(withoutKey, blocks);
    map.freeValues();
    EXPECT_EQ(dmnative_control::LiveBlocks(), withoutKey);
    ExpectNames({"Office"});
    EXPECT_EQ(map.values()[0], nullptr);
    EXPECT_EQ(map.put("Office", NewInfo("2")), 0);
    EXPECT_STREQ(KeyAt(0), "2");
}

TEST_F(ProfileLookupTest, ANameIsFoundAfterAGrowingVectorHasCopiedIt)
{
    map.put("Office", NewInfo("1"));
    auto &keys = const_cast<DMVector<DMString> &>(map.keys());
    const DMString old = std::move(keys[0]);
    keys[0] = DMString(old.text());
    const_cast<char *>(old.c_str())[0] = 'x'; // the old copy's memory is somebody else's now
    ExpectNames({"Office"});
    map.remove(0);
    ExpectNames({});
    EXPECT_EQ(map.find("Office"), -1);
}

TEST_F(ProfileLookupTest, NamesAfterARemovedOneMoveUp)
{
    for (const char *name : {"a", "b", "c", "d", "e"})
        map.put(name, NewInfo("1"));
    map.remove(1);
    ExpectNames({"a", "c", "d", "e"});
    EXPECT_EQ(map.find("b"), -1);
    map.remove(0);
    ExpectNames({"c", "d", "e"});
    map.remove(2);
    ExpectNames({"c", "d"});
    EXPECT_EQ(map.put("b", NewInfo("2")), 2);
    ExpectNames({"c", "d", "b"});
}

TEST_F(ProfileLookupTest, LookUpsSurviveGrowth)
{
    Lines names;
    for (int i = 0; i < 100; ++i) {
        names.push_back("name " + std::to_string(i));
        map.put(names.back().c_str(), NewInfo("1"));
    }
    ExpectNames(names);
}

TEST_F(ProfileLookupTest, WithoutMemoryForEitherVectorNothingIsAdded)
{
    for (const int failingGrowth : {1, 2}) {
        SCOPED_TRACE(failingGrowth);
        handset.faults.Clear();
        handset.faults.Fail("dmvector:394", failingGrowth);
        EXPECT_EQ(map.put("Office", NewInfo("1")), -1);
        EXPECT_EQ(map.find("Office"), -1);
        ExpectNames({});
    }
    handset.faults.Clear();
    EXPECT_EQ(map.put("Office", NewInfo("1")), 0);
    ExpectNames({"Office"});
}

// A profile is deleted only when no tree has it, and that cannot be known without the other file.
class DeletionWithoutMemoryTest : public PluginTest,
                                  public ::testing::WithParamInterface<const char *> {};

TEST_P(DeletionWithoutMemoryTest, KeepsTheProfileWhenTheOtherFileCannotBeOpened)
{
    handset.napi.Store("Office", Record("internet", "+49"));
    TreePtr tree = LoadTree(GetParam());
    handset.faults.Fail("new");

    EXPECT_EQ(tree->DeleteNode("Office"), 0);

    EXPECT_EQ(handset.faults.Fired(), 1);
    ExpectNothingLogged();
    ASSERT_NE(handset.napi.Find("Office"), nullptr);
    EXPECT_EQ(handset.napi.modified.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DeletionWithoutMemoryTest,
                         ::testing::Values(CONN_ROOT, INTPROFS_ROOT));

} // namespace
