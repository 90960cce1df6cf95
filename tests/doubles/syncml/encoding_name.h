// The name of an encoding, for the names of tests and for what a failed one prints.
#pragma once

#include "codec.h"

#include <iosfwd>
#include <string>

namespace syncml {

/// "Xml" or "Wbxml".
std::string encodingName(Encoding encoding);

void PrintTo(Encoding encoding, std::ostream *out);

} // namespace syncml
