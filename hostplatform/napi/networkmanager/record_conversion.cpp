// Which property of a connection holds which bytes of a record.
//
// A table has a row for every byte of the record. What NetworkManager has a property for is that
// property: access point name, user name, password, DNS servers. The rest is user data, as texts
// under "kub-dm.": names, numbers, addresses, and bytes without a meaning in hexadecimal. Secrets
// are never user data, which everybody may read; they are kept beside the connection.
//
// Reading and writing go through the same table, so a record that was written is read byte for
// byte. A property that a person has changed is read as it is now, and cut at a character where it
// is longer than the field; only a text that differs is written, so that nothing of theirs is lost
// by a change of another field.

#include "record_conversion.h"

#include "dns_servers.h"
#include "foreign_text.h"

#include <QDBusArgument>
#include <QtEndian>
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using UserData = QMap<QString, QString>;
using RecordBytes = unsigned char *;
using ConstRecordBytes = const unsigned char *;

const QString gsmSetting = QStringLiteral("gsm");
const QString ipv4Setting = QStringLiteral("ipv4");
const QString userSetting = QStringLiteral("user");
const QString dataProperty = QStringLiteral("data");
const QString dnsProperty = QStringLiteral("dns");
const QString dnsDataProperty = QStringLiteral("dns-data");
const QString passwordProperty = QStringLiteral("password");
const QString passwordFlagsProperty = QStringLiteral("password-flags");

// ---- The fields of the record -------------------------------------------------------------------

enum class Form {
    Property, ///< text of a property of the setting gsm
    Dns,      ///< both DNS fields of the packet data part
    Text,     ///< user data: percent-encoded bytes without the zero bytes at the end
    Secret,   ///< kept beside the connection: bytes without the zero bytes at the end
    Number,   ///< user data: decimal
    Address,  ///< user data: four decimal parts
    Bytes     ///< user data: hexadecimal
};

struct Field {
    const char *name;
    std::size_t offset;
    std::size_t width;
    Form form;
    const char *gsmProperty = nullptr;
};

#define KUB_FIELD(name, member, form, ...)                                                         \
    {                                                                                              \
        name, offsetof(NAP_PROFILE_S, member), sizeof(NAP_PROFILE_S::member),                      \
            Form::form __VA_OPT__(, ) __VA_ARGS__                                                  \
    }

constexpr Field fieldTable[] = {
    KUB_FIELD("reserved000", reserved000, Bytes),
    KUB_FIELD("creation", creation, Number),
    KUB_FIELD("reserved002", reserved002, Bytes),
    KUB_FIELD("flags", flags, Number),
    KUB_FIELD("gprs.address", gprsAddress, Property, "apn"),
    KUB_FIELD("gprs.authId", gprsAuthId, Property, "username"),
    KUB_FIELD("gprs.authPassword", gprsAuthPassword, Property, "password"),
    KUB_FIELD("reserved134", reserved134, Bytes),
    {"gprs.dns", offsetof(NAP_PROFILE_S, gprsDns1), 8, Form::Dns},
    KUB_FIELD("gprs.linger", gprsLinger, Number),
    KUB_FIELD("reserved142", reserved142, Bytes),
    KUB_FIELD("csd.address", csdAddress, Text),
    KUB_FIELD("csd.authId", csdAuthId, Text),
    KUB_FIELD("csd.authPassword", csdAuthPassword, Secret),
    KUB_FIELD("reserved229", reserved229, Bytes),
    KUB_FIELD("csd.dns1", csdDns1, Address),
    KUB_FIELD("csd.dns2", csdDns2, Address),
    KUB_FIELD("csd.linger", csdLinger, Number),
    KUB_FIELD("reserved23A", reserved23A, Bytes),
    KUB_FIELD("csd.speedCode", csdSpeedCode, Number),
    KUB_FIELD("csd2.address", csd2Address, Text),
    KUB_FIELD("csd2.authId", csd2AuthId, Text),
    KUB_FIELD("csd2.authPassword", csd2AuthPassword, Secret),
    KUB_FIELD("reserved2E8", reserved2E8, Bytes),
    KUB_FIELD("csd2.dns1", csd2Dns1, Address),
    KUB_FIELD("csd2.dns2", csd2Dns2, Address),
    KUB_FIELD("csd2.linger", csd2Linger, Number),
    KUB_FIELD("reserved2F6", reserved2F6, Bytes),
    KUB_FIELD("csd2.speedCode", csd2SpeedCode, Number),
    KUB_FIELD("proxy1.address", proxy1Address, Text),
    KUB_FIELD("proxy1.port", proxy1Port, Number),
    KUB_FIELD("proxy1.text", proxy1Text, Text),
    KUB_FIELD("proxy1.byte", proxy1Byte, Number),
    KUB_FIELD("proxy2.address", proxy2Address, Text),
    KUB_FIELD("reserved427", reserved427, Bytes),
    KUB_FIELD("proxy2.port", proxy2Port, Number),
    KUB_FIELD("proxy2.text", proxy2Text, Text),
    KUB_FIELD("proxy2.byte", proxy2Byte, Number),
    KUB_FIELD("reserved48F", reserved48F, Bytes),
};
#undef KUB_FIELD

