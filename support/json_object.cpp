#include "json_object.h"

#include <QJsonDocument>

namespace support {

Expected<QJsonObject, QString> parseJsonObject(const QByteArray &text)
{
    QJsonParseError fault;
    const QJsonDocument document = QJsonDocument::fromJson(text, &fault);
    if (document.isObject())
        return document.object();
    const QString reason = fault.error == QJsonParseError::NoError
                               ? QStringLiteral("not a JSON object")
                               : fault.errorString();
    return Unexpected(QStringLiteral("byte %1: %2").arg(fault.offset).arg(reason));
}

} // namespace support
