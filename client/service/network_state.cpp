#include "network_state.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <utility>

namespace client {

namespace {

const QString service = QStringLiteral("org.freedesktop.NetworkManager");
const QString path = QStringLiteral("/org/freedesktop/NetworkManager");

/// A connection beyond this device's link. Whether it leads to the internet is not asked: a DM
/// server may be in the operator's own network.
constexpr uint connectedToSite = 60;

} // namespace

NetworkState::NetworkState(const QDBusConnection &bus, Changed changed)
    : m_bus(bus), m_watcher(service, bus), m_changed(std::move(changed))
{
    m_bus.connect(service, path, service, QStringLiteral("StateChanged"), this,
                  SLOT(takeChange(uint)));
    connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, [this] { ask(); });
    ask();
}

void NetworkState::takeChange(uint state)
{
    ++m_news;
    setState(state);
}

void NetworkState::setState(uint state)
{
    m_changed(state >= connectedToSite);
}

void NetworkState::ask()
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << service << QStringLiteral("State");
    // It is not started for the sake of the question.
    call.setAutoStartService(false);
    auto *const answer = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, asked = ++m_news] {
        answer->deleteLater();
        // The bus library hands on an answer that came at once later than the signals after it.
        if (asked != m_news)
            return;
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        if (reply.isError())
            m_changed(true);
        else
            setState(reply.value().variant().toUInt());
    });
}

} // namespace client
