// Look-ups of mapped profiles by node name: the place that a name has, through every change of the
// map.
#include "plugin_test.h"

namespace {

using namespace doubles;

class ProfileLookupTest : public PluginTest {
protected:
    void TearDown() override
    {
        map.clear(); // the fixture looks for blocks that are left
        PluginTest::TearDown();
    }

    /// Every name must be found where it stands, and no other name at all.
    void ExpectNames(const Lines &names)
    {
        Lines found;
        for (const DMString &name : map.keys()) {
            EXPECT_EQ(map.find(name), static_cast<int>(found.size())) << name.text();
            found.push_back(name.text());
        }
        EXPECT_EQ(found, names);
        EXPECT_EQ(map.size(), static_cast<int>(names.size()));
        EXPECT_EQ(map.keys().size(), map.values().size());
    }

    ProfileInfo one;
    ProfileInfo two;
    ProfileMap map;
};

TEST_F(ProfileLookupTest, ANameIsFoundWhereItWasPut)
{
    EXPECT_EQ(map.find("Office"), -1);
    EXPECT_EQ(map.put("Office", &one), 0);
    EXPECT_EQ(map.put("Home", &two), 1);
    ExpectNames({"Office", "Home"});
    EXPECT_EQ(map.values()[0], &one);
    EXPECT_EQ(map.values()[1], &two);
    EXPECT_EQ(map.find("office"), -1);
    EXPECT_EQ(map.find(""), -1);
}

TEST_F(ProfileLookupTest, ANameThatIsThereKeepsItsPlaceAndGetsTheNewRecord)
{
    map.put("Office", &one);
    map.put("Home", &one);
    EXPECT_EQ(map.put("Office", &two), 0);
    ExpectNames({"Office", "Home"});
    EXPECT_EQ(map.values()[0], &two);
}

TEST_F(ProfileLookupTest, ANameIsFoundAfterAGrowingVectorHasCopiedIt)
{
    map.put("Office", &one);
    auto &keys = const_cast<DMVector<DMString> &>(map.keys());
    const DMString old = std::move(keys[0]);
    keys[0] = DMString(old.text());
    const_cast<char *>(old.c_str())[0] = 'x'; // the old copy's memory is somebody else's now
    ExpectNames({"Office"});
    map.remove(0);
    ExpectNames({});
    EXPECT_EQ(map.find("Office"), -1);
}

TEST_F(ProfileLookupTest, NamesBehindARemovedOneMoveUp)
{
    for (const char *name : {"a", "b", "c", "d", "e"})
        map.put(name, &one);
    map.remove(1);
    ExpectNames({"a", "c", "d", "e"});
    EXPECT_EQ(map.find("b"), -1);
    map.remove(0);
    ExpectNames({"c", "d", "e"});
    map.remove(2);
    ExpectNames({"c", "d"});
    EXPECT_EQ(map.put("b", &two), 2);
    ExpectNames({"c", "d", "b"});
}

TEST_F(ProfileLookupTest, LookUpsSurviveGrowth)
{
    Lines names;
    for (int i = 0; i < 100; ++i) {
        names.push_back("name " + std::to_string(i));
        map.put(names.back().c_str(), &one);
    }
    ExpectNames(names);
}

TEST_F(ProfileLookupTest, AMapThatWasClearedKnowsNoNameAndTakesNewOnes)
{
    map.put("Office", &one);
    map.put("Home", &one);
    map.clear();
    EXPECT_EQ(map.find("Office"), -1);
    ExpectNames({});
    EXPECT_EQ(map.put("Home", &two), 0);
    ExpectNames({"Home"});
}

TEST_F(ProfileLookupTest, WithoutMemoryForEitherVectorNothingIsAdded)
{
    for (const int failingGrowth : {1, 2}) {
        SCOPED_TRACE(failingGrowth);
        handset.faults.Clear();
        handset.faults.Fail("dmvector:394", failingGrowth);
        EXPECT_EQ(map.put("Office", &one), -1);
        EXPECT_EQ(map.find("Office"), -1);
        ExpectNames({});
    }
    handset.faults.Clear();
    EXPECT_EQ(map.put("Office", &one), 0);
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
