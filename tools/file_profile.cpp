#include "file_profile.h"

#include "profile_service.h"

namespace {

FieldCheck fill(FileProfile &made, const JsonProfile &profile)
{
    QList<FieldValue> values = profile.values;
    for (const ProfileField *field : profile.maskedSecrets)
        values += FieldValue{field, fieldText(*field, made.record)};
    if (made.stored)
        clearFields(made.record);
    else
        made.record.creation = 1;
    return setFields(made.record, values);
}

} // namespace

std::optional<FileProfile> recordOf(Output &output, const JsonProfile &profile,
                                    ExitStatus &exitStatus)
{
    const auto refuse = [&](const QString &reason) {
        exitStatus =
            output.problem(profile.name + QStringLiteral(": ") + reason, ExitStatus::Failed);
        return std::nullopt;
    };
    const QByteArray key = profile.name.toUtf8();
    if (key.contains('\0'))
        return refuse(serviceText(NAPI_ERROR_BAD_NAME));
    FileProfile made = {profile.name, std::nullopt, {}};
    const int status = NAPI_ReadProfile(key.constData(), &made.record, 0, 0);
    if (status == NAPI_OK)
        made.stored = made.record;
    else if (status != NAPI_ERROR_NOT_FOUND) {
        exitStatus = reportResult(output, profile.name, status);
        return std::nullopt;
    }
    if (!made.stored && !profile.maskedSecrets.isEmpty())
        made.masked = profile.maskedSecrets.first();
    if (const auto filled = fill(made, profile); !filled)
        return refuse(filled.error());
    return made;
}
