#include "profile_columns.h"

#include <algorithm>

#include "nearest_name.h"
#include "secret_mask.h"
#include "terminal.h"

using commandline::printable;

namespace {

constexpr char everything[] = "all";

QStringList namesOfAllColumns()
{
    QStringList names;
    for (const Column &column : allColumns())
        names += nameOf(column);
    return names;
}

QString partNames(const NAP_PROFILE_S &record)
{
    QStringList names;
    for (const ProfilePart &part : profileParts())
        if (isPartPresent(part, record))
            names += QString::fromLatin1(part.name);
    return names.join(u',');
}

QString fieldText(const ProfileField &field, const NAP_PROFILE_S &record, Secrets secrets)
{
    const QString text = fieldText(field, record);
    const bool isMasked =
        field.kind == FieldKind::Secret && secrets == Secrets::Masked && !text.isEmpty();
    return isMasked ? QString::fromLatin1(support::secretMask) : text;
}

} // namespace

QString nameOf(const Column &column)
{
    switch (column.content) {
    case Column::Content::Id:
        return QStringLiteral("id");
    case Column::Content::Name:
        return QStringLiteral("name");
    case Column::Content::Parts:
        return QStringLiteral("parts");
    case Column::Content::Field:
        return fieldPath(*column.field);
    }
    return {};
}

QList<Column> allColumns()
{
    QList<Column> columns = {
        {Column::Content::Id}, {Column::Content::Name}, {Column::Content::Parts}};
    for (const ProfileField &field : profileFields())
        columns += {Column::Content::Field, &field};
    return columns;
}

support::Expected<QList<Column>, QString> chooseColumns(const QString &names)
{
    const QList<Column> all = allColumns();
    QList<Column> chosen;
    for (const QString &name : names.split(u',')) {
        if (name == QLatin1StringView(everything)) {
            chosen += all;
            continue;
        }
        const auto column = std::ranges::find(all, name, nameOf);
        if (column == all.end()) {
            const QString nearest = commandline::nearestName(name, namesOfAllColumns());
            return support::Unexpected(
                QStringLiteral("there is no field \"%1\"; %2")
                    .arg(name, nearest.isNull()
                                   ? QStringLiteral("there are %1 and %2")
                                         .arg(namesOfAllColumns().join(QStringLiteral(", ")),
                                              QString::fromLatin1(everything))
                                   : QStringLiteral("did you mean %1?").arg(nearest)));
        }
        chosen += *column;
    }
    return chosen;
}

QString plainText(const Column &column, const StoredProfile &profile, Secrets secrets)
{
    switch (column.content) {
    case Column::Content::Id:
        return QString::number(profile.id);
    case Column::Content::Name:
        return profile.name;
    case Column::Content::Parts:
        return partNames(profile.record);
    case Column::Content::Field:
        return fieldText(*column.field, profile.record, secrets);
    }
    return {};
}

QString textForPeople(const Column &column, const StoredProfile &profile, Secrets secrets)
{
    return column.content == Column::Content::Field
               ? textForPeople(*column.field, profile.record, secrets)
               : printable(plainText(column, profile, secrets));
}

QString textForPeople(const ProfileField &field, const NAP_PROFILE_S &record, Secrets secrets)
{
    const QString text = fieldText(field, record, secrets);
    switch (field.kind) {
    case FieldKind::Flag:
        return text == u"true" ? QStringLiteral("yes") : QStringLiteral("no");
    case FieldKind::Seconds:
        return text + QStringLiteral(" s");
    case FieldKind::BitRate:
        return text + QStringLiteral(" bit/s");
    default:
        return printable(text);
    }
}

QString terseText(const QString &text)
{
    QString escaped = text;
    escaped.replace(u'\\', QStringLiteral("\\\\")).replace(u':', QStringLiteral("\\:"));
    return printable(escaped);
}
