#include "package.h"

#include "alerts.h"
#include "client_prover.h"
#include "command_id.h"
#include "header_status.h"
#include "session_commands.h"
#include "xml_codec.h"

#include <algorithm>

namespace client {

using namespace syncml;

namespace {

SyncHdr answeringHeader(const SyncHdr &request, const QByteArray &deviceId)
{
    SyncHdr header;
    header.verDtd = QString::fromLatin1(dtdVersion);
    header.verProto = QString::fromLatin1(protocolVersion);
    header.sessionId = request.sessionId;
    header.msgId = QStringLiteral("1");
    header.target.locUri = request.respUri.value_or(request.source.locUri);
    header.source.locUri = QString::fromUtf8(deviceId);
    return header;
}

/// Numbers the commands, names the message that they answer, and makes their data fit the encoding.
void finish(std::vector<Command> &commands, const QString &msgRef, syncml::Encoding encoding)
{
    std::size_t number = 0;
    for (Command &command : commands) {
        command.cmdId = commandId(++number);
        if (command.kind != CommandKind::Alert)
            command.msgRef = msgRef;
        fitEncoding(command, encoding);
    }
}

/// What the server says about the header of the client's last message, which had no proof in it.
/// @return why the session would end there; none when it would not
std::optional<QString> refusalOfHeader(const Message &message, DmStatus headerOutcome)
{
    const ServerTrust trust =
        succeeded(headerOutcome) ? ServerTrust::NotAsked : ServerTrust::Unproved;
    const auto verdict = ClientProver(Credentials()).read(message, trust);
    return verdict ? std::nullopt : std::optional(verdict.error());
}

bool isRefusingStatus(const Command &command)
{
    return command.kind == CommandKind::Status && isRefusal(*parseStatus(*command.data));
}

} // namespace

PackageAnswer answerPackage(const Message &request, ManagementTree &tree, syncml::Encoding encoding,
                            const Principal &principal,
                            const std::vector<SessionObserver *> &observers)
{
    PackageAnswer answer;
    answer.isAbortedByServer = hasAlert(request, AlertCode::SessionAbort);
    if (answer.isAbortedByServer)
        return answer;
    const DmStatus headerOutcome = statusOfHeader(request.header);
    answer.refusal = refusalOfHeader(request, headerOutcome);
    if (answer.refusal)
        return answer;
    std::vector<Command> answers = {headerStatus(request.header, headerOutcome)};
    SessionCommands commands(tree, principal, nullptr, observers, usualLargestObject);
    if (succeeded(headerOutcome))
        commands.run(request, 0, answers);
    else
        commands.refuse(request, {headerOutcome, {}}, answers);
    const bool isFinal = request.final || !succeeded(headerOutcome) || isRequestForMore(request);
    if (!isFinal)
        answers.push_back(makeAlert(AlertCode::NextMessage));
    if (answers.size() == 1 && succeeded(headerOutcome))
        return answer;

    answer.allSucceeded = std::ranges::none_of(answers, isRefusingStatus);
    finish(answers, request.header.msgId, encoding);
    answer.message.emplace();
    answer.message->header = answeringHeader(request.header, tree.deviceId());
    answer.message->commands = std::move(answers);
    answer.message->final = isFinal;
    return answer;
}

} // namespace client
