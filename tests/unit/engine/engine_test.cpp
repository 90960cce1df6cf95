// The host engine: its table of nodes, its memory, its strings and values.

#include "dmnative/dmt_tree.h"
#include "dmnative_control.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

class Node final : public DmtRWPluginNode {};

class Tree final : public DmtRWPluginTree {
public:
    JemSmartPtr<DmtNode> Add(const char *path, const std::vector<const char *> &children)
    {
        DMStringVector names;
        for (const char *child : children)
            names.push_back(DMString(child));
        auto *const node = new Node;
        JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path, names);
        EXPECT_EQ(SetNode(path, holder), 0);
        return holder;
    }

    JemSmartPtr<DmtNode> AddLeaf(const char *path, const char *value)
    {
        auto *const node = new Node;
        JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path, DmtData(value), 0);
        EXPECT_EQ(SetNode(path, holder), 0);
        return holder;
    }

    std::vector<std::string> ChildrenOf(const char *path)
    {
        DMStringVector names;
        EXPECT_EQ(GetChildNodeNames(path, names), 0);
        std::vector<std::string> texts;
        for (const DMString &name : names)
            texts.emplace_back(name.text());
        return texts;
    }
};

using Names = std::vector<std::string>;

class NodeTable : public testing::Test {
protected:
    JemSmartPtr<Tree> tree{new Tree};
    JemSmartPtr<DmtNode> found;
};

TEST_F(NodeTable, AnUnregisteredPathAnswersNotFoundAndLeavesThePointerAlone)
{
    const JemSmartPtr<DmtNode> root = tree->Add("", {"listed"});
    found = root;
    EXPECT_EQ(tree->GetNode("listed", found), DMT_NOT_FOUND);
    EXPECT_EQ(found.get(), root.get());
}

TEST_F(NodeTable, ChildrenComeInTheOrderInWhichTheParentListsThem)
{
    tree->Add("", {"c", "a", "b"});
    tree->AddLeaf("a", "");
    tree->AddLeaf("b", "");
    tree->AddLeaf("c", "");
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"c", "a", "b"}));
}

TEST_F(NodeTable, ListedNamesWithoutANodeAreLeftOut)
{
    tree->Add("", {"a", "b", "c"});
    tree->AddLeaf("b", "");
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"b"}));
}

TEST_F(NodeTable, APathThatItsParentDoesNotListIsAppended)
{
    tree->Add("", {"z"});
    tree->AddLeaf("z", "");
    tree->AddLeaf("a", "");
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"z", "a"}));
}

TEST_F(NodeTable, AParentThatIsRegisteredLastBringsItsChildrenIntoItsOrder)
{
    tree->AddLeaf("unlisted", "");
    tree->AddLeaf("b", "");
    tree->AddLeaf("a", "");
    tree->Add("", {"a", "b", "a"});
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"a", "b", "unlisted"}));
}

TEST_F(NodeTable, AReplacedNodeReordersItsChildrenAndLosesNone)
{
    tree->Add("", {"b", "a"});
    for (const char *name : {"a", "b", "c"})
        tree->AddLeaf(name, "");
    tree->Add("", {"b", "c"});
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"b", "c", "a"}));
}

TEST_F(NodeTable, ARegisteredNodeIsReplacedAtItsPlace)
{
    tree->Add("", {"a", "b"});
    tree->AddLeaf("a", "old");
    tree->AddLeaf("b", "");
    const JemSmartPtr<DmtNode> replacement = tree->AddLeaf("a", "new");
    ASSERT_EQ(tree->GetNode("a", found), 0);
    EXPECT_EQ(found.get(), replacement.get());
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"a", "b"}));
}

