// Where the base classes announce their calls to a test that watches them.
#pragma once

#include <optional>

namespace engine_calls {

/// Tells the observer, if there is one, of the call; a null path is the empty one. @return the
/// status with which the caller must answer at once, or nothing when it carries the call out.
std::optional<int> Announce(const char *call, const char *path);

} // namespace engine_calls
