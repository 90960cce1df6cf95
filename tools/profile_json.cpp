#include "profile_json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <algorithm>

#include "secret_mask.h"

using support::secretMask;
using support::Unexpected;

namespace {

const QString nameKey = QStringLiteral("name");

bool isNumber(const ProfileField &field)
{
    return field.kind == FieldKind::Seconds || field.kind == FieldKind::Port ||
           field.kind == FieldKind::BitRate;
}

/// Nothing, or what is wrong.
using Check = support::Expected<void, QString>;

//////////////////////////////////////////////////////////////////////////////////////////////////
// Reading

/// Reads one profile after the other; none after a fault.
class ProfileReader {
public:
    Check readProfile(const QJsonValue &value)
    {
        m_profile = {};
        if (const Check read = readMembers(value); !read) {
            const QString &name = m_profile.name;
            return Unexpected(QStringLiteral("profile %1%2: %3")
                                  .arg(QString::number(profiles.size() + 1),
                                       name.isEmpty() ? name : QStringLiteral(" (%1)").arg(name),
                                       read.error()));
        }
        profiles += m_profile;
        return {};
    }

    QList<JsonProfile> profiles;

private:
    Check readMembers(const QJsonValue &value)
    {
        if (!value.isObject())
            return Unexpected(QStringLiteral("expected an object"));
        QJsonObject object = value.toObject();
        if (const Check read = readName(object.take(nameKey)); !read)
            return read;
        for (auto member = object.begin(); member != object.end(); ++member)
            if (const Check read = readMember(member.key(), member.value()); !read)
                return read;
        return {};
    }

    Check readName(const QJsonValue &value)
    {
        if (!value.isString())
            return Unexpected(QStringLiteral("it has no \"name\" that is a text"));
        m_profile.name = value.toString();
        if (m_names.contains(m_profile.name))
            return Unexpected(QStringLiteral("the name is there twice"));
        m_names += m_profile.name;
        return {};
    }

    Check readMember(const QString &key, const QJsonValue &value)
    {
        const bool isPart = std::ranges::any_of(profileParts(), [&key](const ProfilePart &part) {
            return key == QLatin1StringView(part.name);
        });
        if (!isPart) // a dot would name a field of a part at the wrong level
            return readValue(key.contains(u'.') ? QStringLiteral("\"%1\"").arg(key) : key, value);
        if (!value.isObject())
            return Unexpected(key + QStringLiteral(": expected an object"));
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            if (const Check read = readValue(key + u'.' + member.key(), member.value()); !read)
                return read;
        return {};
    }

    Check readValue(const QString &path, const QJsonValue &value)
    {
        const ProfileField *field = findField(path);
        const auto expected = [&path](const char *what) {
            return Unexpected(path + QStringLiteral(": expected ") + QLatin1StringView(what));
        };
        if (!field)
            return Unexpected(path + QStringLiteral(": there is no such field"));
        QString text = value.toString();
        if (field->kind == FieldKind::Flag) {
            if (!value.isBool())
                return expected("true or false");
            text = value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
        } else if (isNumber(*field)) {
            const qint64 number = value.toInteger(-1);
            if (number < 0)
                return expected("a whole number from 0");
            text = QString::number(number);
        } else if (!value.isString()) {
            return expected("a text");
        }
        if (field->kind == FieldKind::Secret && text == QLatin1StringView(secretMask))
            m_profile.maskedSecrets += field;
        else
            m_profile.values += FieldValue{field, text};
        return {};
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
        return Unexpected(
            QStringLiteral("line %1: no JSON: %2").arg(line).arg(error.errorString()));
    }
    ProfileReader reader;
    const QJsonArray array = document.isArray() ? document.array() : QJsonArray{document.object()};
    for (const QJsonValue &value : array)
        if (const Check read = reader.readProfile(value); !read)
            return Unexpected(read.error());
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
