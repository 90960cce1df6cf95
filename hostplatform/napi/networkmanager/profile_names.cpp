#include "profile_names.h"

#include "profile_name.h"

#include <map>
#include <set>

namespace {

constexpr std::size_t uuidCharacters = 8;

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
        names.push_back(keepsItsId(connection)
                            ? connection.id
                            : substituteName(connection.id,
                                             connection.uuid.substr(0, uuidCharacters),
                                             [&](std::string_view name) {
                                                 return taken.contains(std::string(name));
                                             }));
        taken.insert(names.back());
    }
    return names;
}
