// A whole management session with one DM server.
#pragma once

#include "session/accounts.h"
#include "session/answer_queue.h"
#include "session/command_runner.h"
#include "session/proofs.h"
#include "session/session_observer.h"
#include "session/transport.h"
#include "session/user_interaction.h"
#include "syncml/codec.h"

#include <QString>
#include <functional>
#include <optional>
#include <vector>

namespace client {

/// Something that the client reports in its first package.
struct ClientEvent {
    enum class Kind { ClientEvent = 1224, GenericAlert = 1226 } kind = Kind::ClientEvent;
    QString type; ///< of a generic alert as "Content-Type: ..." or "Reversed-Domain-Name: ..."
    QByteArray data;
};

struct SessionOptions {
    syncml::Encoding encoding = syncml::Encoding::Xml; ///< of the first message
    QString sessionId; ///< empty: a random number of up to four hexadecimal digits
    /// Announced to the server.
    qsizetype maxMessageBytes = 256 * 1024;
    /// Announced to the server, and enforced for objects in chunks.
    qsizetype maxObjectBytes = 1024 * 1024;
    /// A session of more messages to the server than that is ended by the client.
    int maxMessages = 1000;
    std::vector<ClientEvent> events;
    /// Asked before each message; true ends the session with an abort. May be empty.
    std::function<bool()> isAbortRequested;
};

/// How a session ended.
struct SessionEnd {
    enum class Kind {
        Completed,       ///< the server had nothing more to say
        AbortedByServer, ///< with Alert 1223
        AbortedHere,     ///< by the user
        Failed,          ///< server unreachable, not understood, not trusted, or without an end
    };
    Kind kind = Kind::Completed;
    QString reason; ///< one sentence without its full stop; empty when completed

    int messages = 0; ///< sent
    int commands = 0; ///< of the server that were answered, each item counted
    int refused = 0;  ///< of these with 4xx or 5xx
};

/// Runs one session: sends the first package, then answers the server's messages until it has
/// nothing more to ask.
///
/// The server's commands run on behalf of the account's Server Identifier. When the account wants
/// the server to prove itself, nothing runs before it has done so.
class Session {
public:
    /// The references have to outlive the session.
    /// @param user  null when there is nobody whom the server could talk to
    Session(const Account &account, ManagementTree &tree, Transport &transport,
            UserInteraction *user, std::vector<SessionObserver *> observers,
            const SessionOptions &options);

    SessionEnd run();

    /// Nonces for the next session; the account's own when the session brought no better ones.
    const std::optional<QByteArray> &nonceToServer() const { return m_prover.keptNonce(); }
    const std::optional<QByteArray> &nonceToClient() const { return m_verifier.keptNonce(); }

private:
    // ---- Course of the session
    void exchangeMessages();
    void receive(const TransportResponse &response);
    void receive(const TransportResponse &response, const syncml::Message &message);
    void refuseMessage(const syncml::DecodeError &error);
    void endOrGoOn(const syncml::Message &message, bool hasAnswers);
    void end(SessionEnd::Kind kind, const QString &reason);
    void fail(const QString &reason) { end(SessionEnd::Kind::Failed, reason); }
    void abort(SessionEnd::Kind kind, const QString &reason);

    // ---- What the client says
    void queueFirstPackage();
    void queue(syncml::Command command);
    void queueAlert(const char *code);
    syncml::Command deviceInformation() const;
    std::optional<TransportResponse> sendNextMessage();
    syncml::SyncHdr nextHeader();

    // ---- What the server says
    void readHeader(const TransportResponse &response, const syncml::SyncHdr &header);
    void readAddress(const QUrl &answered, const QString &respUri);
    void readLimits(const syncml::Meta &meta);
    void readStatuses(const syncml::Message &message);
    void readHeaderStatus(const syncml::Command &status);
    std::vector<syncml::Command> answer(const syncml::Message &message, DmStatus headerStatus);
    void refer(std::vector<syncml::Command> &answers) const;
    bool canBeSent(std::vector<syncml::Command> answers);

    void note(const QString &text);

    const Account m_account;
    const SessionOptions m_options;
    ManagementTree &m_tree;
    Transport &m_transport;
    std::vector<SessionObserver *> m_observers;
    ClientProver m_prover;
    ServerVerifier m_verifier;
    CommandRunner m_runner;
    AnswerQueue m_queue;

    SessionEnd m_end;
    bool m_isRunning = true;
    QString m_sessionId;
    QUrl m_url; ///< where the next message goes
    syncml::Encoding m_encoding;
    QString m_receivedMsgId;               ///< of the server's last message
    qsizetype m_serversLargestMessage = 0; ///< bytes; 0 as long as the server did not say
    bool m_isFirstPackage = true;          ///< the next message begins it
    bool m_serverIsFinal = true;           ///< the server's package is complete
    bool m_requestIsQueued = false;        ///< for the server's next message
    bool m_isChallenged = false;           ///< by the last message
};

} // namespace client
