// Reading JSON that has to be one object.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace support {

/// @return the error has the place of what is not JSON, and no file: "byte 17: unterminated object"
Expected<QJsonObject, QString> parseJsonObject(const QByteArray &text);

} // namespace support
