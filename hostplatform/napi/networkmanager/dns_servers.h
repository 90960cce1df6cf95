// The two DNS fields of a record as the list of DNS servers of a connection, and back.
//
// The list has no empty place and no server twice. Where the fields need one ("no first server, but
// a second"), a text beside the list keeps the layout: all addresses in the order of the fields
// with 0.0.0.0 for an empty place. The layout counts as long as the addresses in it are those of
// the list; somebody else's change of the list ends it.
#pragma once

#include <array>
#include <cstdint>

#include <QList>
#include <QString>
#include <QStringList>

class DnsServers {
public:
    using Fields = std::array<std::uint32_t, 2>;

    /// @param servers  the connection's list; what is not an IPv4 address is carried along
    /// @param layout   the text beside it, empty for none
    DnsServers(const QStringList &servers, const QString &layout);

    /// IPv4 addresses with the first dotted part in the most significant byte, 0 for none.
    const Fields &fields() const { return m_fields; }
    /// Changes fields. Servers that follow the first two stay, and so does what a list says of a
    /// server beside its address ("1.1.1.1#name") while that server is in a field.
    void setFields(const Fields &fields);

    QStringList servers() const;
    /// @return the text to keep beside the list; empty when the list says it all.
    QString layout() const;

private:
    QString textOf(std::uint32_t address) const;

    QStringList m_original;
    Fields m_fields{};
    QStringList m_further; ///< as in the list, without those of the fields
};

/// @return the address in four decimal parts.
QString dottedAddress(std::uint32_t address);
/// Reads an address of four decimal parts, each at most 255, and nothing else.
bool parseDottedAddress(QStringView text, std::uint32_t &address);
