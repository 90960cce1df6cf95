#include "node_value.h"

#include "dmnative/dmt_status.h"

namespace client {

namespace {

struct FormatName {
    const char *name;
    DmtData::Type type;
};

// The first name of a type is the one that the Format property gives.
constexpr FormatName formatNames[] = {
    {"chr", DmtData::String}, {"int", DmtData::Int}, {"bool", DmtData::Bool},
    {"bin", DmtData::Bin},    {"b64", DmtData::Bin}, {"node", DmtData::Node},
    {"null", DmtData::Null},
};

Result<DmtData> parseText(const QByteArray &data)
{
    if (!data.isValidUtf8())
        return unsupportedFormat(QStringLiteral("the value is not UTF-8"));
    if (data.contains('\0'))
        return unsupportedFormat(QStringLiteral("the value has a NUL character"));
    return DmtData(data.constData());
}

Result<DmtData> parseNumber(const QByteArray &data)
{
    bool isNumber = false;
    const int number = data.trimmed().toInt(&isNumber, 10);
    if (!isNumber)
        return unsupportedFormat(QStringLiteral("the value is not a 32-bit decimal number"));
    return DmtData(number);
}

Result<DmtData> parseFlag(const QByteArray &data)
{
    const QByteArray word = data.trimmed();
    if (word != "true" && word != "false")
        return unsupportedFormat(QStringLiteral("the value is neither true nor false"));
    return DmtData(word == "true");
}

Result<DmtData> parseBinary(const QByteArray &data)
{
    const auto decoded = QByteArray::fromBase64Encoding(
        data.simplified().replace(' ', QByteArray()), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return unsupportedFormat(QStringLiteral("the value is not base64"));
    DMVector<unsigned char> bytes;
    bytes.reserve(static_cast<int>((*decoded).size()));
    for (const char byte : *decoded)
        bytes.push_back(static_cast<unsigned char>(byte));
    return DmtData(bytes);
}

} // namespace

QString formatName(signed char type)
{
    for (const FormatName &row : formatNames)
        if (row.type == type)
            return QString::fromLatin1(row.name);
    return QStringLiteral("null");
}

std::optional<DmtData::Type> typeOfFormat(const QString &format)
{
    for (const FormatName &row : formatNames)
        if (format.compare(QLatin1String(row.name), Qt::CaseInsensitive) == 0)
            return row.type;
    return std::nullopt;
}

std::vector<QString> settableFormats()
{
    std::vector<QString> names;
    for (const FormatName &row : formatNames)
        names.push_back(QString::fromLatin1(row.name));
    return names;
}

Outcome unsupportedFormat(const QString &reason)
{
    return {DmStatus::UnsupportedFormat, reason};
}

Result<DmtData> parseValue(DmtData::Type type, const std::optional<QByteArray> &data)
{
    const QByteArray bytes = data.value_or(QByteArray());
    switch (type) {
    case DmtData::String:
        return parseText(bytes);
    case DmtData::Int:
        return parseNumber(bytes);
    case DmtData::Bool:
        return parseFlag(bytes);
    case DmtData::Bin:
        return parseBinary(bytes);
    case DmtData::Null:
        if (!bytes.isEmpty())
            return unsupportedFormat(QStringLiteral("a null leaf has no value"));
        return DmtData();
    case DmtData::Node:
        break;
    }
    return unsupportedFormat(QStringLiteral("an interior node has no value"));
}

QByteArray valueText(const DmtData &value)
{
    switch (value.GetType()) {
    case DmtData::String: {
        DMString text;
        value.GetString(text);
        return QByteArray(text.text());
    }
    case DmtData::Int: {
        int number = 0;
        value.GetInt(number);
        return QByteArray::number(number);
    }
    case DmtData::Bool: {
        bool flag = false;
        value.GetBoolean(flag);
        return flag ? QByteArrayLiteral("true") : QByteArrayLiteral("false");
    }
    case DmtData::Bin:
        return valueBytes(value).toBase64();
    default:
        return {};
    }
}

QByteArray valueBytes(const DmtData &value)
{
    DMVector<unsigned char> bytes;
    if (value.GetBinary(bytes) != DMT_OK)
        return valueText(value);
    return QByteArray(reinterpret_cast<const char *>(bytes.begin()), bytes.size());
}

} // namespace client
