// A notification of the desktop.
#pragma once

#include "expected.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QObject>
#include <QStringList>
#include <chrono>
#include <optional>

namespace client {

/// One notification, used in the thread that has made it. The ones of other programs, and what
/// others than the notification service say, are passed over.
class DesktopNotification : public QObject {
    Q_OBJECT
public:
    /// What the notifications of this desktop can do, in the words of that interface.
    /// The error is a sentence.
    static support::Expected<QStringList, QString> capabilities();

    DesktopNotification();

    /// Shows it. With buttons it stays until one is pressed or wait() returns.
    /// @param body     as it is to be shown
    /// @param buttons  their labels
    /// @param time     to be shown without buttons; none: as the desktop has it
    /// @return whether it is shown
    bool put(const QString &body, const QStringList &buttons,
             std::optional<std::chrono::seconds> time);

    enum class End {
        Pressed,
        Dismissed,
        TakenBack,
        Expired,
        Gone, ///< the desktop's service has ended
    };
    /// Waits until the user has answered or end() is called, and takes it off the screen.
    End wait();
    /// Number of the button that was pressed, from 1.
    int pressed() const { return m_pressed; }

public Q_SLOTS:
    void end(client::DesktopNotification::End how);

private Q_SLOTS:
    void takeAction(uint id, const QString &key);
    void takeClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    QEventLoop m_loop;
    int m_buttons = 0;
    uint m_id = 0;
    int m_pressed = 0;
    std::optional<End> m_end;
};

} // namespace client