/// @return true when every byte of the record belongs to exactly one field.
constexpr bool coversTheRecord()
{
    std::size_t end = 0;
    for (const Field &field : fieldTable) {
        if (field.offset != end)
            return false;
        end += field.width;
    }
    return end == sizeof(NAP_PROFILE_S);
}
static_assert(coversTheRecord());

const QString keyPrefix = QStringLiteral("kub-dm.");

QString userDataKey(const Field &field)
{
    return keyPrefix + QString::fromLatin1(field.name);
}

/// What follows the terminator of a text that is a property.
QString tailKey(const Field &field)
{
    return userDataKey(field) + QStringLiteral("Tail");
}

bool isPassword(const Field &field)
{
    return passwordProperty == QLatin1StringView(field.gsmProperty);
}

/// The name under which a part of a secret field is kept beside the connection: what is a property
/// of the setting gsm is there only with its tail, which can be the end of an older password.
std::string keptName(const Field &field)
{
    return field.name + std::string(isPassword(field) ? "Tail" : "");
}

/// Whether something of the field is kept beside the connection.
bool isKeptBeside(const Field &field)
{
    return field.form == Form::Secret || isPassword(field);
}

// ---- Values in user data ------------------------------------------------------------------------

QByteArray withoutZerosAtTheEnd(QByteArray bytes)
{
    while (bytes.endsWith('\0'))
        bytes.chop(1);
    return bytes;
}

QString percentEncoded(const QByteArray &bytes)
{
    constexpr char printable[] = " !\"#$&'()*+,/:;<=>?@[\\]^`{|}";
    return QString::fromLatin1(bytes.toPercentEncoding(printable));
}

std::uint32_t numberIn(const QByteArray &bytes)
{
    std::uint32_t number = 0; // the record is little-endian, as every host of it
    std::memcpy(&number, bytes.constData(),
                std::min(sizeof number, static_cast<std::size_t>(bytes.size())));
    return number;
}

QByteArray bytesOf(std::uint32_t number, std::size_t width)
{
    return QByteArray(reinterpret_cast<const char *>(&number), static_cast<qsizetype>(width));
}

/// @return the text of the bytes of a field; empty when all are zero.
QString encode(Form form, const QByteArray &bytes)
{
    if (withoutZerosAtTheEnd(bytes).isEmpty())
        return {};
    switch (form) {
    case Form::Number:
        return QString::number(numberIn(bytes));
    case Form::Address:
        return dottedAddress(numberIn(bytes));
    case Form::Bytes:
        return QString::fromLatin1(bytes.toHex());
    default:
        return percentEncoded(withoutZerosAtTheEnd(bytes));
    }
}

/// @return the bytes of a text, cut or filled up to the width. What is not text of that form gives
///         bytes of another text.
QByteArray decode(Form form, const QString &text, std::size_t width)
{
    QByteArray bytes;
    std::uint32_t address = 0;
    switch (form) {
    case Form::Number:
        bytes = bytesOf(text.toUInt(), width);
        break;
    case Form::Address:
        if (parseDottedAddress(text, address))
            bytes = bytesOf(address, width);
        break;
    case Form::Bytes:
        bytes = QByteArray::fromHex(text.toLatin1());
        break;
    default:
        bytes = QByteArray::fromPercentEncoding(text.toUtf8());
    }
    bytes.truncate(static_cast<qsizetype>(width));
    return bytes.leftJustified(static_cast<qsizetype>(width), '\0');
}

