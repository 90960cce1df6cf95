#include "wsp_push.h"

#include "byte_reader.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace client::push {

using support::Expected;
using support::Unexpected;

namespace {

// WSP 8.2.4.1 and 8.4.2: of what each kind of value begins.
constexpr quint8 pushType = 0x06;
constexpr quint8 shortIntegerBit = 0x80;
constexpr quint8 lengthQuote = 31;
constexpr quint8 firstTextByte = 32;
constexpr quint8 textQuote = 127;
constexpr quint8 shiftDelimiter = 127;

constexpr quint32 qualityParameter = 0x00;
constexpr quint32 securityParameter = 0x11;
constexpr quint32 macParameter = 0x12;
constexpr quint32 applicationHeader = 0x2F;
constexpr quint8 usualPage = 1;

constexpr std::pair<quint32, const char *> mediaTypes[] = {
    {0x35, push_type::connectivityXml}, {0x36, push_type::connectivityWbxml},
    {0x42, push_type::dmWbxml},         {0x43, push_type::dmXml},
    {0x44, push_type::notification},
};

QByteArray nameOfMediaType(quint32 code)
{
    const auto *const row =
        std::ranges::find(mediaTypes, code, [](auto &type) { return type.first; });
    return row == std::end(mediaTypes) ? "code 0x" + QByteArray::number(code, 16)
                                       : QByteArray(row->second);
}

bool isPrintable(QByteArrayView text)
{
    return std::ranges::all_of(text, [](char byte) { return byte >= ' ' && byte <= '~'; });
}

/// A value of a header or of a parameter, whatever it means.
struct Value {
    bool isNumber = false;
    quint32 number = 0;
    QByteArrayView text; ///< of one that is not a number: a text, or bytes with a length
    bool isText = false;

    /// A number as decimal text, a text as it is; none for bytes.
    std::optional<QByteArray> toText() const
    {
        if (isNumber)
            return QByteArray::number(number);
        return isText ? std::optional(text.toByteArray()) : std::nullopt;
    }
};

class PushReader {
public:
    explicit PushReader(const QByteArray &bytes) : m_bytes(bytes), m_reader(bytes) {}

    Expected<WspPush, QString> read()
    {
        if (m_bytes.size() > WspPush::largest)
            return Unexpected(
                QStringLiteral("the push has more than %1 bytes").arg(WspPush::largest));
        if (readPush())
            return std::move(m_push);
        return Unexpected(QStringLiteral("byte %1 of the push: %2")
                              .arg(m_fault.isEmpty() ? m_base + m_reader.place() : m_faultPlace)
                              .arg(m_fault.isEmpty() ? m_reader.fault() : m_fault));
    }

private:
    bool readPush()
    {
        quint8 type = 0;
        quint32 headerSize = 0;
        QByteArrayView header;
        if (!m_reader.readByte(m_push.transaction) || !m_reader.readByte(type))
            return false;
        if (type != pushType)
            return fail(
                QStringLiteral("0x%1 is not the type of a push").arg(type, 2, 16, QChar(u'0')));
        if (!m_reader.readNumber(headerSize) || !m_reader.take(headerSize, header))
            return false;
        m_push.body = m_reader.rest().toByteArray();
        enter(header);
        return readContentType() && readHeaders();
    }

    /// Goes on inside a part of the bytes.
    void enter(QByteArrayView part)
    {
        m_base = part.data() - m_bytes.constData();
        m_reader = syncml::ByteReader(part);
    }

    bool readContentType()
    {
        const syncml::ByteReader before = m_reader;
        quint8 first = 0;
        if (!m_reader.readByte(first))
            return false;
        if (first > lengthQuote) {
            m_reader = before;
            return readMediaType();
        }
        m_reader = before;
        QByteArrayView content;
        if (!readCounted(content))
            return false;
        const syncml::ByteReader headers = std::exchange(m_reader, {});
        const qsizetype base = m_base;
        enter(content);
        if (!readMediaType())
            return false;
        while (!m_reader.isAtEnd())
            if (!readParameter())
                return false;
        m_reader = headers;
        m_base = base;
        return true;
    }

    bool readMediaType()
    {
        Value type;
        if (!readValue(type))
            return false;
        if (type.isNumber)
            m_push.mediaType = nameOfMediaType(type.number);
        else if (type.isText && !type.text.isEmpty() && isPrintable(type.text))
            m_push.mediaType = type.text.toByteArray().toLower();
        else
            return fail(QStringLiteral("the media type is neither a number nor a text"));
        return true;
    }

