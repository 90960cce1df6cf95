// Media types of messages and of what they carry.
#pragma once

#include "codec.h"

#include <QByteArray>
#include <QString>

namespace syncml {

namespace media_type {
inline constexpr char plainText[] = "text/plain"; ///< of a value that names no other
inline constexpr char serialisedTree[] = "application/vnd.syncml.dmtnds+xml";
} // namespace media_type

/// "application/vnd.syncml.dm+xml" and the like: a DM message in that encoding.
QByteArray mediaTypeOf(Encoding encoding);

/// "text/plain" of "Text/Plain; charset=UTF-8".
QString withoutParameters(const QString &mediaType);

/// Whether a generic alert can have that type: "Content-Type: text/plain" or "Reversed-Domain-Name:
/// org.example.event".
bool isAlertType(const QString &type);

/// Whether a value of that type is a serialised tree, in XML or in WBXML.
bool isSerialisedTree(QStringView mediaType);

} // namespace syncml
