#include "dmnative/dmstring.h"

#include "dmstring_view.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

// A text never changes once it is made, so copies share it: a count of its holders stands in front.
// Everything that moves the count is in this file; a string is one pointer to the text.

namespace {

constexpr char ALLOCATION_FILE[] = "dmstring";

struct EmptyText {
    TextHeader header;
    char text[1];
};

// Of this library, which counts as a holder: it is never given back.
EmptyText emptyText{{1, 0}, ""};

TextHeader *HeaderOf(char *text)
{
    return reinterpret_cast<TextHeader *>(text) - 1;
}

char *AllocateText(std::size_t length)
{
    void *const block = DmtMemAllocEx(sizeof(TextHeader) + length + 1, ALLOCATION_FILE, __LINE__);
    const auto keptLength =
        static_cast<std::uint32_t>(std::min<std::size_t>(length, TextHeader::LONG));
    return reinterpret_cast<char *>(new (block) TextHeader{1, keptLength} + 1);
}

char *ShareText(char *text)
{
    if (text)
        ++HeaderOf(text)->holders;
    return text;
}

void DropText(char *text)
{
    if (text && --HeaderOf(text)->holders == 0)
        DmtMemFree(HeaderOf(text));
}

char *CopyText(const char *text, std::size_t length)
{
    if (!text)
        return nullptr;
    if (length == 0)
        return ShareText(emptyText.text);
    char *const copy = AllocateText(length);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

} // namespace

DMString::DMString(const char *text) : m_text(CopyText(text, text ? std::strlen(text) : 0)) {}

DMString::DMString(const char *text, std::size_t length)
    : m_text(CopyText(text, text ? strnlen(text, length) : 0))
{
}

DMString::DMString(const DMString &other) : m_text(ShareText(other.m_text)) {}

DMString::DMString(DMString &&other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}

DMString &DMString::operator=(const DMString &other)
{
    DMString copy(other);
    std::swap(m_text, copy.m_text);
    return *this;
}

DMString &DMString::operator=(DMString &&other) noexcept
{
    std::swap(m_text, other.m_text);
    return *this;
}

DMString::~DMString()
{
    DropText(m_text);
}

std::size_t DMString::length() const
{
    return ViewOf(*this).size();
}

DMString &DMString::operator+=(const char *text)
{
    const std::size_t oldLength = length();
    const std::size_t addedLength = std::strlen(text);
    char *const joined = AllocateText(oldLength + addedLength);
    std::memcpy(joined, this->text(), oldLength);
    std::memcpy(joined + oldLength, text, addedLength + 1);
    DropText(m_text);
    m_text = joined;
    return *this;
}

bool DMString::Equals(const char *text) const
{
    return std::strcmp(this->text(), text) == 0;
}

DMString operator+(const DMString &left, const char *right)
{
    DMString joined(left);
    joined += right;
    return joined;
}
