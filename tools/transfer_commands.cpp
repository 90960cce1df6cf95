// import, diff and export: profiles as JSON.
#include "commands.h"

#include <QSet>
#include <csignal>

#include "file_profile.h"
#include "profile_columns.h"
#include "profile_json.h"
#include "profile_service.h"

using commandline::printable;

namespace {

/// The names of stored profiles that a file does not have. @return a result of the service.
int namesBeside(const QList<JsonProfile> &profiles, QStringList &names)
{
    QList<QByteArray> stored;
    const int status = listProfileNames(stored);
    QSet<QString> inFile;
    for (const JsonProfile &profile : profiles)
        inFile += profile.name;
    for (const QByteArray &name : stored)
        if (const QString text = QString::fromUtf8(name); !inFile.contains(text))
            names += text;
    return status;
}

} // namespace

// ---- import --------------------------------------------------------------------------------------

namespace {

struct Change {
    const char *verb;
    QString name;
    NAP_PROFILE_S record;
    int (*make)(const char *name, const NAP_PROFILE_S &record);
};

/// What an import changes, in order: what is removed goes last, when everything else is stored.
struct ImportPlan {
    QList<Change> changes;
    qsizetype newProfiles = 0;
};

int create(const char *name, const NAP_PROFILE_S &record)
{
    return NAPI_CreateProfile(name, &record, 0, 0);
}

int replace(const char *name, const NAP_PROFILE_S &record)
{
    return NAPI_ModifyProfile(name, &record, 0, 0);
}

int remove(const char *name, const NAP_PROFILE_S &)
{
    return NAPI_DeleteProfile(name);
}

/// What keeps a profile of a file from being imported, if anything.
QString obstacle(const FileProfile &profile, bool mayReplace)
{
    if (profile.stored && !mayReplace)
        return QStringLiteral("there is a profile of that name already; --replace overwrites it");
    if (profile.masked)
        return fieldPath(*profile.masked) +
               QStringLiteral(": the password is masked; export it with --show-secrets");
    return {};
}

/// Plans everything without changing the store. Everything that is wrong is reported.
ExitStatus plan(Output &output, const Invocation &invocation, const QList<JsonProfile> &profiles,
                ImportPlan &plan)
{
    ExitStatus exitStatus = ExitStatus::Success;
    for (const JsonProfile &profile : profiles) {
        const auto made = recordOf(output, profile, exitStatus);
        if (exitStatus == ExitStatus::Unusable)
            return exitStatus;
        if (!made)
            continue;
        if (const QString reason = obstacle(*made, invocation.has("replace")); !reason.isEmpty())
            exitStatus =
                output.problem(made->name + QStringLiteral(": ") + reason, ExitStatus::Failed);
        plan.newProfiles += made->stored ? 0 : 1;
        plan.changes += made->stored ? Change{"replace", made->name, made->record, replace}
                                     : Change{"create", made->name, made->record, create};
    }
    QStringList removed;
    if (invocation.has("prune"))
        if (const int status = namesBeside(profiles, removed); status != NAPI_OK)
            return reportResult(output, {}, status);
    for (const QString &name : removed)
        plan.changes += Change{"remove", name, {}, remove};
    return exitStatus == ExitStatus::Success ? checkRoom(output, plan.newProfiles) : exitStatus;
}

void tell(Output &output, const Change &change)
{
    output.line(QString::fromLatin1(change.verb) + u' ' + printable(change.name));
}

/// Tells each change when it is made, so that what is stored is known however it ends.
ExitStatus carryOut(Output &output, const QList<Change> &changes)
{
    std::signal(SIGPIPE, SIG_IGN); // profiles are stored although nobody reads the lines any more
    qsizetype done = 0;
    for (const Change &change : changes) {
        if (const int status = change.make(change.name.toUtf8().constData(), change.record);
            status != NAPI_OK) {
            const ExitStatus exitStatus = reportResult(output, change.name, status);
            output.problem(
                QStringLiteral("stopped at %1, after %2 of %3 profiles; when that is "
                               "mended, import --replace goes on")
                    .arg(change.name, QString::number(done), QString::number(changes.size())));
            return exitStatus;
        }
        tell(output, change);
        ++done;
    }
    return ExitStatus::Success;
}

} // namespace

