#include "codec_result.h"

namespace syncml {

QString DecodeError::toString() const
{
    if (line > 0)
        return QStringLiteral("line %1, column %2: %3").arg(line).arg(column).arg(text);
    return QStringLiteral("byte %1: %2").arg(offset).arg(text);
}

} // namespace syncml
