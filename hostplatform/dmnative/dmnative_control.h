// Controls and counters of the host's engine library, for tests and benchmarks. They are not part
// of the engine's interface: nothing of the product includes this header.
#pragma once

#include "dmnative/jem_defs.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

namespace dmnative_control {

/// Blocks that were allocated and not yet freed, over all call sites.
DMNATIVE_API std::size_t LiveBlocks();

/// Live blocks of one call site, as DmtMemAllocEx was given it.
DMNATIVE_API std::size_t LiveBlocks(std::string_view file, int line);

/// Blocks since the program started, over all call sites, that were cut from larger ones, so that
/// whoever counts blocks of the heap has not seen them.
DMNATIVE_API std::size_t PooledBlocks();

/// Asked before each allocation; true makes DmtMemAllocEx return null. An empty function asks
/// nobody.
using AllocationFault = std::function<bool(std::string_view file, int line, std::size_t size)>;
DMNATIVE_API void SetAllocationFault(AllocationFault fault);

/// Told of each of these calls before the base class carries it out, with the path or the name that
/// the call was given:
///   "Tree::GetNode", "Tree::SetNode", "RWTree::DeleteNode"  path
///   "Node::GetChildNodes", "RWNode::SetValue"               path of the node
///   "RWNode::Rename"                                        path of the node
/// A status in the answer is returned in place of carrying the call out; none lets it run.
using EngineCallObserver =
    std::function<std::optional<int>(std::string_view call, std::string_view path)>;
DMNATIVE_API void SetEngineCallObserver(EngineCallObserver observer);

} // namespace dmnative_control
