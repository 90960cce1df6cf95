// The profile names of connections.
#pragma once

#include <string>
#include <vector>

struct NamedConnection {
    std::string id;   ///< what NetworkManager and people call it, UTF-8 of any length
    std::string uuid; ///< what NetworkManager knows it by
};

/// @return a unique profile name for each connection. A connection's ID is its name when it can be
///         one and no other connection has the same. Else it goes by a substitute with the first
///         eight characters of its UUID (profile_name.h). So the name of a connection depends on
///         nothing but what NetworkManager holds, in the order given.
std::vector<std::string> profileNames(const std::vector<NamedConnection> &connections);
