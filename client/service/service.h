// The client as a service: which session is next, and what became of it.
#pragma once

#include "accounts.h"
#include "boot_clock.h"
#include "notification_proof.h"
#include "refusal_count.h"
#include "schedule.h"
#include "service_state.h"
#include "session_child.h"
#include "session_result.h"

#include <QFileSystemWatcher>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace client {

/// A session that somebody wants.
struct SessionRequest {
    QString account;
    SessionCause cause = SessionCause::User;
    /// The session identifier of a notification; the session that follows has it.
    std::optional<quint16> sessionId = std::nullopt;
    /// By which the notification was proved.
    notification::Nonce nonce = notification::Nonce::Agreed;
    /// How many sessions before it, without a break, began because an operation had ended.
    int operationsBefore = 0;
};

/// Holds the sessions of a device, one at a time: those that are asked for first, then those of the
/// schedule. Needs a running event loop.
class Service {
public:
    struct Options {
        QString stateDirectory;
        QString sessionProgram;      ///< file of dmclient
        QStringList deviceArguments; ///< for it, that choose the device beside its state directory
        SessionChild::Limits limits = {};
        /// How long a device that somebody works with is left to them before a bootstrap message is
        /// tried again.
        std::chrono::milliseconds busyDelay = std::chrono::seconds(30);
    };
    struct Listener {
        std::function<void()> changed = [] {}; ///< anything that can be asked for below
        std::function<void(const SessionResult &)> sessionEnded = [](const SessionResult &) {};
        /// The application of a bootstrap message is over, successful or not.
        std::function<void()> bootstrapEnded = [] {};
        /// The server of the running session asks its user (json_user.h), or the sender of a
        /// bootstrap message, who has no account yet; none: there is nobody.
        std::function<void(const QString &account, const QJsonObject &question)> asked = {};
    };

    /// @return never null; the error is a sentence that says what cannot be used and why
    static support::Expected<std::unique_ptr<Service>, QString> open(Options options);
    /// Ends a running session.
    ~Service();

    void setListener(Listener listener) { m_listener = std::move(listener); }

    /// Has a session held as soon as none runs. One for an account that waits already stays as it
    /// is, but for a session identifier, of which the last one counts.
    /// @return why there can be none: no such account, or one that no session could use
    support::Expected<void, QString> requestSession(const SessionRequest &request);
    /// Ends the running session of an account in good order, and forgets one that waits.
    /// @return that there is none
    support::Expected<void, QString> cancelSession(const QString &account);
    /// Has a bootstrap message applied that waits under this name, as soon as no session runs or
    /// was asked for. A session with each of its accounts follows.
    void applyBootstrap(const QString &id);
    /// An answer to what was asked last.
    void answerQuestion(const QJsonObject &answer) { m_child.answer(answer); }
    /// Offline nothing begins by itself; what is asked for is tried.
    void setOnline(bool isOnline);
    /// Ends a running session, begins no other one, and calls when that is done: at once or later.
    void stop(std::function<void()> stopped);

    // ---- What can be asked for

    const QString &stateDirectory() const { return m_state->path(); }
    bool isOnline() const { return m_isOnline; }
    const AccountStore &accounts() const { return m_accounts; }
    /// The request whose session runs; none when none does.
    const std::optional<SessionRequest> &running() const { return m_running; }
    /// What waits for its turn, the next one first.
    const std::deque<SessionRequest> &waiting() const { return m_waiting; }
    /// When the session of an account begins by itself, since 1970 by the clock as it is now; none
    /// when none does.
    std::optional<std::chrono::milliseconds> nextSession(const QString &account) const;
    int failuresOf(const QString &account) const { return m_schedule.failuresOf(account); }
    /// The last ones, the newest last.
    const std::vector<SessionResult> &results() const { return m_results; }

private:
    Service(Options options, std::unique_ptr<ServiceState> state);

    void loadAccounts();
    void beginWhatIsDue();
    void begin(const SessionRequest &request);
    void beginBootstrap(const QString &id);
    void ended(const SessionChild::End &end);
    void bootstrapEnded(const SessionChild::End &end);
    void goOn();
    void asked(const QJsonObject &question);
    void conclude(const SessionChild::End &end, SessionResult &result) const;
    void keep(SessionResult result);
    void saveSchedule();
    void setTimer();
    void requestResultSession(const QString &account, int operationsBefore);
    void requestLeftResultSessions();

    const Options m_options;
    const std::unique_ptr<ServiceState> m_state;
    Listener m_listener;
    AccountStore m_accounts;
    Schedule m_schedule;
    std::deque<SessionRequest> m_waiting;
    std::optional<SessionRequest> m_running;
    SessionResult m_runningResult; ///< as far as it is known
    std::set<int> m_knownResults;  ///< ids of operations of its account, when it began
    std::vector<SessionResult> m_results;
    std::deque<QString> m_bootstraps; ///< that wait for their turn
    std::optional<QString> m_applying;
    RefusalCount m_discarded;
    std::function<void()> m_stopped; ///< set from stop() on
    bool m_isOnline = false;
    SessionChild m_child;
    QFileSystemWatcher m_accountsWatch;
    BootTimer m_timer;
    QTimer m_saving;
    QTimer m_bootstrapDelay;
};

} // namespace client
