// A part of the management tree as one XML document: DM Tree and Description Serialization.
#pragma once

#include "expected.h"
#include "tree_view.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <set>

namespace client {

/// What a server wants to have in the document besides the names.
struct TndsContent {
    std::set<Property> properties;
    bool hasValues = false;

    bool operator==(const TndsContent &) const = default;
};

/// Reads the argument of a listing: "TNDS" for all of it (ACL, Format, Title, TStamp, Type, VerNo
/// and Value), "TNDS+Value+ACL" for nothing else, "TNDS-Format" for all but that. Name and Size are
/// there only when they are asked for.
/// @return the reason for another listing, an unknown word, or plus and minus together
support::Expected<TndsContent, QString> parseTndsRequest(const QString &argument);

/// The document of a listing, UTF-8. A leaf that cannot be read has no value. A value that XML
/// cannot carry is base64, and has the format b64. A node whose parent is not in the listing is
/// beside the others with the path to it.
/// @return none when the document would have more bytes than that; no more are made then
std::optional<QByteArray> tndsDocument(const TreeView &tree, const std::vector<ListedNode> &listing,
                                       const TndsContent &content, qsizetype mostBytes);

} // namespace client
