#include "profile_names.h"

#include <map>
#include <set>

#include "profile_store.h"

namespace {

constexpr std::size_t kLongestName = NAPI_NAME_SIZE - 1;
constexpr std::size_t kUuidCharacters = 8;

std::string cutAtCharacter(const std::string &text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    const auto isContinuation = [](char byte) { return (byte & 0xC0) == 0x80; };
    while (size > 0 && isContinuation(text[size]))
        --size;
    return text.substr(0, size);
}

std::string nameWithUuid(const NamedConnection &connection, const std::set<std::string> &taken)
{
    const std::string stem = connection.id.empty() ? "unnamed" : connection.id;
    const std::string mark = "~" + connection.uuid.substr(0, kUuidCharacters);
    for (unsigned int round = 1;; ++round) {
        const std::string suffix = round == 1 ? mark : mark + "~" + std::to_string(round);
        std::string name = cutAtCharacter(stem, kLongestName - suffix.size()) + suffix;
        if (!taken.contains(name))
            return name;
    }
}

} // namespace

std::vector<std::string> profileNames(const std::vector<NamedConnection> &connections)
{
    std::map<std::string, unsigned int> holders;
    for (const NamedConnection &connection : connections)
        ++holders[connection.id];
    const auto keepsItsId = [&](const NamedConnection &connection) {
        return isProfileName(connection.id) && holders[connection.id] == 1;
    };

    std::set<std::string> taken;
    for (const NamedConnection &connection : connections) {
        if (keepsItsId(connection))
            taken.insert(connection.id);
    }
    std::vector<std::string> names;
    for (const NamedConnection &connection : connections) {
        names.push_back(keepsItsId(connection) ? connection.id : nameWithUuid(connection, taken));
        taken.insert(names.back());
    }
    return names;
}
