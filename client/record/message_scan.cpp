// The elements of a message are followed twice: by the codecs, which say what it means, and here,
// where only the places count. A message is looked at in the order of its bytes; which of its data
// is secret is known when its command has ended, since children come in any order.

#include "message_scan.h"

#include "element.h"
#include "secret_item.h"
#include "tnds_secrets.h"
#include "xml_scanner.h"

#include <QString>
#include <algorithm>
#include <iterator>
#include <utility>

namespace client {

using syncml::CommandKind;
using syncml::Element;

namespace {

// ---- What stands where ---------------------------------------------------------------------------

/// The content of a Data.
struct DataContent {
    ByteSpan whole; ///< everything between the tags
    std::vector<XmlScanner::Piece> texts;
    bool isMarkup = false;  ///< has elements in it
    bool hasShared = false; ///< a text of it stands elsewhere, or is not written as text
};

/// An Item with what decides about its data.
struct ItemPlaces {
    syncml::Item item;
    std::vector<DataContent> data;
};

/// A command with what decides about the data of its items.
struct CommandPlaces {
    syncml::Command command;
    std::vector<ItemPlaces> items;
};

/// Takes the elements and texts of a message in the order of its bytes.
class SecretFinder {
public:
    SecretFinder(QByteArrayView message, syncml::Encoding encoding, const AlertIds &secretQuestions,
                 bool isReadable)
        : m_message(message), m_encoding(encoding), m_secretQuestions(secretQuestions),
          m_isReadable(isReadable)
    {
    }

    /// @param contentBegin  where the content of the element begins
    void start(Element element, qsizetype contentBegin)
    {
        m_path.push_back(element);
        if (m_dataDepth != 0) {
            m_data.isMarkup = true;
            return;
        }
        if (isData(element)) {
            m_dataDepth = m_path.size();
            m_data = {};
            m_data.whole = {contentBegin, contentBegin};
            return;
        }
        m_text.clear();
        const CommandKind kind = syncml::commandKind(element);
        if (kind != CommandKind::Unknown && parent() != Element::Item) {
            m_commands.emplace_back();
            m_commands.back().command.kind = kind;
        } else if (element == Element::Item && !m_commands.empty()) {
            m_commands.back().items.emplace_back();
        }
    }

    /// @param contentEnd  where the content of the element ended
    void end(qsizetype contentEnd)
    {
        if (m_path.empty())
            return;
        const Element element = m_path.back();
        if (m_path.size() == m_dataDepth) {
            m_data.whole.end = contentEnd;
            m_dataDepth = 0;
            place(std::exchange(m_data, {}), parentOf(m_path.size()));
        } else if (m_dataDepth == 0) {
            keepText(element);
        }
        m_path.pop_back();
        const CommandKind kind = syncml::commandKind(element);
        if (m_dataDepth == 0 && kind != CommandKind::Unknown && !m_commands.empty() &&
            m_commands.back().command.kind == kind) {
            judge(m_commands.back());
            m_commands.pop_back();
        }
    }

    void text(const XmlScanner::Piece &piece)
    {
        if (m_dataDepth == 0)
            m_text += resolved(m_message, piece);
        else if (m_path.size() == m_dataDepth)
            m_data.texts.push_back(piece);
    }

    /// A text that cannot be overwritten without changing what else is said.
    void sharedText(const XmlScanner::Piece &piece)
    {
        text(piece);
        m_data.hasShared = true;
    }

    /// A character that stands there as a number.
    void character(quint32, const ByteSpan &place)
    {
        sharedText({XmlScanner::Kind::Literal, {place.begin, place.begin}, {}});
    }

    /// Ends what is open when the message breaks off.
    void finish(qsizetype end)
    {
        if (m_dataDepth != 0) {
            m_data.whole.end = end;
            hide(m_data);
        }
        for (const CommandPlaces &command : m_commands)
            for (const ItemPlaces &item : command.items)
                for (const DataContent &data : item.data)
                    hide(data);
    }

