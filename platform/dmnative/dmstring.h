/// @file
/// The engine's string.
#pragma once

#include "dmvector.h"

#include <cstddef>

/// NUL-terminated text of bytes (UTF-8 by convention, never checked) in the engine's memory. It is
/// one pointer wide: the null string has no storage and differs from the empty text only in that
/// c_str() is null. Lengths and positions are bytes.
class DMNATIVE_API DMString {
public:
    /// The null string.
    DMString() = default;
    /// Copies text; a null text gives the null string.
    DMString(const char *text);
    /// Copies length bytes of text, or those before an earlier NUL, and terminates them; a null
    /// text gives the null string.
    DMString(const char *text, std::size_t length);
    /// The same text; a text never changes, so both may share its storage.
    DMString(const DMString &other);
    /// Takes over the text; the other one is the null string afterwards.
    DMString(DMString &&other) noexcept;
    /// The same text.
    DMString &operator=(const DMString &other);
    /// Exchanges the texts.
    DMString &operator=(DMString &&other) noexcept;
    /// Gives back the storage when no copy shares it.
    ~DMString();

    /// The text; null for the null string. Valid until the string is changed or destroyed.
    const char *c_str() const { return m_text; }
    /// The text; "" for the null string.
    const char *text() const { return m_text ? m_text : ""; }
    /// Bytes before the terminator; 0 for the null string.
    std::size_t length() const;
    /// Whether it is the null string or the empty text.
    bool empty() const { return !m_text || m_text[0] == '\0'; }

    /// Appends a text, which is not null; the null string becomes that text.
    DMString &operator+=(const char *text);
    /// Appends the text of another one.
    DMString &operator+=(const DMString &other) { return *this += other.text(); }

    /// Compares bytes. The null string equals the empty text.
    friend bool operator==(const DMString &left, const DMString &right)
    {
        return left.Equals(right.text());
    }
    /// Compares bytes with a text, which is not null.
    friend bool operator==(const DMString &left, const char *right) { return left.Equals(right); }

private:
    bool Equals(const char *text) const;

    char *m_text = nullptr;
};

/// Both texts, one after the other; the right one is not null.
DMNATIVE_API DMString operator+(const DMString &left, const char *right);
/// Both texts, one after the other.
inline DMString operator+(const DMString &left, const DMString &right)
{
    return left + right.text();
}

/// Texts in an order, such as the names of children.
using DMStringVector = DMVector<DMString>;
