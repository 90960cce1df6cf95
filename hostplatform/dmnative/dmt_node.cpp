#include "dmnative/dmt_node.h"
#include "dmt_engine_calls.h"
#include "dmt_node_table.h"
#include "dmt_tree_link.h"

#include <cstring>
#include <utility>

// ---- DmtPluginNode ------------------------------------------------------------------------------

DmtPluginNode::DmtPluginNode()
    : m_treeLink(nullptr), m_isLeaf(0), m_hasChunkedValue(0), m_reserved{}
{
}

DmtPluginNode::~DmtPluginNode()
{
    if (m_treeLink)
        m_treeLink->DropReference();
}

int DmtPluginNode::GetTree(JemSmartPtr<DmtTree> &tree) const
{
    if (!m_treeLink || !m_treeLink->Tree())
        return DMT_COMMAND_FAILED;
    tree = JemSmartPtr<DmtTree>(m_treeLink->Tree());
    return DMT_OK;
}

int DmtPluginNode::GetPath(DMString &path) const
{
    path = m_path;
    return DMT_OK;
}

int DmtPluginNode::GetAttributes(DmtAttributes &attributes) const
{
    DmtAttributes answer;
    answer.name = m_name;
    answer.title = m_title;
    answer.acl = m_acl;
    answer.type = m_isLeaf ? m_value.GetType() : static_cast<signed char>(DmtData::Node);
    DMString text;
    if (m_value.GetString(text) == DMT_OK)
        answer.sizeBytes = static_cast<std::uint32_t>(text.length());
    attributes = std::move(answer);
    return DMT_OK;
}

int DmtPluginNode::SetTitle(const char *)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginNode::SetAcl(const DmtAcl &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginNode::GetValue(DmtData &value)
{
    value = m_value;
    return DMT_OK;
}

int DmtPluginNode::SetValue(const DmtData &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginNode::GetChildNodes(DMVector<JemSmartPtr<DmtNode>> &children) const
{
    if (const auto status = engine_calls::Announce("Node::GetChildNodes", m_path.text()))
        return *status;
    if (m_isLeaf)
        return DMT_NOT_ALLOWED;
    if (!m_treeLink || !m_treeLink->Tree())
        return DMT_COMMAND_FAILED;
    const DmtPluginTree::NodeTable &nodes = *m_treeLink->Tree()->m_nodes;
    children.clear();
    children.reserve(nodes.CountListedChildren(m_path.text()));
    nodes.ForEachChild(m_path.text(), [&children](DmtNode *child) { children.push_back(child); });
    return DMT_OK;
}

bool DmtPluginNode::IsLeaf() const
{
    return m_isLeaf != 0;
}

int DmtPluginNode::GetChildNode(const char *name, JemSmartPtr<DmtNode> &child)
{
    if (!m_treeLink || !m_treeLink->Tree())
        return DMT_COMMAND_FAILED;
    const DMString childPath = m_path.empty() ? DMString(name) : m_path + "/" + name;
    return m_treeLink->Tree()->GetNode(childPath.text(), child);
}

int DmtPluginNode::Execute(const char *, DMString &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginNode::GetNodeName(DMString &name) const
{
    name = m_name;
    return DMT_OK;
}

DMString DmtPluginNode::GetName() const
{
    return m_name;
}

int DmtPluginNode::GetFirstChunk(DmtDataChunk &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginNode::GetNextChunk(DmtDataChunk &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginNode::SetFirstChunk(DmtDataChunk &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginNode::SetNextChunk(DmtDataChunk &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginNode::SetLastChunk(DmtDataChunk &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

std::uint8_t DmtPluginNode::HasChunkedValue() const
{
    return m_hasChunkedValue;
}

int DmtPluginNode::Init(JemSmartPtr<DmtPluginTree> tree, const char *path)
{
    return InitAs(tree, path, false, 0);
}

int DmtPluginNode::Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                        unsigned char hasChunkedValue)
{
    return InitAs(tree, path, false, hasChunkedValue);
}

int DmtPluginNode::Init(JemSmartPtr<DmtPluginTree> tree, const char *path, const DmtData &value,
                        unsigned char hasChunkedValue)
{
    m_value = value;
    return InitAs(tree, path, true, hasChunkedValue);
}

int DmtPluginNode::Init(JemSmartPtr<DmtPluginTree> tree, const char *path,
                        const DMStringVector &childNames)
{
    m_childNames = childNames;
    return InitAs(tree, path, false, 0);
}

void DmtPluginNode::TakePath(const DMString &path)
{
    m_path = path;
    if (m_treeLink && m_treeLink->Tree()) {
        m_name = m_treeLink->Tree()->m_nodes->NameOf(m_path);
        return;
    }
    const char *const slash = std::strrchr(m_path.text(), '/');
    m_name = DMString(slash ? slash + 1 : m_path.text());
}

int DmtPluginNode::InitAs(const JemSmartPtr<DmtPluginTree> &tree, const char *path, bool leaf,
                          unsigned char hasChunkedValue)
{
    m_isLeaf = leaf ? 1 : 0;
    m_hasChunkedValue = hasChunkedValue;
    DmtTreeLink *const earlierLink = m_treeLink;
    m_treeLink = tree ? tree->m_link : nullptr;
    if (m_treeLink)
        m_treeLink->TakeReference();
    if (earlierLink)
        earlierLink->DropReference();
    TakePath(path ? path : "");
    return DMT_OK;
}

// ---- DmtRWPluginNode ----------------------------------------------------------------------------

DmtRWPluginNode::DmtRWPluginNode() = default;

DmtRWPluginNode::~DmtRWPluginNode() = default;

int DmtRWPluginNode::SetTitle(const char *title)
{
    m_title = DMString(title);
    return DMT_OK;
}

int DmtRWPluginNode::SetAcl(const DmtAcl &acl)
{
    m_acl = acl;
    return DMT_OK;
}

int DmtRWPluginNode::SetValue(const DmtData &value)
{
    if (const auto status = engine_calls::Announce("RWNode::SetValue", m_path.text()))
        return *status;
    if (!m_isLeaf)
        return DMT_NOT_ALLOWED;
    m_value = value;
    return DMT_OK;
}

int DmtRWPluginNode::Rename(const char *newName)
{
    if (const auto status = engine_calls::Announce("RWNode::Rename", m_path.text()))
        return *status;
    if (m_path.empty() || !newName || newName[0] == '\0' || std::strchr(newName, '/'))
        return DMT_NOT_ALLOWED;
    if (!m_treeLink || !m_treeLink->Tree())
        return DMT_COMMAND_FAILED;
    DmtPluginTree::NodeTable &nodes = *m_treeLink->Tree()->m_nodes;
    if (nodes.Find(m_path.text()) != this)
        return DMT_NOT_FOUND;
    const DMString oldPath = m_path;
    return nodes.Rename(oldPath.text(), newName, [](DmtNode *node, const DMString &path) {
        static_cast<DmtPluginNode *>(node)->TakePath(path);
    });
}
