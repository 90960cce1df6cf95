// Addresses of nodes as servers and people write them.
#pragma once

#include "dm_status.h"

#include <QByteArray>
#include <QByteArrayView>
#include <algorithm>
#include <compare>
#include <string_view>
#include <utility>
#include <vector>

namespace client {

/// A node's place in the management tree: the names from the root down. The root has none.
///
/// Names are raw bytes, UTF-8 by convention. A name is never empty, ".", ".." or "*", and has no
/// NUL. A name with a slash exists only when a plug-in published it; it is written %2F in a URI.
class NodeUri {
public:
    NodeUri() = default; ///< the root
    explicit NodeUri(const std::vector<QByteArray> &names);
    /// @param names  as joinedNames gives them
    static NodeUri fromJoinedNames(QByteArray names)
    {
        NodeUri uri;
        uri.m_names = std::move(names);
        return uri;
    }

    bool isRoot() const { return m_names.isEmpty(); }
    /// How many names it has.
    qsizetype depth() const { return isRoot() ? 0 : m_names.count(separator) + 1; }
    std::vector<QByteArray> names() const;
    /// The names with a separator between two. What is above a node has a part of this, from the
    /// front to a separator.
    QByteArrayView joinedNames() const { return m_names; }
    static constexpr char separator = '\0';
    /// Where the names beneath a node that contains this one begin in the joined names.
    qsizetype beginBeneath(const NodeUri &above) const
    {
        return above.isRoot() ? 0 : std::min(above.m_names.size() + 1, m_names.size());
    }
    /// The joined names of the node above one that is not the root.
    static QByteArrayView above(QByteArrayView joinedNames)
    {
        const std::size_t end = textOf(joinedNames).rfind(separator);
        return joinedNames.first(end == std::string_view::npos ? 0 : static_cast<qsizetype>(end));
    }
    /// The first of joined names.
    static QByteArrayView first(QByteArrayView joinedNames)
    {
        const std::size_t end = textOf(joinedNames).find(separator);
        return end == std::string_view::npos ? joinedNames
                                             : joinedNames.first(static_cast<qsizetype>(end));
    }
    /// Last name; "." for the root.
    QByteArray name() const;
    /// Must not be called for the root.
    NodeUri parent() const { return fromJoinedNames(above(m_names).toByteArray()); }
    NodeUri child(const QByteArray &name) const;
    /// The node that `relative` is when this one stands for the root.
    NodeUri beneath(const NodeUri &relative) const;
    /// Whether this is `other`, or above it.
    bool contains(const NodeUri &other) const { return contains(other.joinedNames()); }
    bool contains(QByteArrayView joinedNames) const
    {
        const qsizetype size = m_names.size();
        const bool endsWithName = size == 0 || joinedNames.size() == size ||
                                  (joinedNames.size() > size && joinedNames[size] == separator);
        return endsWithName && textOf(joinedNames).starts_with(textOf(m_names));
    }

    /// "./A/B" with each name escaped as escapeName does; "." for the root.
    QByteArray toUri() const;
    /// "./A/B" with each name as displayName gives it: for people, and accepted by parseAddress.
    QString toDisplay() const;

    /// By the bytes of the names, from the root down.
    std::strong_ordering operator<=>(const NodeUri &other) const
    {
        return m_names.compare(other.m_names) <=> 0;
    }
    bool operator==(const NodeUri &) const = default;

    /// The same order, also for joined names.
    struct Order {
        using is_transparent = void;
        static std::string_view key(const NodeUri &uri) { return textOf(uri.m_names); }
        static std::string_view key(QByteArrayView joinedNames) { return textOf(joinedNames); }
        template <class Left, class Right>
        bool operator()(const Left &left, const Right &right) const
        {
            return key(left) < key(right);
        }
    };

private:
    // Compilers know what to do with this one without a call.
    static std::string_view textOf(QByteArrayView names)
    {
        return {names.data(), static_cast<std::size_t>(names.size())};
    }

    QByteArray m_names; // joined: their bytes are in the order of the nodes, as no name has a NUL
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
Result<Address> parseAddress(QStringView text, const UriLimits &limits = {});

/// The node at an address that is known to be well formed.
NodeUri nodeAt(const char *uri);

/// Whether a server may give a node this name; the outcome says what is wrong with it: 405, also
/// for a name with a slash, or 414 when it is too long.
Outcome checkNewName(const QByteArray &name, const UriLimits &limits);

/// 405
/// @param rule  the rest of a sentence that begins with the node
Outcome notAllowed(const NodeUri &uri, const char *rule);

} // namespace client
