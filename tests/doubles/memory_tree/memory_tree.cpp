#include "memory_tree.h"

#include <algorithm>

class MemoryNode final : public DmtRWPluginNode {
public:
    explicit MemoryNode(MemoryTree &tree) : m_tree(tree) {}

    int GetValue(DmtData &value) override
    {
        if (const int status = m_tree.note("get ", m_path.text()))
            return status;
        const bool hasNone = m_tree.withoutValue.contains(m_path.text()) ||
                             m_tree.withoutValueUntilSet.contains(m_path.text());
        return hasNone ? 0 : DmtRWPluginNode::GetValue(value);
    }
    int SetValue(const DmtData &value) override
    {
        if (const int status = m_tree.note("set ", m_path.text()))
            return status;
        m_tree.withoutValueUntilSet.erase(m_path.text());
        return DmtRWPluginNode::SetValue(value);
    }

    int Execute(const char *argument, DMString &result) override
    {
        const auto executable = m_tree.executables.find(m_path.text());
        if (executable == m_tree.executables.end())
            return DmtRWPluginNode::Execute(argument, result);
        const std::string call = std::string("execute ") + m_path.text() + ' ' + argument;
        if (const int status = m_tree.note(call, ""))
            return status;
        const std::string &deleted = executable->second;
        return deleted.empty() ? 0 : m_tree.DmtRWPluginTree::DeleteNode(deleted.c_str());
    }

private:
    MemoryTree &m_tree;
};

JemSmartPtr<MemoryTree> MemoryTree::create()
{
    const JemSmartPtr<MemoryTree> tree(new MemoryTree);
    tree->Init("./Memory");
    tree->addInterior("");
    return tree;
}

void MemoryTree::addInterior(const char *path)
{
    auto *const node = new MemoryNode(*this);
    const JemSmartPtr<DmtNode> holder(node);
    node->Init(JemSmartPtr<DmtPluginTree>(this), path);
    SetNode(path, holder);
}

void MemoryTree::addLeaf(const char *path, const DmtData &value)
{
    auto *const node = new MemoryNode(*this);
    const JemSmartPtr<DmtNode> holder(node);
    node->Init(JemSmartPtr<DmtPluginTree>(this), path, value, 0);
    SetNode(path, holder);
}

int MemoryTree::note(const std::string &call, const char *path)
{
    const std::string words = call + path;
    const bool isFirst = std::ranges::find(calls, words) == calls.end();
    calls.push_back(words);
    if (const auto effect = sideEffects.find(words); isFirst && effect != sideEffects.end()) {
        JemSmartPtr<DmtNode> node;
        GetNode(effect->second.first.c_str(), node);
        static_cast<DmtRWPluginNode *>(node.get())
            ->DmtRWPluginNode::SetValue(effect->second.second);
    }
    const auto failure = failures.find(words);
    if (failure != failures.end())
        return failure->second;
    const auto later = failuresLater.find(words);
    return isFirst || later == failuresLater.end() ? 0 : later->second;
}

int MemoryTree::DeleteNode(const char *path)
{
    const int status = note("delete ", path);
    return status ? status : DmtRWPluginTree::DeleteNode(path);
}

int MemoryTree::RenameNode(const char *path, const char *newName)
{
    const int status = note("rename ", path);
    return status ? status : DmtRWPluginTree::RenameNode(path, newName);
}

int MemoryTree::GetChildValuesMap(const char *path, DmtChildValuesMap &values)
{
    values.clear();
    if (const int status = note("read all ", path))
        return status;
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node))
        return status;
    DMVector<JemSmartPtr<DmtNode>> children;
    if (const int status = node->GetChildNodes(children))
        return status;
    for (const JemSmartPtr<DmtNode> &child : children) {
        if (!child->IsLeaf())
            continue;
        DmtData value;
        if (const int status = child->GetValue(value))
            return status;
        values.put(child->GetName(), value);
    }
    return DMT_OK;
}

int MemoryTree::SetChildValuesMap(const char *path, const DmtChildValuesMap &values)
{
    if (const int status = note("write all ", path))
        return status;
    for (int i = 0; i < values.size(); ++i) {
        JemSmartPtr<DmtNode> child;
        const DMString childPath = DMString(path) + "/" + values.keys()[i];
        if (const int status = GetNode(childPath.text(), child))
            return status;
        if (const int status = child->SetValue(values.values()[i]))
            return status;
    }
    return DMT_OK;
}

int MemoryTree::CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                           const DMStringVector &)
{
    if (const int status = note("create ", path))
        return status;
    addInterior(path);
    return GetNode(path, node);
}

int MemoryTree::CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                       const DmtData &value)
{
    if (const int status = note("create ", path))
        return status;
    addLeaf(path, value);
    if (const int status = note("keep ", path))
        return status;
    return GetNode(path, node);
}
