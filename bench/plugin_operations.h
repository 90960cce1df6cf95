// The benchmarks: each operation of the plug-in, and beside it the calls that it has to make.
#pragma once

namespace bench {

/// Registers "plugin/OPERATION/SIZE" and "floor/OPERATION/SIZE" for every operation, on a store
/// that holds that many profiles already.
void RegisterOperations(int profiles);

} // namespace bench
