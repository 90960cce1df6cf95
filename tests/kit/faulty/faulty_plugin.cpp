// A plug-in with a fault, which $KUB_FAULT names; without one it is good.
//
//     ./Vendor/Faulty
//         Settings     leaves are added, changed, renamed and deleted here
//             Colour   "green" at each mount
//         Empty        Exec on it is allowed

#include "dmnative/dmt_plugin_api.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr char rootPath[] = "./Vendor/Faulty";
constexpr unsigned char inOnePiece = 0;

bool has(std::string_view fault)
{
    const char *const wanted = std::getenv("KUB_FAULT");
    return wanted && fault == wanted;
}

/// A text that nobody gives back.
void loseText()
{
    if (void *const block = DmtMemAllocEx(sizeof(DMString), "faulty_plugin", __LINE__))
        new (block) DMString("lost");
}

std::string readsFile()
{
    return std::string(std::getenv("KUB_STATE_DIR")) + "/reads";
}

bool isSpoilt = false; // so that nothing can be mounted any more

struct FaultyNode : DmtRWPluginNode {
    int GetValue(DmtData &value) override
    {
        if (has("crash-on-read"))
            std::abort();
        if (has("exit-on-read"))
            std::exit(0);
        if (has("text-leaked-by-read"))
            loseText();
        if (has("reference-leaked-by-read"))
            TakeReference();
        JemSmartPtr<DmtTree> tree;
        if (has("tree-leaked-by-read") && GetTree(tree) == DMT_OK)
            tree->TakeReference();
        if (has("reference-dropped-by-read"))
            DropReference();
        if (has("ignored-allocation-failure")) {
            void *const block = DmtMemAllocEx(16, "faulty_plugin", __LINE__);
            std::memset(block, 0, 16);
            DmtMemFree(block);
        }
        if (has("block-given-back-twice")) {
            void *const block = DmtMemAllocEx(16, "faulty_plugin", __LINE__);
            DmtMemFree(block);
            DmtMemFree(block);
        }
        if (has("heap-block-overrun")) {
            volatile char *const block =
                static_cast<char *>(DmtMemAllocEx(16, "faulty_plugin", __LINE__));
            block[16] = 'x';
            DmtMemFree(const_cast<char *>(block));
        }
        if (has("file-written-by-read")) {
            if (std::FILE *const reads = std::fopen(readsFile().c_str(), "a")) {
                std::fputs("read\n", reads);
                std::fclose(reads);
            }
        }
        if (has("output-changed-by-failure")) {
            value = DmtData("half");
            return DMT_COMMAND_FAILED;
        }
        return DmtRWPluginNode::GetValue(value);
    }
    int SetValue(const DmtData &value) override
    {
        DMString text;
        value.GetString(text);
        if (has("hang-on-value") && m_isLeaf && text == "nan")
            for (;;)
                ::pause();
        isSpoilt = isSpoilt || (has("mount-spoilt-by-value") && text == "%s%n%s%n");
        if (has("value-cut-by-write"))
            return DmtRWPluginNode::SetValue(DmtData(DMString(text.text(), 2).text()));
        return DmtRWPluginNode::SetValue(value);
    }
    int GetNodeName(DMString &name) const override
    {
        return has("unset-output") ? int(DMT_OK) : DmtRWPluginNode::GetNodeName(name);
    }
    int GetChildNode(const char *name, JemSmartPtr<DmtNode> &child) override
    {
        if (has("crash-on-empty-name") && name[0] == '\0')
            *const_cast<volatile char *>(name - 4096 * 4096) = 0; // far from any of its own
        return DmtRWPluginNode::GetChildNode(name, child);
    }
    int Execute(const char *argument, DMString &result) override
    {
        if (has("text-leaked-by-execute"))
            loseText();
        return has("unknown-status") ? 299 : DmtRWPluginNode::Execute(argument, result);
    }
};

struct FaultyTree : DmtRWPluginTree {
    FaultyTree() { Init(rootPath); }

    template <class... Contents>
    void add(const char *path, const Contents &...contents)
    {
        auto *const node = new FaultyNode;
        const JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path, contents...);
        SetNode(path, holder);
    }

    int DeleteNode(const char *path) override
    {
        return has("node-left-by-delete") ? int(DMT_OK) : DmtRWPluginTree::DeleteNode(path);
    }
    int RenameNode(const char *path, const char *newName) override
    {
        const int status = DmtRWPluginTree::RenameNode(path, newName);
        JemSmartPtr<DmtNode> renamed;
        if (status == DMT_OK && has("value-lost-by-rename") &&
            GetNode("Settings/Renamed", renamed) == DMT_OK)
            renamed->SetValue(DmtData(""));
        return status;
    }
    using DmtRWPluginTree::CreateLeafNode;
    int CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node, const DmtData &value) override
    {
        return has("node-missing-after-add") ? int(DMT_OK)
                                             : DmtRWPluginTree::CreateLeafNode(path, node, value);
    }
};

/// A table of which nothing but one entry is the tree's.
void clearSlot(DmtPluginTree *tree, int slot)
{
    constexpr int size = 40;
    static void *copy[size + 2];
    void **table;
    std::memcpy(&table, static_cast<void *>(tree), sizeof table);
    std::memcpy(copy, table - 2, sizeof copy);
    copy[slot + 2] = nullptr;
    void **const changed = copy + 2;
    std::memcpy(static_cast<void *>(tree), &changed, sizeof changed);
}

bool serves(const char *root)
{
    return has("near-miss-root") ? std::strncmp(root, rootPath, sizeof rootPath - 1) == 0
                                 : std::strcmp(root, rootPath) == 0;
}

} // namespace

#define KUB_EXPORT extern "C" __attribute__((visibility("default")))

#ifndef KUB_WITHOUT_VERSION
KUB_EXPORT int DMT_PluginLib_GetAPIVersion()
{
    return has("wrong-version") ? DMT_PLUGIN_API_VERSION + 1 : DMT_PLUGIN_API_VERSION;
}
#endif

KUB_EXPORT int DMT_PluginLib_Data_GetPluginTree(const char *root, void *,
                                                JemSmartPtr<DmtPluginTree> &tree)
{
    if (!serves(root))
        return has("root-refused-as-failure") ? DMT_FAILED : DMT_FEATURE_NOT_SUPPORTED;
    if (isSpoilt)
        return DMT_FAILED;
    const bool isAfterReads =
        has("no-tree-after-reads") && ::access(readsFile().c_str(), F_OK) == 0;
    if (has("no-tree") || isAfterReads)
        return DMT_OK;
    auto *const made = new FaultyTree;
    tree = JemSmartPtr<DmtPluginTree>(made);
    made->add("");
    made->add("Settings");
    made->add("Settings/Colour", DmtData("green"), inOnePiece);
    made->add("Empty");
    if (has("text-leaked-by-mount"))
        loseText();
    if (has("tree-never-dropped"))
        made->TakeReference();
    if (has("empty-slot"))
        clearSlot(made, 29);
    return DMT_OK;
}
