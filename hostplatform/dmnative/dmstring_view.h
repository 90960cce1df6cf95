// How the texts of strings lie in memory.
#pragma once

#include "dmnative/dmstring.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

/// Stands in front of a text.
struct TextHeader {
    static constexpr std::uint32_t LONG = std::numeric_limits<std::uint32_t>::max();

    std::uint32_t holders; ///< each is a pointer: 32 GiB of them would be too many
    std::uint32_t length;  ///< in bytes; LONG stands for that and for more
};

/// A string's text, whose length is not counted. Valid as long as somebody holds the text; empty
/// for the null string.
inline std::string_view ViewOf(const DMString &string)
{
    const char *const text = string.c_str();
    if (!text)
        return {};
    const std::uint32_t length = (reinterpret_cast<const TextHeader *>(text) - 1)->length;
    return {text, length == TextHeader::LONG ? std::strlen(text) : length};
}
