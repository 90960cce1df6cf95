// Text that somebody else made - a server, a bus, a file, a name - on its way to a terminal, a log
// or a trace, where it must not steer the terminal, reorder what stands beside it or begin a line.
//
// Not shown as they are: control characters (U+0000 to U+001F, U+007F to U+009F), the marks,
// embeddings, overrides and isolates of bidirectional text (U+061C, U+200E, U+200F, U+202A to
// U+202E, U+2066 to U+2069), line and paragraph separators (U+2028, U+2029), and bytes that are not
// UTF-8. Everything else is, also a backslash.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace foreign_text {

/// @param text  not empty
/// @return the length of the UTF-8 character at the beginning of the text in bytes, 0 when there is
///         none: overlong forms, surrogates and numbers above U+10FFFF are none.
std::size_t characterLength(std::string_view text);

/// @return the longest beginning of the text that is no longer than so many bytes and does not end
///         inside a character.
std::string_view cutAtCharacter(std::string_view text, std::size_t size);

/// @return the text as one line: \n, \t, and \xNN for each byte of anything else that is not shown.
std::string printable(std::string_view text);

/// The same for a text of several lines: line breaks (\n) stay.
std::string printableLines(std::string_view text);

/// @param json  a JSON document in UTF-8
/// @return the same document: what is not shown of its strings as \uNNNN.
std::string printableJson(std::string_view json);

} // namespace foreign_text
