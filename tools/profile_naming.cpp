#include "profile_naming.h"

#include "foreign_text.h"
#include "napi.h"

#include <string_view>

QByteArray cutProfileName(const QString &text, const QByteArray &suffix)
{
    const QByteArray whole = text.toUtf8();
    const auto space = static_cast<std::size_t>(NAPI_NAME_SIZE - 1 - suffix.size());
    const std::string_view cut =
        foreign_text::cutAtCharacter({whole.data(), static_cast<std::size_t>(whole.size())}, space);
    QByteArray name = whole.first(static_cast<qsizetype>(cut.size()));
    while (name.size() < whole.size() && name.endsWith(' '))
        name.chop(1);
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
