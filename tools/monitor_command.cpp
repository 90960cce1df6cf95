// monitor: what becomes of the profiles, whoever changes them.
#include "commands.h"

#include <QMap>
#include <QThread>
#include <chrono>

#include "profile_columns.h"
#include "profile_service.h"

using commandline::printable;

namespace {

/// Whoever changes profiles tells nobody: they are read again after this time.
constexpr auto period = std::chrono::seconds(1);

using Profiles = QMap<unsigned int, StoredProfile>; ///< by ID, which a profile keeps

int readProfiles(Profiles &profiles)
{
    QList<QByteArray> names;
    int status = listProfileNames(names);
    for (const QByteArray &name : names) {
        StoredProfile profile;
        status = readProfile(QString::fromUtf8(name), profile);
        if (status == NAPI_ERROR_NOT_FOUND) // deleted in the meantime
            continue;
        if (status != NAPI_OK)
            return status;
        profiles[profile.id] = profile;
    }
    return status == NAPI_ERROR_NOT_FOUND ? NAPI_OK : status;
}

QStringList changedFields(const StoredProfile &before, const StoredProfile &after)
{
    QStringList names;
    for (const ProfileField &field : profileFields())
        if (fieldText(field, before.record) != fieldText(field, after.record))
            names += fieldPath(field);
    return names;
}

void tell(Output &output, const char *verb, const StoredProfile &profile,
          const QString &what = QString())
{
    output.line(QStringLiteral("%1 %2, ID %3%4")
                    .arg(QString::fromLatin1(verb), printable(profile.name))
                    .arg(profile.id)
                    .arg(what));
}

void tellChanges(Output &output, const StoredProfile &before, const StoredProfile &after)
{
    if (after.name != before.name)
        tell(output, "renamed", before, QStringLiteral(": ") + printable(after.name));
    const QStringList fields = changedFields(before, after);
    if (!fields.isEmpty())
        tell(output, "changed", after, QStringLiteral(": ") + fields.join(QStringLiteral(", ")));
}

void tellDifference(Output &output, const Profiles &before, const Profiles &after)
{
    for (const StoredProfile &profile : before)
        if (!after.contains(profile.id))
            tell(output, "removed", profile);
    for (const StoredProfile &profile : after) {
        const auto known = before.find(profile.id);
        if (known == before.end())
            tell(output, "added", profile);
        else
            tellChanges(output, *known, profile);
    }
}

} // namespace

ExitStatus runMonitor(Output &output, const Invocation &)
{
    Profiles known;
    if (const int status = readProfiles(known); status != NAPI_OK)
        return reportResult(output, {}, status);
    while (!output.isLost()) {
        QThread::sleep(period.count());
        Profiles seen;
        const int status = readProfiles(seen);
        if (status == NAPI_ERROR_BUSY) // with whoever changes them
            continue;
        if (status != NAPI_OK)
            return reportResult(output, {}, status);
        tellDifference(output, known, seen);
        known = seen;
    }
    return ExitStatus::Success; // lost output has a status of its own
}
