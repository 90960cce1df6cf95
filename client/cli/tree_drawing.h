// Showing a listing of the management tree.
#pragma once

#include "terminal.h"
#include "tree_view.h"

#include <QJsonObject>
#include <QStringList>
#include <vector>

namespace client::cli {

using commandline::Painter;

enum class Secrets { Mask, Show };

/// The listing as lines with branches, the formats and values of all leaves in columns.
QStringList drawTree(const std::vector<ListedNode> &listing, Secrets secrets,
                     const Painter &painter);

/// The listing as one object a node: "name", "uri" and "format"; "children" of an interior node;
/// "value" of a leaf as text, number or boolean, null when it has none. A masked value has "masked"
/// true beside it, one that is not text "encoding"; a leaf that cannot be read has "status" in
/// place of "value".
QJsonObject treeToJson(const std::vector<ListedNode> &listing, Secrets secrets);

} // namespace client::cli
