// Reading serialised trees: DM Tree and Description Serialization, in XML and in WBXML.
#pragma once

#include "dm_status.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace client {

/// How much of a serialised tree is taken before it is refused with 413.
struct TndsLimits {
    qsizetype bytes = 4 * 1024 * 1024; ///< of the document, and of all texts in it together
    int depth = 64;                    ///< elements inside each other, MgmtTree included
    std::size_t nodes = 2'000;
};

/// A Node as the document has it. What only the device can say of a node (Name, Size, TStamp,
/// VerNo) is left out.
struct TndsNode {
    int depth = 0; ///< 0 for a Node directly beneath MgmtTree
    QString name;  ///< escaped as in an address; empty when it has none
    QString path;  ///< of a Node of depth 0: the address of what it is beneath; empty without one
    QString format;
    QString type; ///< MIME type of a leaf, Management Object id of an interior node
    std::optional<QByteArray> acl;
    std::optional<QByteArray> title;
    std::optional<QByteArray> value; ///< as it was sent; what is binary, in base64

    bool operator==(const TndsNode &) const = default;
};

/// The nodes of a document, parents before their children, in its order.
///
/// The document may be in base64, as one that is binary comes in a message of XML.
/// Taken are elements in any order and namespace; unknown ones, and what describes nodes rather
/// than being one (DFProperties), are skipped.
/// @return 400 for what is not a well-formed tree, 415 for another kind of document, an encoding or
///         a version of the tree that is not supported, 413 beyond a limit; with the place
Result<std::vector<TndsNode>> readTnds(const QByteArray &document, const TndsLimits &limits = {});

/// The values of secret leaves (see isSecretLeaf) in the nodes, as they are and, where they came in
/// base64, decoded. A node without a name may be any leaf.
std::vector<QByteArray> secretsOf(const std::vector<TndsNode> &nodes);

} // namespace client
