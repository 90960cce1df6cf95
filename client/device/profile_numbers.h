// Which profile each node of a mounted root shows, as the plug-in notes it for itself.
#pragma once

#include <QString>
#include <map>

namespace client {

/// Where the plug-in keeps the mapping of one root: a settings file, and a group in it whose keys
/// begin with the decimal number of a profile and whose values are the names of nodes.
struct MappingFile {
    const char *file; ///< in the directory of the settings files
    const char *group;
    const char *otherGroup = nullptr; ///< what else the file holds; null when nothing
};

/// Reads what the file says at this moment; the plug-in writes every change to it at once.
/// @return the numbers of the profiles by node name. A name that two profiles have there is
///         left out, and a missing or unreadable file has none.
std::map<QString, quint32> readProfileNumbers(const MappingFile &mapping);

} // namespace client
