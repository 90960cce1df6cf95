// What must hold of whatever bytes a codec is given.
#pragma once

#include "codec.h"

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// Reads `data` as `encoding`. Aborts unless that gives an error with a status and a text, or a
/// message whose writable commands come back the same through each encoding that can carry them.
void checkRoundTrip(const std::uint8_t *data, std::size_t size, syncml::Encoding encoding);

} // namespace fuzz
