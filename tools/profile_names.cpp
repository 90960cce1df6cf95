#include "profile_names.h"

#include <QRegularExpression>
#include <algorithm>

#include "profile_service.h"

namespace {

bool isPattern(const QString &argument)
{
    return std::ranges::any_of(argument, [](QChar c) { return QStringLiteral("*?[").contains(c); });
}

QStringList matchesOf(const QString &pattern, const QStringList &stored)
{
    const auto expression = QRegularExpression::fromWildcard(pattern, Qt::CaseSensitive);
    return expression.isValid() ? stored.filter(expression) : QStringList();
}

QStringList meantBy(const QString &argument, const QStringList &stored)
{
    if (stored.contains(argument))
        return {argument};
    return isPattern(argument) ? matchesOf(argument, stored) : QStringList();
}

} // namespace

MeantProfiles findProfiles(Output &output, const QStringList &arguments)
{
    QList<QByteArray> listed;
    if (const int status = listProfileNames(listed); status != NAPI_OK)
        return {{}, reportResult(output, {}, status)};
    QStringList stored;
    for (const QByteArray &name : listed)
        stored += QString::fromUtf8(name);
    MeantProfiles meant;
    for (const QString &argument : arguments) {
        const QStringList names = meantBy(argument, stored);
        if (names.isEmpty())
            meant.exitStatus = output.problem(
                argument + (isPattern(argument)
                                ? QStringLiteral(": there is no profile of such a name")
                                : QStringLiteral(": ") + serviceText(NAPI_ERROR_NOT_FOUND)),
                ExitStatus::Failed);
        meant.names += names;
    }
    meant.names.removeDuplicates();
    return meant;
}
