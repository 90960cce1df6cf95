// Values of nodes in JSON.
#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace client::cli {

/// Adds a value as "value": text, or base64 with "encoding": "base64" beside it when it is not
/// UTF-8.
/// @param isMasked  "********" stands in its place, with "masked": true beside it
void addValue(QJsonObject &object, const QByteArray &value, bool isMasked);
/// The same of octets, which are never read as text.
void addBinary(QJsonObject &object, const QByteArray &octets);

} // namespace client::cli
