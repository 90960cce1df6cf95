// The binary interface: slot numbers of both classes, which slots the plug-in fills, object sizes.
#include "plugin_test.h"

#include <cstring>
#include <set>

namespace {

using namespace doubles;

/// Slot that a pointer to a virtual member function names. The C++ ABI of the ARM architectures
/// marks it in the adjustment, every other one in the function word.
template <class MemberFunction>
int SlotOf(MemberFunction function)
{
    static_assert(sizeof function == 2 * sizeof(std::ptrdiff_t));
    std::ptrdiff_t words[2];
    std::memcpy(words, &function, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(words[1], 1) << "not virtual, or not of the first base";
    return static_cast<int>(words[0] / static_cast<std::ptrdiff_t>(sizeof(void *)));
#else
    EXPECT_EQ(words[0] & 1, 1) << "not virtual";
    EXPECT_EQ(words[1], 0) << "not of the first base";
    return static_cast<int>((words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void *)));
#endif
}

/// Slots in which two objects' tables differ.
std::set<int> DifferingSlots(const void *left, const void *right, int slots)
{
    void **leftTable;
    void **rightTable;
    std::memcpy(&leftTable, left, sizeof leftTable);
    std::memcpy(&rightTable, right, sizeof rightTable);
    std::set<int> differing;
    for (int slot = 0; slot < slots; ++slot)
        if (leftTable[slot] != rightTable[slot])
            differing.insert(slot);
    return differing;
}

class VirtualTableTest : public PluginTest {};

// ---- The tree ----------------------------------------------------------------------------------

struct PlainTree final : DmtRWPluginTree {
    virtual void FirstOfItsOwn() {}
};

using PluginTree = DM_NAPI_PluginTree;
using TreeNode = JemSmartPtr<DmtNode>;

TEST_F(VirtualTableTest, TreeSlotsAreThePublishedOnes)
{
    EXPECT_EQ(SlotOf<int (PluginTree::*)(const char *, TreeNode &)>(&PluginTree::GetNode), 2);
    EXPECT_EQ(SlotOf<int (PluginTree::*)(const char *)>(&PluginTree::DeleteNode), 3);
    EXPECT_EQ(SlotOf(&PluginTree::Clone), 4);
    EXPECT_EQ(SlotOf(&PluginTree::RenameNode), 5);
    EXPECT_EQ((SlotOf<int (PluginTree::*)(const char *, TreeNode &, const DmtData &)>(
                  &PluginTree::CreateLeafNode)),
              6);
    EXPECT_EQ(
        (SlotOf<int (PluginTree::*)(const char *, TreeNode &, const DmtData &, unsigned char)>(
            &PluginTree::CreateLeafNode)),
        7);
    EXPECT_EQ(SlotOf(&PluginTree::CreateInteriorNode), 8);
    EXPECT_EQ(SlotOf(&PluginTree::GetChildValuesMap), 9);
    EXPECT_EQ(SlotOf(&PluginTree::SetChildValuesMap), 10);
    EXPECT_EQ(SlotOf(&PluginTree::GetChildNodeNames), 11);
    EXPECT_EQ(SlotOf(&PluginTree::Flush), 12);
    EXPECT_EQ(SlotOf(&PluginTree::Commit), 13);
    EXPECT_EQ(SlotOf(&PluginTree::Rollback), 14);
    EXPECT_EQ(SlotOf(&PluginTree::Begin), 15);
    EXPECT_EQ(SlotOf(&PluginTree::IsAtomic), 16);
    EXPECT_EQ(SlotOf(&PluginTree::GetPrincipal), 17);
    EXPECT_EQ(SlotOf(&PluginTree::OnAdd), 18);
    EXPECT_EQ(SlotOf(&PluginTree::OnDelete), 19);
    EXPECT_EQ(SlotOf(&PluginTree::Synchronize), 20);
    EXPECT_EQ(SlotOf(&PluginTree::Release), 21);
    EXPECT_EQ(SlotOf(&PluginTree::FindAddedNode), 22);
    EXPECT_EQ(SlotOf(&PluginTree::FindAddedParentNode), 23);
    EXPECT_EQ(SlotOf(&PluginTree::SetAddedNode), 24);
    EXPECT_EQ(SlotOf(&PluginTree::RemoveAddedNode), 25);
    EXPECT_EQ(SlotOf(&PluginTree::Init), 26);
    EXPECT_EQ(SlotOf(&PluginTree::GetFullPath), 27);
    EXPECT_EQ(SlotOf(&PluginTree::Verify), 28);
    EXPECT_EQ(SlotOf(&PluginTree::GetParameter), 29);
    EXPECT_EQ(SlotOf(&PluginTree::LogCommand), 30);
    EXPECT_EQ(SlotOf(&PluginTree::RemoveNode), 31);
    EXPECT_EQ(SlotOf(&PluginTree::CreateLeafNodeForwarder), 32);
    EXPECT_EQ(SlotOf(&PluginTree::setLogFileHandle), 33);
    EXPECT_EQ(SlotOf(&PluginTree::CreateInteriorNodeInternal), 34);
    EXPECT_EQ(SlotOf(&PluginTree::CreateLeafNodeInternal), 35);
    EXPECT_EQ(SlotOf(&PlainTree::FirstOfItsOwn), 36) << "the engine's base has 36 slots";
}

TEST_F(VirtualTableTest, TreeFillsItsOwnSlotsAndNoOthers)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const JemSmartPtr<PlainTree> plain(new PlainTree);
    EXPECT_EQ(DifferingSlots(tree.get(), plain.get(), 36),
              (std::set<int>{0, 1, 3, 5, 9, 10, 32, 34, 35}));
}

