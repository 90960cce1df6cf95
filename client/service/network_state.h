// Whether the device has a connection, as NetworkManager sees it.
#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <functional>

namespace client {

/// Follows NetworkManager's state. A device without it counts as online: nobody could say when it
/// is.
class NetworkState : public QObject {
    Q_OBJECT
public:
    using Changed = std::function<void(bool isOnline)>;

    /// Tells the state soon, and then each change.
    NetworkState(const QDBusConnection &bus, Changed changed);

private Q_SLOTS:
    void takeChange(uint state);

private:
    void ask();
    void setState(uint state);

    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    Changed m_changed;
    int m_news = 0; ///< counted, since an answer of before means nothing after them
};

} // namespace client
