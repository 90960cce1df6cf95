// What could stand next on a line of the shell.
#pragma once

#include "tree_view.h"
#include "words.h"

#include <vector>

namespace client::cli {

struct Candidate {
    QString word;
    bool isWhole = true; ///< false: more of the same word follows, as after an interior node

    bool operator==(const Candidate &) const = default;
};

/// Words that continue the line, in the order of the command table and of the tree: commands,
/// options, property names, formats, and addresses of nodes that exist. Each address is one that
/// the command takes as it stands; after an interior node more can follow.
std::vector<Candidate> complete(const UnfinishedLine &line, const TreeView &tree);

/// How far all candidates, of which there is at least one, agree in whole characters.
QString commonStart(const std::vector<Candidate> &candidates);

} // namespace client::cli
