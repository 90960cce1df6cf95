// dmclient replay

#include "command_table.h"
#include "commands.h"
#include "recording.h"
#include "secret_item.h"
#include "secret_leaf.h"
#include "session_commands.h"

#include <QJsonArray>
#include <map>

namespace client::cli {

using commandline::printable;

namespace {

/// How a command ended when it was recorded.
struct RecordedCommand {
    int status = 0;
    std::optional<QByteArray> value; ///< none when it is masked
};

/// A message of the server, with its commands by CmdID and address.
struct RecordedMessage {
    int number = 0;
    QByteArray bytes;
    std::map<std::pair<QString, QString>, RecordedCommand> commands;

    /// Whether the server had to prove itself first, so that nothing of it was run.
    bool wasChallenged() const
    {
        return !commands.empty() && std::ranges::all_of(commands, [](const auto &entry) {
            return isChallenge(static_cast<DmStatus>(entry.second.status));
        });
    }
};

struct Recorded {
    bool showsSecrets = false;
    QStringList arguments;
    std::vector<RecordedMessage> messages;
};

RecordedCommand commandIn(const QJsonObject &event)
{
    RecordedCommand command{event[u"status"].toInt(), std::nullopt};
    const QByteArray text = event[u"value"].toString().toUtf8();
    if (event.contains(u"value") && text != secretMask)
        command.value =
            event[u"encoding"].toString() == u"base64" ? QByteArray::fromBase64(text) : text;
    return command;
}

support::Expected<Recorded, QString> readMessages(const KeptRecords &records, const QString &word)
{
    auto reader = records.open(word);
    if (!reader)
        return support::Unexpected(reader.error());
    Recorded recorded;
    recorded.showsSecrets = reader->run()[u"showsSecrets"].toBool();
    for (const QJsonValue &argument : reader->run()[u"arguments"].toArray())
        recorded.arguments += argument.toString();
    while (true) {
        const auto event = reader->next();
        if (!event)
            return support::Unexpected(event.error());
        if (!*event)
            return recorded;
        const QJsonObject &fields = **event;
        const QString kind = fields[u"event"].toString();
        const int number = fields[u"message"].toInt();
        if (kind == u"message" && fields[u"direction"].toString() == u"received")
            recorded.messages.push_back(
                {number, QByteArray::fromBase64(fields[u"bytes"].toString().toLatin1()), {}});
        const auto message = std::ranges::find(recorded.messages, number, &RecordedMessage::number);
        if (kind == u"command" && message != recorded.messages.end())
            message->commands.emplace(
                std::pair(fields[u"cmdId"].toString(), fields[u"target"].toString()),
                commandIn(fields));
    }
}

/// Compares how the commands of a message end with how they ended then.
class Comparison final : public SessionObserver {
public:
    explicit Comparison(Output &output) : m_output(output) {}

    void begin(const RecordedMessage &message) { m_message = &message; }

    void commandAnswered(const AnsweredCommand &command) override
    {
        ++m_commands;
        const auto then = m_message->commands.find({command.cmdId, command.uri});
        if (then == m_message->commands.end()) {
            tell(command, QStringLiteral("is not in the record"));
            return;
        }
        const auto status = static_cast<DmStatus>(then->second.status);
        if (status != command.status)
            tell(command,
                 QStringLiteral("%1 instead of %2")
                     .arg(describe(Outcome{command.status, command.reason}), describe(status)));
        else if (!command.mayBeSecret && then->second.value && command.value &&
                 *then->second.value != *command.value)
            tell(command, QStringLiteral("reads %1 instead of %2")
                              .arg(QString::fromUtf8(*command.value),
                                   QString::fromUtf8(*then->second.value)));
    }

    void tellNotRun(const QString &what)
    {
        ++m_notRun;
        m_output.line(printable(QStringLiteral("not run: %1").arg(what)));
    }

    ExitStatus finish()
    {
        m_output.line(QStringLiteral("%1 commands, %2 different, %3 not run")
                          .arg(m_commands)
                          .arg(m_differences)
                          .arg(m_notRun));
        return m_differences > 0 ? ExitStatus::Failed : ExitStatus::Success;
    }

private:
    void tell(const AnsweredCommand &command, const QString &text)
    {
        ++m_differences;
        const QString uri = command.uri.isEmpty() ? QString() : u' ' + command.uri;
        m_output.line(printable(QStringLiteral("message %1: %2%3: %4")
                                    .arg(m_message->number)
                                    .arg(command.name, uri, text)));
    }

    Output &m_output;
    const RecordedMessage *m_message = nullptr;
    int m_commands = 0;
    int m_differences = 0;
    int m_notRun = 0;
};

/// Takes out what cannot be run, because its value is masked in the record.
void takeMasked(std::vector<syncml::Command> &commands, Comparison &comparison)
{
    for (syncml::Command &command : commands) {
        takeMasked(command.commands, comparison);
        const bool hadItems = !command.items.empty();
        std::erase_if(command.items, [&](const syncml::Item &item) {
            const bool isMasked =
                item.data && !item.data->isEmpty() && mayHoldSecret(command, item);
            if (isMasked)
                comparison.tellNotRun(QStringLiteral("%1 %2, whose value is masked")
                                          .arg(syncml::commandName(command), addressOf(item)));
            return isMasked;
        });
        if (hadItems && command.items.empty())
            command.kind = syncml::CommandKind::Status; // which nothing answers
    }
}

/// On whose behalf the recorded commands ran: a server's by its identifier, or of a package that
/// was processed for it, the owner's.
Principal principalOf(const Recorded &recorded, const syncml::Message &message)
{
    const QString option = QStringLiteral("--server-id=");
    const QString command = recorded.arguments.value(0);
    if (command != u"session" && command != u"notify") {
        for (const QString &argument : recorded.arguments)
            if (argument.startsWith(option))
                return Principal::server(argument.sliced(option.size()).toUtf8());
        return Principal::owner();
    }
    const QString source = message.header.source.locUri;
    return isServerIdentifier(source) ? Principal::server(source.toUtf8())
                                      : Principal::anonymousServer();
}

} // namespace

ExitStatus runReplay(Context &context)
{
    const auto recorded =
        readMessages(keptRecords(*context.device), context.invocation.arguments[0]);
    if (!recorded)
        return wrongUsage(context, recorded.error());
    if (const QString reason = context.device->reasonAgainstServers(); !reason.isEmpty())
        return problem(context, reason, ExitStatus::Unusable);
    Comparison comparison(context.output);
    std::optional<SessionCommands> commands; // of all messages, so that large objects become whole
    for (const RecordedMessage &message : recorded->messages) {
        const QString name = QStringLiteral("message %1").arg(message.number);
        if (message.wasChallenged())
            continue;
        const syncml::DecodeResult decoded = syncml::decode(message.bytes);
        if (message.bytes.isEmpty() || !decoded) {
            comparison.tellNotRun(name + QStringLiteral(", whose bytes cannot be read"));
            continue;
        }
        syncml::Message runnable = *decoded;
        if (!recorded->showsSecrets)
            takeMasked(runnable.commands, comparison);
        if (!commands)
            commands.emplace(context.device->tree(), principalOf(*recorded, runnable), nullptr,
                             std::vector<SessionObserver *>{&comparison}, usualLargestObject);
        comparison.begin(message);
        std::vector<syncml::Command> answers;
        commands->run(runnable, 0, answers);
    }
    return comparison.finish();
}

} // namespace client::cli
