// A session's messages, written down for people.
#pragma once

#include "expected.h"
#include "session_observer.h"

#include <QFile>
#include <memory>
#include <set>
#include <utility>

namespace client {

/// Alerts by MsgID and CmdID.
using AlertIds = std::set<std::pair<QString, QString>>;

/// A message as indented XML, whichever encoding it had. The meaning of each status follows
/// it as a comment; data that XML cannot carry stands there as base64. Masked are the data of
/// credentials, the values of secret leaves (see isSecretLeaf), values without an address,
/// serialised trees, and what the user has answered to some alerts.
QByteArray readableMessage(const syncml::Message &message, const AlertIds &secretQuestions);

/// Writes every message of a session to a file that only its owner can read, or to standard output.
class TraceWriter final : public SessionObserver {
public:
    /// Begins a new file; "-" is standard output.
    /// @return never null; the error says why it cannot be written
    static support::Expected<std::unique_ptr<TraceWriter>, QString> open(const QString &file);

    /// Why the file lacks something of what happened, such as "cannot write t: No space left on
    /// device"; none when it lacks nothing.
    const std::optional<QString> &lossReason() const { return m_lossReason; }

    void messageSent(const TransportRequest &request, const syncml::Message &message) override;
    void messageReceived(const TransportResponse &response,
                         const syncml::DecodeResult *decoded) override;
    void note(const QString &text) override;

private:
    explicit TraceWriter(const QString &file) : m_file(file) {}

    void rememberSecretQuestions(const QString &msgId,
                                 const std::vector<syncml::Command> &commands);
    void write(const QByteArray &text);
    QString problem() const;

    QFile m_file;
    std::optional<QString> m_lossReason;
    AlertIds m_secretQuestions;
};

} // namespace client