    bool readParameter()
    {
        Value name;
        Value value;
        if (!readValue(name))
            return false;
        if (name.isNumber && name.number == qualityParameter)
            return fail(QStringLiteral("a media type of a push has no quality"));
        if (!name.isNumber && !name.isText)
            return fail(QStringLiteral("the name of a parameter is neither a number nor a text"));
        if (!readValue(value))
            return false;
        if (isNamed(name, securityParameter, "sec"))
            return keep("SEC", m_push.security, value, Case::Upper);
        if (isNamed(name, macParameter, "mac"))
            return keep("MAC", m_push.mac, value, Case::AsItIs);
        return true;
    }

    static bool isNamed(const Value &name, quint32 code, QByteArrayView text)
    {
        return name.isNumber ? name.number == code
                             : name.text.compare(text, Qt::CaseInsensitive) == 0;
    }

    bool readHeaders()
    {
        quint8 page = usualPage;
        while (!m_reader.isAtEnd())
            if (!readHeader(page))
                return false;
        return true;
    }

    bool readHeader(quint8 &page)
    {
        const syncml::ByteReader before = m_reader;
        quint8 first = 0;
        if (!m_reader.readByte(first))
            return false;
        if (first == shiftDelimiter)
            return m_reader.readByte(page);
        if (first == 0)
            return fail(QStringLiteral("0 is not the name of a header"));
        if (first < firstTextByte) {
            page = first;
            return true;
        }
        QByteArrayView name;
        Value value;
        if (first & shortIntegerBit) {
            if (!readValue(value))
                return false;
            return page != usualPage || (first & ~shortIntegerBit & 0xFFu) != applicationHeader ||
                   keep("X-WAP-Application-ID", m_push.application, value, Case::AsItIs);
        }
        m_reader = before;
        return m_reader.readTerminated(name) && readValue(value);
    }

    // ---- Values

    bool readValue(Value &value)
    {
        const syncml::ByteReader before = m_reader;
        quint8 first = 0;
        if (!m_reader.readByte(first))
            return false;
        if (first & shortIntegerBit) {
            value = {.isNumber = true, .number = first & ~shortIntegerBit & 0xFFu, .text = {}};
            return true;
        }
        if (first >= firstTextByte) {
            if (first != textQuote)
                m_reader = before;
            value.isText = true;
            return m_reader.readTerminated(value.text);
        }
        m_reader = before;
        if (!readCounted(value.text))
            return false;
        // As a number it is one of several bytes.
        constexpr qsizetype mostBytes = 4;
        value.isNumber = !value.text.isEmpty() && value.text.size() <= mostBytes;
        for (const char byte : value.isNumber ? value.text : QByteArrayView())
            value.number = value.number << 8 | static_cast<quint8>(byte);
        return true;
    }

    /// A length, in one of its two forms, and that many bytes.
    bool readCounted(QByteArrayView &bytes)
    {
        quint8 first = 0;
        if (!m_reader.readByte(first))
            return false;
        quint32 size = first;
        if (first == lengthQuote && !m_reader.readNumber(size))
            return false;
        if (first > lengthQuote)
            return fail(QStringLiteral("0x%1 is not a length").arg(first, 2, 16, QChar(u'0')));
        return m_reader.take(size, bytes);
    }

    enum class Case { AsItIs, Upper };

    bool keep(const char *name, std::optional<QByteArray> &field, const Value &value, Case letters)
    {
        const QString shownName = QString::fromLatin1(name);
        const auto text = value.toText();
        if (field)
            return fail(QStringLiteral("%1 stands there twice").arg(shownName));
        if (!text || !isPrintable(*text))
            return fail(QStringLiteral("%1 is neither a number nor a text").arg(shownName));
        field = letters == Case::Upper ? text->toUpper() : *text;
        return true;
    }

    bool fail(const QString &text)
    {
        m_faultPlace = m_base + m_reader.place();
        m_fault = text;
        return false;
    }

    const QByteArray &m_bytes;
    syncml::ByteReader m_reader;
    qsizetype m_base = 0; ///< where the reader's bytes begin
    WspPush m_push;
    QString m_fault; ///< of what the bytes mean; the reader has its own
    qsizetype m_faultPlace = 0;
};

} // namespace

bool looksLikePush(const QByteArray &bytes)
{
    return bytes.size() > 1 && static_cast<quint8>(bytes[1]) == pushType;
}

Expected<WspPush, QString> readWspPush(const QByteArray &bytes)
{
    return PushReader(bytes).read();
}

} // namespace client::push
