// A provisioning document in WBXML.

#include "byte_reader.h"
#include "document_builder.h"
#include "provisioning_tokens.h"
#include "wbxml_tokens.h"
#include "xml_text.h"

#include <algorithm>
#include <iterator>

namespace client::bootstrap {

namespace {

using namespace syncml::wbxml;

constexpr quint32 idProvisioning = 0x0B;
constexpr quint32 idsTaken[] = {idUnknown, idProvisioning};
constexpr QByteArrayView publicTextStart("-//WAPFORUM//DTD PROV 1.");
constexpr quint32 charsetsTaken[] = {charsetUnknown, charsetAscii, charsetUtf8};

constexpr DocumentElement tags[] = {DocumentElement::Document, DocumentElement::Characteristic,
                                    DocumentElement::Parm};

QString hex(quint32 number)
{
    return QStringLiteral("0x%1").arg(number, 2, 16, QChar(u'0'));
}

class WbxmlReader {
public:
    WbxmlReader(const QByteArray &bytes, const ProvisioningLimits &limits)
        : m_limits(limits), m_reader(bytes), m_builder(limits)
    {
    }

    support::Expected<ProvisioningDocument, QString> read()
    {
        if (readPrologue() && readDocument())
            return m_builder.take();
        return support::Unexpected(QStringLiteral("byte %1: %2")
                                       .arg(m_reader.place())
                                       .arg(m_fault.isEmpty() ? m_reader.fault() : m_fault));
    }

private:
    // ---- Prologue

    bool readPrologue()
    {
        quint8 version = 0;
        quint32 publicId = 0;
        quint32 publicTextIndex = 0;
        quint32 charset = 0;
        quint32 tableSize = 0;
        if (!m_reader.readByte(version) || !m_reader.readNumber(publicId) ||
            (publicId == idInStringTable && !m_reader.readNumber(publicTextIndex)) ||
            !m_reader.readNumber(charset) || !m_reader.readNumber(tableSize) ||
            !m_reader.take(tableSize, m_stringTable))
            return false;
        if ((version & majorVersionMask) != 0)
            return fail(
                QStringLiteral("WBXML of version byte %1 is not supported").arg(hex(version)));
        if (std::ranges::find(charsetsTaken, charset) == std::end(charsetsTaken))
            return fail(QStringLiteral("character set %1 is not supported, only UTF-8 (106) is")
                            .arg(charset));
        return checkPublicId(publicId, publicTextIndex);
    }

    bool checkPublicId(quint32 publicId, quint32 textIndex)
    {
        if (publicId != idInStringTable)
            return std::ranges::find(idsTaken, publicId) != std::end(idsTaken) ||
                   fail(QStringLiteral("public id %1 is not that of provisioning")
                            .arg(hex(publicId)));
        QByteArrayView text;
        return tableString(textIndex, m_limits.nameBytes, text) &&
               (text.startsWith(publicTextStart) ||
                fail(QStringLiteral("the public id is not that of provisioning")));
    }

    // ---- Elements

    bool readDocument()
    {
        do {
            if (!readToken())
                return false;
        } while (!m_builder.isComplete());
        return m_reader.isAtEnd() || fail(QStringLiteral("bytes after the end of the document"));
    }

    bool readToken()
    {
        quint8 token = 0;
        QByteArrayView text;
        if (!m_reader.readByte(token))
            return false;
        switch (token) {
        case SwitchPage:
            return switchPage(m_tagPage);
        case End:
            return passed(m_builder.close());
        case InlineString:
            return m_reader.readTerminated(text) &&
                   (syncml::withoutOuterBlanks(text).isEmpty() ||
                    fail(QStringLiteral("text between the elements")));
        default:
            return readElement(token);
        }
    }

    bool switchPage(quint8 &page)
    {
        return m_reader.readByte(page) &&
               (page < pageCount || fail(QStringLiteral("there is no code page %1").arg(page)));
    }

    bool readElement(quint8 token)
    {
        const auto element = elementOf(token & tagMask);
        if (!element)
            return m_fault.isEmpty() && m_reader.fault().isEmpty()
                       ? fail(QStringLiteral("tag %1 of code page %2 is not known")
                                  .arg(hex(token & tagMask))
                                  .arg(m_tagPage))
                       : false;
        TagAttributes attributes;
        if ((token & attributesBit) && !readAttributes(attributes))
            return false;
        if (!passed(m_builder.open(*element, std::move(attributes))))
            return false;
        return (token & contentBit) || passed(m_builder.close());
    }