    std::optional<ByteSpans> found()
    {
        return m_isDoubtful ? std::nullopt : std::optional(std::move(m_secrets));
    }

private:
    bool isData(Element element) const
    {
        return element == Element::Data || (!m_isReadable && element == Element::NextNonce);
    }

    Element parentOf(std::size_t depth) const
    {
        return depth < 2 ? Element::Unknown : m_path[depth - 2];
    }
    Element parent() const { return parentOf(m_path.size()); }

    /// Keeps what a text says about the item or the command that is open.
    void keepText(Element element)
    {
        if (m_commands.empty())
            return;
        const QString text = QString::fromUtf8(m_text).trimmed();
        syncml::Command &command = m_commands.back().command;
        const bool isInItem = std::ranges::find(m_path, Element::Item) != m_path.end() &&
                              !m_commands.back().items.empty();
        switch (element) {
        case Element::LocURI:
            if (isInItem && parent() == Element::Target)
                m_commands.back().items.back().item.target = syncml::Location{text, {}};
            else if (isInItem && parent() == Element::Source)
                m_commands.back().items.back().item.source = syncml::Location{text, {}};
            break;
        case Element::Type:
            (isInItem ? m_commands.back().items.back().item.meta : command.meta).emplace().type =
                text;
            break;
        case Element::MsgRef:
            command.msgRef = text;
            break;
        case Element::CmdRef:
            command.cmdRef = text;
            break;
        default:
            break;
        }
    }

    /// Says whose data it is.
    void place(DataContent data, Element holder)
    {
        const bool isOfItem =
            holder == Element::Item && m_path.size() >= 3 && !m_commands.empty() &&
            syncml::commandKind(m_path[m_path.size() - 3]) != CommandKind::Unknown &&
            !m_commands.back().items.empty();
        const bool isCode = syncml::commandKind(holder) == CommandKind::Alert ||
                            syncml::commandKind(holder) == CommandKind::Status;
        if (isOfItem && m_isReadable)
            m_commands.back().items.back().data.push_back(std::move(data));
        else if (!isCode || !m_isReadable)
            hide(data);
    }

    void judge(const CommandPlaces &places)
    {
        const syncml::Command &command = places.command;
        const bool isRead = command.kind != CommandKind::Unsupported;
        const bool answersSecretQuestion =
            command.kind == CommandKind::Status &&
            m_secretQuestions.contains(
                {command.msgRef.value_or(QString()), command.cmdRef.value_or(QString())});
        for (const ItemPlaces &item : places.items) {
            const Secrecy secrecy =
                !isRead || answersSecretQuestion ? Secrecy::Whole : secrecyOf(command, item.item);
            for (const DataContent &data : item.data) {
                if (secrecy == Secrecy::Whole)
                    hide(data);
                else if (secrecy == Secrecy::Fields)
                    hideFields(data);
            }
        }
    }

    void hide(const DataContent &data)
    {
        m_isDoubtful |= data.hasShared;
        if (m_encoding == syncml::Encoding::Xml) {
            m_secrets.push_back(data.whole);
            return;
        }
        for (const XmlScanner::Piece &text : data.texts)
            m_secrets.push_back(text.span);
    }

    void hideFields(const DataContent &data)
    {
        ResolvedText text;
        const XmlScanner::Piece markup{XmlScanner::Kind::Literal, data.whole, {}};
        for (const XmlScanner::Piece &piece : data.isMarkup ? std::vector{markup} : data.texts)
            text.append(m_message, piece);
        const auto values = secretValues(text.bytes());
        if (!values) {
            hide(data);
            return;
        }
        m_isDoubtful |= data.hasShared && !values->empty();
        for (const ByteSpan &value : *values)
            std::ranges::move(text.placesOf(value), std::back_inserter(m_secrets));
    }

