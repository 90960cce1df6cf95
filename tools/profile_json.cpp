#include "profile_json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include "secret_mask.h"

using support::secretMask;

namespace {

const QString nameKey = QStringLiteral("name");

bool isNumber(const ProfileField &field)
{
    return field.kind == FieldKind::Seconds || field.kind == FieldKind::Port ||
           field.kind == FieldKind::BitRate;
}

QString quoted(const QString &text)
{
    return u'"' + text + u'"';
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Reading

/// Reads one profile after the other; none after a fault.
class ProfileReader {
public:
    /// @return false for a fault
    bool readProfile(const QJsonValue &value)
    {
        m_profile = {};
        if (!value.isObject())
            return fail(QStringLiteral("expected an object"));
        const QJsonObject object = value.toObject();
        if (!readName(object.value(nameKey)))
            return false;
        for (auto member = object.begin(); member != object.end(); ++member) {
            if (member.key() != nameKey && !readMember(member.key(), member.value()))
                return false;
        }
        profiles += m_profile;
        return true;
    }

    QList<JsonProfile> profiles;
    QString fault;

private:
    bool readName(const QJsonValue &value)
    {
        if (!value.isString())
            return fail(QStringLiteral("it has no \"name\" that is a text"));
        m_profile.name = value.toString();
        if (m_names.contains(m_profile.name))
            return fail(QStringLiteral("the name is there twice"));
        m_names += m_profile.name;
        return true;
    }

    bool readMember(const QString &key, const QJsonValue &value)
    {
        for (const ProfilePart &part : profileParts()) {
            if (key != QLatin1StringView(part.name))
                continue;
            if (!value.isObject())
                return fail(key + QStringLiteral(": expected an object"));
            const QJsonObject object = value.toObject();
            for (auto member = object.begin(); member != object.end(); ++member) {
                if (!readValue(key + u'.' + member.key(), member.value()))
                    return false;
            }
            return true;
        }
        // The dot would name a field of a part at the wrong level.
        return readValue(key.contains(u'.') ? quoted(key) : key, value);
    }

    bool readValue(const QString &path, const QJsonValue &value)
    {
        const ProfileField *field = findField(path);
        if (!field)
            return fail(path + QStringLiteral(": there is no such field"));
        if (field->kind == FieldKind::Flag) {
            if (!value.isBool())
                return fail(path + QStringLiteral(": expected true or false"));
            m_profile.values +=
                FieldValue{field, QString::fromLatin1(value.toBool() ? "true" : "false")};
            return true;
        }
        if (isNumber(*field)) {
            const qint64 number = value.toInteger(-1);
            if (number < 0)
                return fail(path + QStringLiteral(": expected a whole number from 0"));
            m_profile.values += FieldValue{field, QString::number(number)};
            return true;
        }
        if (!value.isString())
            return fail(path + QStringLiteral(": expected a text"));
        if (field->kind == FieldKind::Secret && value.toString() == QLatin1StringView(secretMask))
            m_profile.maskedSecrets += field;
        else
            m_profile.values += FieldValue{field, value.toString()};
        return true;
    }

    bool fail(const QString &reason)
    {
        fault = QStringLiteral("profile %1").arg(profiles.size() + 1);
        if (!m_profile.name.isEmpty())
            fault += QStringLiteral(" (%1)").arg(m_profile.name);
        fault += QStringLiteral(": ") + reason;
        return false;
    }

    JsonProfile m_profile;
    QSet<QString> m_names;
};

//////////////////////////////////////////////////////////////////////////////////////////////////
// Writing. QJsonObject would sort the members by name.

QByteArray jsonString(const QString &text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.sliced(1, array.size() - 2);
}

QByteArray jsonValue(const ProfileField &field, const NAP_PROFILE_S &record, bool showSecrets)
{
    const QString text = fieldText(field, record);
    if (field.kind == FieldKind::Flag || isNumber(field))
        return text.toLatin1();
    if (field.kind == FieldKind::Secret && !showSecrets && !text.isEmpty())
        return jsonString(QString::fromLatin1(secretMask));
    return jsonString(text);
}

QByteArray jsonMembers(const ProfilePart *part, const NAP_PROFILE_S &record, bool showSecrets)
{
    QByteArray members;
    for (const ProfileField &field : profileFields()) {
        if (field.part != part)
            continue;
        if (!members.isEmpty())
            members += ", ";
        members += jsonString(QString::fromLatin1(field.name)) + ": " +
                   jsonValue(field, record, showSecrets);
    }
    return members;
}

} // namespace

support::Expected<QList<JsonProfile>, QString> parseProfiles(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError) {
        const qsizetype line =
            json.first(qMin(qsizetype{error.offset}, json.size())).count('\n') + 1;
        return support::Unexpected(
            QStringLiteral("line %1: no JSON: %2").arg(line).arg(error.errorString()));
    }
    ProfileReader reader;
    const QJsonArray array = document.isArray() ? document.array() : QJsonArray{document.object()};
    for (const QJsonValue &value : array) {
        if (!reader.readProfile(value))
            return support::Unexpected(reader.fault);
    }
    return reader.profiles;
}

QByteArray formatProfile(const QString &name, const NAP_PROFILE_S &record, bool showSecrets)
{
    QByteArray text =
        "{\"name\": " + jsonString(name) + ", " + jsonMembers(nullptr, record, showSecrets);
    for (const ProfilePart &part : profileParts()) {
        text += ",\n " + jsonString(QString::fromLatin1(part.name)) + ": {";
        if (isPartUsed(part, record))
            text += jsonMembers(&part, record, showSecrets);
        text += '}';
    }
    return text + '}';
}

QByteArray formatProfileArray(const QList<QByteArray> &profiles)
{
    return "[" + profiles.join(",\n") + "]\n";
}
