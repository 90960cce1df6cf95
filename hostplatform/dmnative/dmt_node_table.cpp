#include "dmt_node_table.h"

#include <algorithm>
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

DMString ToDMString(std::string_view text)
{
    return DMString(text.data() ? text.data() : "", text.size());
}

} // namespace

// ---- Names of children --------------------------------------------------------------------------

std::size_t NodeTable::ChildNames::Find(std::string_view name) const
{
    if (m_places) {
        const auto place = m_places->find(name);
        return place == m_places->end() ? NOWHERE : place->second;
    }
    for (std::size_t i = 0; i < m_names.size(); ++i)
        if (m_names[i].c_str() && m_names[i].c_str() == name)
            return i;
    return NOWHERE;
}

void NodeTable::ChildNames::Append(const DMString &name)
{
    constexpr std::size_t longestWithoutPlaces = 16;
    constexpr std::size_t usualCount = 4;
    if (m_names.empty())
        m_names.reserve(usualCount);
    m_names.push_back(name.c_str() ? name : DMString(""));
    if (m_places) {
        m_places->emplace(m_names.back().c_str(), m_names.size() - 1);
    } else if (m_names.size() > longestWithoutPlaces) {
        m_places = std::make_unique<std::unordered_map<std::string_view, std::size_t>>();
        for (std::size_t i = 0; i < m_names.size(); ++i)
            if (m_names[i].c_str())
                m_places->emplace(m_names[i].c_str(), i);
    }
}

void NodeTable::ChildNames::Forget(std::string_view name)
{
    const std::size_t place = Find(name);
    if (place == NOWHERE)
        return;
    if (m_places)
        m_places->erase(name);
    m_names[place] = DMString();
    if (++m_gaps > m_names.size() / 2)
        CloseGaps();
}

void NodeTable::ChildNames::Replace(std::string_view name, const DMString &newName)
{
    const std::size_t place = Find(name);
    if (place == NOWHERE)
        return;
    if (m_places) {
        m_places->erase(name);
        m_places->emplace(newName.c_str(), place);
    }
    m_names[place] = newName;
}

bool NodeTable::ChildNames::StartWith(const DMStringVector &names) const
{
    return static_cast<std::size_t>(names.size()) <= m_names.size() &&
           std::equal(names.begin(), names.end(), m_names.begin(),
                      [](const DMString &name, const DMString &listed) {
                          return listed.c_str() && name == listed;
                      });
}

void NodeTable::ChildNames::PutFirst(const DMStringVector &names)
{
    if (StartWith(names))
        return;
    ChildNames ordered;
    ordered.m_names.reserve(std::max(m_names.size(), static_cast<std::size_t>(names.size())));
    const auto appendNew = [&ordered](const DMString &name) {
        if (!ordered.Lists(name.text()))
            ordered.Append(name);
    };
    std::for_each(names.begin(), names.end(), appendNew);
    for (const DMString &name : m_names)
        if (name.c_str())
            appendNew(name);
    *this = std::move(ordered);
}

void NodeTable::ChildNames::CloseGaps()
{
    ChildNames closed;
    closed.m_names.reserve(m_names.size() - m_gaps);
    for (const DMString &name : m_names)
        if (name.c_str())
            closed.Append(name);
    *this = std::move(closed);
}

// ---- The table ----------------------------------------------------------------------------------

DmtNode *NodeTable::Find(std::string_view path) const
{
    const auto found = m_entries.find(path);
    return found == m_entries.end() ? nullptr : found->second.node.get();
}

void NodeTable::Set(const DMString &path, const JemSmartPtr<DmtNode> &node,
                    const DMStringVector &listedChildren)
{
    Entry &entry = m_entries[path];
    entry.node = node;
    entry.children.PutFirst(listedChildren);
    if (path.empty())
        return;
    const std::string_view parentPath = ParentPath(path.text());
    auto parent = m_entries.find(parentPath);
    if (parent == m_entries.end())
        parent = m_entries.try_emplace(ToDMString(parentPath)).first;
    ChildNames &siblings = parent->second.children;
    if (!siblings.Lists(LastSegment(path.text())))
        siblings.Append(NameOf(path.text()));
}

DMString NodeTable::NameOf(std::string_view path)
{
    const std::string_view name = LastSegment(path);
    DMString &late = m_lateNames[PathHash()(name) % m_lateNames.size()];
    if (late.text() != name || !late.c_str())
        late = ToDMString(name);
    return late;
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
        parent->second.children.Forget(LastSegment(removed));
    return true;
}

void NodeTable::RemoveBeneath(const std::string &path)
{
    const auto found = m_entries.find(std::string_view(path));
    if (found == m_entries.end())
        return;
    const auto entry = m_entries.extract(found);
    entry.mapped().children.ForEach(
        [this, &path](std::string_view child) { RemoveBeneath(ChildPath(path, child)); });
}

int NodeTable::Rename(std::string_view path, std::string_view newName,
                      const std::function<void(DmtNode *, const DMString &)> &moved)
{
    if (path.empty() || !Find(path))
        return DMT_NOT_FOUND;
    const std::string oldPath(path);
    const std::string newPath = ChildPath(ParentPath(oldPath), newName);
    if (m_entries.contains(std::string_view(newPath)))
        return DMT_ALREADY_EXISTS;
    MoveBeneath(oldPath, newPath, moved);
    const auto parent = m_entries.find(ParentPath(oldPath));
    if (parent != m_entries.end()) {
        parent->second.children.Forget(newName); // a mention without a node
        parent->second.children.Replace(LastSegment(oldPath), NameOf(newPath));
    }
    return DMT_OK;
}

void NodeTable::MoveBeneath(const std::string &path, const std::string &newPath,
                            const std::function<void(DmtNode *, const DMString &)> &moved)
{
    const auto found = m_entries.find(std::string_view(path));
    if (found == m_entries.end())
        return;
    auto entry = m_entries.extract(found);
    entry.key() = ToDMString(newPath);
    const auto &[placedPath, placed] = *m_entries.insert(std::move(entry)).position;
    if (placed.node)
        moved(placed.node.get(), placedPath);
    placed.children.ForEach([&](std::string_view child) {
        MoveBeneath(ChildPath(path, child), ChildPath(newPath, child), moved);
    });
}

int NodeTable::CountListedChildren(std::string_view path) const
{
    const auto entry = m_entries.find(path);
    return entry == m_entries.end() ? 0 : entry->second.children.Count();
}

void NodeTable::ForEachChild(std::string_view path,
                             const std::function<void(DmtNode *)> &visit) const
{
    const auto entry = m_entries.find(path);
    if (entry == m_entries.end())
        return;
    entry->second.children.ForEach([&](std::string_view child) {
        if (DmtNode *const node = Find(ChildPath(path, child)))
            visit(node);
    });
}