    QByteArrayView m_message;
    syncml::Encoding m_encoding;
    const AlertIds &m_secretQuestions;
    bool m_isReadable;
    std::vector<Element> m_path;
    std::size_t m_dataDepth = 0; ///< elements down to the outermost Data that is open; 0: none
    DataContent m_data;
    QByteArray m_text; ///< of the innermost element
    std::vector<CommandPlaces> m_commands;
    ByteSpans m_secrets;
    bool m_isDoubtful = false;
};

/// Takes the elements and texts of a message, and looks for known secrets in what nobody reads.
class UnreadTextFinder {
public:
    UnreadTextFinder(QByteArrayView message, const KnownSecrets &known, const QSet<QString> &shown)
        : m_message(message), m_known(known), m_shown(shown)
    {
    }

    void start(Element element, qsizetype)
    {
        endText();
        m_dataDepth += m_dataDepth > 0 || element == Element::Data ? 1 : 0;
    }

    void end(qsizetype)
    {
        endText();
        m_dataDepth -= m_dataDepth > 0 ? 1 : 0;
    }

    void text(const XmlScanner::Piece &piece)
    {
        if (m_dataDepth == 0)
            m_text.append(m_message, piece);
    }

    void sharedText(const XmlScanner::Piece &piece) { text(piece); }

    void character(quint32 number, const ByteSpan &place)
    {
        const char32_t character = std::min<quint32>(number, QChar::LastValidCodePoint);
        if (m_dataDepth == 0)
            m_text.append(QString::fromUcs4(&character, 1).toUtf8(), place);
    }

    void finish(qsizetype) { endText(); }

    /// Looks at what is not the text of an element.
    void aside(const ByteSpan &span, XmlScanner::Kind kind)
    {
        if (span.begin == span.end)
            return;
        ResolvedText text;
        text.append(m_message, {kind, span, {}});
        hideIn(text);
    }

    /// Looks at the strings that end with a NUL each, whether anything refers to them or not.
    void table(const ByteSpan &span)
    {
        for (qsizetype at = span.begin; at < span.end;) {
            const qsizetype nul = m_message.first(span.end).indexOf('\0', at);
            const qsizetype end = nul < 0 ? span.end : nul;
            m_text.append(m_message, {XmlScanner::Kind::Literal, {at, end}, {}});
            endText();
            at = end + 1;
        }
    }

    ByteSpans found() { return std::move(m_secrets); }

private:
    /// The pieces of a text are one, whatever stands between them.
    void endText()
    {
        const QString whole = QString::fromUtf8(m_text.bytes());
        if (!m_shown.contains(whole) && !m_shown.contains(whole.trimmed()))
            hideIn(m_text);
        m_text = {};
    }

    void hideIn(const ResolvedText &text)
    {
        for (const ByteSpan &secret : m_known.placesIn(text.bytes()))
            std::ranges::move(text.placesOf(secret), std::back_inserter(m_secrets));
    }

