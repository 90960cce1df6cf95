// XML as it stands in a document, byte by byte: for whoever has to find a place in it.
#pragma once

#include "byte_spans.h"

#include <QByteArrayView>

namespace client {

/// Walks through tags and texts without judging them: what is not well formed is passed over, so
/// that a document which no parser takes can be looked at as well.
class XmlScanner {
public:
    enum class Kind {
        Start,   ///< also of an element that ends with its tag: an End without bytes follows then
        End,     ///< an end tag
        Text,    ///< as it stands there, references and all
        Literal, ///< the inside of a CDATA section
        Other,   ///< a comment, a declaration or an instruction
        Broken   ///< a tag, section or comment without end: what is left of the document
    };

    struct Piece {
        Kind kind = Kind::Other;
        ByteSpan span;       ///< the whole tag; of a CDATA section the inside
        QByteArrayView name; ///< of a tag, without its prefix
    };

    explicit XmlScanner(QByteArrayView document) : m_document(document) {}

    /// @return false at the end of the document
    bool next(Piece &piece);

private:
    Piece readMarkup();
    Piece readTag();
    /// The piece up to the first of these texts after the place.
    Piece upTo(Kind kind, qsizetype contentBegin, QByteArrayView end);

    QByteArrayView m_document;
    qsizetype m_at = 0;
    bool m_endsAtOnce = false; ///< the element of the last Start has ended
    QByteArrayView m_lastName;
};

/// What a text of the document says, with its references resolved.
QByteArray resolved(QByteArrayView document, const XmlScanner::Piece &piece);

/// A text in several pieces, and where each of its bytes comes from.
class ResolvedText {
public:
    void append(QByteArrayView document, const XmlScanner::Piece &piece);
    /// Appends what is written another way at that place.
    void append(QByteArrayView text, const ByteSpan &place);

    const QByteArray &bytes() const { return m_bytes; }
    /// Where these bytes of the text stand in the document.
    ByteSpans placesOf(const ByteSpan &span) const;

private:
    QByteArray m_bytes;
    ByteSpans m_places; ///< of each byte
};

} // namespace client
