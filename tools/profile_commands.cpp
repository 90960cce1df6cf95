// list, show, create, set, rename, clone, delete: profiles as they are stored.
#include "commands.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

#include "profile_columns.h"
#include "profile_fields.h"
#include "profile_json.h"
#include "profile_names.h"
#include "profile_rename.h"
#include "profile_service.h"
#include "raw_record.h"
#include "secret_input.h"

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

/// A line without blanks at its end.
QString line(QString text)
{
    while (text.endsWith(u' '))
        text.chop(1);
    return text + u'\n';
}

QString fieldLines(const ProfilePart *part, const NAP_PROFILE_S &record, Secrets secrets)
{
    QString lines;
    for (const ProfileField &field : profileFields()) {
        if (field.part != part)
            continue;
        const QString name = QLatin1StringView(part ? "  " : "") + QLatin1StringView(field.name);
        lines += line(name.leftJustified(16) + textForPeople(field, record, secrets));
    }
    return lines;
}

/// A profile with all that is in it, under the titles of its parts.
QString profileForPeople(const StoredProfile &profile, Secrets secrets)
{
    QString text = QStringLiteral("name            %1\nid              %2\n")
                       .arg(printable(profile.name))
                       .arg(profile.id);
    text += fieldLines(nullptr, profile.record, secrets);
    for (const ProfilePart &part : profileParts()) {
        if (!isPartUsed(part, profile.record))
            continue;
        text += QStringLiteral("\n%1: %2\n")
                    .arg(QString::fromLatin1(part.name), QString::fromLatin1(part.title));
        text += fieldLines(&part, profile.record, secrets);
    }
    return text;
}

QString terseLines(const StoredProfile &profile, const QList<Column> &columns, Secrets secrets)
{
    QString text;
    for (const Column &column : columns)
        text += nameOf(column) + u':' + terseText(plainText(column, profile, secrets)) + u'\n';
    return text;
}

QString linesForPeople(const StoredProfile &profile, const QList<Column> &columns, Secrets secrets)
{
    qsizetype width = 0;
    for (const Column &column : columns)
        width = std::max(width, nameOf(column).size());
    QString text;
    for (const Column &column : columns)
        text +=
            line(nameOf(column).leftJustified(width + 2) + textForPeople(column, profile, secrets));
    return text;
}

/// What the options say about how profiles are shown.
struct Presentation {
    enum class Form { ForPeople, Terse, Json, Raw };

    Form form;
    QList<Column> columns;
    bool areChosen; ///< by name
};
using Form = Presentation::Form;

support::Expected<Form, QString> formOf(const Invocation &invocation)
{
    const std::pair<const char *, Form> forms[] = {
        {terseOption, Form::Terse}, {jsonOption, Form::Json}, {rawOption, Form::Raw}};
    Form form = Form::ForPeople;
    for (const auto &[option, chosen] : forms) {
        if (!invocation.has(option))
            continue;
        if (form != Form::ForPeople || (chosen != Form::Terse && invocation.has(fieldsOption)))
            return support::Unexpected(
                QStringLiteral("--%1 has a form of its own").arg(QString::fromLatin1(option)));
        form = chosen;
    }
    return form;
}

support::Expected<Presentation, QString> presentationOf(const Invocation &invocation,
                                                        const QList<Column> &usualColumns)
{
    const auto form = formOf(invocation);
    if (!form)
        return support::Unexpected(form.error());
    if (!invocation.has(fieldsOption))
        return Presentation{*form, usualColumns, false};
    const auto chosen = chooseColumns(invocation.value(fieldsOption));
    if (!chosen)
        return support::Unexpected(QStringLiteral("--fields: %1").arg(chosen.error()));
    return Presentation{*form, *chosen, true};
}

} // namespace

// ---- list ----------------------------------------------------------------------------------------

namespace {

const QList<Column> listedColumns = {
    {Column::Content::Id}, {Column::Content::Parts}, {Column::Content::Name}};

/// The usual columns, whose widths everybody knows.
QString usualLine(const StoredProfile &profile)
{
    const QString parts = plainText({Column::Content::Parts}, profile, Secrets::Masked);
    return QStringLiteral("%1  %2  %3\n")
        .arg(profile.id, 5)
        .arg(parts.isEmpty() ? QStringLiteral("-") : parts, -27)
        .arg(printable(profile.name));
}

QString terseLine(const StoredProfile &profile, const QList<Column> &columns)
{
    QStringList texts;
    for (const Column &column : columns)
        texts += terseText(plainText(column, profile, Secrets::Masked));
    return texts.join(u':') + u'\n';
}

/// Columns as wide as what is in them, beneath their names.
QString tableOf(const QList<StoredProfile> &profiles, const QList<Column> &columns)
{
    QList<QStringList> rows(profiles.size() + 1);
    for (const Column &column : columns) {
        QStringList cells = {nameOf(column).toUpper()};
        for (const StoredProfile &profile : profiles)
            cells += textForPeople(column, profile, Secrets::Masked);
        const qsizetype width = std::ranges::max(cells, {}, &QString::size).size();
        for (qsizetype row = 0; row < rows.size(); ++row)
            rows[row] += cells[row].leftJustified(width);
    }
    QString text;
    for (const QStringList &row : rows)
        text += line(row.join(QStringLiteral("  ")));
    return text;
}

QJsonObject listedObject(const StoredProfile &profile)
{
    const QString parts = plainText({Column::Content::Parts}, profile, Secrets::Masked);
    return {{QStringLiteral("id"), static_cast<qint64>(profile.id)},
            {QStringLiteral("name"), profile.name},
            {QStringLiteral("parts"),
             QJsonArray::fromStringList(parts.split(u',', Qt::SkipEmptyParts))}};
}

void printList(Output &output, const QList<StoredProfile> &profiles,
               const Presentation &presentation)
{
    if (presentation.form == Form::Json) {
        QJsonArray array;
        for (const StoredProfile &profile : profiles)
            array += listedObject(profile);
        return output.json(QJsonDocument(array), QJsonDocument::Indented);
    }
    QString text;
    if (presentation.form == Form::Terse)
        for (const StoredProfile &profile : profiles)
            text += terseLine(profile, presentation.columns);
    else if (presentation.areChosen)
        text = tableOf(profiles, presentation.columns);
    else {
        text = QStringLiteral("   ID  PARTS                        NAME\n");
        for (const StoredProfile &profile : profiles)
            text += usualLine(profile);
    }
    output.raw(text.toUtf8());
}

} // namespace

