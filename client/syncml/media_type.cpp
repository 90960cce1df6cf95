#include "media_type.h"

#include <QRegularExpression>

namespace syncml {

QByteArray mediaTypeOf(Encoding encoding)
{
    return encoding == Encoding::Xml ? QByteArrayLiteral("application/vnd.syncml.dm+xml")
                                     : QByteArrayLiteral("application/vnd.syncml.dm+wbxml");
}

QString withoutParameters(const QString &mediaType)
{
    return mediaType.section(u';', 0, 0).trimmed().toLower();
}

bool isAlertType(const QString &type)
{
    static const QRegularExpression form(QRegularExpression::anchoredPattern(
        QStringLiteral("Content-Type: *[!#$&^_.+A-Za-z0-9-]+/[!#$&^_.+A-Za-z0-9-]+( *;[^\\p{C}]*)?"
                       "|Reversed-Domain-Name: *[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)*")));
    return form.match(type).hasMatch();
}

bool isSerialisedTree(QStringView mediaType)
{
    return mediaType.startsWith(u"application/vnd.syncml.dmtnds", Qt::CaseInsensitive);
}

} // namespace syncml