TEST_F(NodeTable, ANameWithASlashIsListedUnderItsWholeName)
{
    tree->Add("", {"Bite/Post"});
    tree->Add("Bite/Post", {"Addr"});
    tree->AddLeaf("Bite/Post/Addr", "x");
    DMVector<JemSmartPtr<DmtNode>> children;
    ASSERT_EQ(tree->GetNode("", found), 0);
    ASSERT_EQ(found->GetChildNodes(children), 0);
    ASSERT_EQ(children.size(), 1);
    DMString path;
    children[0]->GetPath(path);
    EXPECT_STREQ(path.text(), "Bite/Post");
}

TEST_F(NodeTable, DeletingANodeTakesWhatIsBeneathAndTheMention)
{
    tree->Add("", {"a", "ab"});
    tree->Add("a", {"x"});
    tree->Add("a/x", {"y"});
    tree->AddLeaf("a/x/y", "");
    tree->AddLeaf("ab", "");
    EXPECT_EQ(tree->DeleteNode("a"), 0);
    for (const char *gone : {"a", "a/x", "a/x/y"})
        EXPECT_EQ(tree->GetNode(gone, found), DMT_NOT_FOUND) << gone;
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"ab"}));
    tree->AddLeaf("a", "again"); // the mention is gone: it comes last now
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"ab", "a"}));
}

TEST_F(NodeTable, WhatIsAddedBeneathADeletedNodeIsListedAnew)
{
    tree->Add("", {});
    tree->Add("a", {});
    tree->AddLeaf("a/x", "");
    EXPECT_EQ(tree->DeleteNode("a"), 0);
    tree->AddLeaf("a/y", "");
    tree->Add("a", {});
    EXPECT_EQ(tree->ChildrenOf("a"), (Names{"y"}));
    EXPECT_EQ(tree->DeleteNode(""), 0);
    tree->AddLeaf("a/z", "");
    tree->Add("a", {});
    EXPECT_EQ(tree->ChildrenOf("a"), (Names{"z"}));
}

TEST_F(NodeTable, DeletingTheRootEmptiesTheTree)
{
    tree->Add("", {"a"});
    tree->AddLeaf("a", "");
    EXPECT_EQ(tree->DeleteNode(""), 0);
    EXPECT_EQ(tree->GetNode("", found), DMT_NOT_FOUND);
    EXPECT_EQ(tree->GetNode("a", found), DMT_NOT_FOUND);
    EXPECT_EQ(tree->DeleteNode(""), DMT_NOT_FOUND);
}

TEST_F(NodeTable, RenamingMovesWhatIsBeneathAndKeepsThePlaceAmongTheSiblings)
{
    tree->Add("", {"first", "second", "third"});
    for (const char *name : {"first", "third"})
        tree->AddLeaf(name, "");
    tree->Add("second", {"x"});
    tree->Add("second/x", {"y"});
    const JemSmartPtr<DmtNode> leaf = tree->AddLeaf("second/x/y", "kept");
    ASSERT_EQ(tree->RenameNode("second", "2nd"), 0);
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"first", "2nd", "third"}));
    EXPECT_EQ(tree->GetNode("second/x/y", found), DMT_NOT_FOUND);
    ASSERT_EQ(tree->GetNode("2nd/x/y", found), 0);
    EXPECT_EQ(found.get(), leaf.get());
    DMString path;
    leaf->GetPath(path);
    EXPECT_STREQ(path.text(), "2nd/x/y");
    ASSERT_EQ(tree->GetNode("2nd", found), 0);
    EXPECT_STREQ(found->GetName().text(), "2nd");
    EXPECT_EQ(tree->ChildrenOf("2nd/x"), (Names{"y"}));
}

TEST_F(NodeTable, RenamingRefusesTakenNamesSlashesAndTheRoot)
{
    tree->Add("", {"a", "b", "mention"});
    tree->AddLeaf("a", "");
    tree->AddLeaf("b", "");
    EXPECT_EQ(tree->RenameNode("a", "b"), DMT_ALREADY_EXISTS);
    EXPECT_EQ(tree->RenameNode("a", "x/y"), DMT_NOT_ALLOWED);
    EXPECT_EQ(tree->RenameNode("a", ""), DMT_NOT_ALLOWED);
    EXPECT_EQ(tree->RenameNode("", "x"), DMT_NOT_ALLOWED);
    EXPECT_EQ(tree->RenameNode("none", "x"), DMT_NOT_FOUND);
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"a", "b"}));
    EXPECT_EQ(tree->RenameNode("a", "mention"), 0); // nobody has that name
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"mention", "b"}));
}