ExitStatus runList(Output &output, const Invocation &invocation)
{
    const auto presentation = presentationOf(invocation, listedColumns);
    if (!presentation)
        return output.problem(QStringLiteral("list: %1").arg(presentation.error()),
                              ExitStatus::WrongUsage);
    QList<QByteArray> names;
    if (const int status = listProfileNames(names); status != NAPI_OK)
        return reportResult(output, {}, status);
    QList<StoredProfile> profiles;
    for (const QByteArray &name : names) {
        StoredProfile profile;
        const int status = readProfile(QString::fromUtf8(name), profile);
        if (status == NAPI_ERROR_NOT_FOUND) // deleted in the meantime
            continue;
        if (status != NAPI_OK)
            return reportResult(output, profile.name, status);
        profiles += profile;
    }
    printList(output, profiles, *presentation);
    return ExitStatus::Success;
}

// ---- show ----------------------------------------------------------------------------------------

namespace {

QString rawMap(const StoredProfile &profile, Secrets secrets)
{
    return QStringLiteral("%1, ID %2\n").arg(printable(profile.name)).arg(profile.id) +
           rawRecord(profile.record, secrets);
}

QString shownProfile(const StoredProfile &profile, const Presentation &presentation,
                     Secrets secrets)
{
    if (presentation.form == Form::Terse)
        return terseLines(profile, presentation.columns, secrets);
    if (presentation.form == Form::Raw)
        return rawMap(profile, secrets);
    return presentation.areChosen ? linesForPeople(profile, presentation.columns, secrets)
                                  : profileForPeople(profile, secrets);
}

/// One name is one profile; several, and a pattern, are a list of however many there are.
bool isOneProfile(const QStringList &arguments, const QStringList &names)
{
    return arguments.size() == 1 && names == arguments;
}

} // namespace

ExitStatus runShow(Output &output, const Invocation &invocation)
{
    const auto presentation = presentationOf(invocation, allColumns());
    if (!presentation)
        return output.problem(QStringLiteral("show: %1").arg(presentation.error()),
                              ExitStatus::WrongUsage);
    const Secrets secrets = invocation.has("show-secrets") ? Secrets::Shown : Secrets::Masked;
    MeantProfiles meant = findProfiles(output, invocation.arguments);
    QStringList texts;
    QList<QByteArray> objects;
    for (const QString &name : meant.names) {
        StoredProfile profile;
        if (const int status = readProfile(name, profile); status != NAPI_OK) {
            meant.exitStatus = worse(meant.exitStatus, reportResult(output, name, status));
            continue;
        }
        if (presentation->form == Form::Json)
            objects += formatProfile(name, profile.record, secrets == Secrets::Shown);
        else
            texts += shownProfile(profile, *presentation, secrets);
    }
    if (presentation->form != Form::Json)
        output.raw(texts.join(u'\n').toUtf8());
    else if (!isOneProfile(invocation.arguments, meant.names))
        output.json(formatProfileArray(objects));
    else if (!objects.isEmpty())
        output.json(objects.first());
    return meant.exitStatus;
}

// ---- create, set, rename, clone, delete -------------------------------------------------------------------------

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

namespace {

/// Does something with a profile that is there, and a name that has to be free.
template <typename Operation>
ExitStatus runWithNewName(Output &output, const Invocation &invocation, Operation operation)
{
    const QString &name = invocation.arguments.first();
    const QString &newName = invocation.arguments.last();
    StoredProfile profile;
    if (const int status = readProfile(name, profile); status != NAPI_OK)
        return reportResult(output, name, status);
    return reportResult(output, newName, operation(profile, newName.toUtf8().constData()));
}

} // namespace

ExitStatus runRename(Output &output, const Invocation &invocation)
{
    return runWithNewName(
        output, invocation, [](const StoredProfile &profile, const char *newName) {
            return kub_napi_rename_profile(profile.name.toUtf8().constData(), newName);
        });
}

ExitStatus runClone(Output &output, const Invocation &invocation)
{
    return runWithNewName(output, invocation, [](StoredProfile &profile, const char *newName) {
        profile.record.creation = 1;
        return NAPI_CreateProfile(newName, &profile.record, 0, 0);
    });
}

ExitStatus runDelete(Output &output, const Invocation &invocation)
{
    const auto [names, found] = findProfiles(output, invocation.arguments);
    if (found != ExitStatus::Success)
        return found;
    ExitStatus exitStatus = ExitStatus::Success;
    for (const QString &name : names)
        exitStatus = worse(
            exitStatus, reportResult(output, name, NAPI_DeleteProfile(name.toUtf8().constData())));
    return exitStatus;
}
