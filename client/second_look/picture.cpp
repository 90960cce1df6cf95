#include "picture.h"

namespace client {

Picture pictureOf(const TreeView &tree, const NodeUri &node)
{
    Picture picture;
    const Result<TreeNode> start = tree.find(node);
    if (!start)
        return picture;
    for (const ListedNode &listed : tree.list(*start, TreeView::Values::Read)) {
        SeenNode seen{listed.node.uri(), formatName(listed.node.valueType()), std::nullopt};
        if (listed.value && *listed.value)
            seen.value = valueText(**listed.value);
        else if (listed.value)
            seen.status = listed.value->outcome().status;
        picture.emplace(seen.uri, std::move(seen));
    }
    return picture;
}

TreeDifference difference(const Picture &before, const Picture &after)
{
    TreeDifference difference;
    for (const auto &[uri, seen] : after) {
        const auto earlier = before.find(uri);
        if (earlier == before.end())
            difference.appeared.push_back(seen);
        else if (earlier->second != seen)
            difference.changed.push_back({earlier->second.value, seen});
    }
    for (const auto &entry : before)
        if (!after.contains(entry.first))
            difference.went.push_back(entry.first);
    return difference;
}

void apply(const TreeDifference &difference, Picture &picture)
{
    for (const NodeUri &uri : difference.went)
        picture.erase(uri);
    for (const SeenNode &node : difference.appeared)
        picture.insert_or_assign(node.uri, node);
    for (const ChangedNode &changed : difference.changed)
        picture.insert_or_assign(changed.after.uri, changed.after);
}

} // namespace client