TEST_F(NodeTable, ARenamedNodeIsReplacedAtItsPlace)
{
    tree->Add("", {"a", "b"});
    tree->AddLeaf("a", "");
    tree->AddLeaf("b", "");
    ASSERT_EQ(tree->RenameNode("a", "c"), 0);
    tree->AddLeaf("c", "");
    EXPECT_EQ(tree->ChildrenOf(""), (Names{"c", "b"}));
}

TEST_F(NodeTable, AmongManySiblingsDeletedAndRenamedNodesKeepTheOthersInOrder)
{
    tree->Add("", {});
    Names expected;
    std::vector<JemSmartPtr<DmtNode>> held; // deleted nodes keep their names
    for (int i = 0; i < 100; ++i) {
        expected.push_back("child" + std::to_string(i));
        held.push_back(tree->AddLeaf(expected.back().c_str(), ""));
    }
    EXPECT_EQ(tree->ChildrenOf(""), expected);
    for (int i = 80; i >= 10; --i) { // so many that places are closed up on the way
        EXPECT_EQ(tree->DeleteNode(expected[static_cast<std::size_t>(i)].c_str()), 0);
        expected.erase(expected.begin() + i);
        EXPECT_EQ(tree->ChildrenOf(""), expected);
    }
    ASSERT_EQ(tree->RenameNode("child90", "renamed"), 0);
    expected[19] = "renamed";
    tree->AddLeaf("renamed", "replaced");
    tree->AddLeaf("child90", "again");
    expected.push_back("child90");
    EXPECT_EQ(tree->ChildrenOf(""), expected);
    tree->AddLeaf("child15", "deleted before");
    expected.push_back("child15");
    EXPECT_EQ(tree->ChildrenOf(""), expected);
    EXPECT_EQ(tree->DeleteNode("renamed"), 0);
    expected.erase(expected.begin() + 19);
    EXPECT_EQ(tree->ChildrenOf(""), expected);
    tree->Add("", {"child90", "unregistered", "child1"});
    EXPECT_EQ(tree->ChildrenOf("").front(), "child90");
    EXPECT_EQ(tree->ChildrenOf("")[1], "child1");
    EXPECT_EQ(tree->ChildrenOf("")[2], "child0");
    EXPECT_EQ(tree->ChildrenOf("").size(), expected.size());
}

TEST_F(NodeTable, NodesOfOneNameShareIt)
{
    tree->Add("", {});
    const JemSmartPtr<DmtNode> one = tree->AddLeaf("a/Addr", "");
    const JemSmartPtr<DmtNode> other = tree->AddLeaf("b/Addr", "");
    EXPECT_STREQ(one->GetName().text(), "Addr");
    EXPECT_EQ(one->GetName().c_str(), other->GetName().c_str());
}

TEST_F(NodeTable, ANodeThatWasRemovedCannotBeRenamed)
{
    tree->Add("", {"a"});
    const JemSmartPtr<DmtNode> removed = tree->AddLeaf("a", "");
    ASSERT_EQ(tree->DeleteNode("a"), 0);
    tree->AddLeaf("a", "another");
    EXPECT_EQ(static_cast<DmtRWPluginNode *>(removed.get())->Rename("b"), DMT_NOT_FOUND);
}

