// What the device says about its nodes before they exist: which there can be, of which format, and
// what a server may do with them.
#pragma once

#include "dmnative/dmt_data.h"
#include "node_uri.h"

#include <span>

namespace client {

/// Commands that a node takes, whoever sends them. Add on an interior node: nodes may be added
/// beneath it.
enum AccessType : unsigned {
    AccessAdd = 1,
    AccessCopy = 2,
    AccessDelete = 4,
    AccessExec = 8,
    AccessGet = 16,
    AccessReplace = 32,
};

/// How many nodes of a description there are beneath one parent.
enum class Occurrence { One, ZeroOrOne, ZeroOrMore, OneOrMore };

struct NodeDescription {
    const char *name; ///< empty when nodes of this kind are named at run time
    DmtData::Type format;
    unsigned access; ///< of AccessType
    Occurrence occurrence;
    bool isPermanent;
    const char *type; ///< MIME type of a leaf; Management Object id of an interior node, or empty
    const char *meaning;
    std::span<const NodeDescription> children;
};

/// A described part of the management tree.
struct DescribedTree {
    const char *parent; ///< URI of the node above it
    const NodeDescription &root;
};

std::span<const DescribedTree> describedTrees();

/// The description that a node has, or would have; null when the device says nothing about it.
const NodeDescription *descriptionOf(const NodeUri &node);

} // namespace client
