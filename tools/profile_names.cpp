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

} // namespace

MeantProfiles findProfiles(Output &output, const QStringList &arguments)
{
    if (std::ranges::none_of(arguments, isPattern)) {
        QStringList names = arguments;
        names.removeDuplicates();
        return {names};
    }
    QList<QByteArray> listed;
    if (const int status = listProfileNames(listed); status != NAPI_OK)
        return {{}, reportResult(output, {}, status)};
    QStringList stored;
    for (const QByteArray &name : listed)
        stored += QString::fromUtf8(name);
    MeantProfiles meant;
    for (const QString &argument : arguments) {
        if (!isPattern(argument) || stored.contains(argument)) {
            meant.names += argument;
            continue;
        }
        const QStringList matches = matchesOf(argument, stored);
        if (matches.isEmpty())
            meant.exitStatus =
                output.problem(argument + QStringLiteral(": there is no profile of such a name"),
                               ExitStatus::Failed);
        meant.names += matches;
    }
    meant.names.removeDuplicates();
    return meant;
}
