#include "xml_writer.h"

#include <algorithm>
#include <array>

namespace syncml {
namespace {

constexpr std::string_view escapes[] = {"",       "&lt;",  "&gt;", "&amp;",
                                        "&quot;", "&#13;", "&#9;", "&#10;"};

/// For each byte the number of its escape; 0 for one that stands for itself.
using EscapeNumbers = std::array<unsigned char, 256>;

constexpr EscapeNumbers numbersOf(std::string_view escapedBytes)
{
    EscapeNumbers numbers{};
    unsigned char number = 0;
    for (const char byte : escapedBytes)
        numbers[static_cast<unsigned char>(byte)] = ++number;
    return numbers;
}

// A reader takes a carriage return for half of a line end, and in an attribute a tabulator and a
// line feed for blanks.
constexpr EscapeNumbers escapesOfText = numbersOf("<>&\"\r");
constexpr EscapeNumbers escapesOfAttributes = numbersOf("<>&\"\r\t\n");

void appendEscaped(std::string &xml, std::string_view text, const EscapeNumbers &numbers)
{
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
    m_isBehindEndTag = false;
}

void XmlWriter::text(std::string_view text)
{
    if (text.empty())
        return;
    endStartTag();
    appendEscaped(m_xml, text, escapesOfText);
}

void XmlWriter::element(std::string_view tag, std::string_view text, std::string_view name)
{
    const bool needsEscape = std::ranges::any_of(
        text, [](char byte) { return escapesOfText[static_cast<unsigned char>(byte)] != 0; });
    if (text.empty() || needsEscape) {
        start(tag);
        this->text(text);
        end(name);
        return;
    }
    endStartTag();
    beginLine();
    // Room for all of it is made once.
    std::size_t at = m_xml.size();
    m_xml.resize(at + tag.size() + text.size() + name.size() + 4);
    const auto write = [&](std::string_view part) {
        part.copy(m_xml.data() + at, part.size());
        at += part.size();
    };
    write(tag);
    write(">");
    write(text);
    write("</");
    write(name);
    write(">");
    m_isBehindEndTag = true;
}

void XmlWriter::end(std::string_view name)
{
    --m_depth;
    if (m_isTagOpen) {
        m_xml += "/>";
        m_isTagOpen = false;
    } else {
        if (m_isBehindEndTag)
            beginLine();
        m_xml += "</";
        m_xml += name;
        m_xml += '>';
    }
    m_isBehindEndTag = true;
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
