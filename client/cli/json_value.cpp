#include "json_value.h"

#include "secret_mask.h"
#include "utf8.h"

namespace client::cli {

void addValue(QJsonObject &object, const QByteArray &value, bool isMasked)
{
    const auto text = support::fromUtf8(value);
    if (isMasked) {
        object[u"value"] = QString::fromLatin1(support::secretMask);
        object[u"masked"] = true;
    } else if (text) {
        object[u"value"] = *text;
    } else {
        addBinary(object, value);
    }
}

void addBinary(QJsonObject &object, const QByteArray &octets)
{
    object[u"value"] = QString::fromLatin1(octets.toBase64());
    object[u"encoding"] = QStringLiteral("base64");
}

} // namespace client::cli