UserData userDataOf(const ConnectionSettings &settings)
{
    return qdbus_cast<UserData>(property(settings, userSetting, dataProperty));
}

/// A setting that is left without a property goes, too.
void setUserData(ConnectionSettings &settings, const UserData &data)
{
    if (!data.isEmpty()) {
        settings[userSetting][dataProperty] = QVariant::fromValue(data);
        return;
    }
    QVariantMap user = settings.take(userSetting);
    user.remove(dataProperty);
    if (!user.isEmpty())
        settings[userSetting] = user;
}

StoreResult damaged(const QString &key, const QString &value)
{
    return {NAPI_ERROR_CORRUPT, "the value of " + key.toStdString() +
                                    " in its user data is damaged" + value.toStdString()};
}

/// Decodes the value under a key into a field's bytes; without the key the bytes stay.
StoreResult readUserData(const UserData &data, const QString &key, Form form, std::size_t width,
                         RecordBytes bytes)
{
    const auto entry = data.constFind(key);
    if (entry == data.constEnd())
        return {};
    const QByteArray value = decode(form, *entry, width);
    if (encode(form, value) != *entry)
        return damaged(key, QStringLiteral(": '%1'").arg(*entry));
    std::copy(value.begin(), value.end(), bytes);
    return {};
}

/// Copies what is kept beside the connection; nothing leaves the bytes.
StoreResult readKept(const Field &field, const KeptSecrets &secrets, RecordBytes bytes)
{
    const auto kept = secrets.find(keptName(field));
    if (kept == secrets.end())
        return {};
    if (kept->second.size() > field.width)
        return {NAPI_ERROR_CORRUPT, "the kept value of " + kept->first + " is damaged"};
    std::copy(kept->second.begin(), kept->second.end(), bytes);
    return {};
}

void writeKept(const Field &field, const QByteArray &value, GsmConnection &connection,
               ConnectionChange &change)
{
    KeptSecrets changed = connection.keptSecrets;
    if (value.isEmpty())
        changed.erase(keptName(field));
    else
        changed[keptName(field)] = value.toStdString();
    change.keptSecrets = change.keptSecrets || changed != connection.keptSecrets;
    connection.keptSecrets = std::move(changed);
}

void writeUserData(UserData &data, const QString &key, const QString &value)
{
    if (value.isEmpty())
        data.remove(key);
    else
        data[key] = value;
}

// ---- Texts that are properties ------------------------------------------------------------------

QByteArray fieldBytes(const Field &field, ConstRecordBytes record)
{
    return QByteArray(reinterpret_cast<const char *>(record + field.offset),
                      static_cast<qsizetype>(field.width));
}

QByteArray textIn(const QByteArray &field)
{
    return field.left(static_cast<qsizetype>(
        qstrnlen(field.constData(), static_cast<std::size_t>(field.size()))));
}

QByteArray tailIn(const QByteArray &field)
{
    return withoutZerosAtTheEnd(field.mid(textIn(field).size() + 1));
}

QVariantMap &holderOf(const Field &field, GsmConnection &connection)
{
    return isPassword(field) ? connection.gsmSecrets : connection.settings[gsmSetting];
}

StoreResult readProperty(const Field &field, const GsmConnection &connection, const UserData &data,
                         RecordBytes bytes)
{
    const QVariantMap holder =
        isPassword(field) ? connection.gsmSecrets : connection.settings.value(gsmSetting);
    const QString value = holder.value(QString::fromLatin1(field.gsmProperty)).toString();
    const std::string whole = value.toStdString();
    const std::string_view text = foreign_text::cutAtCharacter(whole, field.width);
    std::copy(text.begin(), text.end(), bytes);

    std::vector<unsigned char> tail(field.width);
    StoreResult read = isKeptBeside(field) ? readKept(field, connection.keptSecrets, tail.data())
                                           : readUserData(data, tailKey(field), Form::Text,
                                                          tail.size(), tail.data());
    const auto used = std::min(static_cast<std::size_t>(text.size()) + 1, field.width);
    std::copy_n(tail.begin(), field.width - used, bytes + used);
    return read;
}

