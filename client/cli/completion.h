// What could stand next on a line of the shell.
#pragma once

#include "cli/words.h"
#include "management_tree.h"

#include <vector>

namespace client::cli {

struct Candidate {
    QString word;
    bool isWhole = true; ///< false: more of the same word follows, as behind an interior node

    bool operator==(const Candidate &) const = default;
};

/// Words that continue the line, in the order of the command table and of the tree: commands,
/// options, property names, formats, and addresses of nodes that exist.
std::vector<Candidate> complete(const UnfinishedLine &line, const ManagementTree &tree);

} // namespace client::cli
