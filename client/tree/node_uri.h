// Addresses of nodes as servers and people write them.
#pragma once

#include "dm_status.h"

#include <QByteArray>
#include <compare>
#include <vector>

namespace client {

/// A node's place in the management tree: the names from the root down. The root has none.
///
/// Names are raw bytes, UTF-8 by convention. A name is never empty, ".", ".." or "*", and has no
/// NUL. A name with a slash exists only when a plug-in published it; it is written %2F in a URI.
class NodeUri {
public:
    NodeUri() = default; ///< the root
    explicit NodeUri(std::vector<QByteArray> names) : m_names(std::move(names)) {}

    bool isRoot() const { return m_names.empty(); }
    const std::vector<QByteArray> &names() const { return m_names; }
    /// Last name; "." for the root.
    QByteArray name() const;
    /// Must not be called for the root.
    NodeUri parent() const { return ancestor(m_names.size() - 1); }
    /// The node with the first so many names, of which there must not be fewer.
    NodeUri ancestor(std::size_t depth) const;
    NodeUri child(const QByteArray &name) const;
    /// Whether this is `other`, or above it.
    bool contains(const NodeUri &other) const;

    /// "./A/B" with each name escaped as escapeName does; "." for the root.
    QByteArray toUri() const;
    /// "./A/B" with each name as displayName gives it: for people, and accepted by parseAddress.
    QString toDisplay() const;

    /// By the bytes of the names, from the root down.
    std::strong_ordering operator<=>(const NodeUri &other) const;
    bool operator==(const NodeUri &) const = default;

private:
    std::vector<QByteArray> m_names;
};

/// A name as a URI has it: every byte that is not allowed in a path segment is written %XX.
QByteArray escapeName(const QByteArray &name);

/// A name for people: only what would be misread is written %XX (slash, question mark, percent
/// sign, white space other than a blank between two other characters, control characters, bytes
/// that are not UTF-8).
QString displayName(const QByteArray &name);

/// Longest addresses that are accepted; 0 is no limit.
struct UriLimits {
    int maxDepth = 0;         ///< names from the root down
    int maxTotalLength = 0;   ///< characters of the whole URI as received, query included
    int maxSegmentLength = 0; ///< characters of one name
};

/// What a LocURI points at: a node, a property of it, or a listing of what is beneath it.
struct Address {
    enum class Query { None, Property, List, Unknown };

    NodeUri node;
    Query query = Query::None;
    /// Name of the property, or kind of the listing; the whole of an unknown query.
    QString argument;
};

/// Reads a LocURI. White space around it is ignored, "./A", "A" and an escaped "%41" are the same.
/// Fails with 414 when it breaks a limit, and with 404 for every address that no node can have: an
/// empty one, one with a leading or trailing slash, an empty name, "." or ".." or "*" as a name, a
/// malformed escape, or one of a NUL.
Result<Address> parseAddress(const QString &text, const UriLimits &limits = {});

/// The node at an address that is known to be well formed.
NodeUri nodeAt(const char *uri);

/// Whether a server may give a node this name; the outcome says what is wrong with it: 405, also
/// for a name with a slash, or 414 when it is too long.
Outcome checkNewName(const QByteArray &name, const UriLimits &limits);

/// 405
/// @param rule  the rest of a sentence that begins with the node
Outcome notAllowed(const NodeUri &uri, const char *rule);

} // namespace client
