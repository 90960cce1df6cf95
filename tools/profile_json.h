// Profiles as JSON:
//
//     {"name": "Office", "editable": true,
//      "gprs": {"address": "internet", "authId": "u", "authPassword": "p", "dns1": "10.0.0.1",
//               "dns2": "0.0.0.0", "linger": 30},
//      "csd": {}, "csd2": {}, "proxy1": {"address": "proxy.example", "port": 8080}, "proxy2": {}}
//
// A part without any value is {}. What a profile leaves out has the value that it has in a new
// profile. A masked password stands for "the stored one".
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include "profile_fields.h"

struct JsonProfile {
    QString name;
    QList<FieldValue> values;
    QList<const ProfileField *> maskedSecrets; ///< not among the values
};

/// Reads one profile or an array of them. Nothing is guessed: an unknown key, a value of another
/// type and a name that comes twice are faults. Values are checked by setFields, not here.
/// @return the profiles, or what is wrong and where
support::Expected<QList<JsonProfile>, QString> parseProfiles(const QByteArray &json);

/// @param showSecrets  false writes the mask for every password that is not empty
/// @return the object over several lines without a line feed at the end
QByteArray formatProfile(const QString &name, const NAP_PROFILE_S &record, bool showSecrets);

/// @return an array of what formatProfile returned, with a line feed at the end.
QByteArray formatProfileArray(const QList<QByteArray> &profiles);