/// @return why the daemon would not keep the text as it is; empty when nothing speaks against it.
std::string reasonToRefuse(const Field &field, const QByteArray &text,
                           const ConnectionSettings &settings)
{
    if (QString::fromUtf8(text).toUtf8() != text)
        return "it is not UTF-8, or begins with a byte order mark";
    if (field.gsmProperty == std::string_view("apn") && text.trimmed() != text)
        return "it begins or ends with a blank, which NetworkManager would cut off";
    if (isPassword(field) && !isPasswordKept(settings)) {
        return "NetworkManager does not keep the password of this connection itself "
               "(gsm.password-flags)";
    }
    return {};
}

StoreResult writeProperty(const Field &field, const QByteArray &before, const QByteArray &after,
                          GsmConnection &connection, UserData &data, ConnectionChange &change)
{
    if (isKeptBeside(field))
        writeKept(field, tailIn(after), connection, change);
    else
        writeUserData(data, tailKey(field), percentEncoded(tailIn(after)));
    const QByteArray text = textIn(after);
    if (text == textIn(before))
        return {};
    if (const std::string reason = reasonToRefuse(field, text, connection.settings);
        !reason.empty()) {
        return {NAPI_ERROR_VALUE_REFUSED, std::string(field.name) + " is refused: " + reason};
    }
    (isPassword(field) ? change.secrets : change.settings) = true;
    QVariantMap &holder = holderOf(field, connection);
    const QString name = QString::fromLatin1(field.gsmProperty);
    if (text.isEmpty())
        holder.remove(name); // the daemon takes no empty user name and no empty password
    else
        holder[name] = QString::fromUtf8(text);
    return {};
}

// ---- DNS servers --------------------------------------------------------------------------------

QStringList dnsServersOf(const ConnectionSettings &settings)
{
    const QVariant texts = property(settings, ipv4Setting, dnsDataProperty);
    if (texts.isValid())
        return texts.toStringList();
    QStringList servers;
    for (const uint address : qdbus_cast<QList<uint>>(property(settings, ipv4Setting, dnsProperty)))
        servers.append(dottedAddress(qFromBigEndian(address)));
    return servers;
}

/// In the form in which the connection has them already; without one as numbers, which every
/// version of the daemon takes.
void setDnsServers(ConnectionSettings &settings, const QStringList &servers)
{
    QVariantMap &ipv4 = settings[ipv4Setting];
    if (ipv4.contains(dnsDataProperty)) {
        ipv4[dnsDataProperty] = servers;
        return;
    }
    QList<uint> numbers;
    for (const QString &server : servers) {
        std::uint32_t address = 0;
        parseDottedAddress(server, address);
        numbers.append(qToBigEndian(address));
    }
    ipv4[dnsProperty] = QVariant::fromValue(numbers);
}

void readDns(const Field &field, const ConnectionSettings &settings, const UserData &data,
             RecordBytes bytes)
{
    const DnsServers servers(dnsServersOf(settings), data.value(userDataKey(field)));
    std::memcpy(bytes, servers.fields().data(), field.width);
}

void writeDns(const Field &field, const QByteArray &after, ConnectionSettings &settings,
              UserData &data, ConnectionChange &change)
{
    change.settings = true;
    DnsServers servers(dnsServersOf(settings), data.value(userDataKey(field)));
    DnsServers::Fields fields;
    std::memcpy(fields.data(), after.constData(), field.width);
    servers.setFields(fields);
    setDnsServers(settings, servers.servers());
    writeUserData(data, userDataKey(field), servers.layout());
}

} // namespace

// ---- The conversion ------------------------------------------------------------------------------

StoreResult readRecord(const GsmConnection &connection, NAP_PROFILE_S &record)
{
    NAP_PROFILE_S result = {};
    const UserData data = userDataOf(connection.settings);
    for (const Field &field : fieldTable) {
        const RecordBytes bytes = reinterpret_cast<RecordBytes>(&result) + field.offset;
        StoreResult read;
        if (field.form == Form::Property)
            read = readProperty(field, connection, data, bytes);
        else if (field.form == Form::Dns)
            readDns(field, connection.settings, data, bytes);
        else if (field.form == Form::Secret)
            read = readKept(field, connection.keptSecrets, bytes);
        else
            read = readUserData(data, userDataKey(field), field.form, field.width, bytes);
        if (read.failed())
            return read;
    }
    record = result;
    return {};
}

