#include "wbxml_codec.h"

#include "byte_reader.h"
#include "element_sink.h"
#include "element_source.h"
#include "message_reader.h"
#include "message_writer.h"
#include "tree_tokens.h"
#include "wbxml_tokens.h"
#include "xml_text.h"

#include <QByteArrayView>
#include <algorithm>
#include <limits>
#include <string>

namespace syncml {
namespace {

// Literal tags, extensions and processing instructions have no place in a SyncML message.
using namespace wbxml;

constexpr quint8 writtenVersion = 0x02; // 1.2

// Public ids.
constexpr quint32 idSyncml11 = 0x0FD3;
constexpr quint32 idSyncml12 = 0x1201;
constexpr QByteArrayView publicTextStart("-//SYNCML//DTD SyncML 1.");
constexpr QByteArrayView publicTextStartOfTree("-//OMA//DTD-DM-DDF 1.");

/// What a document is made of: each kind has public ids and code pages of its own.
enum class Vocabulary { Message, Tree };

QString hex(quint32 number)
{
    return QStringLiteral("0x%1").arg(number, 2, 16, QChar(u'0'));
}

// ---- reading

class WbxmlSource final : public ElementSource {
public:
    WbxmlSource(const QByteArray &bytes, const Limits &limits,
                Vocabulary vocabulary = Vocabulary::Message)
        : ElementSource(limits), m_bytes(bytes), m_reader(m_bytes), m_vocabulary(vocabulary)
    {
        if (checkSize(bytes.size()))
            readPrologue();
    }

protected:
    Token advance() override
    {
        if (m_emptyElementOpen) {
            m_emptyElementOpen = false;
            return leave();
        }
        if (m_rootRead && m_open == 0)
            return finish();
        quint8 token = 0;
        while (readByte(token)) {
            switch (token) {
            case SwitchPage:
                if (!readByte(m_page))
                    return Token::Failed;
                break;
            case End:
                return leave();
            case Entity:
                return readEntity();
            case InlineString:
                return readInlineString();
            case TableString:
                return readTableString();
            case Opaque:
                return readOpaque();
            default:
                return readTag(token);
            }
        }
        return Token::Failed;
    }

    void locate(DecodeError &error) const override { error.offset = m_reader.place(); }

private:
    // ---- prologue

    void readPrologue()
    {
        quint8 version = 0;
        quint32 publicId = 0;
        quint32 publicTextIndex = 0;
        quint32 charset = 0;
        quint32 tableSize = 0;
        if (!readByte(version) || !readNumber(publicId) ||
            (publicId == idInStringTable && !readNumber(publicTextIndex)) || !readNumber(charset) ||
            !readNumber(tableSize) || !take(tableSize, m_stringTable))
            return;
        if ((version & majorVersionMask) != 0)
            fail(415,
                 QStringLiteral("WBXML of version byte %1 is not supported").arg(hex(version)));
        else if (charset != charsetUnknown && charset != charsetAscii && charset != charsetUtf8)
            fail(415, QStringLiteral("character set %1 is not supported, only UTF-8 (106) is")
                          .arg(charset));
        else if (publicId == idInStringTable)
            checkPublicText(publicTextIndex);
        else
            checkPublicId(publicId);
    }

    void checkPublicId(quint32 publicId)
    {
        constexpr quint32 taken[] = {idUnknown, idSyncml11, idSyncml12};
        if (std::ranges::find(taken, publicId) == std::end(taken))
            fail(415, QStringLiteral("public id %1 is not SyncML").arg(hex(publicId)));
    }

