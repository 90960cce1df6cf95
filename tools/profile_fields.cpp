#include "profile_fields.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include <QStringList>
#include <QUtf8StringView>

using profile_record::fieldNamed;

namespace {

//////////////////////////////////////////////////////////////////////////////////////////////////
// Tables

constexpr ProfilePart partTable[] = {
    {"gprs", "packet data (GSM-GPRS)"},
    {"csd", "circuit-switched data (GSM-CSD)"},
    {"csd2", "circuit-switched data, second set (GSM-CSD2)"},
    {"proxy1", "first proxy"},
    {"proxy2", "second proxy"},
};
constexpr const ProfilePart *gprsPart = &partTable[0];
constexpr const ProfilePart *csdPart = &partTable[1];
constexpr const ProfilePart *csd2Part = &partTable[2];
constexpr const ProfilePart *proxy1Part = &partTable[3];
constexpr const ProfilePart *proxy2Part = &partTable[4];

constexpr ProfileField fieldTable[] = {
    {nullptr, "editable", FieldKind::Flag, fieldNamed("flags")},

    {gprsPart, "address", FieldKind::Text, fieldNamed("gprsAddress")},
    {gprsPart, "authId", FieldKind::Text, fieldNamed("gprsAuthId")},
    {gprsPart, "authPassword", FieldKind::Secret, fieldNamed("gprsAuthPassword")},
    {gprsPart, "dns1", FieldKind::Ipv4, fieldNamed("gprsDns1")},
    {gprsPart, "dns2", FieldKind::Ipv4, fieldNamed("gprsDns2")},
    {gprsPart, "linger", FieldKind::Seconds, fieldNamed("gprsLinger")},

    {csdPart, "address", FieldKind::Text, fieldNamed("csdAddress")},
    {csdPart, "authId", FieldKind::Text, fieldNamed("csdAuthId")},
    {csdPart, "authPassword", FieldKind::Secret, fieldNamed("csdAuthPassword")},
    {csdPart, "dns1", FieldKind::Ipv4, fieldNamed("csdDns1")},
    {csdPart, "dns2", FieldKind::Ipv4, fieldNamed("csdDns2")},
    {csdPart, "linger", FieldKind::Seconds, fieldNamed("csdLinger")},
    {csdPart, "lineType", FieldKind::LineType, fieldNamed("csdSpeedCode")},
    {csdPart, "speed", FieldKind::BitRate, fieldNamed("csdSpeedCode")},

    {csd2Part, "address", FieldKind::Text, fieldNamed("csd2Address")},
    {csd2Part, "authId", FieldKind::Text, fieldNamed("csd2AuthId")},
    {csd2Part, "authPassword", FieldKind::Secret, fieldNamed("csd2AuthPassword")},
    {csd2Part, "dns1", FieldKind::Ipv4, fieldNamed("csd2Dns1")},
    {csd2Part, "dns2", FieldKind::Ipv4, fieldNamed("csd2Dns2")},
    {csd2Part, "linger", FieldKind::Seconds, fieldNamed("csd2Linger")},
    {csd2Part, "lineType", FieldKind::LineType, fieldNamed("csd2SpeedCode")},
    {csd2Part, "speed", FieldKind::BitRate, fieldNamed("csd2SpeedCode")},

    {proxy1Part, "address", FieldKind::Text, fieldNamed("proxy1Address")},
    {proxy1Part, "port", FieldKind::Port, fieldNamed("proxy1Port")},

    {proxy2Part, "address", FieldKind::Text, fieldNamed("proxy2Address")},
    {proxy2Part, "port", FieldKind::Port, fieldNamed("proxy2Port")},
};

/// The record keeps line type and bit rate of a circuit-switched bearer in one code. V.110 has the
/// codes of the modem, so that it reads back as such.
struct LineType {
    const char *name;
    std::array<std::uint8_t, 5> codes; ///< one for each of bitRates
};
constexpr std::array<unsigned int, 5> bitRates = {0, 14400, 9600, 4800, 2400};
constexpr LineType lineTypes[] = {
    {"ANALOG-MODEM", {0x00, 0x0E, 0x07, 0x06, 0x04}},
    {"Isdn", {0x00, 0x4B, 0x47, 0x46, 0x44}},
    {"V.110", {0x00, 0x0E, 0x07, 0x06, 0x04}},
};

/// A cell of that table.
struct LineSpeed {
    const LineType *lineType;
    std::size_t column;
};

std::optional<LineSpeed> findSpeedCode(std::uint8_t code)
{
    for (const LineType &lineType : lineTypes) {
        const auto cell = std::find(lineType.codes.begin(), lineType.codes.end(), code);
        if (cell != lineType.codes.end())
            return LineSpeed{&lineType, static_cast<std::size_t>(cell - lineType.codes.begin())};
    }
    return std::nullopt;
}

/// What an unknown code counts as: no speed on the first line type.
constexpr LineSpeed unknownSpeed = {&lineTypes[0], 0};

//////////////////////////////////////////////////////////////////////////////////////////////////
// Bytes of the record

const char *bytesOf(const ProfileField &field, const NAP_PROFILE_S &record)
{
    return reinterpret_cast<const char *>(&record) + field.bytes.offset;
}

template <typename Number>
Number numberOf(const ProfileField &field, const NAP_PROFILE_S &record)
{
    Number number;
    std::memcpy(&number, bytesOf(field, record), sizeof number);
    return number;
}

template <typename Number>
void storeNumber(const ProfileField &field, NAP_PROFILE_S &record, Number number)
{
    std::memcpy(reinterpret_cast<char *>(&record) + field.bytes.offset, &number, sizeof number);
}

/// The text in its array: up to the terminator, or all of it.
QUtf8StringView textOf(const ProfileField &field, const NAP_PROFILE_S &record)
{
    const char *bytes = bytesOf(field, record);
    return {bytes, static_cast<qsizetype>(strnlen(bytes, field.bytes.size))};
}

bool isText(const ProfileField &field)
{
    return field.kind == FieldKind::Text || field.kind == FieldKind::Secret;
}

LineSpeed lineSpeedOf(const ProfileField &field, const NAP_PROFILE_S &record)
{
    return findSpeedCode(numberOf<std::uint8_t>(field, record)).value_or(unknownSpeed);
}

//////////////////////////////////////////////////////////////////////////////////////////////////
// Reading values. The error says what is wrong with one.

std::optional<unsigned int> parseDecimal(QStringView text, unsigned int maximum)
{
    constexpr qsizetype mostDigits = 9;
    if (text.isEmpty() || text.size() > mostDigits)
        return std::nullopt;
    unsigned int number = 0;
    for (const QChar digit : text) {
        if (digit < u'0' || digit > u'9')
            return std::nullopt;
        number = number * 10 + static_cast<unsigned int>(digit.unicode() - u'0');
    }
    return number <= maximum ? std::optional(number) : std::nullopt;
}

std::optional<std::uint32_t> parseIpv4(QStringView text)
{
    constexpr qsizetype parts = 4;
    constexpr qsizetype mostDigits = 3;
    const QList<QStringView> numbers = text.split(u'.');
    if (numbers.size() != parts)
        return std::nullopt;
    std::uint32_t address = 0;
    for (const QStringView part : numbers) {
        const std::optional<unsigned int> number = parseDecimal(part, 255);
        if (!number || part.size() > mostDigits)
            return std::nullopt;
        address = address << 8U | *number;
    }
    return address;
}

void storeFlag(const ProfileField &field, NAP_PROFILE_S &record, bool isTrue)
{
    const auto flags = numberOf<std::uint32_t>(field, record);
    storeNumber(field, record,
                isTrue ? flags & ~NAPI_FLAG_NOT_EDITABLE : flags | NAPI_FLAG_NOT_EDITABLE);
}

FieldCheck setFlag(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    const bool isTrue = text == u"true" || text == u"yes";
    if (!isTrue && text != u"false" && text != u"no")
        return support::Unexpected(QStringLiteral("expected true or false"));
    storeFlag(field, record, isTrue);
    return {};
}

FieldCheck setText(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    if (!text.isValidUtf16() || text.contains(QChar(u'\0')))
        return support::Unexpected(QStringLiteral("the text holds a NUL or half a character"));
    const QByteArray bytes = text.toUtf8();
    if (bytes.size() > static_cast<qsizetype>(field.bytes.size)) {
        return support::Unexpected(QStringLiteral("the text is %1 bytes long, at most %2 fit")
                                       .arg(bytes.size())
                                       .arg(field.bytes.size));
    }
    char *array = reinterpret_cast<char *>(&record) + field.bytes.offset;
    std::memset(array, 0, field.bytes.size);
    std::memcpy(array, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return {};
}

FieldCheck setIpv4(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    const std::optional<std::uint32_t> address = parseIpv4(text);
    if (!address)
        return support::Unexpected(QStringLiteral("expected an IPv4 address like 10.0.0.1"));
    storeNumber(field, record, *address);
    return {};
}

FieldCheck setNumber16(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    const std::optional<unsigned int> number = parseDecimal(text, 65535);
    if (!number)
        return support::Unexpected(QStringLiteral("expected a whole number from 0 to 65535"));
    storeNumber(field, record, static_cast<std::uint16_t>(*number));
    return {};
}

FieldCheck setLineType(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    QStringList names;
    for (const LineType &lineType : lineTypes) {
        const QString name = QString::fromLatin1(lineType.name);
        names += name;
        if (name != text)
            continue;
        const std::uint8_t code = lineType.codes[lineSpeedOf(field, record).column];
        if (code == 0 && lineType.codes != lineTypes[0].codes)
            return support::Unexpected(
                QStringLiteral("%1 cannot be kept without a speed above 0").arg(name));
        storeNumber(field, record, code);
        return {};
    }
    return support::Unexpected(QStringLiteral("expected one of ") +
                               names.join(QStringLiteral(", ")));
}

FieldCheck setBitRate(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    QStringList rates;
    for (std::size_t column = 0; column < bitRates.size(); ++column) {
        rates += QString::number(bitRates[column]);
        if (rates.last() != text)
            continue;
        storeNumber(field, record, lineSpeedOf(field, record).lineType->codes[column]);
        return {};
    }
    return support::Unexpected(QStringLiteral("expected one of ") +
                               rates.join(QStringLiteral(", ")));
}

FieldCheck setField(const ProfileField &field, NAP_PROFILE_S &record, const QString &text)
{
    switch (field.kind) {
    case FieldKind::Flag:
        return setFlag(field, record, text);
    case FieldKind::Text:
    case FieldKind::Secret:
        return setText(field, record, text);
    case FieldKind::Ipv4:
        return setIpv4(field, record, text);
    case FieldKind::Seconds:
    case FieldKind::Port:
        return setNumber16(field, record, text);
    case FieldKind::LineType:
        return setLineType(field, record, text);
    case FieldKind::BitRate:
        return setBitRate(field, record, text);
    }
    return {};
}

} // namespace

std::span<const ProfilePart> profileParts()
{
    return partTable;
}

std::span<const ProfileField> profileFields()
{
    return fieldTable;
}

QString fieldPath(const ProfileField &field)
{
    const QString name = QString::fromLatin1(field.name);
    return !field.part ? name : QString::fromLatin1(field.part->name) + u'.' + name;
}

const ProfileField *findField(QStringView path)
{
    const auto *field = std::ranges::find_if(
        fieldTable, [path](const ProfileField &candidate) { return fieldPath(candidate) == path; });
    return field == std::end(fieldTable) ? nullptr : field;
}

QStringList fieldValues(const ProfileField &field)
{
    QStringList values;
    if (field.kind == FieldKind::Flag)
        values = {QStringLiteral("true"), QStringLiteral("false")};
    if (field.kind == FieldKind::LineType)
        for (const LineType &lineType : lineTypes)
            values += QString::fromLatin1(lineType.name);
    if (field.kind == FieldKind::BitRate)
        for (const unsigned int rate : bitRates)
            values += QString::number(rate);
    return values;
}

QString fieldText(const ProfileField &field, const NAP_PROFILE_S &record)
{
    switch (field.kind) {
    case FieldKind::Flag: {
        const bool isSet = (numberOf<std::uint32_t>(field, record) & NAPI_FLAG_NOT_EDITABLE) != 0;
        return isSet ? QStringLiteral("false") : QStringLiteral("true");
    }
    case FieldKind::Text:
    case FieldKind::Secret:
        return textOf(field, record).toString();
    case FieldKind::Ipv4:
        return QString::fromStdString(
            profile_record::ipv4Text(numberOf<std::uint32_t>(field, record)));
    case FieldKind::Seconds:
    case FieldKind::Port:
        return QString::number(numberOf<std::uint16_t>(field, record));
    case FieldKind::LineType:
        return QString::fromLatin1(lineSpeedOf(field, record).lineType->name);
    case FieldKind::BitRate:
        return QString::number(bitRates[lineSpeedOf(field, record).column]);
    }
    return {};
}

bool isPartUsed(const ProfilePart &part, const NAP_PROFILE_S &record)
{
    static constexpr NAP_PROFILE_S zeros = {};
    return std::ranges::any_of(fieldTable, [&](const ProfileField &field) {
        return field.part == &part && fieldText(field, record) != fieldText(field, zeros);
    });
}

bool isPartPresent(const ProfilePart &part, const NAP_PROFILE_S &record)
{
    return std::ranges::any_of(fieldTable, [&](const ProfileField &field) {
        return field.part == &part && std::strcmp(field.name, "address") == 0 &&
               *bytesOf(field, record) != 0;
    });
}

FieldCheck setFields(NAP_PROFILE_S &record, QList<FieldValue> values)
{
    // A line type goes with the bit rate that is set with it, whatever their order.
    std::stable_partition(values.begin(), values.end(), [](const FieldValue &value) {
        return value.field->kind != FieldKind::LineType;
    });
    NAP_PROFILE_S changed = record;
    for (const FieldValue &value : values) {
        if (const auto set = setField(*value.field, changed, value.text); !set) {
            return support::Unexpected(fieldPath(*value.field) + QStringLiteral(": ") +
                                       set.error());
        }
    }
    record = changed;
    return {};
}

void clearFields(NAP_PROFILE_S &record)
{
    for (const ProfileField &field : fieldTable) {
        if (field.kind == FieldKind::Flag)
            storeFlag(field, record, true);
        else
            std::memset(reinterpret_cast<char *>(&record) + field.bytes.offset, 0,
                        field.bytes.size);
    }
}

QStringList recordFaults(const NAP_PROFILE_S &record)
{
    QStringList faults;
    for (const ProfileField &field : fieldTable) {
        if (isText(field) && !textOf(field, record).isValidUtf8())
            faults += fieldPath(field) + QStringLiteral(": the text is not UTF-8");
        if (field.kind != FieldKind::BitRate)
            continue;
        const auto code = numberOf<std::uint8_t>(field, record);
        if (!findSpeedCode(code)) {
            faults +=
                fieldPath(field) +
                QStringLiteral(": the speed code 0x%1 is unknown").arg(code, 2, 16, QChar(u'0'));
        }
    }
    return faults;
}
