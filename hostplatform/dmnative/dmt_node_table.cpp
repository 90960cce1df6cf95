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

std::string_view LastSegment(std::string_view path)
{
    std::size_t begin = path.size();
    while (begin > 0 && path[begin - 1] != '/')
        --begin;
    return path.substr(begin);
}

/// What is before the last segment of a path and the slash in front of it.
std::string_view ParentOf(std::string_view path, std::string_view lastSegment)
{
    return path.substr(0, path.size() - std::min(path.size(), lastSegment.size() + 1));
}

std::string_view ParentPath(std::string_view path)
{
    return ParentOf(path, LastSegment(path));
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
    const auto isAt = [this, name](std::size_t i) {
        return m_names[i].c_str() && ViewOf(m_names[i]) == name;
    };
    // Children mostly come in the order in which they are listed.
    if (m_next < m_names.size() && isAt(m_next))
        return m_next++;
    for (std::size_t i = 0; i < m_names.size(); ++i) {
        if (isAt(i)) {
            m_next = i + 1;
            return i;
        }
    }
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
        m_places->emplace(ViewOf(m_names.back()), m_names.size() - 1);
    } else if (m_names.size() > longestWithoutPlaces) {
        m_places = std::make_unique<std::unordered_map<std::string_view, std::size_t>>();
        for (std::size_t i = 0; i < m_names.size(); ++i)
            if (m_names[i].c_str())
                m_places->emplace(ViewOf(m_names[i]), i);
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
        m_places->emplace(ViewOf(newName), place);
    }
    m_names[place] = newName;
}

bool NodeTable::ChildNames::StartWith(const DMStringVector &names) const
{
    return static_cast<std::size_t>(names.size()) <= m_names.size() &&
           std::equal(names.begin(), names.end(), m_names.begin(),
                      [](const DMString &name, const DMString &listed) {
                          return listed.c_str() && ViewOf(name) == ViewOf(listed);
                      });
}

void NodeTable::ChildNames::PutFirst(const DMStringVector &names)
{
    if (StartWith(names))
        return;
    ChildNames ordered;
    ordered.m_names.reserve(std::max(m_names.size(), static_cast<std::size_t>(names.size())));
    const auto appendNew = [&ordered](const DMString &name) {
        if (!ordered.Lists(ViewOf(name)))
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
    const auto found = m_nodes.find(path);
    return found == m_nodes.end() ? nullptr : found->second.get();
}

NodeTable::ChildNames &NodeTable::ListOf(std::string_view path)
{
    if (!m_lateList || ViewOf(m_lateList->first) != path) {
        auto list = m_lists.find(path);
        if (list == m_lists.end())
            list = m_lists.try_emplace(ToDMString(path)).first;
        m_lateList = &*list;
    }
    return m_lateList->second;
}

void NodeTable::Set(const DMString &path, const DMString &name, const JemSmartPtr<DmtNode> &node,
                    const DMStringVector &listedChildren)
{
    m_nodes[path] = node;
    if (!path.empty()) {
        ChildNames &siblings = ListOf(ParentOf(ViewOf(path), ViewOf(name)));
        if (!siblings.Lists(ViewOf(name)))
            siblings.Append(name);
    }
    if (!listedChildren.empty()) {
        m_lateList = &*m_lists.try_emplace(path).first; // which its children will ask for
        m_lateList->second.PutFirst(listedChildren);
    }
}

DMString NodeTable::NameOf(const DMString &path)
{
    const std::string_view name = LastSegment(ViewOf(path));
    if (name.size() == path.length() && path.c_str())
        return path;
    if (name.empty())
        return DMString("");
    const std::size_t mark = name.size() + static_cast<unsigned char>(name.front()) * 7u +
                             static_cast<unsigned char>(name.back()) * 31u;
    DMString &late = m_lateNames[mark % m_lateNames.size()];
    if (ViewOf(late) != name)
        late = ToDMString(name);
    return late;
}

bool NodeTable::Remove(std::string_view path)
{
    if (!Find(path))
        return false;
    m_lateList = nullptr;
    if (path.empty()) {
        m_lists.clear();
        m_nodes.clear();
        return true;
    }
    const std::string removed(path);
    RemoveBeneath(removed);
    const auto parent = m_lists.find(ParentPath(removed));
    if (parent != m_lists.end())
        parent->second.Forget(LastSegment(removed));
    return true;
}

void NodeTable::RemoveBeneath(const std::string &path)
{
    ByPath<JemSmartPtr<DmtNode>>::node_type node; // goes after what is beneath it
    if (const auto found = m_nodes.find(std::string_view(path)); found != m_nodes.end())
        node = m_nodes.extract(found);
    if (const auto found = m_lists.find(std::string_view(path)); found != m_lists.end()) {
        const auto list = m_lists.extract(found);
        list.mapped().ForEach(
            [this, &path](std::string_view child) { RemoveBeneath(ChildPath(path, child)); });
    }
}

int NodeTable::Rename(std::string_view path, std::string_view newName,
                      const std::function<void(DmtNode *, const DMString &)> &moved)
{
    if (path.empty() || !Find(path))
        return DMT_NOT_FOUND;
    const std::string oldPath(path);
    const std::string newPath = ChildPath(ParentPath(oldPath), newName);
    if (m_nodes.contains(std::string_view(newPath)) || m_lists.contains(std::string_view(newPath)))
        return DMT_ALREADY_EXISTS;
    m_lateList = nullptr;
    MoveBeneath(oldPath, newPath, moved);
    const auto parent = m_lists.find(ParentPath(oldPath));
    if (parent != m_lists.end()) {
        parent->second.Forget(newName); // a mention without a node
        parent->second.Replace(LastSegment(oldPath), NameOf(DMString(newPath.c_str())));
    }
    return DMT_OK;
}

void NodeTable::MoveBeneath(const std::string &path, const std::string &newPath,
                            const std::function<void(DmtNode *, const DMString &)> &moved)
{
    const DMString newKey = ToDMString(newPath);
    if (const auto found = m_nodes.find(std::string_view(path)); found != m_nodes.end()) {
        auto node = m_nodes.extract(found);
        node.key() = newKey;
        moved(m_nodes.insert(std::move(node)).position->second.get(), newKey);
    }
    if (const auto found = m_lists.find(std::string_view(path)); found != m_lists.end()) {
        auto list = m_lists.extract(found);
        list.key() = newKey;
        m_lists.insert(std::move(list)).position->second.ForEach([&](std::string_view child) {
            MoveBeneath(ChildPath(path, child), ChildPath(newPath, child), moved);
        });
    }
}

int NodeTable::CountListedChildren(std::string_view path) const
{
    const auto list = m_lists.find(path);
    return list == m_lists.end() ? 0 : list->second.Count();
}

void NodeTable::ForEachChild(std::string_view path,
                             const std::function<void(DmtNode *)> &visit) const
{
    const auto list = m_lists.find(path);
    if (list == m_lists.end())
        return;
    std::string childPath = ChildPath(path, "");
    const std::size_t parentLength = childPath.size();
    list->second.ForEach([&](std::string_view child) {
        childPath.resize(parentLength);
        childPath += child;
        if (DmtNode *const node = Find(childPath))
            visit(node);
    });
}