    void checkPublicText(quint32 index)
    {
        QByteArrayView text;
        const bool isTree = m_vocabulary == Vocabulary::Tree;
        if (!tableString(index, text) ||
            text.startsWith(isTree ? publicTextStartOfTree : publicTextStart))
            return;
        // It may be anything, of any length, and the error is to be shown to a person.
        constexpr qsizetype shownBytes = 64;
        const QByteArray shown =
            text.first(std::min(text.size(), shownBytes)).toByteArray().toPercentEncoding(" /");
        fail(415, QStringLiteral("public id '%1' is not %2")
                      .arg(QString::fromLatin1(shown),
                           isTree ? QStringLiteral("of a tree") : QStringLiteral("SyncML")));
    }

    // ---- tokens

    Token readTag(quint8 token)
    {
        const quint8 tag = token & tagMask;
        if ((token & attributesBit) != 0 || tag < firstTag) {
            fail(400, QStringLiteral("token %1 has no place in a SyncML message").arg(hex(token)));
            return Token::Failed;
        }
        if (!findElement(tag)) {
            fail(400,
                 QStringLiteral("tag %1 of code page %2 is not known").arg(hex(tag)).arg(m_page));
            return Token::Failed;
        }
        ++m_open;
        m_rootRead = true;
        m_emptyElementOpen = (token & contentBit) == 0;
        return Token::Start;
    }

    bool findElement(quint8 tag)
    {
        if (m_vocabulary == Vocabulary::Message) {
            m_element = elementByToken(m_page, tag);
            return m_element != Element::Unknown;
        }
        const std::string_view name = m_page == treePage ? treeElementName(tag) : "";
        m_unknownName = QByteArrayView(name);
        m_element = elementByName(m_unknownName);
        return !name.empty();
    }

    Token leave()
    {
        if (m_open == 0) {
            fail(400, QStringLiteral("an end without an element"));
            return Token::Failed;
        }
        --m_open;
        return Token::End;
    }

    Token finish()
    {
        if (m_reader.isAtEnd())
            return Token::Finished;
        fail(400, QStringLiteral("bytes after the end of the message"));
        return Token::Failed;
    }

    Token readEntity()
    {
        quint32 character = 0;
        if (!readNumber(character))
            return Token::Failed;
        constexpr quint32 lastCharacter = 0x10FFFF;
        const char32_t codePoint = character;
        const QString text = QString::fromUcs4(&codePoint, 1);
        if (character > lastCharacter || !isXmlText(text)) {
            fail(400, QStringLiteral("entity %1 is not a character").arg(character));
            return Token::Failed;
        }
        m_entity = text.toUtf8();
        m_text = m_entity;
        return Token::Text;
    }

    Token readInlineString()
    {
        if (!checked(m_reader.readTerminated(m_text)))
            return Token::Failed;
        return Token::Text;
    }

    Token readTableString()
    {
        quint32 index = 0;
        QByteArrayView text;
        if (!readNumber(index) || !tableString(index, text))
            return Token::Failed;
        m_text = text;
        return Token::Text;
    }

    Token readOpaque()
    {
        quint32 size = 0;
        if (!readNumber(size) || !take(size, m_text))
            return Token::Failed;
        return Token::Text;
    }

    // ---- bytes

    bool readByte(quint8 &byte) { return checked(m_reader.readByte(byte)); }
    bool readNumber(quint32 &number) { return checked(m_reader.readNumber(number)); }
    bool take(quint32 size, QByteArrayView &bytes) { return checked(m_reader.take(size, bytes)); }

    /// Records the fault of a step that failed.
    bool checked(bool wasRead)
    {
        if (!wasRead)
            fail(400, m_reader.fault());
        return wasRead;
    }

    bool tableString(quint32 index, QByteArrayView &text)
    {
        const qsizetype size = index < static_cast<quint64>(m_stringTable.size())
                                   ? m_stringTable.sliced(index).indexOf('\0')
                                   : -1;
        if (size < 0) {
            fail(400, QStringLiteral("no string at %1 of the string table").arg(index));
            return false;
        }
        text = m_stringTable.sliced(index, size);
        return true;
    }

