// Short messages that the device's modems receive, as ModemManager has them.
#pragma once

#include "refusal_count.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>
#include <deque>
#include <functional>
#include <vector>

namespace client {

/// Hands on what is in the received messages of all modems, those that were there before included,
/// and deletes the ones that somebody took. Texts are not looked at. ModemManager may come, go and
/// say what it likes; the numbers below bound what is kept of it.
class ModemMessages : public QObject {
    Q_OBJECT
public:
    /// That wait to be read. What is announced beyond is looked for when they have been read.
    static constexpr std::size_t mostWaiting = 1024;
    static constexpr std::size_t mostReading = 4;
    /// Whose parts have not all come.
    static constexpr std::size_t mostReceiving = 256;

    enum class Outcome {
        NotOurs, ///< somebody else's: it stays
        Over,    ///< was dealt with: it is deleted
        Open,    ///< stays, and is handed on again when ModemManager or this program has restarted
    };
    struct Message {
        QByteArray data; ///< what it carries behind the ports, of any size
        QByteArray imsi; ///< of the SIM card that it came to, as ModemManager has it; maybe empty
    };
    using Take = std::function<Outcome(const Message &message)>;

    ModemMessages(const QDBusConnection &bus, Take take);

private Q_SLOTS:
    void takeInterfaces(const QDBusMessage &signal);
    void takeAdded(const QDBusMessage &signal);
    void takeDeleted(const QDBusMessage &signal);
    void takeChange(const QDBusMessage &signal);

private:
    /// Object paths.
    struct Place {
        QString modem;
        QString message;
        bool operator==(const Place &) const = default;
    };
    using Answered = std::function<void(const QDBusMessage &reply)>;

    void beginAnew();
    void listModems();
    void listMessages(const QString &modem);
    /// @return whether there is room for it
    bool wait(const Place &place);
    void readNext();
    void ask(const Place &place);
    void read(const Place &place, const QDBusMessage &reply);
    void findSim(const Place &place, const QByteArray &data);
    void take(const Place &place, const Message &message);
    void remove(const Place &place);
    void over(const Place &place);
    void call(const QDBusMessage &message, const Answered &answered);

    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    const Take m_take;
    int m_generation = 0; ///< of ModemManager's; answers of an earlier one mean nothing
    std::deque<Place> m_waiting;
    std::vector<Place> m_reading;   ///< until they are deleted, if they are
    std::vector<Place> m_completed; ///< of those that are read: told to be whole meanwhile
    std::deque<Place> m_receiving;
    bool m_hasMissed = false; ///< one that was announced
    RefusalCount m_unread;
    RefusalCount m_undeleted;
};

} // namespace client
