// Which account's session begins by itself, and when. Pure logic: whoever holds the sessions asks
// it, tells it what has happened, and brings the clocks.
#pragma once

#include "expected.h"
#include "polling.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace client {

/// A moment by both clocks of a device.
struct Moment {
    /// By a clock that nobody sets and that goes on while the device sleeps.
    std::chrono::milliseconds sinceBoot{0};
    QByteArray boot; ///< which start of the device that is since
    /// Since 1970 in UTC, by a clock that can be set in either direction at any time.
    std::chrono::milliseconds wallClock{0};
};

/// How a session of an account ended, as far as it says when the next one begins.
enum class SessionOutcome {
    Held,   ///< it came to its end, or somebody here wanted none
    Failed, ///< by the network, the server or the client
    Busy,   ///< there was none: something else works on the device's state
};

/// The waits of all accounts. All times that go in and out are those since boot.
///
/// Each wait is longer or shorter by up to a tenth, so that devices which began together do not
/// come together. Nothing is due while the device is offline or a session runs.
class Schedule {
public:
    using Time = std::chrono::milliseconds;
    /// @return a number from 0 to below 1
    using RandomFraction = std::function<double()>;

    explicit Schedule(RandomFraction random);

    /// The accounts as they are from now on, by name. A new one waits its first delay; one whose
    /// interval is another waits that.
    void setAccounts(const std::map<QString, Polling> &accounts, Time now);
    /// A device is offline until it is told otherwise. What became due meanwhile is due some
    /// seconds after the connection is there, so that it can settle.
    void setOnline(bool isOnline, Time now);
    /// A session of any account runs, whoever asked for it.
    void sessionBegan();
    void sessionEnded(const QString &account, SessionOutcome outcome, Time now);

    /// The account whose session is to begin: the one that has been due longest.
    std::optional<QString> due(Time now) const;
    /// When to ask again; none: not before something happens.
    std::optional<Time> nextDue() const;
    /// When the session of an account begins, were the device online and idle. None for an account
    /// without an interval.
    std::optional<Time> dueOf(const QString &account) const;
    /// How many sessions of an account have failed since the last one that did not.
    int failuresOf(const QString &account) const;

    /// The waits, to be kept over a restart.
    QJsonObject toJson(const Moment &now) const;
    /// Goes on with kept waits, for the accounts that are there. Within one start of the device no
    /// wait changes. Over another one the wall clock says how much of each is over: when it was set
    /// back nothing is, and whatever it says, no wait is longer than its account can have.
    /// @return what is wrong, and where; the waits are as they were then
    support::Expected<void, QString> restore(const QJsonObject &stored, const Moment &now);

private:
    struct Entry {
        Polling polling;
        Time due{0};
        int failures = 0;
    };
    using Entries = std::map<QString, Entry>;

    Time spread(Time wait) const;
    Time retryDelay(const Entry &entry) const;
    static Time longestWait(const Entry &entry);
    /// Null when none is due next.
    const Entries::value_type *next() const;

    RandomFraction m_random;
    Entries m_entries; ///< of accounts with an interval
    bool m_isOnline = false;
    bool m_isSessionRunning = false;
};

} // namespace client
