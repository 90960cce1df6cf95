// Texts that somebody else wrote, from UTF-8.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <optional>

namespace support {

/// The text of all bytes, a byte order mark at their beginning included. None when they are not
/// UTF-8 throughout.
std::optional<QString> fromUtf8(QByteArrayView bytes);

} // namespace support