    const QByteArray m_bytes;
    ByteReader m_reader;
    const Vocabulary m_vocabulary;
    QByteArrayView m_stringTable;
    QByteArray m_entity;  ///< the last one, in UTF-8
    qsizetype m_open = 0; ///< elements begun and not ended
    quint8 m_page = syncmlPage;
    bool m_rootRead = false;
    bool m_emptyElementOpen = false; ///< its end is still to be told
};

// ---- writing

class WbxmlSink final : public ElementSink {
public:
    WbxmlSink()
    {
        appendByte(writtenVersion);
        appendNumber(idSyncml12);
        appendNumber(charsetUtf8);
        appendNumber(0); // string table
    }

    void start(Element element) override { appendTag(element, contentBit); }

    void end() override { appendByte(End); }

    bool bytes(Element element, const QByteArray &bytes) override
    {
        if (bytes.size() > std::numeric_limits<quint32>::max())
            return false;
        // An opaque NextNonce is taken for the nonce itself, so its base64 must be a string.
        if (element == Element::NextNonce && isXmlText(bytes))
            writeText(element, {bytes.data(), static_cast<std::size_t>(bytes.size())});
        else
            writeOpaque(element, bytes);
        return true;
    }

    void empty(Element element) override { appendTag(element, 0); }

    qsizetype size() const override { return static_cast<qsizetype>(m_wbxml.size()); }

    QByteArray finish() const { return QByteArray::fromStdString(m_wbxml); }

protected:
    void writeText(Element element, std::string_view utf8) override
    {
        if (utf8.empty()) {
            empty(element);
            return;
        }
        start(element);
        // XML text has no NUL.
        const std::size_t begin = m_wbxml.size();
        m_wbxml.resize(begin + 1 + utf8.size() + 2, '\0');
        char *to = m_wbxml.data() + begin;
        *to++ = InlineString;
        to = std::ranges::copy(utf8, to).out;
        to[1] = End;
    }

private:
    void writeOpaque(Element element, const QByteArray &bytes)
    {
        if (bytes.isEmpty()) {
            empty(element);
            return;
        }
        start(element);
        appendByte(Opaque);
        appendNumber(static_cast<quint32>(bytes.size()));
        m_wbxml.append(bytes.data(), static_cast<std::size_t>(bytes.size()));
        end();
    }

    void appendTag(Element element, quint8 bits)
    {
        const ElementInfo &info = elementInfo(element);
        if (info.page != m_page) {
            m_page = info.page;
            appendByte(SwitchPage);
            appendByte(m_page);
        }
        appendByte(info.token | bits);
    }

    void appendByte(int byte) { m_wbxml.push_back(static_cast<char>(byte)); }

    void appendNumber(quint32 number)
    {
        constexpr int bitsPerByte = 7;
        constexpr quint32 groupMask = 0x7F;
        constexpr quint32 continuationBit = 0x80;
        int shift = 0;
        while (number >> shift > groupMask)
            shift += bitsPerByte;
        for (; shift > 0; shift -= bitsPerByte)
            appendByte(static_cast<int>((number >> shift & groupMask) | continuationBit));
        appendByte(static_cast<int>(number & groupMask));
    }

    std::string m_wbxml;
    quint8 m_page = syncmlPage;
};

} // namespace

DecodeResult decodeWbxml(const QByteArray &bytes, const Limits &limits)
{
    WbxmlSource source(bytes, limits);
    return readMessage(source, limits);
}

std::unique_ptr<ElementSource> makeWbxmlTreeSource(const QByteArray &bytes, const Limits &limits)
{
    return std::make_unique<WbxmlSource>(bytes, limits, Vocabulary::Tree);
}

EncodeResult encodeWbxml(const Message &message)
{
    WbxmlSink sink;
    if (const auto written = writeMessage(message, sink); !written)
        return support::Unexpected(written.error());
    return sink.finish();
}

std::unique_ptr<ElementSink> makeWbxmlSink()
{
    return std::make_unique<WbxmlSink>();
}

} // namespace syncml
