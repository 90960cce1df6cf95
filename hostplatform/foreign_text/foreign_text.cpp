#include "foreign_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace foreign_text {

// ---- Characters ---------------------------------------------------------------------------------

namespace {

unsigned char byteAt(std::string_view text, std::size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

bool isContinuation(std::string_view text, std::size_t index)
{
    return index < text.size() && (byteAt(text, index) & 0xC0U) == 0x80U;
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};
constexpr Range notShown[] = {
    {0x0000, 0x001F}, {0x007F, 0x009F}, {0x061C, 0x061C},
    {0x200E, 0x200F}, {0x2028, 0x202E}, // separators, embeddings and overrides
    {0x2066, 0x2069},
};

bool isShown(std::uint32_t character)
{
    return std::ranges::none_of(notShown, [character](const Range &range) {
        return character >= range.first && character <= range.last;
    });
}

/// @param character  a whole one, as characterLength finds it
std::uint32_t codePoint(std::string_view character)
{
    constexpr std::array<unsigned int, 5> leadBits = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t value = byteAt(character, 0) & leadBits[character.size()];
    for (std::size_t index = 1; index < character.size(); ++index)
        value = value << 6U | (byteAt(character, index) & 0x3FU);
    return value;
}

constexpr char hexDigits[] = "0123456789abcdef";

void appendBytes(std::string &out, std::string_view bytes)
{
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const unsigned char byte = byteAt(bytes, index);
        if (byte == '\n')
            out += "\\n";
        else if (byte == '\t')
            out += "\\t";
        else
            out += {'\\', 'x', hexDigits[byte >> 4U], hexDigits[byte & 0xFU]};
    }
}

void appendUnicodeEscape(std::string &out, std::string_view character)
{
    const std::uint32_t value = codePoint(character);
    out += "\\u";
    for (const unsigned int shift : {12U, 8U, 4U, 0U})
        out += hexDigits[value >> shift & 0xFU];
}

/// Copies what is shown and what `keep` names, and hands each other character, or byte that belongs
/// to none, to `escape`.
template <typename Escape>
std::string escaped(std::string_view text, char keep, Escape escape)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const std::string_view piece = text.substr(0, length == 0 ? 1 : length);
        if (length != 0 && (piece[0] == keep || isShown(codePoint(piece))))
            out += piece;
        else
            escape(out, piece);
        text.remove_prefix(piece.size());
    }
    return out;
}

constexpr char nothing = 'x'; // is shown anyway

} // namespace

std::size_t characterLength(std::string_view text)
{
    const unsigned char lead = byteAt(text, 0);
    if (lead < 0x80U)
        return 1;
    if (lead < 0xC2U || !isContinuation(text, 1))
        return 0;
    if (lead < 0xE0U)
        return 2;
    const unsigned char second = byteAt(text, 1);
    if (!isContinuation(text, 2) || (lead == 0xE0U && second < 0xA0U) ||
        (lead == 0xEDU && second >= 0xA0U))
        return 0;
    if (lead < 0xF0U)
        return 3;
    if (lead > 0xF4U || !isContinuation(text, 3) || (lead == 0xF0U && second < 0x90U) ||
        (lead == 0xF4U && second >= 0x90U))
        return 0;
    return 4;
}

// ---- Texts --------------------------------------------------------------------------------------

std::string_view cutAtCharacter(std::string_view text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    while (size > 0 && isContinuation(text, size))
        --size;
    return text.substr(0, size);
}

std::string printable(std::string_view text)
{
    return escaped(text, nothing, appendBytes);
}

std::string printableLines(std::string_view text)
{
    return escaped(text, '\n', appendBytes);
}

std::string printableJson(std::string_view json)
{
    // Line breaks are the document's own; those of a string are escaped in it already.
    return escaped(json, '\n', appendUnicodeEscape);
}

} // namespace foreign_text