    QByteArrayView m_message;
    const KnownSecrets &m_known;
    const QSet<QString> &m_shown;
    int m_dataDepth = 0; ///< elements down to the outermost Data that is open; 0: none
    ResolvedText m_text; ///< of the innermost element
    ByteSpans m_secrets;
};

// ---- XML -----------------------------------------------------------------------------------------

/// What of a tag may say anything: its attributes, and a name that the DTD does not have.
/// Nothing of what is not a tag.
ByteSpan openPartOf(const XmlScanner::Piece &piece, QByteArrayView message)
{
    const bool isTag = piece.kind == XmlScanner::Kind::Start || piece.kind == XmlScanner::Kind::End;
    if (!isTag || piece.span.begin == piece.span.end)
        return {};
    if (syncml::elementByName(piece.name) == Element::Unknown)
        return piece.span;
    return {piece.name.end() - message.begin(), piece.span.end - 1};
}

ByteSpans unreadSecretXml(QByteArrayView message, UnreadTextFinder finder)
{
    using Kind = XmlScanner::Kind;
    XmlScanner scanner(message);
    for (XmlScanner::Piece piece; scanner.next(piece);) {
        if (piece.kind == Kind::Start)
            finder.start(syncml::elementByName(piece.name), piece.span.end);
        else if (piece.kind == Kind::End)
            finder.end(piece.span.begin);
        else if (piece.kind == Kind::Text || piece.kind == Kind::Literal)
            finder.text(piece);
        else
            finder.aside(piece.span, Kind::Literal);
        finder.aside(openPartOf(piece, message), Kind::Text);
    }
    finder.finish(message.size());
    return finder.found();
}

void followXml(QByteArrayView message, SecretFinder &finder)
{
    XmlScanner scanner(message);
    for (XmlScanner::Piece piece; scanner.next(piece);) {
        switch (piece.kind) {
        case XmlScanner::Kind::Start:
            finder.start(syncml::elementByName(piece.name), piece.span.end);
            break;
        case XmlScanner::Kind::End:
            finder.end(piece.span.begin);
            break;
        case XmlScanner::Kind::Text:
        case XmlScanner::Kind::Literal:
            finder.text(piece);
            break;
        case XmlScanner::Kind::Other:
        case XmlScanner::Kind::Broken:
            break;
        }
    }
    finder.finish(message.size());
}

/// Overwrites what stands between a tag of a secret element and the one that ends it, whatever is
/// in between.
ByteSpans possiblySecretXml(QByteArrayView message)
{
    ByteSpans spans;
    XmlScanner scanner(message);
    QByteArrayView element; // empty: none is open
    for (XmlScanner::Piece piece; scanner.next(piece);) {
        const bool isSecret = piece.name == "Data" || piece.name == "NextNonce";
        if (piece.kind == XmlScanner::Kind::Start && element.isEmpty() && isSecret) {
            element = piece.name;
            spans.push_back({piece.span.end, message.size()});
        } else if (piece.kind == XmlScanner::Kind::End && !element.isEmpty() &&
                   piece.name == element) {
            spans.back().end = piece.span.begin;
            element = {};
        } else if (piece.kind == XmlScanner::Kind::Broken && element.isEmpty()) {
            spans.push_back(piece.span);
        }
    }
    return spans;
}

// ---- WBXML ---------------------------------------------------------------------------------------

/// Follows the tokens of a document, whatever their tags.
template <class Finder>
class WbxmlFollower {
public:
    WbxmlFollower(QByteArrayView message, Finder &finder) : m_message(message), m_finder(finder) {}

    /// @return where it cannot be followed any further: the end, when all is well
    qsizetype follow()
    {
        const bool isWhole = skipPrologue() && followTokens();
        m_finder.finish(m_at);
        return isWhole ? m_message.size() : m_at;
    }

    /// The string table, once it was followed.
    ByteSpan table() const { return {m_table.begin, m_table.begin + m_table.size}; }

private:
    bool skipPrologue()
    {
        quint32 publicId = 0;
        quint32 ignored = 0;
        return skip(1) && readNumber(publicId) && (publicId != 0 || readNumber(ignored)) &&
               readNumber(ignored) && readNumber(m_table.size) && takeTable();
    }

    bool takeTable()
    {
        m_table.begin = m_at;
        return skip(m_table.size);
    }

    bool followTokens()
    {
        while (m_at < m_message.size())
            if (!followToken())
                return false;
        return true;
    }

