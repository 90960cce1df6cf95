// A whole management session with one DM server.
#pragma once

#include "accounts.h"
#include "alerts.h"
#include "answer_queue.h"
#include "client_event.h"
#include "client_prover.h"
#include "codec.h"
#include "expected.h"
#include "server_verifier.h"
#include "session_commands.h"
#include "session_observer.h"
#include "transport.h"
#include "user_interaction.h"

#include <QString>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace client {

/// What the next session proves and is proved with.
struct Nonces {
    std::optional<QByteArray> toServer; ///< of the client's next proof
    std::optional<QByteArray> toClient; ///< of the server's next proof

    bool operator==(const Nonces &) const = default;
};

struct SessionOptions {
    syncml::Encoding encoding = syncml::Encoding::Xml; ///< of the first message
    QString sessionId; ///< empty: a random number of up to four hexadecimal digits
    /// Whether a notification of the server has asked for the session, and said its identifier.
    bool isNotified = false;
    /// With which both sides begin in place of the nonces that are kept, as a notification asks for
    /// whose server has lost them.
    std::optional<QByteArray> firstNonce;
    /// Announced to the server.
    qsizetype maxMessageBytes = 256 * 1024;
    /// Announced to the server, and enforced for objects in chunks.
    qsizetype maxObjectBytes = usualLargestObject;
    /// A session of more messages to the server than that is ended by the client.
    int maxMessages = 1000;
    /// A session that takes longer is ended by the client.
    std::chrono::milliseconds timeLimit = std::chrono::minutes(30);
    /// For the last message, which tells the server that the client has ended the session.
    std::chrono::milliseconds farewellTimeLimit = std::chrono::seconds(5);
    std::function<std::chrono::steady_clock::time_point()> clock = &std::chrono::steady_clock::now;
    std::vector<ClientEvent> events;
    /// Takes what the server adds to the Inbox; without it there is none.
    CommandProcessor::Inbox inbox;
    /// Called with the index of an event whose alert the server has taken, with 200 or 202. May be
    /// empty.
    std::function<void(std::size_t event)> eventTaken;
    /// Takes what ends later; without it every Exec is run at once.
    CommandProcessor::LateExec lateExec;
    /// Asked before each message, and when one was not answered; true ends the session with an
    /// abort. May be empty.
    std::function<bool()> isAbortRequested;
    /// Has to keep the nonces for the next session. Called with those that have changed as soon as
    /// the server gave one or has proved itself with one, and before a message goes out that gives
    /// one to the server. A failure ends the session at once. May be empty.
    std::function<support::Expected<void, QString>(const Nonces &nonces)> keepNonces;
};

/// How a session ended.
struct SessionEnd {
    enum class Kind {
        Completed,       ///< the server had nothing more to say
        AbortedByServer, ///< with Alert 1223
        AbortedHere,     ///< at the user's request
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
/// The server's commands run on behalf of the account's Server Identifier, or on behalf of a server
/// that no list names when there is none. When the account wants the server to prove itself,
/// nothing of a message is obeyed that lacks the proof: no command, no alert, no address and no
/// limit. A message of another session, or one that was heard before, ends the session then.
class Session {
public:
    /// The references have to outlive the session.
    /// @param user  null when there is nobody whom the server could talk to
    Session(const Account &account, ManagementTree &tree, Transport &transport,
            UserInteraction *user, std::vector<SessionObserver *> observers,
            const SessionOptions &options);

    SessionEnd run();

private:
    // ---- Course of the session
    void exchangeMessages();
    bool endsEarly(bool isExchangeOverTime = false);
    void receive(const TransportResponse &response);
    void receive(const TransportResponse &response, const syncml::Message &message);
    void refuseMessage(const TransportResponse &response, const syncml::DecodeError &error);
    void endOrGoOn(bool hasAnswers);
    void askAgainWhoTheServerIs();
    void end(SessionEnd::Kind kind, const QString &reason);
    void fail(const QString &reason) { end(SessionEnd::Kind::Failed, reason); }
    void abort(SessionEnd::Kind kind, const QString &reason);

    // ---- What the client says
    /// The first package without the client's events.
    void queueBeginning();
    void queueFirstPackage();
    void queueEvent(std::size_t index);
    void queueEventsAgain();
    void queue(syncml::Command &&command);
    void queue(std::vector<syncml::Command> &&commands);
    void queueAlert(AlertCode code);
    syncml::Command deviceInformation() const;
    enum class Purpose { GoOn, SayFarewell };
    /// None when the message cannot be sent, which ends the session.
    std::optional<TransportResult> sendNextMessage(Purpose purpose);
    /// The client's next message without commands.
    syncml::Message nextMessage();
    bool isAbortRequested() const;
    bool isOverTime() const;
    std::chrono::milliseconds timeLeft() const;
    bool keepNonces();
    bool spendNonce(const TransportResponse &response, const syncml::SyncHdr &header);

    // ---- What the server says
    bool belongsHere(const syncml::SyncHdr &header);
    void obeyHeader(const TransportResponse &response, const syncml::SyncHdr &header);
    void readAddress(const QUrl &answered, const QString &respUri);
    void readLimits(const syncml::Meta &meta);
    bool readHeaderStatus(const syncml::Message &message, bool isObeyed);
    void readStatuses(const syncml::Message &message);
    void noteSentEvents(const syncml::Message &message);
    void readEventStatus(const syncml::Command &status);
    std::vector<syncml::Command> answer(const syncml::Message &message, DmStatus headerStatus);
    void refer(std::vector<syncml::Command> &answers) const;
    bool canBeSent(std::vector<syncml::Command> answers);
    bool fitsIntoOneMessage(AnswerQueue queue);

    void note(const QString &text);

    const Account m_account;
    const SessionOptions m_options;
    ManagementTree &m_tree;
    Transport &m_transport;
    std::vector<SessionObserver *> m_observers;
    ClientProver m_prover;
    ServerVerifier m_verifier;
    SessionCommands m_commands;
    AnswerQueue m_queue;

    /// Events by the MsgID and CmdID that their alerts had.
    std::map<std::pair<QString, QString>, std::size_t> m_sentEvents;
    std::deque<std::size_t> m_queuedEvents; ///< in the order in which their alerts are sent
    std::set<std::size_t> m_takenEvents;

    SessionEnd m_end;
    bool m_isRunning = true;
    Nonces m_keptNonces;
    std::chrono::steady_clock::time_point m_deadline;
    QString m_sessionId;
    QUrl m_url; ///< where the next message goes
    syncml::Encoding m_encoding;
    QString m_receivedMsgId;               ///< of the server's last message
    std::set<QString> m_heardMsgIds;       ///< of the server's messages that were obeyed
    int m_otherVersions = 0;               ///< messages in a row of another protocol version
    qsizetype m_serversLargestMessage = 0; ///< bytes; 0 as long as the server did not say
    bool m_isFirstPackage = true;          ///< the next message begins it
    bool m_serverIsFinal = true;           ///< the server's package is complete
    bool m_requestIsQueued = false;        ///< for the server's next message
    bool m_isChallenged = false;           ///< by the last message
};

} // namespace client
