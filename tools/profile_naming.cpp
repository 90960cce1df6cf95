#include "profile_naming.h"

#include "napi.h"

QByteArray cutProfileName(const QString &text, const QByteArray &suffix)
{
    const qsizetype space = NAPI_NAME_SIZE - 1 - suffix.size();
    QByteArray name = text.toUtf8();
    if (name.size() > space) {
        const auto isContinuation = [](char byte) {
            return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
        };
        qsizetype end = space;
        while (end > 0 && isContinuation(name[end]))
            --end;
        name.truncate(end);
        while (name.endsWith(' '))
            name.chop(1);
    }
    return name + suffix;
}

namespace {

/// A name as operators publish it, made fit for a node of a DM tree: paths are split at slashes.
QString nodeFriendly(const QString &name)
{
    return name.simplified().replace(u'/', u'-');
}

} // namespace

QStringList profileNameCandidates(const QString &provider, const QString &accessPoint,
                                  bool isOnlyOne)
{
    const QString providerName = nodeFriendly(provider);
    const QString ownName = nodeFriendly(accessPoint);
    QStringList candidates;
    if (isOnlyOne && !providerName.isEmpty())
        candidates += providerName;
    const bool repeatsProvider = ownName.startsWith(providerName, Qt::CaseInsensitive);
    candidates += repeatsProvider ? ownName : providerName + u' ' + ownName;
    return candidates;
}
