// Who may do what with a node: access control lists, and on whose behalf a command runs.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <array>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace client {

/// On whose behalf the management tree is used.
class Principal {
public:
    /// The owner of the device, for whom no access control list counts.
    static Principal owner() { return Principal(Kind::Owner, {}); }
    /// The DM server of this Server Identifier.
    static Principal server(const QByteArray &identifier)
    {
        return Principal(Kind::Server, identifier);
    }
    /// A DM server without an account. It has the rights that a list gives to every server, and no
    /// list can name it.
    static Principal anonymousServer() { return Principal(Kind::AnonymousServer, {}); }

    bool isOwner() const { return m_kind == Kind::Owner; }
    /// Server Identifier; none for the owner and for a server without an account.
    std::optional<QByteArray> serverId() const
    {
        return m_kind == Kind::Server ? std::optional(m_serverId) : std::nullopt;
    }
    /// Whether it is the DM server of this Server Identifier.
    bool isServer(const QByteArray &identifier) const
    {
        return m_kind == Kind::Server && m_serverId == identifier;
    }
    /// Who that is, for people.
    QString toDisplay() const;

private:
    enum class Kind { Owner, Server, AnonymousServer };

    Principal(Kind kind, QByteArray serverId) : m_kind(kind), m_serverId(std::move(serverId)) {}

    Kind m_kind;
    QByteArray m_serverId;
};

/// What a list can permit, in the order in which a list is written.
enum class Right { Add, Delete, Exec, Get, Replace };

/// "Add", "Delete" and so on.
QByteArray nameOf(Right right);

/// The access control list of one node: for each right the Server Identifiers that have it. "*" is
/// every server; beside it single identifiers say nothing and are dropped.
class AccessControlList {
public:
    AccessControlList() = default; ///< empty: the node inherits

    /// Reads "Get=*&Replace=server1+server2". A right that is named twice is merged. White space
    /// around the whole text is ignored.
    /// @return what is wrong with a malformed text: an unknown right, a right without identifiers,
    ///         or an identifier with characters that it cannot have
    static support::Expected<AccessControlList, QString> parse(const QByteArray &text);

    bool isEmpty() const { return !m_servers; }
    bool permits(Right right, const Principal &principal) const;
    void grant(Right right, const QByteArray &server);
    /// The servers that have the right.
    const QByteArrayList &servers(Right right) const { return servers()[index(right)]; }
    /// Takes every right from the server. @return whether it had one
    bool forget(const QByteArray &server);

    /// As parse reads it; rights in the order of Right, identifiers in the order of granting.
    QByteArray toText() const;

    bool operator==(const AccessControlList &other) const { return servers() == other.servers(); }

private:
    static constexpr std::size_t rightCount = 5;
    static std::size_t index(Right right) { return static_cast<std::size_t>(right); }
    using ServersByRight = std::array<QByteArrayList, rightCount>;

    const ServersByRight &servers() const;
    void setServers(ServersByRight servers);

    // Shared by copies, of which there are many; null where no right is given.
    std::shared_ptr<const ServersByRight> m_servers;
};

/// Whether the text can stand for a server in a list: printable, without white space and without
/// the characters = & * and +.
bool isServerIdentifier(QStringView text);
/// The same of UTF-8.
bool isServerIdentifier(const QByteArray &text);

} // namespace client
