#include "xml_scanner.h"

#include <QString>
#include <algorithm>
#include <iterator>

namespace client {

void overwrite(QByteArray &document, const ByteSpans &spans)
{
    for (const ByteSpan &span : spans)
        std::fill(document.begin() + span.begin, document.begin() + span.end, '*');
}

// ---- Tags and texts ------------------------------------------------------------------------------

bool XmlScanner::next(Piece &piece)
{
    if (m_endsAtOnce) {
        m_endsAtOnce = false;
        piece = {Kind::End, {m_at, m_at}, m_lastName};
        return true;
    }
    if (m_at == m_document.size())
        return false;
    const qsizetype begin = m_at;
    if (m_document[m_at] == '<') {
        piece = readMarkup();
        return true;
    }
    const qsizetype tag = m_document.indexOf('<', m_at);
    m_at = tag < 0 ? m_document.size() : tag;
    piece = {Kind::Text, {begin, m_at}, {}};
    return true;
}

XmlScanner::Piece XmlScanner::upTo(Kind kind, qsizetype contentBegin, QByteArrayView end)
{
    const qsizetype begin = m_at;
    const qsizetype found = m_document.indexOf(end, contentBegin);
    if (found < 0) {
        m_at = m_document.size();
        return {Kind::Broken, {begin, m_at}, {}};
    }
    m_at = found + end.size();
    return {kind, {contentBegin, found}, {}};
}

XmlScanner::Piece XmlScanner::readMarkup()
{
    struct Row {
        QByteArrayView begin;
        QByteArrayView end;
        Kind kind;
    };
    static constexpr Row rows[] = {
        {"<!--", "-->", Kind::Other},
        {"<![CDATA[", "]]>", Kind::Literal},
        {"<?", "?>", Kind::Other},
        {"<!", ">", Kind::Other},
    };
    for (const Row &row : rows)
        if (m_document.sliced(m_at).startsWith(row.begin))
            return upTo(row.kind, m_at + row.begin.size(), row.end);
    return readTag();
}

namespace {

bool endsName(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n' || byte == '/' ||
           byte == '>';
}

} // namespace

XmlScanner::Piece XmlScanner::readTag()
{
    const qsizetype begin = m_at;
    const bool isEnd = m_document.sliced(begin).startsWith("</");
    const qsizetype nameBegin = begin + (isEnd ? 2 : 1);
    char quote = '\0';
    qsizetype end = nameBegin;
    for (; end < m_document.size() && (quote != '\0' || m_document[end] != '>'); ++end) {
        const char byte = m_document[end];
        if (quote != '\0')
            quote = byte == quote ? '\0' : quote;
        else if (byte == '"' || byte == '\'')
            quote = byte;
    }
    if (end == m_document.size()) {
        m_at = end;
        return {Kind::Broken, {begin, end}, {}};
    }
    qsizetype nameEnd = nameBegin;
    while (!endsName(m_document[nameEnd]))
        ++nameEnd;
    const QByteArrayView name = m_document.sliced(nameBegin, nameEnd - nameBegin);
    m_lastName = name.sliced(name.lastIndexOf(':') + 1);
    m_endsAtOnce = !isEnd && m_document[end - 1] == '/';
    m_at = end + 1;
    return {isEnd ? Kind::End : Kind::Start, {begin, m_at}, m_lastName};
}

// ---- Texts ---------------------------------------------------------------------------------------

namespace {

/// What a reference stands for, without its & and ;. Itself when it is not known.
QByteArray referenced(QByteArrayView reference)
{
    struct Row {
        QByteArrayView name;
        char byte;
    };
    static constexpr Row rows[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const Row &row : rows)
        if (reference == row.name)
            return QByteArray(1, row.byte);
    const bool isHexadecimal = reference.startsWith("#x");
    const QByteArray digits = reference.sliced(isHexadecimal ? 2 : 1).toByteArray();
    bool isNumber = false;
    const char32_t character = digits.toUInt(&isNumber, isHexadecimal ? 16 : 10);
    if (!reference.startsWith('#') || !isNumber || character > 0x10FFFF)
        return '&' + reference.toByteArray() + ';';
    return QString::fromUcs4(&character, 1).toUtf8();
}

/// Visits each character or reference of a text: what it says, and where it stands.
template <class Visit>
void forEachPart(QByteArrayView document, const XmlScanner::Piece &piece, Visit visit)
{
    constexpr qsizetype longestReference = 16;
    for (qsizetype at = piece.span.begin; at < piece.span.end;) {
        const QByteArrayView rest =
            document.sliced(at, std::min(longestReference, piece.span.end - at));
        const bool mayRefer = piece.kind == XmlScanner::Kind::Text && rest.startsWith('&');
        const qsizetype semicolon = mayRefer ? rest.indexOf(';') : -1;
        const qsizetype size = semicolon < 2 ? 1 : semicolon + 1;
        const ByteSpan place{at, at + size};
        if (size == 1)
            visit(rest.first(1), place);
        else
            visit(QByteArrayView(referenced(rest.sliced(1, semicolon - 1))), place);
        at += size;
    }
}

} // namespace

QByteArray resolved(QByteArrayView document, const XmlScanner::Piece &piece)
{
    QByteArray bytes;
    forEachPart(document, piece,
                [&](QByteArrayView part, const ByteSpan &) { bytes.append(part); });
    return bytes;
}

void ResolvedText::append(QByteArrayView document, const XmlScanner::Piece &piece)
{
    forEachPart(document, piece,
                [this](QByteArrayView part, const ByteSpan &place) { append(part, place); });
}

void ResolvedText::append(QByteArrayView text, const ByteSpan &place)
{
    m_bytes.append(text);
    m_places.insert(m_places.end(), static_cast<std::size_t>(text.size()), place);
}

ByteSpans ResolvedText::placesOf(const ByteSpan &span) const
{
    return {std::next(m_places.begin(), span.begin), std::next(m_places.begin(), span.end)};
}

} // namespace client
