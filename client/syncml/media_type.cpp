#include "media_type.h"

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

bool isSerialisedTree(QStringView mediaType)
{
    return mediaType.startsWith(u"application/vnd.syncml.dmtnds", Qt::CaseInsensitive);
}

} // namespace syncml