    std::optional<DocumentElement> elementOf(quint8 tag)
    {
        if (tag == Literal) {
            QByteArrayView name;
            return readTableString(m_limits.nameBytes, name) ? documentElementNamed(name)
                                                             : std::nullopt;
        }
        const int row = tag - firstTag;
        // The document itself is on the first page only.
        return row >= 0 && row < std::ssize(tags) && (row > 0 || m_tagPage == 0)
                   ? std::optional(tags[row])
                   : std::nullopt;
    }

    // ---- Attributes

    bool readAttributes(TagAttributes &attributes)
    {
        for (;;) {
            quint8 token = 0;
            if (!m_reader.readByte(token))
                return false;
            if (token == End)
                return true;
            if (token == SwitchPage) {
                if (!switchPage(m_attributePage))
                    return false;
                continue;
            }
            if (!readAttribute(token, attributes))
                return false;
        }
    }

    bool readAttribute(quint8 token, TagAttributes &attributes)
    {
        QByteArray name;
        QByteArray value;
        if (token == Literal) {
            QByteArrayView literal;
            if (!readTableString(m_limits.nameBytes, literal))
                return false;
            name = literal.toByteArray();
        } else if (const auto start = attributeStart(m_attributePage, token)) {
            name = start->name;
            value = start->value;
        } else {
            return fail(QStringLiteral("attribute %1 of code page %2 is not known")
                            .arg(hex(token))
                            .arg(m_attributePage));
        }
        return readValue(value) && passed(attributes.set(name, value, m_limits));
    }

    /// Appends the pieces of a value, up to what begins the next attribute or ends them.
    bool readValue(QByteArray &value)
    {
        for (;;) {
            const syncml::ByteReader before = m_reader;
            quint8 token = 0;
            QByteArrayView piece;
            if (!m_reader.readByte(token))
                return false;
            if (token == SwitchPage) {
                if (!switchPage(m_attributePage))
                    return false;
                continue;
            }
            if (token < attributesBit && token != Entity && token != InlineString) {
                m_reader = before;
                return true;
            }
            if (!readPiece(token, piece))
                return false;
            value += piece;
            if (value.size() > m_limits.valueBytes)
                return fail(
                    QStringLiteral("a value of more than %1 bytes").arg(m_limits.valueBytes));
        }
    }

    bool readPiece(quint8 token, QByteArrayView &piece)
    {
        switch (token) {
        case Entity:
            return readEntity(piece);
        case InlineString:
            return m_reader.readTerminated(piece);
        case TableString:
            return readTableString(m_limits.valueBytes, piece);
        default:
            piece = attributeValue(m_attributePage, token);
            return !piece.isNull() || fail(QStringLiteral("value %1 of code page %2 is not known")
                                               .arg(hex(token))
                                               .arg(m_attributePage));
        }
    }

    bool readEntity(QByteArrayView &piece)
    {
        constexpr quint32 lastCharacter = 0x10FFFF;
        quint32 character = 0;
        if (!m_reader.readNumber(character))
            return false;
        const char32_t codePoint = character;
        const QString text = QString::fromUcs4(&codePoint, 1);
        if (character > lastCharacter || !syncml::isXmlText(text))
            return fail(QStringLiteral("entity %1 is not a character").arg(character));
        m_entity = text.toUtf8();
        piece = m_entity;
        return true;
    }

    // ---- String table

    bool readTableString(qsizetype longest, QByteArrayView &text)
    {
        quint32 index = 0;
        return m_reader.readNumber(index) && tableString(index, longest, text);
    }

    /// @param longest  bytes; no more are looked at, since many references may lead to one text
    bool tableString(quint32 index, qsizetype longest, QByteArrayView &text)
    {
        const QByteArrayView rest = index < static_cast<quint64>(m_stringTable.size())
                                        ? m_stringTable.sliced(index)
                                        : QByteArrayView();
        const qsizetype size = rest.first(std::min(rest.size(), longest + 1)).indexOf('\0');
        if (size < 0)
            return fail(QStringLiteral("no string of at most %1 bytes at %2 of the string table")
                            .arg(longest)
                            .arg(index));
        text = rest.first(size);
        return true;
    }

    bool passed(const QString &fault) { return fault.isEmpty() || fail(fault); }

    bool fail(const QString &text)
    {
        m_fault = text;
        return false;
    }

    const ProvisioningLimits m_limits;
    syncml::ByteReader m_reader;
    QByteArrayView m_stringTable;
    QByteArray m_entity; ///< the last one
    DocumentBuilder m_builder;
    quint8 m_tagPage = 0;
    quint8 m_attributePage = 0;
    QString m_fault; ///< of what the bytes mean; the reader has its own
};

} // namespace

support::Expected<ProvisioningDocument, QString>
readProvisioningWbxml(const QByteArray &bytes, const ProvisioningLimits &limits)
{
    return WbxmlReader(bytes, limits).read();
}

} // namespace client::bootstrap
