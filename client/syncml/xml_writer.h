// XML as it is written: onto one string, in UTF-8.
#pragma once

#include "codec_result.h"

#include <string>
#include <string_view>

namespace syncml {

/// Appends `value` as it stands between the quotes of an attribute.
void appendAttributeValue(std::string &xml, std::string_view value);

/// Writes elements and texts one after the other. Texts are UTF-8 with characters of XML only, and
/// read back as the same bytes.
class XmlWriter {
public:
    explicit XmlWriter(XmlLayout layout = XmlLayout::OneLine) : m_layout(layout) {}

    void declaration();
    /// Begins an element.
    /// @param tag  its tag as far as the attributes, such as `<a b="c"`
    void start(std::string_view tag);
    void text(std::string_view text);
    /// Writes an element that has a text and nothing else.
    /// @param startTag, endTag  whole, such as `<a b="c">` and `</a>`
    void element(std::string_view startTag, std::string_view text, std::string_view endTag);
    /// Ends the element of that name, which is the last that was begun and not ended.
    void end(std::string_view name);

    void endLine() { m_xml += '\n'; }

    /// What was written.
    const std::string &xml() const { return m_xml; }

private:
    void endStartTag();
    void beginLine();

    XmlLayout m_layout;
    std::string m_xml;
    int m_depth = 0;
    bool m_isTagOpen = false; ///< a start tag lacks its end
    bool m_isAfterEndTag = false;
};

} // namespace syncml
