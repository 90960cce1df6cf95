#include "access_control.h"

#include "utf8.h"

#include <QSet>
#include <algorithm>
#include <iterator>

namespace client {

namespace {

constexpr const char *rightNames[] = {"Add", "Delete", "Exec", "Get", "Replace"};
constexpr char everyServer[] = "*";

std::optional<Right> rightNamed(const QByteArray &name)
{
    const auto *const found = std::find(std::begin(rightNames), std::end(rightNames), name);
    if (found == std::end(rightNames))
        return std::nullopt;
    return static_cast<Right>(found - std::begin(rightNames));
}

bool mayStandInIdentifier(QChar character)
{
    constexpr QStringView separators = u"=&*+";
    return character.isPrint() && !character.isSpace() && !separators.contains(character);
}

QString shown(const QByteArray &text)
{
    return QString::fromUtf8(text.left(80));
}

/// The servers in the order of their first mention; "*" alone where it is one of them.
QByteArrayList withoutRepetitions(const QByteArrayList &servers)
{
    if (servers.contains(everyServer))
        return {everyServer};
    QByteArrayList once;
    QSet<QByteArray> mentioned;
    for (const QByteArray &server : servers) {
        if (mentioned.contains(server))
            continue;
        mentioned.insert(server);
        once.push_back(server);
    }
    return once;
}

} // namespace

QString Principal::toDisplay() const
{
    switch (m_kind) {
    case Kind::Owner:
        return QStringLiteral("the owner");
    case Kind::AnonymousServer:
        return QStringLiteral("a server without an account");
    case Kind::Server:
        break;
    }
    return QString::fromUtf8(m_serverId);
}

QByteArray nameOf(Right right)
{
    return rightNames[static_cast<std::size_t>(right)];
}

bool isServerIdentifier(QStringView text)
{
    return !text.isEmpty() && std::ranges::all_of(text, mayStandInIdentifier);
}

bool isServerIdentifier(const QByteArray &text)
{
    const auto characters = support::fromUtf8(text);
    return characters && isServerIdentifier(*characters);
}

support::Expected<AccessControlList, QString> AccessControlList::parse(const QByteArray &text)
{
    AccessControlList list;
    const QByteArray trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return list;
    std::array<QByteArrayList, rightCount> servers;
    for (const QByteArray &entry : trimmed.split('&')) {
        const qsizetype equals = entry.indexOf('=');
        const auto right = rightNamed(entry.left(equals));
        if (equals < 0 || !right)
            return support::Unexpected(
                QStringLiteral("\"%1\" does not begin with Add=, Delete=, Exec=, Get= or "
                               "Replace=")
                    .arg(shown(entry)));
        for (const QByteArray &server : entry.mid(equals + 1).split('+')) {
            if (server != everyServer && !isServerIdentifier(server))
                return support::Unexpected(
                    QStringLiteral("\"%1\" in \"%2\" is not a server identifier")
                        .arg(shown(server), shown(entry)));
            servers[index(*right)].push_back(server);
        }
    }
    std::ranges::transform(servers, servers.begin(), withoutRepetitions);
    list.setServers(std::move(servers));
    return list;
}

const AccessControlList::ServersByRight &AccessControlList::servers() const
{
    static const ServersByRight none;
    return m_servers ? *m_servers : none;
}

void AccessControlList::setServers(ServersByRight servers)
{
    const bool hasNone = std::ranges::all_of(servers, &QByteArrayList::isEmpty);
    m_servers = hasNone ? nullptr : std::make_shared<const ServersByRight>(std::move(servers));
}

bool AccessControlList::permits(Right right, const Principal &principal) const
{
    if (principal.isOwner())
        return true;
    return std::ranges::any_of(servers(right), [&principal](const QByteArray &entry) {
        return entry == everyServer || principal.isServer(entry);
    });
}

void AccessControlList::grant(Right right, const QByteArray &server)
{
    if (permits(right, Principal::server(server)))
        return;
    ServersByRight changed = servers();
    QByteArrayList &ofRight = changed[index(right)];
    if (server == everyServer)
        ofRight.clear();
    ofRight.push_back(server);
    setServers(std::move(changed));
}

bool AccessControlList::forget(const QByteArray &server)
{
    ServersByRight changed = servers();
    qsizetype forgotten = 0;
    for (QByteArrayList &ofRight : changed)
        forgotten += ofRight.removeAll(server);
    if (forgotten > 0)
        setServers(std::move(changed));
    return forgotten > 0;
}

QByteArray AccessControlList::toText() const
{
    QByteArrayList entries;
    for (std::size_t right = 0; right < rightCount; ++right) {
        const QByteArrayList &ofRight = servers()[right];
        if (!ofRight.empty())
            entries.push_back(QByteArray(rightNames[right]) + '=' + ofRight.join('+'));
    }
    return entries.join('&');
}

} // namespace client
