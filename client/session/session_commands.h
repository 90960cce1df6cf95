// Running the commands of a server's messages inside a session.
#pragma once

#include "command_processor.h"
#include "large_object.h"
#include "session_observer.h"
#include "user_interaction.h"

#include <QString>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace client {

/// Takes the commands of one message after another: puts large objects together, talks to the user,
/// has a command processor do the rest, and tells the observers how each command ended.
class SessionCommands {
public:
    using Commands = std::vector<syncml::Command>;

    /// The references have to outlive this object.
    /// @param principal      the server on whose behalf the commands run
    /// @param user           null when there is nobody whom the server could talk to
    /// @param largestObject  bytes of an object that the server sends in chunks
    SessionCommands(ManagementTree &tree, const Principal &principal, UserInteraction *user,
                    std::vector<SessionObserver *> observers, qsizetype largestObject);

    /// Bytes of the largest object that the server takes; 0 when it did not say.
    void setServersLargestObject(qsizetype bytes) { m_serversLargestObject = bytes; }

    /// What runs the commands, for its checks.
    CommandProcessor &processor() { return m_processor; }

    /// How long the session may still take, which no question to the user outlasts; without it a
    /// question takes as long as the server allows.
    void setTimeLeft(std::function<std::chrono::milliseconds()> timeLeft)
    {
        m_timeLeft = std::move(timeLeft);
    }

    /// Runs the commands of a message in their order, and appends what answers them: statuses,
    /// results, and an alert when a large object broke off.
    /// @param waitingBytes  of earlier answers that were not sent yet, as answerBytes counts them
    void run(const syncml::Message &message, qsizetype waitingBytes, Commands &answers);
    /// Answers every command with a status, without running anything. A server that has to prove
    /// itself first will send them again, so they do not count then.
    void refuse(const syncml::Message &message, const Outcome &outcome, Commands &answers);

    /// Commands that were answered, each item counted.
    int answeredCommands() const { return m_answered; }
    /// Of these with 4xx or 5xx.
    int refusedCommands() const { return m_refused; }

private:
    void runCommand(const syncml::Command &command, Commands &answers);
    void runItems(const syncml::Command &command, Commands &answers);
    void flush(syncml::Command &items, Commands &answers);
    void abandonObject(Commands &answers);
    void limitObjects(Commands &answers, std::size_t first) const;
    std::optional<std::chrono::seconds> timeForQuestion() const;
    DmStatus answerAlert(const syncml::Command &alert, std::vector<syncml::Item> &items);
    void noteReason(const std::optional<QString> &cmdId, const QString &uri,
                    const Outcome &outcome);
    void report(const QString &msgId, const syncml::Command &command,
                std::span<const syncml::Command> answers);
    QString reasonFor(const QString &cmdId, const QString &uri, DmStatus status) const;

    CommandProcessor m_processor;
    UserInteraction *m_user;
    std::function<std::chrono::milliseconds()> m_timeLeft;
    std::vector<SessionObserver *> m_observers;
    LargeObjectReceiver m_object;
    bool m_objectWentOn = false; ///< in the message that is being run
    qsizetype m_serversLargestObject = 0;
    /// Why something of the command that is being run ended as it did; by CmdID, address (none when
    /// it holds for the whole command) and status.
    std::map<std::tuple<QString, QString, DmStatus>, QString> m_reasons;
    int m_answered = 0;
    int m_refused = 0;
};

} // namespace client
