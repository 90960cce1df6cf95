// Which plug-ins a client has, as the files of a folder describe them.
#pragma once

#include "expected.h"
#include "node_uri.h"

#include <QString>
#include <QStringList>
#include <map>
#include <vector>

namespace client {

/// One plug-in library, and where in the management tree it is.
struct PluginDescription {
    /// A path, or a bare name that is looked for in the library folders.
    QString library;
    /// In the order in which they are mounted; at least one.
    std::vector<NodeUri> roots;
    /// Nodes beneath them whose Exec takes long, with the type of the alert that tells a server how
    /// it has ended.
    std::map<NodeUri, QString> longExec = {};
};

/// Reads a description, a JSON object with two members, and a third one for nodes whose Exec takes
/// long:
///
///     {"library": "libvendor.so.1", "roots": ["./Vendor/Example"],
///      "longExec": {"./Vendor/Example/Reset": "Reversed-Domain-Name: org.example.reset"}}
///
/// A relative path of a library begins at the folder of the file.
/// @param file  path of what is read; at most 64 KiB
/// @return the error is a sentence that names the file and what is wrong with it
support::Expected<PluginDescription, QString> readPluginDescription(const QString &file);

/// All plug-ins that a folder describes.
struct PluginDescriptions {
    /// In the order of the names of their files. No root of theirs is another's, or within or above
    /// another, or where the client has nodes of its own.
    std::vector<PluginDescription> plugins;
    /// Why others are left out, a sentence each that names the file.
    QStringList faults;
};

/// Reads the files of a folder that are called *.json.
PluginDescriptions readPluginDescriptions(const QString &folder);

} // namespace client
