// A run of the client as a record, event for event.
#pragma once

#include "device_observer.h"
#include "event_writer.h"
#include "known_secrets.h"
#include "look_observer.h"
#include "message_json.h"
#include "session.h"
#include "session_observer.h"
#include "stored_node.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace client {

/// Sixteen random hexadecimal digits.
QString freshRunId();

/// What a record says about its run at its beginning.
struct RunDescription {
    QString id = freshRunId();
    QDateTime begin = QDateTime::currentDateTimeUtc();
    QString plugin;  ///< the path of the library that has the profiles
    QString backend; ///< of the profile service
    QString stateDirectory;
    QStringList arguments; ///< words of the command line, without the program's name
    bool showsSecrets = false;
};

/// A command that a person has typed, when it has ended.
struct TypedCommand {
    QString name; ///< as the DM protocol has it, as far as it has it: "Replace", "Rename"
    QString target;
    QString source = {}; ///< of a Copy; of a Rename the new name; else empty
    QString format = {};
    std::optional<QByteArray> value = {};
    Outcome outcome = {};
};

/// Hears of everything that a run does, and writes it down with numbers that tie it together.
/// Secrets are masked, unless the run shows them. docs/record.md has what it writes.
class Recorder final : public SessionObserver,
                       public ExchangeObserver,
                       public DeviceObserver,
                       public LookObserver {
public:
    Recorder(const RunDescription &run, std::vector<EventWriter::Sink> sinks);

    /// Has the record written to one more place from now on, beginning with the run.
    void addSink(EventWriter::Sink sink) { m_writer.addSink(std::move(sink)); }
    /// Has a secret masked wherever it turns up from now on.
    void learnSecret(const QByteArray &secret) { m_secrecy.known.add(secret); }
    /// Why the record lacks something; none when it is whole.
    const std::optional<QString> &lossReason() const { return m_writer.lossReason(); }

    // ---- Commands that a person types

    /// What happens from now on belongs to the next typed command.
    void typedCommandBegins();
    void typedCommandEnded(const TypedCommand &command);
    /// Nothing is typed any more.
    void typedCommandsOver() { m_running.clear(); }

    // ---- Packages without a session

    void packageReceived(const QByteArray &bytes, const syncml::DecodeResult &decoded);
    void packageSent(const QByteArray &bytes, const syncml::Message &message);

    /// Writes the last event.
    /// @param session  null when there was none
    void end(const SessionEnd *session, int exitStatus);

    // ---- What observers are told

    void messageSent(const TransportRequest &request, const syncml::Message &message) override;
    void messageReceived(const TransportResponse &response,
                         const syncml::DecodeResult *decoded) override;
    void itemBegins(const syncml::Command &command, const syncml::Item &item) override;
    void itemEnded(const syncml::Command &command, const syncml::Item &item) override;
    void commandAnswered(const AnsweredCommand &command) override;
    void note(const QString &text) override;

    void requestSent(const HttpRequest &request) override;
    void requestAnswered(const HttpAnswer &answer) override;
    void waits(std::chrono::milliseconds time, const QString &reason) override;

    void mountBegins(const QByteArray &root) override;
    void mountEnded(int nodes, const QString &fault) override;
    void pluginMessage(std::string_view message) override;
    void pluginTrace(std::string_view trace) override;
    void secretIsWritten(const QByteArray &secret) override { learnSecret(secret); }
    void profileCall(const call_observer::ProfileCall &call) override;
    void settingCall(const call_observer::SettingCall &call) override;

    /// What the handset has stored for a node at this moment.
    /// @param uri  as it was asked for
    void storedSeen(const QString &uri, const StoredNode &stored);

    int runningCommand() const override { return m_running.empty() ? 0 : m_running.back(); }
    void treeSeen(const Picture &tree) override;
    void commandSeen(int command, const TreeDifference &difference) override;
    void nextMountSeen(const TreeDifference &difference) override;
    void differenceNoted(int command, const DifferenceNote &note) override;

private:
    QJsonObject shownNode(const SeenNode &node) const;
    void writeTree(QJsonObject fields, const TreeDifference &difference);

    /// An item of a command that has begun and was not answered yet.
    struct OpenItem {
        const syncml::Command *command = nullptr;
        const syncml::Item *item = nullptr; ///< null for a whole command
        int number = 0;
        QString cmdId = {};
        QString uri = {};
        qint64 began = 0;
        qint64 us = 0;
        QJsonObject fields = {}; ///< of its event, as far as they are known
    };

    struct Mount {
        int number = 0;
        qint64 began = 0;
        int messages = 0; ///< of the plug-in
    };

    QJsonArray shownArguments(const QStringList &arguments);
    QString shown(const QString &text) const;
    QString shownUrl(const QUrl &url) const;
    QJsonArray shownHeaders(const HttpHeaders &headers) const;
    QJsonValue reasonOf(const QString &reason) const;
    /// @param mayBeSecret  whether it is masked, unless the run shows secrets
    void addValue(QJsonObject &fields, const QByteArray &value, bool mayBeSecret) const;
    /// The number of what runs: of the mount, or of the command.
    void addOwner(QJsonObject &fields) const;
    void learnSecretsOf(const NAP_PROFILE_S &record);
    /// @param line  without its line break
    QJsonObject shownPluginLine(const QString &line) const;
    OpenItem takeItem(const AnsweredCommand &command);
    void writeMessage(const char *direction, const QByteArray &bytes,
                      const syncml::Message *message, const QString &fault, QJsonObject fields);
    void addBytes(QJsonObject &fields, const QByteArray &bytes, const syncml::Message *message);
    void learnSecretsOf(const syncml::Command &command, const syncml::Item &item);
    void learnSecretsOf(const std::vector<syncml::Command> &commands);
    void rememberSecretQuestions(const QString &msgId,
                                 const std::vector<syncml::Command> &commands);
    void writeOutcome(OpenItem item, DmStatus status, const QString &reason);

    EventWriter m_writer;
    MessageSecrecy m_secrecy;

    int m_messages = 0;
    int m_receivedMessage = 0; ///< whose commands run
    int m_exchanges = 0;
    int m_attempt = 0; ///< of the exchange
    qint64 m_requestSentAt = 0;
    int m_commands = 0;
    int m_answered = 0;
    int m_refused = 0;
    int m_differences = 0;
    int m_mounts = 0;
    int m_calls = 0;
    std::optional<Mount> m_mount; ///< that is under way
    std::vector<int> m_running;   ///< numbers of the commands that run, the innermost last
    std::vector<OpenItem> m_open;
    qint64 m_typedBegan = 0;
    std::string m_pluginLine; ///< of a message that has not ended
};

} // namespace client
