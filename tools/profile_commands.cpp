// list, show, create, set, delete: one profile at a time.
#include "commands.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <optional>

#include "profile_fields.h"
#include "profile_json.h"
#include "profile_service.h"
#include "secret_input.h"
#include "secret_mask.h"

using commandline::printable;

namespace {

/// Reads field=value arguments. A fault never repeats an argument: it may hold a password.
support::Expected<QList<FieldValue>, QString> parseAssignments(const QStringList &arguments)
{
    QList<FieldValue> values;
    for (const QString &argument : arguments) {
        const qsizetype equals = argument.indexOf(u'=');
        if (equals < 0)
            return support::Unexpected(
                QStringLiteral("argument %1 after the name is not of the form field=value")
                    .arg(values.size() + 1));
        const QString path = argument.first(equals);
        const ProfileField *field = findField(path);
        if (!field)
            return support::Unexpected(path + QStringLiteral(": there is no such field"));
        const QString text = argument.sliced(equals + 1);
        const auto value =
            field->kind == FieldKind::Secret
                ? commandline::secretMeant(text, path, commandline::StandardInput::Unused)
                : support::Expected<QString, QString>(text);
        if (!value)
            return support::Unexpected(value.error());
        values += FieldValue{field, *value};
    }
    return values;
}

QStringList partNames(const NAP_PROFILE_S &record)
{
    QStringList names;
    for (const ProfilePart &part : profileParts()) {
        if (isPartPresent(part, record))
            names += QString::fromLatin1(part.name);
    }
    return names;
}

QString shownValue(const ProfileField &field, const NAP_PROFILE_S &record, bool showSecrets)
{
    const QString text = fieldText(field, record);
    switch (field.kind) {
    case FieldKind::Flag:
        return text == u"true" ? QStringLiteral("yes") : QStringLiteral("no");
    case FieldKind::Secret:
        return showSecrets || text.isEmpty() ? printable(text)
                                             : QString::fromLatin1(support::secretMask);
    case FieldKind::Seconds:
        return text + QStringLiteral(" s");
    case FieldKind::BitRate:
        return text + QStringLiteral(" bit/s");
    default:
        return printable(text);
    }
}

QString fieldLines(const ProfilePart *part, const NAP_PROFILE_S &record, bool showSecrets)
{
    QString lines;
    for (const ProfileField &field : profileFields()) {
        if (field.part != part)
            continue;
        const QString name = QLatin1StringView(part ? "  " : "") + QLatin1StringView(field.name);
        lines += name.leftJustified(16) + shownValue(field, record, showSecrets);
        while (lines.endsWith(u' '))
            lines.chop(1);
        lines += u'\n';
    }
    return lines;
}

void printForPeople(Output &output, const QString &name, unsigned int id,
                    const NAP_PROFILE_S &record, bool showSecrets)
{
    QString text =
        QStringLiteral("name            %1\nid              %2\n").arg(printable(name)).arg(id);
    text += fieldLines(nullptr, record, showSecrets);
    for (const ProfilePart &part : profileParts()) {
        if (!isPartUsed(part, record))
            continue;
        text += QStringLiteral("\n%1: %2\n")
                    .arg(QString::fromLatin1(part.name), QString::fromLatin1(part.title));
        text += fieldLines(&part, record, showSecrets);
    }
    output.raw(text.toUtf8());
}

} // namespace

namespace {

/// A profile as a list has it.
struct ListedProfile {
    QString name;
    unsigned int id;
    QStringList parts;
};

void printLine(Output &output, const ListedProfile &profile)
{
    const QString parts = profile.parts.isEmpty() ? QStringLiteral("-") : profile.parts.join(u',');
    output.line(QStringLiteral("%1  %2  %3")
                    .arg(profile.id, 5)
                    .arg(parts, -27)
                    .arg(printable(profile.name)));
}

QJsonObject toJson(const ListedProfile &profile)
{
    return {{QStringLiteral("id"), static_cast<qint64>(profile.id)},
            {QStringLiteral("name"), profile.name},
            {QStringLiteral("parts"), QJsonArray::fromStringList(profile.parts)}};
}

} // namespace

ExitStatus runList(Output &output, const Invocation &invocation)
{
    QList<QByteArray> names;
    if (const int status = listProfileNames(names); status != NAPI_OK)
        return reportResult(output, {}, status);
    const bool asJson = invocation.has("json");
    QJsonArray array;
    if (!asJson)
        output.line(QStringLiteral("   ID  PARTS                        NAME"));
    for (const QByteArray &name : names) {
        NAP_PROFILE_S record = {};
        unsigned int id = 0;
        int status = NAPI_GetProfileIDByName(name.constData(), &id);
        if (status == NAPI_OK)
            status = NAPI_ReadProfile(name.constData(), &record, 0, 0);
        if (status == NAPI_ERROR_NOT_FOUND) // deleted in the meantime
            continue;
        if (status != NAPI_OK)
            return reportResult(output, QString::fromUtf8(name), status);
        const ListedProfile profile{QString::fromUtf8(name), id, partNames(record)};
        if (asJson)
            array += toJson(profile);
        else
            printLine(output, profile);
    }
    if (asJson)
        output.json(QJsonDocument(array), QJsonDocument::Indented);
    return ExitStatus::Success;
}

ExitStatus runShow(Output &output, const Invocation &invocation)
{
    const QString &name = invocation.arguments.first();
    const QByteArray key = name.toUtf8();
    const bool showSecrets = invocation.has("show-secrets");
    NAP_PROFILE_S record = {};
    unsigned int id = 0;
    int status = NAPI_ReadProfile(key.constData(), &record, 0, 0);
    if (status == NAPI_OK)
        status = NAPI_GetProfileIDByName(key.constData(), &id);
    if (status != NAPI_OK)
        return reportResult(output, name, status);
    if (invocation.has("json"))
        output.json(formatProfile(name, record, showSecrets));
    else
        printForPeople(output, name, id, record, showSecrets);
    return ExitStatus::Success;
}

namespace {

/// Sets fields of a new record, or of the stored one, and stores it.
ExitStatus storeFields(Output &output, const Invocation &invocation, bool isNew)
{
    const QString &name = invocation.arguments.first();
    const QByteArray key = name.toUtf8();
    const auto values = parseAssignments(invocation.arguments.sliced(1));
    if (!values)
        return output.problem(values.error(), ExitStatus::WrongUsage);
    NAP_PROFILE_S record = {};
    record.creation = 1;
    const int status = isNew ? NAPI_OK : NAPI_ReadProfile(key.constData(), &record, 0, 0);
    if (status != NAPI_OK)
        return reportResult(output, name, status);
    if (const auto set = setFields(record, *values); !set)
        return output.problem(name + QStringLiteral(": ") + set.error(), ExitStatus::Failed);
    const auto store = isNew ? NAPI_CreateProfile : NAPI_ModifyProfile;
    return reportResult(output, name, store(key.constData(), &record, 0, 0));
}

} // namespace

ExitStatus runCreate(Output &output, const Invocation &invocation)
{
    return storeFields(output, invocation, true);
}

ExitStatus runSet(Output &output, const Invocation &invocation)
{
    return storeFields(output, invocation, false);
}

ExitStatus runDelete(Output &output, const Invocation &invocation)
{
    ExitStatus exitStatus = ExitStatus::Success;
    for (const QString &name : invocation.arguments)
        exitStatus = worse(
            exitStatus, reportResult(output, name, NAPI_DeleteProfile(name.toUtf8().constData())));
    return exitStatus;
}
