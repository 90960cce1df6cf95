// Run-time properties of nodes that no plug-in keeps.
#pragma once

#include "node_uri.h"

#include <QString>
#include <map>

namespace client {

/// Properties by node, for nodes that were given any. They follow a rename and go with a deletion.
class PropertyStore {
public:
    struct Properties {
        QString type; ///< MIME type of a leaf, Management Object id of an interior node
    };

    /// The node's properties; empty ones when it was given none.
    Properties get(const NodeUri &node) const;
    void set(const NodeUri &node, Properties properties);
    /// Forgets the node and everything beneath it.
    void remove(const NodeUri &node);
    /// Moves the node and everything beneath it to a new place.
    void move(const NodeUri &from, const NodeUri &to);

private:
    using Map = std::map<NodeUri, Properties>;

    Map extract(const NodeUri &node);

    Map m_properties;
};

} // namespace client
