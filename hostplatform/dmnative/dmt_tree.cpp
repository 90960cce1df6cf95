#include "dmnative/dmt_tree.h"
#include "dmnative_control.h"
#include "dmstring_view.h"
#include "dmt_engine_calls.h"
#include "dmt_node_table.h"
#include "dmt_tree_link.h"

#include <cstring>
#include <memory>
#include <utility>

// ---- Announcing calls ---------------------------------------------------------------------------

namespace {

dmnative_control::EngineCallObserver &Observer()
{
    static dmnative_control::EngineCallObserver observer;
    return observer;
}

/// A node of the engine's own, for trees that leave creating nodes to the base class.
class EngineNode final : public DmtRWPluginNode {};

} // namespace

std::optional<int> engine_calls::Announce(const char *call, const char *path)
{
    const dmnative_control::EngineCallObserver &observer = Observer();
    return observer ? observer(call, path ? path : "") : std::nullopt;
}

void dmnative_control::SetEngineCallObserver(EngineCallObserver observer)
{
    Observer() = std::move(observer);
}

// ---- DmtPluginTree ------------------------------------------------------------------------------

DmtPluginTree::DmtPluginTree() : m_link(new DmtTreeLink(this)), m_nodes(new NodeTable)
{
    m_link->TakeReference();
}

DmtPluginTree::~DmtPluginTree()
{
    m_link->Cut();
    delete m_nodes;
    m_link->DropReference();
}

int DmtPluginTree::GetNode(const char *path, JemSmartPtr<DmtNode> &node)
{
    if (const auto status = engine_calls::Announce("Tree::GetNode", path))
        return *status;
    DmtNode *const found = m_nodes->Find(path ? path : "");
    if (!found)
        return DMT_NOT_FOUND;
    node = JemSmartPtr<DmtNode>(found);
    return DMT_OK;
}

