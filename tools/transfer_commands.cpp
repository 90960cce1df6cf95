// import and export: profiles as JSON.
#include "commands.h"

#include "profile_json.h"
#include "profile_service.h"
#include "progress.h"

namespace {

struct ImportedProfile {
    QString name;
    NAP_PROFILE_S record;
    bool isNew;
};

/// Turns the profiles of a file into records, without changing the store.
class ImportPlan {
public:
    ImportPlan(Output &output, bool replace) : m_output(output), m_replace(replace) {}

    bool add(const JsonProfile &profile)
    {
        const QByteArray key = profile.name.toUtf8();
        ImportedProfile imported = {profile.name, {}, true};
        if (key.contains('\0'))
            return refuse(profile, serviceText(NAPI_ERROR_BAD_NAME));
        const int status = NAPI_ReadProfile(key.constData(), &imported.record, 0, 0);
        if (status != NAPI_OK && status != NAPI_ERROR_NOT_FOUND) {
            exitStatus = reportResult(m_output, profile.name, status);
            return false;
        }
        imported.isNew = status == NAPI_ERROR_NOT_FOUND;
        if (!imported.isNew && !m_replace) {
            return refuse(profile, QStringLiteral("there is a profile of that name already; "
                                                  "--replace overwrites it"));
        }
        if (imported.isNew && !profile.maskedSecrets.isEmpty()) {
            return refuse(profile, fieldPath(*profile.maskedSecrets.first()) +
                                       QStringLiteral(": the password is masked; export it with "
                                                      "--show-secrets"));
        }
        if (const auto filled = fill(imported, profile); !filled)
            return refuse(profile, filled.error());
        newProfiles += imported.isNew ? 1 : 0;
        profiles += imported;
        return true;
    }

    QList<ImportedProfile> profiles;
    qsizetype newProfiles = 0;
    ExitStatus exitStatus = ExitStatus::Success; ///< of what was refused

private:
    static FieldCheck fill(ImportedProfile &imported, const JsonProfile &profile)
    {
        QList<FieldValue> values = profile.values;
        for (const ProfileField *field : profile.maskedSecrets)
            values += FieldValue{field, fieldText(*field, imported.record)};
        if (imported.isNew)
            imported.record.creation = 1;
        else
            clearFields(imported.record);
        return setFields(imported.record, values);
    }

    bool refuse(const JsonProfile &profile, const QString &reason)
    {
        exitStatus =
            m_output.problem(profile.name + QStringLiteral(": ") + reason, ExitStatus::Failed);
        return false;
    }

    Output &m_output;
    bool m_replace;
};

ExitStatus storeProfiles(Output &output, const ImportPlan &plan)
{
    if (const ExitStatus room = checkRoom(output, plan.newProfiles); room != ExitStatus::Success)
        return room;
    qsizetype done = 0;
    const Progress progress(QStringLiteral("Storing profiles"), plan.profiles.size());
    for (const ImportedProfile &profile : plan.profiles) {
        const QByteArray key = profile.name.toUtf8();
        const int status = profile.isNew
                               ? NAPI_CreateProfile(key.constData(), &profile.record, 0, 0)
                               : NAPI_ModifyProfile(key.constData(), &profile.record, 0, 0);
        if (status != NAPI_OK) {
            output.problem(QStringLiteral("stopped after %1 of %2 profiles")
                               .arg(done)
                               .arg(plan.profiles.size()));
            return reportResult(output, profile.name, status);
        }
        progress.show(++done);
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
    ImportPlan plan(output, invocation.has("replace"));
    for (const JsonProfile &profile : *profiles) {
        if (!plan.add(profile) && plan.exitStatus == ExitStatus::Unusable)
            return ExitStatus::Unusable;
    }
    return plan.exitStatus == ExitStatus::Success ? storeProfiles(output, plan) : plan.exitStatus;
}

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
