// Any bytes as a message in WBXML.

#include "round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::checkRoundTrip(data, size, syncml::Encoding::Wbxml);
    return 0;
}