// ---- The node ----------------------------------------------------------------------------------

struct PlainNode final : DmtRWPluginNode {
    virtual void FirstOfItsOwn() {}
};

using PluginNode = DM_NAPI_PluginNode;
using Owner = JemSmartPtr<DmtPluginTree>;

TEST_F(VirtualTableTest, NodeSlotsAreThePublishedOnes)
{
    EXPECT_EQ(SlotOf(&PluginNode::GetTree), 2);
    EXPECT_EQ(SlotOf(&PluginNode::GetPath), 3);
    EXPECT_EQ(SlotOf(&PluginNode::GetAttributes), 4);
    EXPECT_EQ(SlotOf(&PluginNode::SetTitle), 5);
    EXPECT_EQ(SlotOf(&PluginNode::SetAcl), 6);
    EXPECT_EQ(SlotOf(&PluginNode::GetValue), 7);
    EXPECT_EQ(SlotOf(&PluginNode::SetValue), 8);
    EXPECT_EQ(SlotOf(&PluginNode::GetChildNodes), 9);
    EXPECT_EQ(SlotOf(&PluginNode::IsLeaf), 10);
    EXPECT_EQ(SlotOf(&PluginNode::GetChildNode), 11);
    EXPECT_EQ(SlotOf(&PluginNode::Execute), 12);
    EXPECT_EQ(SlotOf(&PluginNode::GetNodeName), 13);
    EXPECT_EQ(SlotOf(&PluginNode::GetName), 14);
    EXPECT_EQ(SlotOf(&PluginNode::GetFirstChunk), 15);
    EXPECT_EQ(SlotOf(&PluginNode::GetNextChunk), 16);
    EXPECT_EQ(SlotOf(&PluginNode::SetFirstChunk), 17);
    EXPECT_EQ(SlotOf(&PluginNode::SetNextChunk), 18);
    EXPECT_EQ(SlotOf(&PluginNode::SetLastChunk), 19);
    EXPECT_EQ(SlotOf(&PluginNode::HasChunkedValue), 20);
    EXPECT_EQ((SlotOf<int (PluginNode::*)(Owner, const char *)>(&PluginNode::Init)), 21);
    EXPECT_EQ((SlotOf<int (PluginNode::*)(Owner, const char *, unsigned char)>(&PluginNode::Init)),
              22);
    EXPECT_EQ((SlotOf<int (PluginNode::*)(Owner, const char *, const DmtData &, unsigned char)>(
                  &PluginNode::Init)),
              23);
    EXPECT_EQ((SlotOf<int (PluginNode::*)(Owner, const char *, const DMStringVector &)>(
                  &PluginNode::Init)),
              24);
    EXPECT_EQ(SlotOf(&PlainNode::FirstOfItsOwn), 25) << "the engine's base has 25 slots";
}

TEST_F(VirtualTableTest, NodeFillsItsOwnSlotsAndNoOthers)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const JemSmartPtr<PluginNode> node(new PluginNode(Owner(tree), "Office/Addr", DmtData("")));
    const JemSmartPtr<PlainNode> plain(new PlainNode);
    EXPECT_EQ(DifferingSlots(node.get(), plain.get(), 25), (std::set<int>{0, 1, 7, 8, 14, 20}));
}

TEST_F(VirtualTableTest, ANodeIs144Bytes)
{
    EXPECT_EQ(sizeof(DM_NAPI_PluginNode), 144u);
    EXPECT_EQ(sizeof(DmtRWPluginNode), 144u) << "the plug-in adds no members";
}

TEST_F(VirtualTableTest, NameQueryAndFlagQueryReturnTheBasesMembers)
{
    const TreePtr tree = NewTree(CONN_ROOT);
    const JemSmartPtr<PluginNode> node(
        new PluginNode(Owner(tree), "Office/Auth/PAP/AuthId", DmtData("")));
    EXPECT_STREQ(node->GetName().text(), "AuthId");
    EXPECT_EQ(node->HasChunkedValue(), 0);

    node->Init(Owner(tree), "Office/Other", DmtData(""), 1);
    EXPECT_STREQ(node->GetName().text(), "Other");
    EXPECT_EQ(node->HasChunkedValue(), 1);
    node->Init(Owner(tree), "", 0x7F);
    EXPECT_STREQ(node->GetName().text(), "");
    EXPECT_EQ(node->HasChunkedValue(), 0x7F) << "unchanged, not made a truth value";
}

} // namespace
