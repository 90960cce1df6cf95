// What a server asks for in a session and hears of in a later one.
#pragma once

#include "dm_device.h"
#include "late_operations.h"
#include "session.h"

#include <QString>
#include <cstddef>
#include <optional>
#include <vector>

namespace client::cli {

/// The late operations of the account of one session: takes new ones, tells the server of those
/// that have ended, and runs what it has taken when the session is over. What cannot be kept is
/// told as a note.
class LateExecution final : public SessionObserver {
public:
    /// The references have to outlive the object. What an earlier process has begun is broken off.
    /// @param account  none for a server without an account, for which nothing ends later
    LateExecution(DmDevice &device, const std::optional<QString> &account, SessionObserver &report);

    /// Has the session take operations and tell of results. Once, and this object has to outlive
    /// the session.
    void addTo(SessionOptions &options);
    /// Runs what was taken and has not begun, one after the other, until the user interrupts. Each
    /// runs with the rights that its server has now.
    /// @param observers  hear of it as of commands of the session
    void runAccepted(const std::vector<SessionObserver *> &observers);

    void messageSent(const TransportRequest &, const syncml::Message &message) override
    {
        m_sessionId = message.header.sessionId;
    }

private:
    std::optional<Outcome> take(const syncml::Command &command, const NodeUri &node,
                                const QByteArray &argument);
    void noteUnlessKept(const LateOperations::Change &change);
    void run(const LateOperation &operation, const Account &account,
             const std::vector<SessionObserver *> &observers);

    DmDevice &m_device;
    const std::optional<QString> m_account;
    SessionObserver &m_report;
    support::Expected<LateOperations, QString> m_operations; ///< or why they cannot be read
    QString m_sessionId;
    std::size_t m_firstEvent = 0; ///< of the session's events, that is a result
    std::vector<int> m_resultIds; ///< of the operations, in the order of the events
};

} // namespace client::cli
