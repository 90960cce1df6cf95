// Elements to a message.
#pragma once

#include "codec_result.h"

namespace syncml {

class ElementSource;

/// Reads the one message that `source` holds.
DecodeResult readMessage(ElementSource &source, const Limits &limits);

} // namespace syncml
