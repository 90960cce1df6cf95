// Where the base classes announce their calls to a test that watches them.
#pragma once

#include <optional>
#include <string_view>

namespace engine_calls {

/// Tells the observer of the call. @return the status with which the caller must answer at once, or
/// nothing when it carries the call out.
std::optional<int> Announce(std::string_view call, std::string_view path);

} // namespace engine_calls
