// The engine's string.
#pragma once

#include "dmvector.h"

#include <cstddef>

/// NUL-terminated text of bytes (UTF-8 by convention, never checked) in the engine's memory. It is
/// one pointer wide: the null string has no storage and differs from the empty text only in that
/// c_str() is null. Lengths and positions are bytes.
class DMNATIVE_API DMString {
public:
    DMString() = default;
    /// Copies text; a null text gives the null string.
    DMString(const char *text);
    /// Copies length bytes of text and terminates them; a null text gives the null string.
    DMString(const char *text, std::size_t length);
    DMString(const DMString &other);
    DMString(DMString &&other) noexcept;
    DMString &operator=(const DMString &other);
    DMString &operator=(DMString &&other) noexcept;
    ~DMString();

    /// The text; null for the null string. Valid until the string is changed or destroyed.
    const char *c_str() const { return m_text; }
    /// The text; "" for the null string.
    const char *text() const { return m_text ? m_text : ""; }
    std::size_t length() const;
    bool empty() const { return !m_text || m_text[0] == '\0'; }

    DMString &operator+=(const char *text);
    DMString &operator+=(const DMString &other) { return *this += other.text(); }

    /// Compares bytes. The null string equals the empty text.
    friend bool operator==(const DMString &left, const DMString &right)
    {
        return left.Equals(right.text());
    }
    friend bool operator==(const DMString &left, const char *right) { return left.Equals(right); }

private:
    bool Equals(const char *text) const;

    char *m_text = nullptr;
};

DMNATIVE_API DMString operator+(const DMString &left, const char *right);
inline DMString operator+(const DMString &left, const DMString &right)
{
    return left + right.text();
}

using DMStringVector = DMVector<DMString>;