TEST_F(NodeTable, ANodeThatOutlivesItsTreeAnswersWithAFailure)
{
    const JemSmartPtr<DmtNode> root = tree->Add("", {});
    EXPECT_EQ(tree->RefCount(), 1); // a node's link does not count
    tree.reset();
    JemSmartPtr<DmtTree> owner;
    EXPECT_EQ(root->GetTree(owner), DMT_COMMAND_FAILED);
    EXPECT_FALSE(owner);
    DMVector<JemSmartPtr<DmtNode>> children;
    EXPECT_EQ(root->GetChildNodes(children), DMT_COMMAND_FAILED);
    EXPECT_EQ(root->GetChildNode("a", found), DMT_COMMAND_FAILED);
    EXPECT_EQ(static_cast<DmtRWPluginNode *>(root.get())->Rename("b"), DMT_NOT_ALLOWED);
}

TEST(EngineMemory, EveryBlockOfATreeGoesBackWithItsLastReference)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    {
        const JemSmartPtr<Tree> tree(new Tree);
        tree->Add("", {"a"});
        tree->AddLeaf("a", "text");
        EXPECT_GT(dmnative_control::LiveBlocks(), before);
        EXPECT_GT(dmnative_control::LiveBlocks("jem_defs", 255), 0u);
    }
    EXPECT_EQ(dmnative_control::LiveBlocks(), before);
}

/// Allocates blocks of all sizes up to a few hundred bytes, each with its size in every byte.
std::vector<unsigned char *> FilledBlocks(std::size_t sizes)
{
    std::vector<unsigned char *> blocks;
    for (std::size_t size = 0; size < sizes; ++size) {
        auto *const block = static_cast<unsigned char *>(DmtMemAllocEx(size, "engine_test", 1));
        std::memset(block, static_cast<unsigned char>(size), size);
        blocks.push_back(block);
    }
    return blocks;
}

TEST(EngineMemory, BlocksAreAlignedForAnyTypeAndDoNotOverlap)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    for (int round = 0; round < 3; ++round) { // later rounds take what the first gave back
        const std::vector<unsigned char *> blocks = FilledBlocks(600);
        for (std::size_t size = 0; size < blocks.size(); ++size) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[size]) % alignof(std::max_align_t),
                      0u);
            for (std::size_t i = 0; i < size; ++i)
                ASSERT_EQ(blocks[size][i], static_cast<unsigned char>(size)) << size << ' ' << i;
        }
        EXPECT_EQ(dmnative_control::LiveBlocks("engine_test", 1), blocks.size());
        for (const std::size_t remainder : {1u, 0u}) // every other one first
            for (std::size_t size = 0; size < blocks.size(); ++size)
                if (size % 2 == remainder)
                    DmtMemFree(blocks[size]);
        EXPECT_EQ(dmnative_control::LiveBlocks(), before);
    }
}

TEST(EngineMemory, ASmallBlockThatWasGivenBackIsTakenAgain)
{
    const std::size_t pooledBefore = dmnative_control::PooledBlocks();
    void *const block = DmtMemAllocEx(sizeof(Node), "engine_test", 2);
    DmtMemFree(block);
    if (dmnative_control::PooledBlocks() == pooledBefore)
        GTEST_SKIP() << "with a sanitizer every block is the heap's";
    void *const again = DmtMemAllocEx(sizeof(Node), "engine_test", 2);
    EXPECT_EQ(again, block);
    DmtMemFree(again);
}

