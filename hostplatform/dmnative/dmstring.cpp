#include "dmnative/dmstring.h"

#include <cstring>
#include <utility>

namespace {

constexpr char ALLOCATION_FILE[] = "dmstring";

char *AllocateText(std::size_t length)
{
    return static_cast<char *>(DmtMemAllocEx(length + 1, ALLOCATION_FILE, __LINE__));
}

char *CopyText(const char *text, std::size_t length)
{
    if (!text)
        return nullptr;
    char *const copy = AllocateText(length);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

} // namespace

DMString::DMString(const char *text) : m_text(CopyText(text, text ? std::strlen(text) : 0)) {}

DMString::DMString(const char *text, std::size_t length) : m_text(CopyText(text, length)) {}

DMString::DMString(const DMString &other) : DMString(other.m_text) {}

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
    DmtMemFree(m_text);
}

std::size_t DMString::length() const
{
    return m_text ? std::strlen(m_text) : 0;
}

DMString &DMString::operator+=(const char *text)
{
    const std::size_t oldLength = length();
    const std::size_t addedLength = std::strlen(text);
    char *const joined = AllocateText(oldLength + addedLength);
    std::memcpy(joined, this->text(), oldLength);
    std::memcpy(joined + oldLength, text, addedLength + 1);
    DmtMemFree(m_text);
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
