// A message as a stream of elements, whatever it is encoded in: the reading half that both codecs
// share, with the limits and the place of the first fault.
#pragma once

#include "codec_result.h"
#include "element.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <optional>
#include <string>

namespace syncml {

/// Walks through the elements of one document. After a fault every step does nothing and answers
/// false or empty, so that the caller may ask for `error()` once, at the end.
class ElementSource {
public:
    explicit ElementSource(const Limits &limits);
    virtual ~ElementSource() = default;
    ElementSource(const ElementSource &) = delete;
    ElementSource &operator=(const ElementSource &) = delete;

    enum class TextBetween { Refused, Ignored };

    /// Moves to the document element. False after a fault.
    bool openDocument();

    /// Moves to the next child of the current element. False at the end of the current element,
    /// which is left by that, and after a fault. Text other than white space between the children
    /// is a fault unless it is to be ignored.
    bool nextChild(TextBetween textBetween = TextBetween::Refused);

    /// Reads the end of the document. False when there is more than that, or after a fault.
    bool closeDocument();

    /// The element that the last `openDocument` or `nextChild` moved to, and its name.
    Element element() const { return m_element; }
    QString name() const;

    // Each of these reads the current element to its end and leaves it.

    enum class OuterBlanks { Cut, Kept };

    /// The text of an element without children.
    QString readText(OuterBlanks outerBlanks = OuterBlanks::Cut);
    /// The bytes of an element without children, as they were sent.
    QByteArray readBytes();
    /// The bytes of Data.
    virtual QByteArray readData();
    void skip();

    /// Notes a fault at the present place, unless there was one before.
    void fail(int status, const QString &text);
    const std::optional<DecodeError> &error() const { return m_error; }

protected:
    enum class Token { Start, Text, End, Finished, Failed };

    /// False, and a fault, when a message of that many bytes is too large.
    bool checkSize(qsizetype messageBytes);

    void fail(DecodeError error);

    /// `advance` with the limits watched.
    Token step();

    /// Moves on by one token. A Start sets `m_element` (and `m_unknownName`) and `m_markup`, a Text
    /// sets `m_text`. `Finished` once, after the document element's end. A fault is recorded with
    /// `fail` and gives Failed.
    virtual Token advance() = 0;

    /// Fills in the present place.
    virtual void locate(DecodeError &error) const = 0;

    Element m_element = Element::Unknown;
    // These last until the next `advance`.
    QByteArrayView m_unknownName;
    QByteArrayView m_text; ///< the bytes of a Text
    /// A Start's tag as Data keeps it; empty outside Data, and in WBXML.
    QByteArrayView m_markup;

private:
    class NameOfElement;

    /// Counts bytes of text towards their limit.
    void countText(qsizetype bytes);
    /// Appends the texts up to the end of the current element. False after a fault.
    template <class Bytes>
    bool appendTexts(Bytes &bytes);

    const Limits m_limits;
    std::optional<DecodeError> m_error;
    int m_depth = 0;
    qsizetype m_textBytes = 0;
    std::string m_collected; ///< a text on its way to a QString
};

} // namespace syncml