    bool followToken()
    {
        enum : quint8 {
            SwitchPage = 0,
            End = 1,
            Entity = 2,
            Inline = 3,
            Table = 0x83,
            Opaque = 0xC3
        };
        const qsizetype begin = m_at;
        const auto token = static_cast<quint8>(m_message[m_at++]);
        quint32 number = 0;
        switch (token) {
        case SwitchPage:
            if (m_at == m_message.size())
                return false;
            m_page = static_cast<quint8>(m_message[m_at++]);
            return true;
        case End:
            m_finder.end(begin);
            return true;
        case Entity:
            if (!readNumber(number))
                return false;
            m_finder.character(number, {begin + 1, m_at});
            return true;
        case Table:
            if (!readNumber(number) || number > m_table.size)
                return false;
            m_finder.sharedText(stringAt(m_table.begin + number));
            return true;
        case Inline: {
            const XmlScanner::Piece text = stringAt(m_at);
            m_finder.text(text);
            return skip(text.span.end - m_at + 1);
        }
        case Opaque:
            if (!readNumber(number) || number > m_message.size() - m_at)
                return false;
            m_finder.text(literal(m_at, number));
            return skip(number);
        default:
            return followTag(token);
        }
    }

    bool followTag(quint8 token)
    {
        constexpr quint8 attributesBit = 0x80;
        constexpr quint8 contentBit = 0x40;
        constexpr quint8 tagMask = 0x3F;
        constexpr quint8 firstTag = 5; // those before it are literal tags and extensions
        if ((token & attributesBit) != 0 || (token & tagMask) < firstTag)
            return false;
        m_finder.start(syncml::elementByToken(m_page, token & tagMask), m_at);
        if ((token & contentBit) == 0)
            m_finder.end(m_at);
        return true;
    }

    static XmlScanner::Piece literal(qsizetype begin, qsizetype size)
    {
        return {XmlScanner::Kind::Literal, {begin, begin + size}, {}};
    }

    /// A text up to its NUL, or to the end of the message.
    XmlScanner::Piece stringAt(qsizetype begin) const
    {
        const qsizetype size = m_message.sliced(begin).indexOf('\0');
        return literal(begin, size < 0 ? m_message.size() - begin : size);
    }

    bool skip(qsizetype bytes)
    {
        if (bytes > m_message.size() - m_at)
            return false;
        m_at += bytes;
        return true;
    }

    bool readNumber(quint32 &number)
    {
        constexpr int mostBytes = 5;
        number = 0;
        for (int i = 0; i < mostBytes && m_at < m_message.size(); ++i) {
            const auto byte = static_cast<quint8>(m_message[m_at++]);
            number = number << 7 | (byte & 0x7FU);
            if ((byte & 0x80U) == 0)
                return true;
        }
        return false;
    }

    QByteArrayView m_message;
    Finder &m_finder;
    qsizetype m_at = 0;
    quint8 m_page = syncml::syncmlPage;
    struct {
        qsizetype begin = 0;
        quint32 size = 0;
    } m_table;
};

} // namespace

std::optional<ByteSpans> secretSpans(const QByteArray &message, syncml::Encoding encoding,
                                     const AlertIds &secretQuestions)
{
    SecretFinder finder(message, encoding, secretQuestions, true);
    if (encoding == syncml::Encoding::Xml)
        followXml(message, finder);
    else if (WbxmlFollower(message, finder).follow() != message.size())
        return std::nullopt;
    return finder.found();
}

ByteSpans unreadSecretSpans(const QByteArray &message, syncml::Encoding encoding,
                            const KnownSecrets &known, const QSet<QString> &shown)
{
    UnreadTextFinder finder(message, known, shown);
    if (encoding == syncml::Encoding::Xml)
        return unreadSecretXml(message, std::move(finder));
    WbxmlFollower follower(QByteArrayView(message), finder);
    follower.follow();
    finder.table(follower.table());
    return finder.found();
}

ByteSpans possiblySecretSpans(const QByteArray &message, syncml::Encoding encoding)
{
    if (encoding == syncml::Encoding::Xml)
        return possiblySecretXml(message);
    const AlertIds none;
    SecretFinder finder(message, encoding, none, false);
    const qsizetype end = WbxmlFollower(message, finder).follow();
    // The table may have what Data refers to.
    ByteSpans spans = finder.found().value_or(ByteSpans{{0, message.size()}});
    spans.push_back({end, message.size()});
    return spans;
}

} // namespace client
