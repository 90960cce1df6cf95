#include "dmt_node_table.h"

#include <unordered_set>
#include <utility>

using NodeTable = DmtPluginTree::NodeTable;

namespace {

std::string ChildPath(std::string_view path, std::string_view child)
{
    std::string joined(path);
    if (!joined.empty())
        joined += '/';
    joined += child;
    return joined;
}

std::string_view ParentPath(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view LastSegment(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace

// ---- Children of one entry ----------------------------------------------------------------------

void NodeTable::Entry::Append(std::string_view child)
{
    const auto place = m_children.emplace(m_children.end(), child);
    m_places.emplace(*place, place);
}

void NodeTable::Entry::Forget(std::string_view child)
{
    if (const auto place = m_places.extract(child))
        m_children.erase(place.mapped());
}

void NodeTable::Entry::Replace(std::string_view child, std::string_view newName)
{
    auto place = m_places.extract(child);
    if (!place)
        return;
    *place.mapped() = newName;
    place.key() = *place.mapped();
    m_places.insert(std::move(place));
}

void NodeTable::Entry::PutFirst(const DMStringVector &children)
{
    std::list<std::string> ordered;
    std::unordered_set<std::string_view> placed;
    for (const DMString &child : children) {
        const std::string_view name(child.text());
        if (!Lists(name))
            Append(name);
        const auto place = m_places.find(name)->second;
        if (placed.insert(*place).second)
            ordered.splice(ordered.end(), m_children, place);
    }
    ordered.splice(ordered.end(), m_children);
    m_children.swap(ordered);
}

// ---- The table ----------------------------------------------------------------------------------

DmtNode *NodeTable::Find(std::string_view path) const
{
    const auto found = m_entries.find(path);
    return found == m_entries.end() ? nullptr : found->second.node.get();
}

void NodeTable::Set(std::string_view path, const JemSmartPtr<DmtNode> &node,
                    const DMStringVector &listedChildren)
{
    Entry &entry = m_entries[std::string(path)];
    entry.node = node;
    entry.PutFirst(listedChildren);
    if (path.empty())
        return;
    Entry &parent = m_entries[std::string(ParentPath(path))];
    if (!parent.Lists(LastSegment(path)))
        parent.Append(LastSegment(path));
}

bool NodeTable::Remove(std::string_view path)
{
    if (!Find(path))
        return false;
    if (path.empty()) {
        m_entries.clear();
        return true;
    }
    const std::string removed(path);
    RemoveBeneath(removed);
    const auto parent = m_entries.find(ParentPath(removed));
    if (parent != m_entries.end())
        parent->second.Forget(LastSegment(removed));
    return true;
}

void NodeTable::RemoveBeneath(const std::string &path)
{
    const auto entry = m_entries.extract(path);
    if (!entry)
        return;
    for (const std::string &child : entry.mapped().Children())
        RemoveBeneath(ChildPath(path, child));
}

int NodeTable::Rename(std::string_view path, std::string_view newName,
                      const std::function<void(DmtNode *, const char *)> &moved)
{
    if (path.empty() || !Find(path))
        return DMT_NOT_FOUND;
    const std::string oldPath(path);
    const std::string newPath = ChildPath(ParentPath(oldPath), newName);
    if (m_entries.contains(newPath))
        return DMT_ALREADY_EXISTS;
    MoveBeneath(oldPath, newPath, moved);
    const auto parent = m_entries.find(ParentPath(oldPath));
    if (parent != m_entries.end()) {
        parent->second.Forget(newName); // a mention without a node
        parent->second.Replace(LastSegment(oldPath), newName);
    }
    return DMT_OK;
}

void NodeTable::MoveBeneath(const std::string &path, const std::string &newPath,
                            const std::function<void(DmtNode *, const char *)> &moved)
{
    auto entry = m_entries.extract(path);
    if (!entry)
        return;
    entry.key() = newPath;
    const Entry &placed = m_entries.insert(std::move(entry)).position->second;
    if (placed.node)
        moved(placed.node.get(), newPath.c_str());
    for (const std::string &child : placed.Children())
        MoveBeneath(ChildPath(path, child), ChildPath(newPath, child), moved);
}

int NodeTable::CountListedChildren(std::string_view path) const
{
    const auto entry = m_entries.find(path);
    return entry == m_entries.end() ? 0 : static_cast<int>(entry->second.Children().size());
}

void NodeTable::ForEachChild(std::string_view path,
                             const std::function<void(DmtNode *)> &visit) const
{
    const auto entry = m_entries.find(path);
    if (entry == m_entries.end())
        return;
    for (const std::string &child : entry->second.Children())
        if (DmtNode *const node = Find(ChildPath(path, child)))
            visit(node);
}
