// The fields of a profile that napictl shows and changes: one table for every way to write a
// profile down (for people, as JSON, as field=value).
#pragma once

#include <span>

#include <QList>
#include <QString>
#include <QStringView>

#include "expected.h"
#include "napi.h"
#include "record_fields.h"

enum class FieldKind {
    Flag,     ///< "true" or "false"
    Text,     ///< UTF-8 of at most capacity bytes
    Secret,   ///< a text that is shown only on request
    Ipv4,     ///< four decimal parts
    Seconds,  ///< 0 to 65535
    Port,     ///< 0 to 65535
    LineType, ///< name of a line type; shares its byte with the bit rate
    BitRate   ///< bit/s
};

/// How secrets that are not empty are shown.
enum class Secrets { Masked, Shown };

/// A group of fields. A bearer or proxy exists when its address is not empty.
struct ProfilePart {
    const char *name;  ///< as in field names, "gprs"
    const char *title; ///< for people
};

struct ProfileField {
    const ProfilePart *part; ///< null for what belongs to the whole profile
    const char *name;
    FieldKind kind;
    const profile_record::RecordField &bytes; ///< in the record
};

/// All parts and all fields, in the order in which people see them.
std::span<const ProfilePart> profileParts();
std::span<const ProfileField> profileFields();

/// @return "gprs.address", or "editable" for a field without a part.
QString fieldPath(const ProfileField &field);
/// @return null when no field has that path.
const ProfileField *findField(QStringView path);

/// @return every value that the field can have; none when there are too many to say.
QStringList fieldValues(const ProfileField &field);
/// @return the value as setFields takes it. Bytes that are not UTF-8 read as U+FFFD.
QString fieldText(const ProfileField &field, const NAP_PROFILE_S &record);
/// @return true when a field of that part has another value than in a record of zeros.
bool isPartUsed(const ProfilePart &part, const NAP_PROFILE_S &record);
/// @return true when the part's address is not empty.
bool isPartPresent(const ProfilePart &part, const NAP_PROFILE_S &record);

/// Nothing, or what is wrong with a value.
using FieldCheck = support::Expected<void, QString>;

struct FieldValue {
    const ProfileField *field;
    QString text;
};

/// Sets fields of the record, all or, when one of the values is refused, none.
/// @return what is wrong, beginning with the field. The values of secrets are not in it.
FieldCheck setFields(NAP_PROFILE_S &record, QList<FieldValue> values);

/// Gives every field the value that it has in a record of zeros. Bytes that no field names stay.
void clearFields(NAP_PROFILE_S &record);

/// @return what is wrong with the values in the record, beginning with the field each:
///         texts that are not UTF-8 and unknown speed codes.
QStringList recordFaults(const NAP_PROFILE_S &record);
