#include "late_execution.h"

#include "interrupt_guard.h"
#include "session_commands.h"

#include <utility>

namespace client::cli {

using Stage = LateOperation::Stage;

namespace {

/// How important the result is.
QString markOf(const LateOperation &operation)
{
    if (operation.wasBrokenOff)
        return QStringLiteral("critical");
    return isRefusal(operation.status) ? QStringLiteral("warning")
                                       : QStringLiteral("informational");
}

ClientEvent resultOf(const LateOperation &operation)
{
    ClientEvent event;
    event.code = AlertCode::GenericAlert;
    event.type = operation.alertType;
    event.data = QByteArray::number(static_cast<int>(operation.status));
    event.format = QStringLiteral("int");
    event.mark = markOf(operation);
    event.source = operation.target;
    event.correlator = operation.correlator;
    event.isToldUntilTaken = true;
    return event;
}

/// A message with the Exec as it came, but for the Correlator.
syncml::Message messageWith(const LateOperation &operation)
{
    syncml::Message message;
    syncml::Command &exec = message.commands.emplace_back();
    exec.kind = syncml::CommandKind::Exec;
    exec.cmdId = QStringLiteral("1");
    syncml::Item &item = exec.items.emplace_back();
    item.target = syncml::Location{operation.target, {}};
    item.data = operation.argument;
    return message;
}

} // namespace

LateExecution::LateExecution(DmDevice &device, const std::optional<QString> &account,
                             SessionObserver &report)
    : m_device(device), m_account(account), m_report(report),
      m_operations(
          LateOperations::load(device.state().clientFile(QLatin1String(lateOperationsFile))))
{
    if (!m_operations) {
        m_report.note(
            QStringLiteral("operations that end later are lost: %1").arg(m_operations.error()));
        return;
    }
    noteUnlessKept(m_operations->breakOffBegun());
    const AccountStore &accounts = m_device.accounts();
    if (accounts.damage().isEmpty())
        noteUnlessKept(m_operations->keepOnly([&accounts](const LateOperation &operation) {
            return accounts.serverIdOf(operation.account) == operation.serverId;
        }));
}

void LateExecution::noteUnlessKept(const LateOperations::Change &change)
{
    if (!change)
        m_report.note(QStringLiteral("what became of operations that end later is not kept: %1")
                          .arg(change.error()));
}

void LateExecution::addTo(SessionOptions &options)
{
    options.lateExec = [this](const syncml::Command &command, const NodeUri &node,
                              const QByteArray &argument) { return take(command, node, argument); };
    if (!m_account || !m_operations)
        return;
    m_firstEvent = options.events.size();
    for (const LateOperation &operation : m_operations->all()) {
        if (operation.account != *m_account || operation.stage != Stage::Ended)
            continue;
        options.events.push_back(resultOf(operation));
        m_resultIds.push_back(operation.id);
    }
    options.eventTaken = [this](std::size_t event) {
        if (event >= m_firstEvent)
            noteUnlessKept(m_operations->forget({m_resultIds[event - m_firstEvent]}));
    };
}

std::optional<Outcome> LateExecution::take(const syncml::Command &command, const NodeUri &node,
                                           const QByteArray &argument)
{
    const QString *const alertType = m_device.longExecAt(node);
    if (!alertType)
        return std::nullopt;
    const bool endsLater = m_account && command.correlator && !command.correlator->isEmpty();
    const QString target = QString::fromLatin1(node.toUri());
    if (!endsLater) {
        const Outcome idle = m_operations ? m_operations->checkIdle(target) : Outcome();
        return idle ? std::nullopt : std::optional(idle);
    }
    if (!m_operations)
        return Outcome{DmStatus::CommandFailed, m_operations.error()};
    LateOperation operation;
    operation.account = *m_account;
    operation.serverId = m_device.accounts().serverIdOf(*m_account);
    operation.sessionId = m_sessionId;
    operation.target = target;
    operation.correlator = *command.correlator;
    operation.alertType = *alertType;
    operation.argument = argument;
    return m_operations->accept(std::move(operation));
}

void LateExecution::runAccepted(const std::vector<SessionObserver *> &observers)
{
    if (!m_account || !m_operations)
        return;
    const std::vector<LateOperation> operations = m_operations->all();
    for (const LateOperation &operation : operations) {
        // The session may have changed the account, or taken it away.
        const Account *const account = m_device.accounts().find(*m_account);
        if (InterruptGuard::wasInterrupted() || !account)
            return;
        if (operation.account == *m_account && operation.stage == Stage::Accepted &&
            operation.serverId == account->serverId)
            run(operation, Account(*account), observers);
    }
}

void LateExecution::run(const LateOperation &operation, const Account &account,
                        const std::vector<SessionObserver *> &observers)
{
    // That it has begun is on the disk first, so that it is never run twice.
    const auto begun = m_operations->begin(operation.id);
    if (!begun) {
        noteUnlessKept(begun);
        return;
    }
    SessionCommands commands(m_device.tree(), principalOf(account), nullptr, observers, 0);
    SessionCommands::Commands answers;
    commands.run(messageWith(operation), 0, answers);
    const auto status = answers.empty() ? std::nullopt : parseStatus(*answers.front().data);
    noteUnlessKept(m_operations->end(operation.id, status.value_or(DmStatus::CommandFailed)));
}

} // namespace client::cli
