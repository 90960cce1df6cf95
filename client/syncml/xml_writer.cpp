#include "xml_writer.h"

#include <array>

namespace syncml {
namespace {

constexpr std::string_view escapes[] = {"",       "&lt;",  "&gt;", "&amp;",
                                        "&quot;", "&#13;", "&#9;", "&#10;"};

constexpr std::string_view escapedBytes = "<>&\"\r\t\n";

/// For each byte the number of its escape; 0 for one that stands for itself.
using EscapeNumbers = std::array<unsigned char, 256>;

constexpr EscapeNumbers numbersOf(std::string_view bytes)
{
    EscapeNumbers numbers{};
    unsigned char number = 0;
    for (const char byte : bytes)
        numbers[static_cast<unsigned char>(byte)] = ++number;
    return numbers;
}

// A reader takes a carriage return for half of a line end, and in an attribute a tabulator and a
// line feed for blanks.
constexpr EscapeNumbers escapesOfText = numbersOf("<>&\"\r");
constexpr EscapeNumbers escapesOfAttributes = numbersOf(escapedBytes);

bool mayNeedEscape(std::string_view text)
{
    bool may = false;
    // Without a way out in between, the compiler takes many at once.
    for (const char byte : text)
        for (const char escaped : escapedBytes)
            may |= byte == escaped;
    return may;
}

void appendEscaped(std::string &xml, std::string_view text, const EscapeNumbers &numbers)
{
    if (!mayNeedEscape(text)) {
        xml.append(text);
        return;
    }
    std::size_t written = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned char number = numbers[static_cast<unsigned char>(text[at])];
        if (number == 0)
            continue;
        xml.append(text, written, at - written);
        xml.append(escapes[number]);
        written = at + 1;
    }
    xml.append(text, written);
}

} // namespace

void appendAttributeValue(std::string &xml, std::string_view value)
{
    appendEscaped(xml, value, escapesOfAttributes);
}

void XmlWriter::declaration()
{
    m_xml += R"(<?xml version="1.0" encoding="UTF-8"?>)";
}

void XmlWriter::start(std::string_view tag)
{
    endStartTag();
    beginLine();
    m_xml += tag;
    ++m_depth;
    m_isTagOpen = true;
    m_isAfterEndTag = false;
}

void XmlWriter::text(std::string_view text)
{
    if (text.empty())
        return;
    endStartTag();
    appendEscaped(m_xml, text, escapesOfText);
}

void XmlWriter::element(std::string_view startTag, std::string_view text, std::string_view endTag)
{
    endStartTag();
    beginLine();
    if (text.empty()) {
        m_xml.append(startTag.substr(0, startTag.size() - 1));
        m_xml += "/>";
    } else {
        m_xml.append(startTag);
        appendEscaped(m_xml, text, escapesOfText);
        m_xml.append(endTag);
    }
    m_isAfterEndTag = true;
}

void XmlWriter::end(std::string_view name)
{
    --m_depth;
    if (m_isTagOpen) {
        m_xml += "/>";
        m_isTagOpen = false;
    } else {
        if (m_isAfterEndTag)
            beginLine();
        m_xml += "</";
        m_xml += name;
        m_xml += '>';
    }
    m_isAfterEndTag = true;
}

void XmlWriter::endStartTag()
{
    if (m_isTagOpen)
        m_xml += '>';
    m_isTagOpen = false;
}

void XmlWriter::beginLine()
{
    constexpr std::size_t blanksPerLevel = 2;
    if (m_layout != XmlLayout::Indented || m_xml.empty())
        return;
    m_xml += '\n';
    m_xml.append(blanksPerLevel * static_cast<std::size_t>(m_depth), ' ');
}

} // namespace syncml
