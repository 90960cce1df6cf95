// What could stand next on a line of the shell.
#pragma once

#include "command_table.h"
#include "completion_words.h"
#include "tree_view.h"

#include <vector>

namespace client::cli {

using commandline::Candidate;
using commandline::UnfinishedLine;

/// What of the tree the next argument names.
NodeArgument nodeArgumentAfter(const Invocation &before);

/// Addresses of nodes that exist, or names of children, for the next argument; none when it names
/// no node. Each address is one that the command takes as it stands; after an interior node more
/// can follow.
std::vector<Candidate> completeNodeArgument(const Invocation &before, const QString &prefix,
                                            const TreeView &tree);

/// What there is of the device for the next argument of a command line: names of accounts, and
/// addresses, for which it mounts what they are in. Nothing for a device that nobody has used.
std::vector<Candidate> completeArgument(const Invocation &before, const QString &prefix);

/// Words that continue the line, in the order of the command table and of the tree: commands,
/// options, property names, formats, and addresses of nodes that exist. Each address is one that
/// the command takes as it stands; after an interior node more can follow.
std::vector<Candidate> complete(const UnfinishedLine &line, const TreeView &tree);

/// How far all candidates, of which there is at least one, agree in whole characters.
QString commonStart(const std::vector<Candidate> &candidates);

} // namespace client::cli
