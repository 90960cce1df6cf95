// Every change that a server makes, once for each outside call that it consists of, with that call
// failing: whatever happens to the profile concerned, the others and the tree stay sound.
#include "server_change_test.h"

#include <functional>
#include <map>
#include <ostream>
#include <set>

namespace {

using namespace doubles;

using Tree = DM_NAPI_PluginTree;

int WriteLeaf(Tree &tree, const char *path, const DmtData &value)
{
    JemSmartPtr<DmtNode> node;
    const int status = tree.GetNode(path, node);
    return status ? status : node->SetValue(value);
}

/// A change of profile "Office", or the adding of "New"; 0 when nothing fails.
struct Change {
    const char *name;
    const char *root;
    std::function<int(Tree &)> apply;
    /// Calls whose failure is not a failure of the change from this one on (counted from 1), beside
    /// those that never are.
    std::map<std::string, int> toleratedFrom = {};
};

void PrintTo(const Change &change, std::ostream *out)
{
    *out << change.name;
}

const Change changes[] = {
    {"WriteField", CONN_ROOT,
     [](Tree &tree) { return WriteLeaf(tree, "Office/Addr", Text("new")); }},
    {"WriteBearer", CONN_ROOT,
     [](Tree &tree) { return WriteLeaf(tree, "Office/Bearer", Text("GSM-CSD")); }},
    {"WriteProxyField", INTPROFS_ROOT,
     [](Tree &tree) { return WriteLeaf(tree, "Office/Ph1/Port/PortNbr", Number(80)); }},
    {"WriteReference", INTPROFS_ROOT,
     [](Tree &tree) { return WriteLeaf(tree, "Office/Ph1/Conn", Text("Home")); }},
    {"AddProfile", CONN_ROOT,
     [](Tree &tree) {
         JemSmartPtr<DmtNode> node;
         return tree.CreateInteriorNode("New", node);
     }},
    {"AddLeaf", CONN_ROOT,
     [](Tree &tree) {
         JemSmartPtr<DmtNode> node;
         return tree.CreateLeafNode("Office/Auth/PAP/Speed", node, Number(9600));
     }},
    {"DeleteProfile", CONN_ROOT, [](Tree &tree) { return tree.DeleteNode("Office"); }},
    {"DeleteProxyProfile", INTPROFS_ROOT, [](Tree &tree) { return tree.DeleteNode("Office"); }},
    {"Rename", CONN_ROOT, [](Tree &tree) { return tree.RenameNode("Office", "Work"); }},
    {"RenameProxyProfile",
     INTPROFS_ROOT,
     [](Tree &tree) { return tree.RenameNode("Office", "Work"); },
     {{"setSettingInfo", 2}, {"flush", 2}}},
    {"ReadChildren", CONN_ROOT,
     [](Tree &tree) {
         DmtChildValuesMap values;
         return tree.GetChildValuesMap("Office", values);
     }},
    {"WriteChildren", CONN_ROOT,
     [](Tree &tree) {
         DmtChildValuesMap values;
         values.put("Linger", Number(5));
         values.put("Addr", Text("new"));
         return tree.SetChildValuesMap("Office", values);
     }},
};

/// Calls whose failure has a meaning of its own: an entry or a node that is not there, a profile
/// that is not stored, a maximum.
const std::set<std::string> neverFatal{
    "removeEntry",         "getSettingInfo",    "GetNode",
    "getSettingDirectory", "SETUP_SET_Manager", "NAPI_IsProfileValid",
    "NAPI_GetMaxProfiles"};

class ChangeFaultSweep : public ServerChangeTest, public ::testing::WithParamInterface<Change> {
protected:
    TreePtr MountBoth()
    {
        handset.napi.profiles.clear();
        handset.napi.nextId = 2;
        handset.settings.disk.clear();
        handset.faults.Clear();
        handset.napi.Store("Home", ToRecord(PatternBytes(0)), 1);
        handset.napi.Store("Office", ToRecord(PatternBytes(1)), 5);
        handset.settings.Preload(PROXY_FILE, PROXY_GROUP, "1", "Home");
        TreePtr tree = LoadTree(GetParam().root);
        handset.faults.Clear();
        return tree;
    }

    /// The bystander, and that the tree still works.
    void ExpectSound(const TreePtr &tree)
    {
        handset.faults.Clear();
        EXPECT_TRUE(SameBytes(handset.napi.Find("Home")->record, PatternBytes(0)));
        const char *const leaf = tree->IsNAPDEF() ? "Home/Linger" : "Home/Ph2/Port/PortNbr";
        EXPECT_EQ(Write(tree, leaf, Number(7)), 0);
        EXPECT_EQ(IntOf(Value(tree, leaf)), 7);
        EXPECT_EQ(tree->RenameNode("Home", "Moved"), 0);
        EXPECT_EQ(tree->DeleteNode("Moved"), 0);
        const Mapping mapped = Mapped(tree);
        EXPECT_TRUE(std::none_of(mapped.begin(), mapped.end(),
                                 [](const auto &entry) { return entry.second[0] == '1'; }));
    }
};

TEST_P(ChangeFaultSweep, EveryCallMayFail)
{
    std::map<std::string, int> calls;
    {
        const TreePtr tree = MountBoth();
        ASSERT_EQ(GetParam().apply(*tree), 0);
        for (const std::string &site : handset.faults.Sites())
            calls[site] = handset.faults.Calls(site);
        ExpectSound(tree);
    }
    ASSERT_FALSE(calls.empty());
    for (const auto &[site, count] : calls) {
        const auto tolerated = GetParam().toleratedFrom.find(site);
        for (int nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE(site + " fails at call " + std::to_string(nth));
            const TreePtr tree = MountBoth();
            handset.faults.Fail(site, nth);

            const int status = GetParam().apply(*tree);

            EXPECT_EQ(handset.faults.Fired(), 1);
            const bool mayPass =
                neverFatal.count(site) != 0 || site == "new" ||
                (tolerated != GetParam().toleratedFrom.end() && nth >= tolerated->second);
            if (!mayPass) {
                EXPECT_NE(status, 0);
            }
            ExpectSound(tree);
        }
    }
}

TEST_P(ChangeFaultSweep, EveryCallMaySucceedWithoutAnAnswer)
{
    std::map<std::string, int> calls;
    {
        const TreePtr tree = MountBoth();
        ASSERT_EQ(GetParam().apply(*tree), 0);
        for (const std::string &site : handset.faults.Sites())
            if (site != "new" && site != "GetNode")
                calls[site] = handset.faults.Calls(site);
    }
    for (const auto &[site, count] : calls) {
        for (int nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE(site + " does nothing at call " + std::to_string(nth));
            const TreePtr tree = MountBoth();
            handset.faults.LeaveUntouched(site, nth);

            GetParam().apply(*tree);

            EXPECT_EQ(handset.faults.Fired(), 1);
            ExpectSound(tree);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllChanges, ChangeFaultSweep, ::testing::ValuesIn(changes),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
