#include "dmt_node_table.h"

#include <utility>

using NodeTable = DmtPluginTree::NodeTable;

namespace {

/// Calls visit with each segment of the path; the empty path has none. A path such as "a//b" has an
/// empty segment, which is a name like any other. Stops when visit returns false.
template <class Visit>
void ForEachSegment(std::string_view path, Visit visit)
{
    if (path.empty())
        return;
    for (;;) {
        const std::size_t slash = path.find('/');
        if (!visit(path.substr(0, slash)) || slash == std::string_view::npos)
            return;
        path.remove_prefix(slash + 1);
    }
}

} // namespace

NodeTable::Entry *NodeTable::Entry::Child(std::string_view childName) const
{
    const auto found = byName.find(childName);
    return found == byName.end() ? nullptr : found->second->get();
}

NodeTable::Entry *NodeTable::Entry::ChildOrNew(std::string_view childName)
{
    if (Entry *const child = Child(childName))
        return child;
    auto child = std::make_unique<Entry>();
    child->name = childName;
    child->parent = this;
    Entry *const created = child.get();
    byName.emplace(created->name, children.insert(children.end(), std::move(child)));
    return created;
}

void NodeTable::Entry::Drop(std::string_view childName)
{
    const auto place = byName.find(childName);
    const auto position = place->second;
    byName.erase(place); // its key views into the child
    children.erase(position);
}

NodeTable::Entry *NodeTable::Locate(std::string_view path) const
{
    Entry *entry = m_root.get();
    ForEachSegment(path, [&entry](std::string_view segment) {
        entry = entry->Child(segment);
        return entry != nullptr;
    });
    return entry;
}

NodeTable::Entry *NodeTable::LocateOrNew(std::string_view path)
{
    Entry *entry = m_root.get();
    ForEachSegment(path, [&entry](std::string_view segment) {
        entry = entry->ChildOrNew(segment);
        return true;
    });
    return entry;
}

DmtNode *NodeTable::Find(std::string_view path) const
{
    const Entry *const entry = Locate(path);
    return entry ? entry->node.get() : nullptr;
}

void NodeTable::Set(std::string_view path, const JemSmartPtr<DmtNode> &node,
                    const DMStringVector &listedChildren)
{
    Entry *const entry = LocateOrNew(path);
    entry->node = node;
    // Every listed child moves to the place in front of the unlisted ones, in turn.
    const auto firstUnlisted = entry->children.insert(entry->children.begin(), nullptr);
    for (const DMString &childName : listedChildren) {
        entry->ChildOrNew(childName.text());
        const auto place = entry->byName.find(childName.text())->second;
        entry->children.splice(firstUnlisted, entry->children, place);
    }
    entry->children.erase(firstUnlisted);
}

bool NodeTable::Remove(std::string_view path)
{
    Entry *const entry = Locate(path);
    if (!entry || !entry->node)
        return false;
    if (!entry->parent) {
        m_root = std::make_unique<Entry>();
        return true;
    }
    entry->parent->Drop(entry->name);
    return true;
}

int NodeTable::Rename(std::string_view path, std::string_view newName,
                      const std::function<void(DmtNode *, const char *)> &moved)
{
    Entry *const entry = Locate(path);
    if (!entry || !entry->node || !entry->parent)
        return DMT_NOT_FOUND;
    Entry *const parent = entry->parent;
    if (const Entry *const taken = parent->Child(newName)) {
        if (taken->node || !taken->children.empty())
            return DMT_ALREADY_EXISTS;
        parent->Drop(newName); // only a mention
    }
    const auto place = parent->byName.find(entry->name);
    const auto position = place->second;
    parent->byName.erase(place);
    entry->name = newName;
    parent->byName.emplace(entry->name, position);

    const std::function<void(Entry &, const std::string &)> tellAll =
        [&](Entry &top, const std::string &topPath) {
            if (top.node)
                moved(top.node.get(), topPath.c_str());
            for (const auto &child : top.children)
                tellAll(*child, topPath + '/' + child->name);
        };
    const std::size_t slash = path.rfind('/');
    const std::string parentPath(slash == std::string_view::npos ? std::string_view()
                                                                 : path.substr(0, slash + 1));
    tellAll(*entry, parentPath + entry->name);
    return DMT_OK;
}

void NodeTable::ForEachChild(std::string_view path,
                             const std::function<void(DmtNode *)> &visit) const
{
    const Entry *const entry = Locate(path);
    if (!entry)
        return;
    for (const auto &child : entry->children)
        if (child->node)
            visit(child->node.get());
}
