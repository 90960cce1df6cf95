// Bytes in JSON.
#pragma once

#include <QByteArrayView>
#include <QJsonObject>

namespace client {

/// Adds bytes under a name: as text, or as base64 with "encoding" beside it when they are not
/// UTF-8.
void addText(QJsonObject &object, const QString &name, const QByteArray &bytes);

QString base64(QByteArrayView bytes);

} // namespace client
