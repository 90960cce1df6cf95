// What a part of the management tree says at one moment.
#pragma once

#include "tree_view.h"

#include <QByteArray>
#include <QString>
#include <map>
#include <optional>
#include <vector>

namespace client {

/// A node as its owner sees it.
struct SeenNode {
    NodeUri uri;
    QString format;                  ///< "node" of an interior one
    std::optional<QByteArray> value; ///< as valueText has it; none of an interior node and of a
                                     ///< leaf that cannot be read
    DmStatus status = DmStatus::Ok;  ///< of reading the leaf

    bool operator==(const SeenNode &) const = default;
};

using Picture = std::map<NodeUri, SeenNode>;

/// The node and everything beneath it; nothing when it is not there. Mounts what it needs.
Picture pictureOf(const TreeView &tree, const NodeUri &node);

struct ChangedNode {
    std::optional<QByteArray> before; ///< the value
    SeenNode after;

    bool operator==(const ChangedNode &) const = default;
};

struct TreeDifference {
    std::vector<SeenNode> appeared;
    std::vector<ChangedNode> changed;
    std::vector<NodeUri> went;

    bool isEmpty() const { return appeared.empty() && changed.empty() && went.empty(); }
    bool operator==(const TreeDifference &) const = default;
};

TreeDifference difference(const Picture &before, const Picture &after);
void apply(const TreeDifference &difference, Picture &picture);

} // namespace client
