#include "desktop_notification.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QVariantMap>
#include <algorithm>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

const QString notificationService = QStringLiteral("org.freedesktop.Notifications");
const QString notificationPath = QStringLiteral("/org/freedesktop/Notifications");

constexpr uint dismissedByUser = 2; ///< reason of NotificationClosed

QDBusMessage callOf(const char *method, const QVariantList &arguments = {})
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        notificationService, notificationPath, notificationService, QString::fromLatin1(method));
    call.setArguments(arguments);
    return call;
}

} // namespace

Expected<QStringList, QString> DesktopNotification::capabilities()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Unexpected(QStringLiteral("there is no desktop: %1").arg(bus.lastError().message()));
    const QDBusReply<QStringList> reply = bus.call(callOf("GetCapabilities"));
    if (!reply.isValid())
        return Unexpected(
            QStringLiteral("the desktop has no notifications: %1").arg(reply.error().message()));
    return reply.value();
}

DesktopNotification::DesktopNotification()
    : m_bus(QDBusConnection::sessionBus()),
      m_watcher(notificationService, m_bus, QDBusServiceWatcher::WatchForUnregistration)
{
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { end(End::Gone); });
    m_bus.connect(notificationService, notificationPath, notificationService,
                  QStringLiteral("ActionInvoked"), this, SLOT(takeAction(uint, QString)));
    m_bus.connect(notificationService, notificationPath, notificationService,
                  QStringLiteral("NotificationClosed"), this, SLOT(takeClosed(uint, uint)));
}

bool DesktopNotification::put(const QString &body, const QStringList &buttons,
                              std::optional<std::chrono::seconds> time)
{
    QStringList actions;
    for (const QString &label : buttons)
        actions << QString::number(actions.size() / 2 + 1) << label;
    m_buttons = static_cast<int>(buttons.size());
    QVariantMap hints;
    if (!buttons.isEmpty()) { // a question does not go away by itself
        constexpr uchar critical = 2;
        hints.insert(QStringLiteral("urgency"), QVariant::fromValue(critical));
    }
    constexpr std::chrono::milliseconds mostTime = std::chrono::hours(1);
    const int shown =
        !buttons.isEmpty() ? 0
        : time ? static_cast<int>(std::min<std::chrono::milliseconds>(*time, mostTime).count())
               : -1;
    const QDBusReply<uint> reply = m_bus.call(
        callOf("Notify", {QStringLiteral("dmclient"), 0U, QString(),
                          QStringLiteral("Device management"), body, actions, hints, shown}));
    m_id = reply.isValid() ? reply.value() : 0;
    return reply.isValid();
}

DesktopNotification::End DesktopNotification::wait()
{
    if (!m_end)
        m_loop.exec();
    if (*m_end != End::Gone)
        m_bus.send(callOf("CloseNotification", {m_id}));
    return *m_end;
}

void DesktopNotification::end(End how)
{
    if (m_end)
        return;
    m_end = how;
    m_loop.quit();
}

void DesktopNotification::takeAction(uint id, const QString &key)
{
    bool isNumber = false;
    const int number = key.toInt(&isNumber);
    if (id != m_id || !isNumber || number < 1 || number > m_buttons)
        return;
    m_pressed = number;
    end(End::Pressed);
}

void DesktopNotification::takeClosed(uint id, uint reason)
{
    if (id == m_id)
        end(reason == dismissedByUser ? End::Dismissed : End::Expired);
}

} // namespace client
