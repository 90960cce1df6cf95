// What is shown of a profile, by name: columns of a list, lines of one profile.
#pragma once

#include <QList>
#include <QString>

#include "expected.h"
#include "profile_fields.h"
#include "profile_service.h"

struct Column {
    enum class Content { Id, Name, Parts, Field };

    Content content;
    const ProfileField *field = nullptr; ///< of a Field
};

/// "id", "gprs.address"
QString nameOf(const Column &column);
/// The columns that can be chosen: id, name, parts and the paths of all fields.
QList<Column> allColumns();

/// Reads names with commas between them; "all" is every column.
/// @return the columns in that order, or which one there is not
support::Expected<QList<Column>, QString> chooseColumns(const QString &names);

/// A value as "set" takes it, the parts with commas between them. A mask for a password that is not
/// empty, unless it is shown.
QString plainText(const Column &column, const StoredProfile &profile, Secrets secrets);
/// A value for people: with its unit, and harmless for a terminal.
QString textForPeople(const Column &column, const StoredProfile &profile, Secrets secrets);
QString textForPeople(const ProfileField &field, const NAP_PROFILE_S &record, Secrets secrets);
/// A text between colons: a backslash before each colon and backslash of its own, and what would
/// break the line or steer a terminal as \xNN.
QString terseText(const QString &text);