ExitStatus runImport(Output &output, const Invocation &invocation)
{
    const auto profiles = parseFile(invocation.arguments.first(), parseProfiles);
    if (!profiles)
        return output.problem(QStringLiteral("import: %1").arg(profiles.error()),
                              ExitStatus::WrongUsage);
    ImportPlan import;
    if (const ExitStatus planned = plan(output, invocation, *profiles, import);
        planned != ExitStatus::Success)
        return planned;
    if (!invocation.has("dry-run"))
        return carryOut(output, import.changes);
    for (const Change &change : import.changes)
        tell(output, change);
    return ExitStatus::Success;
}

// ---- diff ----------------------------------------------------------------------------------------

namespace {

/// A line for each value that the two do not share, the store's before the file's.
QString differences(const FileProfile &profile, Secrets secrets)
{
    const StoredProfile stored = {profile.name, 0, *profile.stored};
    const StoredProfile inFile = {profile.name, 0, profile.record};
    QString lines;
    for (const ProfileField &field : profileFields()) {
        if (fieldText(field, stored.record) == fieldText(field, inFile.record))
            continue;
        const Column column = {Column::Content::Field, &field};
        const QString before = plainText(column, stored, secrets);
        const QString after = plainText(column, inFile, secrets);
        lines += QStringLiteral("- %1=%2\n+ %1=%3%4\n")
                     .arg(nameOf(column), printable(before), printable(after),
                          QLatin1StringView(before == after ? " (changed)" : "")); // two masks
    }
    return lines;
}

QString difference(const FileProfile &profile, Secrets secrets)
{
    const QString name = printable(profile.name);
    if (!profile.stored)
        return QStringLiteral("Only in the file: %1\n").arg(name);
    const QString lines = differences(profile, secrets);
    return lines.isEmpty() ? lines : name + QStringLiteral(":\n") + lines;
}

} // namespace

ExitStatus runDiff(Output &output, const Invocation &invocation)
{
    const auto profiles = parseFile(invocation.arguments.first(), parseProfiles);
    if (!profiles)
        return output.problem(QStringLiteral("diff: %1").arg(profiles.error()),
                              ExitStatus::WrongUsage);
    const Secrets secrets = invocation.has("show-secrets") ? Secrets::Shown : Secrets::Masked;
    QStringList storedOnly;
    if (const int status = namesBeside(*profiles, storedOnly); status != NAPI_OK)
        return reportResult(output, {}, status);
    QString text;
    for (const QString &name : storedOnly)
        text += QStringLiteral("Only in the store: %1\n").arg(printable(name));
    ExitStatus exitStatus = ExitStatus::Success;
    for (const JsonProfile &profile : *profiles)
        if (const auto made = recordOf(output, profile, exitStatus))
            text += difference(*made, secrets);
    output.raw(text.toUtf8());
    if (exitStatus != ExitStatus::Success)
        return exitStatus;
    return text.isEmpty() ? ExitStatus::Success : ExitStatus::Different;
}

// ---- export --------------------------------------------------------------------------------------

ExitStatus runExport(Output &output, const Invocation &invocation)
{
    QList<QByteArray> names;
    if (const int status = listProfileNames(names); status != NAPI_OK)
        return reportResult(output, {}, status);
    QList<QByteArray> profiles;
    for (const QByteArray &name : names) {
        NAP_PROFILE_S record = {};
        const int status = NAPI_ReadProfile(name.constData(), &record, 0, 0);
        if (status == NAPI_ERROR_NOT_FOUND) // deleted in the meantime
            continue;
        if (status != NAPI_OK)
            return reportResult(output, QString::fromUtf8(name), status);
        const QStringList faults = recordFaults(record);
        if (!faults.isEmpty())
            return output.problem(QString::fromUtf8(name) +
                                      QStringLiteral(" cannot be exported without loss: ") +
                                      faults.first(),
                                  ExitStatus::Failed);
        profiles += formatProfile(QString::fromUtf8(name), record, invocation.has("show-secrets"));
    }
    output.json(formatProfileArray(profiles));
    return ExitStatus::Success;
}
