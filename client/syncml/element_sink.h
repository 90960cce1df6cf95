// A message as a stream of elements, whatever it is encoded in: the writing half that both codecs
// share.
#pragma once

#include "element.h"
#include "xml_text.h"

#include <QByteArray>
#include <QString>
#include <string>
#include <string_view>

namespace syncml {

class ElementSink {
public:
    ElementSink() = default;
    virtual ~ElementSink() = default;
    ElementSink(const ElementSink &) = delete;
    ElementSink &operator=(const ElementSink &) = delete;

    /// Begins an element that has children.
    virtual void start(Element element) = 0;
    virtual void end() = 0;

    // Whole elements. False when the encoding cannot carry the content; nothing is written then.

    bool text(Element element, const QString &text)
    {
        const std::optional<std::string_view> utf8 = xmlTextToUtf8(text, m_buffer);
        if (utf8)
            writeText(element, *utf8);
        return utf8.has_value();
    }
    virtual bool bytes(Element element, const QByteArray &bytes) = 0;
    virtual void empty(Element element) = 0;

    /// Bytes that were written.
    virtual qsizetype size() const = 0;

protected:
    /// Writes an element with a text of XML, in UTF-8.
    virtual void writeText(Element element, std::string_view utf8) = 0;

private:
    std::string m_buffer; ///< holds the text that is being written
};

} // namespace syncml
