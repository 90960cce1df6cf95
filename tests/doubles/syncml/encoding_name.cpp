#include "encoding_name.h"

#include <ostream>

namespace syncml {

std::string encodingName(Encoding encoding)
{
    return encoding == Encoding::Xml ? "Xml" : "Wbxml";
}

void PrintTo(Encoding encoding, std::ostream *out)
{
    *out << encodingName(encoding);
}

} // namespace syncml
