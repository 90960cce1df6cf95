#include "mirror.h"
#include "mounted_tree.h"

#include <gtest/gtest.h>

namespace client {
namespace {

using Nodes = std::vector<NodeUri>;

class ChangedObjectsTest : public MountedTree {
protected:
    static TreeChange changeOf(const char *node)
    {
        return {.kind = TreeChange::Kind::Replace, .node = uri(node)};
    }
};

TEST_F(ChangedObjectsTest, AnObjectIsWhatStandsBeneathARoot)
{
    EXPECT_EQ(objectsOf(managementTree, changeOf("./Ext/Profiles/Office/Auth/AuthPw")),
              Nodes{profile("Office")});
    EXPECT_EQ(objectsOf(managementTree, changeOf("./Ext/Profiles/Office")),
              Nodes{profile("Office")});
    EXPECT_EQ(objectsOf(managementTree, changeOf("./Ext/Profiles")), Nodes());
    EXPECT_EQ(objectsOf(managementTree, changeOf("./Ext")), Nodes());
}

TEST_F(ChangedObjectsTest, ANodeThatIsRenamedHasBothNames)
{
    TreeChange change{.kind = TreeChange::Kind::ReplaceProperty,
                      .node = profile("Office"),
                      .property = Property::Name,
                      .value = {{}, {}, "Team"}};
    EXPECT_EQ(objectsOf(managementTree, change), (Nodes{profile("Office"), profile("Team")}));
    change.outcome.status = DmStatus::CommandFailed;
    EXPECT_EQ(objectsOf(managementTree, change), Nodes{profile("Office")});
}

TEST_F(ChangedObjectsTest, TheTwinOfAProfileIsBeneathTheOtherRoot)
{
    const Nodes roots = profileRoots();
    ASSERT_EQ(roots.size(), 2U);
    const Nodes both{roots[0].child("Office"), roots[1].child("Office")};
    EXPECT_EQ(withTwins({both[0]}), both);
    EXPECT_EQ(withTwins({both[1]}), both);
    EXPECT_EQ(withTwins({both[1], both[0]}), both);
    EXPECT_EQ(withTwins({uri("./DMAcc/Test")}), Nodes{uri("./DMAcc/Test")});
}

} // namespace
} // namespace client
