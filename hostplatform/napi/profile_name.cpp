#include "profile_name.h"

#include <algorithm>

#include "napi.h"

namespace {

bool isContinuation(std::string_view text, std::size_t index)
{
    return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xC0U) == 0x80U;
}

/// @return the length of the UTF-8 sequence at the beginning of the text in bytes, 0 when it
///         is none: overlong forms, surrogates and numbers above U+10FFFF are none.
std::size_t utf8SequenceLength(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80U)
        return 1;
    if (lead < 0xC2U || !isContinuation(text, 1))
        return 0;
    if (lead < 0xE0U)
        return 2;
    const auto second = static_cast<unsigned char>(text[1]);
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

std::string_view cutAtCharacter(std::string_view text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    while (size > 0 && isContinuation(text, size))
        --size;
    return text.substr(0, size);
}

} // namespace

bool isNameText(std::string_view name)
{
    if (name.empty() || name.size() >= NAPI_NAME_SIZE || name.find('\0') != name.npos)
        return false;
    while (!name.empty()) {
        const std::size_t length = utf8SequenceLength(name);
        if (length == 0)
            return false;
        name.remove_prefix(length);
    }
    return true;
}

bool isProfileName(std::string_view name)
{
    return isNameText(name) && name.find('/') == name.npos;
}

std::string substituteName(std::string_view storedName, const std::string &mark,
                           const std::function<bool(std::string_view)> &isTaken)
{
    constexpr std::size_t longestName = NAPI_NAME_SIZE - 1;
    std::string stem(storedName.empty() ? "unnamed" : storedName);
    std::replace(stem.begin(), stem.end(), '/', '-');
    for (unsigned int round = 1;; ++round) {
        const std::string suffix =
            '~' + mark + (round == 1 ? std::string() : '~' + std::to_string(round));
        std::string name(cutAtCharacter(stem, longestName - suffix.size()));
        name += suffix;
        if (!isTaken(name))
            return name;
    }
}