int DmtPluginTree::DeleteNode(const char *)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::Clone(const char *, const char *)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::RenameNode(const char *, const char *)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::CreateLeafNode(const char *, JemSmartPtr<DmtNode> &, const DmtData &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::CreateLeafNode(const char *, JemSmartPtr<DmtNode> &, const DmtData &,
                                  unsigned char)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::CreateInteriorNode(const char *, JemSmartPtr<DmtNode> &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::GetChildValuesMap(const char *, DmtChildValuesMap &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::SetChildValuesMap(const char *, const DmtChildValuesMap &)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::GetChildNodeNames(const char *path, DMStringVector &names)
{
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node))
        return status;
    DMVector<JemSmartPtr<DmtNode>> children;
    if (const int status = node->GetChildNodes(children))
        return status;
    names.clear();
    for (const JemSmartPtr<DmtNode> &child : children)
        names.push_back(child->GetName());
    return DMT_OK;
}

int DmtPluginTree::Flush()
{
    return DMT_OK;
}

int DmtPluginTree::Commit()
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::Rollback()
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::Begin()
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

bool DmtPluginTree::IsAtomic() const
{
    return false;
}

DMString DmtPluginTree::GetPrincipal() const
{
    return DMString("");
}

int DmtPluginTree::OnAdd(const char *, DMVector<unsigned char> &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::OnDelete(const char *)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::Synchronize(const char *, DMVector<DmtOverlayPluginSyncData> &)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::Release()
{
    return DMT_OK;
}

JemSmartPtr<DmtNode> DmtPluginTree::FindAddedNode(const char *)
{
    return {};
}

JemSmartPtr<DmtNode> DmtPluginTree::FindAddedParentNode(const char *)
{
    return {};
}

int DmtPluginTree::SetAddedNode(JemSmartPtr<DmtNode>)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::RemoveAddedNode(const char *)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::Init(const char *rootPath)
{
    m_rootPath = DMString(rootPath);
    return DMT_OK;
}

int DmtPluginTree::GetFullPath(const char *path, DMString &fullPath) const
{
    fullPath = path && path[0] ? m_rootPath + "/" + path : m_rootPath;
    return DMT_OK;
}

int DmtPluginTree::Verify()
{
    return DMT_OK;
}

int DmtPluginTree::GetParameter(const char *, DMString &)
{
    return DMT_NOT_FOUND;
}

int DmtPluginTree::LogCommand(unsigned char, const char *, unsigned char, const DmtNode *)
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtPluginTree::RemoveNode(const char *)
{
    return DMT_NOT_ALLOWED;
}

int DmtPluginTree::SetNode(const char *path, JemSmartPtr<DmtNode> node)
{
    if (const auto status = engine_calls::Announce("Tree::SetNode", path))
        return *status;
    if (!node)
        return DMT_COMMAND_FAILED;
    const auto *const pluginNode = static_cast<const DmtPluginNode *>(node.get());
    // A node is registered at its own path: the table shares that text and its name.
    const bool isOwnPath = ViewOf(pluginNode->m_path) == (path ? path : "");
    if (isOwnPath) {
        m_nodes->Set(pluginNode->m_path, pluginNode->m_name, node, pluginNode->m_childNames);
    } else {
        const DMString otherPath(path ? path : "");
        m_nodes->Set(otherPath, m_nodes->NameOf(otherPath), node, pluginNode->m_childNames);
    }
    return DMT_OK;
}

int DmtPluginTree::DropNode(const char *path)
{
    return m_nodes->Remove(path ? path : "") ? DMT_OK : DMT_NOT_FOUND;
}

// ---- DmtAPIPluginTree: overlays are not modelled ------------------------------------------------

DmtAPIPluginTree::DmtAPIPluginTree() = default;

DmtAPIPluginTree::~DmtAPIPluginTree() = default;

int DmtAPIPluginTree::OnAdd(const char *path, DMVector<unsigned char> &cookie)
{
    return DmtPluginTree::OnAdd(path, cookie);
}

int DmtAPIPluginTree::OnDelete(const char *path)
{
    return DmtPluginTree::OnDelete(path);
}

int DmtAPIPluginTree::Synchronize(const char *path, DMVector<DmtOverlayPluginSyncData> &changes)
{
    return DmtPluginTree::Synchronize(path, changes);
}

JemSmartPtr<DmtNode> DmtAPIPluginTree::FindAddedNode(const char *path)
{
    return DmtPluginTree::FindAddedNode(path);
}

JemSmartPtr<DmtNode> DmtAPIPluginTree::FindAddedParentNode(const char *path)
{
    return DmtPluginTree::FindAddedParentNode(path);
}

int DmtAPIPluginTree::SetAddedNode(JemSmartPtr<DmtNode> node)
{
    return DmtPluginTree::SetAddedNode(node);
}

int DmtAPIPluginTree::RemoveAddedNode(const char *path)
{
    return DmtPluginTree::RemoveAddedNode(path);
}

// ---- DmtRWPluginTree ----------------------------------------------------------------------------

DmtRWPluginTree::DmtRWPluginTree() : m_logFile(nullptr) {}

DmtRWPluginTree::~DmtRWPluginTree() = default;

int DmtRWPluginTree::DeleteNode(const char *path)
{
    if (const auto status = engine_calls::Announce("RWTree::DeleteNode", path))
        return *status;
    return DropNode(path);
}

int DmtRWPluginTree::RenameNode(const char *path, const char *newName)
{
    JemSmartPtr<DmtNode> node;
    if (const int status = GetNode(path, node))
        return status;
    return static_cast<DmtRWPluginNode *>(node.get())->Rename(newName);
}

int DmtRWPluginTree::CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node,
                                    const DmtData &value)
{
    return CreateLeafNodeForwarder(path, node, value);
}

int DmtRWPluginTree::CreateLeafNode(const char *path, JemSmartPtr<DmtNode> &node,
                                    const DmtData &value, unsigned char)
{
    return CreateLeafNodeForwarder(path, node, value);
}

int DmtRWPluginTree::CreateInteriorNode(const char *path, JemSmartPtr<DmtNode> &node)
{
    return CreateInteriorNodeInternal(path, node, DMStringVector());
}

int DmtRWPluginTree::GetChildValuesMap(const char *path, DmtChildValuesMap &values)
{
    return DmtAPIPluginTree::GetChildValuesMap(path, values);
}

int DmtRWPluginTree::SetChildValuesMap(const char *path, const DmtChildValuesMap &values)
{
    return DmtAPIPluginTree::SetChildValuesMap(path, values);
}

int DmtRWPluginTree::Flush()
{
    return DMT_OK;
}

int DmtRWPluginTree::Commit()
{
    return DMT_OK;
}

int DmtRWPluginTree::Rollback()
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

int DmtRWPluginTree::Begin()
{
    return DMT_FEATURE_NOT_SUPPORTED;
}

bool DmtRWPluginTree::IsAtomic() const
{
    return false;
}

int DmtRWPluginTree::Verify()
{
    return DMT_OK;
}

int DmtRWPluginTree::LogCommand(unsigned char, const char *, unsigned char, const DmtNode *)
{
    return DMT_OK;
}

int DmtRWPluginTree::RemoveNode(const char *path)
{
    return DropNode(path);
}

int DmtRWPluginTree::CreateLeafNodeForwarder(const char *path, JemSmartPtr<DmtNode> &node,
                                             const DmtData &value)
{
    return CreateLeafNodeInternal(path, node, value);
}

void DmtRWPluginTree::setLogFileHandle(DMFileHandler *file)
{
    m_logFile = file;
}

namespace {

/// Registers a node of the engine's own, initialised with what follows the tree and the path.
template <class... Contents>
int CreateNode(DmtPluginTree &tree, const char *path, JemSmartPtr<DmtNode> &node,
               const Contents &...contents)
{
    auto *const created = new EngineNode;
    const JemSmartPtr<DmtNode> holder(created);
    created->Init(JemSmartPtr<DmtPluginTree>(&tree), path, contents...);
    if (const int status = tree.SetNode(path, holder))
        return status;
    node = holder;
    return DMT_OK;
}

} // namespace

int DmtRWPluginTree::CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                                const DMStringVector &childNames)
{
    return CreateNode(*this, path, node, childNames);
}

int DmtRWPluginTree::CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                            const DmtData &value)
{
    constexpr unsigned char inOnePiece = 0;
    return CreateNode(*this, path, node, value, inOnePiece);
}
