#include "property_store.h"

#include <algorithm>
#include <utility>

namespace client {

PropertyStore::Properties PropertyStore::get(const NodeUri &node) const
{
    const auto found = m_properties.find(node);
    return found == m_properties.end() ? Properties() : found->second;
}

void PropertyStore::set(const NodeUri &node, Properties properties)
{
    m_properties.insert_or_assign(node, std::move(properties));
}

void PropertyStore::remove(const NodeUri &node)
{
    extract(node);
}

void PropertyStore::move(const NodeUri &from, const NodeUri &to)
{
    for (auto &[node, properties] : extract(from)) {
        std::vector<QByteArray> names = to.names();
        const auto beneath =
            node.names().begin() + static_cast<std::ptrdiff_t>(from.names().size());
        names.insert(names.end(), beneath, node.names().end());
        set(NodeUri(std::move(names)), properties);
    }
}

PropertyStore::Map PropertyStore::extract(const NodeUri &node)
{
    // Addresses are ordered by their names, so a node and everything beneath it are neighbours.
    const auto first = m_properties.lower_bound(node);
    const auto last =
        std::find_if(first, m_properties.end(),
                     [&node](const Map::value_type &entry) { return !node.contains(entry.first); });
    Map extracted(first, last);
    m_properties.erase(first, last);
    return extracted;
}

} // namespace client
