#include "profile_name.h"

#include "foreign_text.h"
#include "napi.h"

#include <algorithm>

bool isNameText(std::string_view name)
{
    if (name.empty() || name.size() >= NAPI_NAME_SIZE || name.find('\0') != name.npos)
        return false;
    while (!name.empty()) {
        const std::size_t length = foreign_text::characterLength(name);
        if (length == 0)
            return false;
        name.remove_prefix(length);
    }
    return true;
}

bool isProfileName(std::string_view name)
{
    return isNameText(name) && name.find('/') == name.npos && name != "." && name != ".." &&
           name != "*";
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
        std::string name(foreign_text::cutAtCharacter(stem, longestName - suffix.size()));
        name += suffix;
        if (!isTaken(name))
            return name;
    }
}
