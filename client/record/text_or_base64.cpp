#include "text_or_base64.h"

#include "utf8.h"

namespace client {

void addText(QJsonObject &object, const QString &name, const QByteArray &bytes)
{
    const auto text = support::fromUtf8(bytes);
    object[name] = text ? *text : base64(bytes);
    if (!text)
        object[u"encoding"] = QStringLiteral("base64");
}

QString base64(QByteArrayView bytes)
{
    return QString::fromLatin1(QByteArray::fromRawData(bytes.data(), bytes.size()).toBase64());
}

} // namespace client
