// Takes decisions from a fuzzer's input; an input that has run out decides for zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class InputReader {
public:
    InputReader(const std::uint8_t *data, std::size_t size) : m_next(data), m_left(size) {}

    bool AtEnd() const { return m_left == 0; }

    std::uint8_t Byte()
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_next++;
    }

    /// A number below the limit, which is at most 256.
    std::size_t Below(std::size_t limit) { return Byte() % limit; }

    std::int32_t Number()
    {
        std::uint32_t number = 0;
        for (int i = 0; i < 4; ++i)
            number = number << 8 | Byte();
        return static_cast<std::int32_t>(number);
    }

    /// Bytes without a NUL: a length and as many bytes.
    std::string Text(std::size_t longest)
    {
        const std::size_t length = std::min({Below(longest + 1), m_left});
        std::string text(reinterpret_cast<const char *>(m_next), length);
        m_next += length;
        m_left -= length;
        std::replace(text.begin(), text.end(), '\0', '0');
        return text;
    }

    /// Fills what the input still has for it.
    void Fill(void *target, std::size_t size)
    {
        const std::size_t length = std::min(size, m_left);
        if (length > 0)
            std::memcpy(target, m_next, length);
        m_next += length;
        m_left -= length;
    }

private:
    const std::uint8_t *m_next;
    std::size_t m_left;
};
