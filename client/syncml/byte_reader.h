// Bytes from outside, read from the front: what WBXML and the headers of WAP are made of.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <limits>

namespace syncml {

/// Walks through bytes that have to outlive it. A step that fails says why in `fault()`; nothing is
/// to be read after that.
class ByteReader {
public:
    ByteReader() = default;
    explicit ByteReader(QByteArrayView bytes) : m_bytes(bytes) {}

    bool isAtEnd() const { return m_at == m_bytes.size(); }
    qsizetype place() const { return m_at; }
    /// The bytes from here on.
    QByteArrayView rest() const { return m_bytes.sliced(m_at); }
    const QString &fault() const { return m_fault; }

    bool readByte(quint8 &byte)
    {
        if (isAtEnd())
            return fail(QStringLiteral("the message breaks off"));
        byte = static_cast<quint8>(m_bytes[m_at++]);
        return true;
    }

    /// A number in groups of seven bits, the highest first; all but the last have the top bit set.
    /// Five of them hold 32 bits: more would be zeros in front, of which there is no end.
    bool readNumber(quint32 &number)
    {
        constexpr quint8 continuationBit = 0x80;
        constexpr int bitsPerByte = 7;
        constexpr int mostBytes = 5;
        const qsizetype begin = m_at;
        number = 0;
        quint8 byte = 0;
        do {
            if (!readByte(byte))
                return false;
            if (m_at - begin > mostBytes ||
                number > std::numeric_limits<quint32>::max() >> bitsPerByte)
                return fail(QStringLiteral("a number of more than 32 bits"));
            number = number << bitsPerByte | (byte & ~continuationBit & 0xFFu);
        } while (byte & continuationBit);
        return true;
    }

    bool take(quint32 size, QByteArrayView &bytes)
    {
        if (size > static_cast<quint64>(m_bytes.size() - m_at))
            return fail(QStringLiteral("%1 bytes announced, but only %2 are left")
                            .arg(size)
                            .arg(m_bytes.size() - m_at));
        bytes = m_bytes.sliced(m_at, size);
        m_at += size;
        return true;
    }

    /// The bytes before the next NUL, which is read as well.
    bool readTerminated(QByteArrayView &bytes)
    {
        const qsizetype size = rest().indexOf('\0');
        if (size < 0)
            return fail(QStringLiteral("the message breaks off"));
        bytes = m_bytes.sliced(m_at, size);
        m_at += size + 1;
        return true;
    }

private:
    bool fail(const QString &text)
    {
        m_fault = text;
        return false;
    }

    QByteArrayView m_bytes;
    qsizetype m_at = 0;
    QString m_fault;
};

} // namespace syncml
