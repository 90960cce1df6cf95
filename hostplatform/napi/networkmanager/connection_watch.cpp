#include "connection_watch.h"

#include <QDeadlineTimer>
#include <algorithm>
#include <dbus/dbus.h>
#include <poll.h>

namespace {

#define KUB_NETWORKMANAGER "org.freedesktop.NetworkManager"

constexpr const char *matchRules[] = {
    "type='signal',sender='" KUB_NETWORKMANAGER "',interface='" KUB_NETWORKMANAGER
    ".Settings',member='NewConnection'",
    "type='signal',sender='" KUB_NETWORKMANAGER "',interface='" KUB_NETWORKMANAGER
    ".Settings.Connection',member='Updated'",
    "type='signal',sender='" KUB_NETWORKMANAGER "',interface='" KUB_NETWORKMANAGER
    ".Settings.Connection',member='Removed'",
    "type='signal',sender='" DBUS_SERVICE_DBUS "',interface='" DBUS_INTERFACE_DBUS
    "',member='NameOwnerChanged',arg0='" KUB_NETWORKMANAGER "'",
};

/// Nobody whose signals are listened to sends longer ones.
constexpr long longestMessage = 64L * 1024;
/// How many messages are looked at one by one. As many have always room in a socket, so there are
/// none after them that the bus could not send yet; and who sends without end keeps nobody here.
constexpr int mostMessages = 100;

struct MessageDeleter {
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, MessageDeleter>;

class Error {
public:
    Error() { dbus_error_init(&m_error); }
    ~Error() { dbus_error_free(&m_error); }
    Error(const Error &) = delete;
    Error &operator=(const Error &) = delete;

    DBusError *get() { return &m_error; }
    StoreResult result() const
    {
        const std::string reason = m_error.message ? m_error.message : "out of memory";
        return {NAPI_ERROR_UNAVAILABLE, "cannot listen on the system bus: " + reason};
    }

private:
    DBusError m_error;
};

/// Calls a method of the bus itself. @return its answer; null with the error set when it failed.
Message callBus(DBusConnection *connection, const char *method, const char *argument,
                const QDeadlineTimer &deadline, Error &error)
{
    const Message call(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                    DBUS_INTERFACE_DBUS, method));
    if (!call || (argument && !dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &argument,
                                                        DBUS_TYPE_INVALID)))
        return nullptr;
    const int limitMs = static_cast<int>(std::max<qint64>(1, deadline.remainingTime()));
    return Message(
        dbus_connection_send_with_reply_and_block(connection, call.get(), limitMs, error.get()));
}

bool isReadable(DBusConnection *connection)
{
    pollfd socket = {.fd = -1, .events = POLLIN, .revents = 0};
    return dbus_connection_get_unix_fd(connection, &socket.fd) && ::poll(&socket, 1, 0) > 0;
}

/// @return the object path that a signal has as its argument; empty for another argument.
QString pathArgument(DBusMessage *message)
{
    const char *path = nullptr;
    Error error;
    if (!dbus_message_get_args(message, error.get(), DBUS_TYPE_OBJECT_PATH, &path,
                               DBUS_TYPE_INVALID))
        return {};
    return QString::fromUtf8(path);
}

void addNews(DBusMessage *message, const QByteArray &daemon, ConnectionNews &news)
{
    if (dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged")) {
        news.isEverything =
            news.isEverything || dbus_message_has_sender(message, DBUS_SERVICE_DBUS);
        return;
    }
    if (!dbus_message_has_sender(message, daemon.constData()))
        return;
    const QString path = QString::fromUtf8(dbus_message_get_path(message));
    if (dbus_message_is_signal(message, KUB_NETWORKMANAGER ".Settings", "NewConnection"))
        news.added.append(pathArgument(message));
    else if (dbus_message_is_signal(message, KUB_NETWORKMANAGER ".Settings.Connection", "Updated"))
        news.changed.append(path);
    else if (dbus_message_is_signal(message, KUB_NETWORKMANAGER ".Settings.Connection", "Removed"))
        news.removed.append(path);
}

} // namespace

void ConnectionWatch::Closer::operator()(DBusConnection *connection) const
{
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

StoreResult ConnectionWatch::open(const QByteArray &addresses, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    Error error;
    m_connection.reset(dbus_connection_open_private(addresses.constData(), error.get()));
    if (!m_connection)
        return error.result();
    dbus_connection_set_exit_on_disconnect(m_connection.get(), FALSE);
    dbus_connection_set_max_message_size(m_connection.get(), longestMessage);
    Message answer = callBus(m_connection.get(), "Hello", nullptr, deadline, error);
    for (const char *rule : matchRules) {
        if (answer)
            answer = callBus(m_connection.get(), "AddMatch", rule, deadline, error);
    }
    if (answer)
        return {};
    close();
    return error.result();
}

bool ConnectionWatch::isOpen() const
{
    return m_connection && dbus_connection_get_is_connected(m_connection.get());
}

ConnectionNews ConnectionWatch::take(const QString &daemon)
{
    ConnectionNews news;
    const QByteArray sender = daemon.toUtf8();
    for (int messages = 0; isOpen() && messages < mostMessages;) {
        if (const Message message{dbus_connection_pop_message(m_connection.get())}) {
            addNews(message.get(), sender, news);
            ++messages;
        } else if (isReadable(m_connection.get())) {
            dbus_connection_read_write(m_connection.get(), 0);
        } else {
            return news;
        }
    }
    news.isEverything = true;
    return news;
}
