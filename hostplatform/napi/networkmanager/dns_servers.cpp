#include "dns_servers.h"

#include <algorithm>

namespace {

/// @return the address that an entry of the list names, 0 for none. After a '#' stands the name
///         that the server has in its certificate.
std::uint32_t addressOf(const QString &server)
{
    std::uint32_t address = 0;
    parseDottedAddress(QStringView(server).left(server.indexOf(u'#')), address);
    return address;
}

QList<std::uint32_t> addressesOf(const QStringList &servers)
{
    QList<std::uint32_t> addresses;
    for (const QString &server : servers)
        addresses.append(addressOf(server));
    return addresses;
}

/// @return the addresses as the list holds them: no empty place, none twice.
QList<std::uint32_t> listed(const QList<std::uint32_t> &addresses)
{
    QList<std::uint32_t> result;
    for (const std::uint32_t address : addresses) {
        if (address != 0 && !result.contains(address))
            result.append(address);
    }
    return result;
}

/// @return the addresses of a layout; fewer than the two of the fields when it is none.
QList<std::uint32_t> parseLayout(const QString &layout)
{
    QList<std::uint32_t> addresses;
    for (const QString &text : layout.split(u' ')) {
        std::uint32_t address = 0;
        if (!parseDottedAddress(text, address))
            return {};
        addresses.append(address);
    }
    return addresses;
}

} // namespace

QString dottedAddress(std::uint32_t address)
{
    QStringList parts;
    for (int shift = 24; shift >= 0; shift -= 8)
        parts.append(QString::number(address >> shift & 0xFFU));
    return parts.join(u'.');
}

bool parseDottedAddress(QStringView text, std::uint32_t &address)
{
    std::uint32_t result = 0;
    for (const QStringView part : text.split(u'.'))
        result = result << 8U | (part.toUInt() & 0xFFU);
    // Only the one way of writing it leads back to the same text.
    if (dottedAddress(result) != text)
        return false;
    address = result;
    return true;
}

DnsServers::DnsServers(const QStringList &servers, const QString &layout) : m_original(servers)
{
    QList<std::uint32_t> places = parseLayout(layout);
    const QList<std::uint32_t> addresses = addressesOf(servers);
    if (places.size() < 2 || listed(places) != listed(addresses))
        places = listed(addresses);
    for (qsizetype index = 0; index < std::min<qsizetype>(places.size(), 2); ++index)
        m_fields[static_cast<std::size_t>(index)] = places[index];
    for (const QString &server : servers) {
        const std::uint32_t address = addressOf(server);
        if (address == 0 || (address != m_fields[0] && address != m_fields[1]))
            m_further.append(server);
    }
}

void DnsServers::setFields(const Fields &fields)
{
    m_fields = fields;
    m_further.removeIf([&](const QString &server) {
        const std::uint32_t address = addressOf(server);
        return address != 0 && (address == fields[0] || address == fields[1]);
    });
}

QString DnsServers::textOf(std::uint32_t address) const
{
    for (const QString &server : m_original) {
        if (addressOf(server) == address)
            return server;
    }
    return dottedAddress(address);
}

QStringList DnsServers::servers() const
{
    QStringList result;
    for (const std::uint32_t address : listed({m_fields[0], m_fields[1]}))
        result.append(textOf(address));
    return result + m_further;
}

QString DnsServers::layout() const
{
    if (DnsServers(servers(), QString()).fields() == m_fields)
        return {};
    QStringList places = {dottedAddress(m_fields[0]), dottedAddress(m_fields[1])};
    for (const std::uint32_t address : listed(addressesOf(m_further)))
        places.append(dottedAddress(address));
    return places.join(u' ');
}