TEST(EngineVector, CapacityGrowsInMultiplesOfFourAndShrinkingToNothingFreesTheBlock)
{
    const std::size_t before = dmnative_control::LiveBlocks("dmvector", 394);
    DMVector<int> numbers;
    EXPECT_EQ(numbers.capacity(), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(numbers.push_back(i), i);
    EXPECT_EQ(numbers.capacity(), 8);
    EXPECT_EQ(dmnative_control::LiveBlocks("dmvector", 394), before + 1);
    numbers.clear();
    EXPECT_EQ(dmnative_control::LiveBlocks("dmvector", 394), before);
}

TEST(EngineVector, AVectorThatCannotGrowStaysAsItWas)
{
    DMMap<int, int> map;
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(map.put(i, 10 * i), i);
    int allowed = 1; // the keys grow, the values do not
    dmnative_control::SetAllocationFault(
        [&allowed](std::string_view, int, std::size_t) { return allowed-- <= 0; });
    EXPECT_EQ(map.put(4, 40), -1);
    dmnative_control::SetAllocationFault({});
    EXPECT_EQ(map.size(), 4);
    EXPECT_EQ(map.find(4), -1);
    EXPECT_EQ(map.values().size(), 4);
}

TEST(EngineString, NullAndEmptyAreEqualButTellApart)
{
    const DMString null;
    const DMString empty("");
    EXPECT_TRUE(null == empty);
    EXPECT_EQ(null.c_str(), nullptr);
    EXPECT_STREQ(empty.c_str(), "");
    EXPECT_STREQ(null.text(), "");
    EXPECT_EQ(null.length(), 0u);
    EXPECT_EQ(sizeof(DMString), sizeof(char *));
}

TEST(EngineString, AStringEndsWithItsFirstNul)
{
    const DMString cut("ab\0cd", 5);
    EXPECT_EQ(cut.length(), 2u);
    EXPECT_TRUE(cut == "ab");
    EXPECT_EQ(DMString("abcd", 3).length(), 3u);
    EXPECT_EQ((cut + "xyz").length(), 5u);
    EXPECT_STREQ(DMString("\0a", 2).c_str(), "");
}

TEST(EngineString, AppendingAStringToItselfDoublesIt)
{
    DMString text("ab");
    text += text;
    EXPECT_STREQ(text.text(), "abab");
}

TEST(EngineString, ACopySharesItsTextUntilOneOfThemChanges)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    {
        DMString text("shared");
        const DMString copy(text);
        const DmtData value("of a leaf");
        const DmtData sameValue(value);
        EXPECT_EQ(copy.c_str(), text.c_str());
        EXPECT_EQ(dmnative_control::LiveBlocks(), before + 2);
        text += " no more";
        EXPECT_STREQ(copy.text(), "shared");
        EXPECT_STREQ(text.text(), "shared no more");
        text = copy;
        EXPECT_EQ(copy.c_str(), text.c_str());
    }
    EXPECT_EQ(dmnative_control::LiveBlocks(), before);
}

TEST(EngineString, EmptyTextsTakeNoMemory)
{
    const std::size_t before = dmnative_control::LiveBlocks();
    const DMString empty("");
    const DMString emptyToo("text", 0);
    const DMString null;
    EXPECT_STREQ(emptyToo.c_str(), "");
    EXPECT_EQ(null.c_str(), nullptr);
    EXPECT_EQ(dmnative_control::LiveBlocks(), before);
}

TEST(EngineData, EachGetterAnswersItsOwnTypeOnly)
{
    const DmtData text("x");
    const DmtData number(7);
    const DmtData flag(true);
    DMString asText("before");
    int asNumber = -1;
    bool asFlag = false;
    EXPECT_EQ(number.GetString(asText), DMT_UNSUPPORTED_FORMAT);
    EXPECT_STREQ(asText.text(), "before");
    EXPECT_EQ(text.GetInt(asNumber), DMT_UNSUPPORTED_FORMAT);
    EXPECT_EQ(text.GetBoolean(asFlag), DMT_UNSUPPORTED_FORMAT);
    EXPECT_EQ(flag.GetInt(asNumber), DMT_UNSUPPORTED_FORMAT);
    EXPECT_EQ(number.GetInt(asNumber), 0);
    EXPECT_EQ(asNumber, 7);
    EXPECT_EQ(flag.GetBoolean(asFlag), 0);
    EXPECT_TRUE(asFlag);
}

TEST(EngineData, AStringWithoutTextReadsAsTheEmptyText)
{
    const DmtData value(static_cast<const char *>(nullptr));
    EXPECT_EQ(value.GetType(), DmtData::String);
    DMString text("before");
    EXPECT_EQ(value.GetString(text), 0);
    EXPECT_STREQ(text.c_str(), "");
}

} // namespace