StoreResult readSecretFields(const GsmConnection &connection, NAP_PROFILE_S &record)
{
    NAP_PROFILE_S result = record;
    for (const Field &field : fieldTable) {
        if (!isKeptBeside(field))
            continue;
        const RecordBytes bytes = reinterpret_cast<RecordBytes>(&result) + field.offset;
        std::fill_n(bytes, field.width, '\0');
        StoreResult read = isPassword(field) ? readProperty(field, connection, {}, bytes)
                                             : readKept(field, connection.keptSecrets, bytes);
        if (read.failed())
            return read;
    }
    record = result;
    return {};
}

StoreResult writeRecord(const NAP_PROFILE_S &before, const NAP_PROFILE_S &after,
                        GsmConnection &connection, ConnectionChange &change)
{
    change = {};
    const UserData oldData = userDataOf(connection.settings);
    UserData data = oldData;
    for (const Field &field : fieldTable) {
        const QByteArray oldBytes = fieldBytes(field, reinterpret_cast<ConstRecordBytes>(&before));
        const QByteArray newBytes = fieldBytes(field, reinterpret_cast<ConstRecordBytes>(&after));
        if (oldBytes == newBytes)
            continue;
        StoreResult written;
        if (field.form == Form::Property)
            written = writeProperty(field, oldBytes, newBytes, connection, data, change);
        else if (field.form == Form::Dns)
            writeDns(field, newBytes, connection.settings, data, change);
        else if (field.form == Form::Secret)
            writeKept(field, withoutZerosAtTheEnd(newBytes), connection, change);
        else
            writeUserData(data, userDataKey(field), encode(field.form, newBytes));
        if (written.failed())
            return written;
    }
    if (data != oldData) {
        setUserData(connection.settings, data);
        change.settings = true;
    }
    return {};
}

StoreResult takeSecretsFromUserData(GsmConnection &connection, bool &isTaken)
{
    UserData data = userDataOf(connection.settings);
    KeptSecrets secrets = connection.keptSecrets;
    isTaken = false;
    for (const Field &field : fieldTable) {
        const QString key = keyPrefix + QString::fromStdString(keptName(field));
        if (!isKeptBeside(field) || !data.contains(key))
            continue;
        const QByteArray value = decode(Form::Text, data[key], field.width);
        if (encode(Form::Text, value) != data[key])
            return damaged(key, {});
        data.remove(key);
        secrets[keptName(field)] = withoutZerosAtTheEnd(value).toStdString();
        isTaken = true;
    }
    if (isTaken)
        setUserData(connection.settings, data);
    connection.keptSecrets = std::move(secrets);
    return {};
}

bool isPasswordKept(const ConnectionSettings &settings)
{
    return property(settings, gsmSetting, passwordFlagsProperty).toUInt() == 0;
}

GsmConnection newConnection(const QString &id, const QString &uuid)
{
    GsmConnection connection;
    connection.settings[QStringLiteral("connection")] = {
        {QStringLiteral("id"), id},
        {QStringLiteral("uuid"), uuid},
        {QStringLiteral("type"), gsmSetting},
        {QStringLiteral("autoconnect"), false},
    };
    connection.settings[gsmSetting] = {};
    connection.settings[ipv4Setting] = {{QStringLiteral("method"), QStringLiteral("auto")}};
    return connection;
}

ConnectionSettings settingsToSend(ConnectionSettings settings)
{
    struct Pair {
        const char *oldName;
        const char *newName;
    };
    constexpr Pair pairs[] = {
        {"addresses", "address-data"}, {"routes", "route-data"}, {"dns", "dns-data"}};
    for (const QString &setting : {ipv4Setting, QStringLiteral("ipv6")}) {
        const auto properties = settings.find(setting);
        if (properties == settings.end())
            continue;
        for (const Pair &pair : pairs) {
            if (properties->contains(QLatin1StringView(pair.newName)))
                properties->remove(QLatin1StringView(pair.oldName));
        }
    }
    return settings;
}

QString fieldOfProperty(const QString &property)
{
    if (property == QStringLiteral("ipv4.dns"))
        return QStringLiteral("gprs.dns1 or gprs.dns2");
    for (const Field &field : fieldTable) {
        if (field.gsmProperty &&
            property == QStringLiteral("gsm.") + QLatin1StringView(field.gsmProperty))
            return QString::fromLatin1(field.name);
    }
    return {};
}
