#include "session/command_runner.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;
using syncml::Message;

CommandRunner::CommandRunner(ManagementTree &tree, const Principal &principal,
                             UserInteraction *user, std::vector<SessionObserver *> observers,
                             qsizetype largestObject)
    : m_processor(tree, principal), m_user(user), m_observers(std::move(observers)),
      m_object(largestObject)
{
    m_processor.setAlertHandler([this](const Command &alert, std::vector<Item> &items) {
        return answerAlert(alert, items);
    });
    m_processor.setOutcomeListener(
        [this](const Command &command, const Item &item, const Outcome &outcome) {
            noteReason(command, item, outcome);
        });
}

// ---- Messages ------------------------------------------------------------------------------------

namespace {

bool isAnswer(const Command &command)
{
    return command.kind == CommandKind::Status || command.kind == CommandKind::Results;
}

bool isAlert(const Command &command, const char *code)
{
    return command.kind == CommandKind::Alert &&
           command.data.value_or(QByteArray()).trimmed() == code;
}

/// Commands that leave a large object alone that is on its way.
bool leavesObjectAlone(const Command &command)
{
    constexpr char nextMessage[] = "1222";
    return isAnswer(command) || isAlert(command, nextMessage);
}

} // namespace

void CommandRunner::run(const Message &message, Commands &answers)
{
    const bool wasReceiving = m_object.isReceiving();
    m_objectWentOn = false;
    for (const Command &command : message.commands) {
        Commands own;
        m_reasons.clear();
        runCommand(command, own);
        limitObjects(own);
        report(command, own);
        std::ranges::move(own, std::back_inserter(answers));
    }
    if (wasReceiving && m_object.isReceiving() && !m_objectWentOn)
        abandonObject(answers);
}

void CommandRunner::refuse(const Message &message, const Outcome &outcome, Commands &answers)
{
    for (const Command &command : message.commands) {
        Commands own;
        m_reasons.clear();
        CommandProcessor::refuse(command, outcome.status, own);
        for (const Command &answer : own)
            m_reasons.push_back({*answer.cmdRef, QString(), outcome});
        report(command, own);
        std::ranges::move(own, std::back_inserter(answers));
    }
}

void CommandRunner::runCommand(const Command &command, Commands &answers)
{
    const bool hasValues = command.kind == CommandKind::Add || command.kind == CommandKind::Replace;
    const bool hasChunk = std::ranges::any_of(command.items, &Item::moreData);
    if (command.cmdId && hasValues && (hasChunk || m_object.isReceiving())) {
        runItems(command, answers);
        return;
    }
    if (m_object.isReceiving() && !leavesObjectAlone(command))
        abandonObject(answers);
    m_processor.run(command, answers);
}

// ---- Large objects -------------------------------------------------------------------------------

/// Runs a command whose items may be chunks.
void CommandRunner::runItems(const Command &command, Commands &answers)
{
    Command whole = command; // the items that are no chunks, and objects that have become whole
    whole.items.clear();
    for (Item item : command.items) {
        const bool goesOn = m_object.continues(command, item);
        if (m_object.isReceiving() && !goesOn) {
            flush(whole, answers);
            abandonObject(answers);
        }
        if (!goesOn && !item.moreData) {
            whole.items.push_back(std::move(item));
            continue;
        }
        m_objectWentOn = true;
        const Outcome outcome = m_object.take(command, item);
        if (outcome.status == DmStatus::Ok) {
            whole.items.push_back(std::move(item));
            continue;
        }
        flush(whole, answers);
        noteReason(command, item, outcome);
        Command one = command;
        one.items = {std::move(item)};
        CommandProcessor::refuse(one, outcome.status, answers);
    }
    flush(whole, answers);
}

void CommandRunner::flush(Command &items, Commands &answers)
{
    if (items.items.empty())
        return;
    m_processor.run(items, answers);
    items.items.clear();
}

void CommandRunner::abandonObject(Commands &answers)
{
    Command alert;
    alert.kind = CommandKind::Alert;
    alert.data = QByteArrayLiteral("1225");
    alert.items = {m_object.abandon()};
    answers.push_back(std::move(alert));
    for (SessionObserver *const observer : m_observers)
        observer->note(QStringLiteral("a large object broke off before its end"));
}

namespace {

/// Whether the address of a Get asks for a node, or for a listing that has it.
bool asksFor(const QString &target, const QString &node)
{
    const Result<Address> asked = parseAddress(target, UriLimits());
    const Result<Address> given = parseAddress(node, UriLimits());
    return target == node || (asked && given && asked->query == Address::Query::List &&
                              asked->node.contains(given->node));
}

/// The Status of the item that a Get answered with that node: one of its own, apart from the
/// Status of the command's other items.
Command &separateStatus(CommandRunner::Commands &answers, const Command &results,
                        const QString &node)
{
    const auto answersGet = [&](const Command &answer) {
        return answer.kind == CommandKind::Status && answer.cmdRef == results.cmdRef;
    };
    for (auto status = answers.begin(); status != answers.end(); ++status) {
        const auto target = std::ranges::find_if(
            status->targetRefs, [&](const QString &uri) { return asksFor(uri, node); });
        if (!answersGet(*status) || target == status->targetRefs.end())
            continue;
        if (status->targetRefs.size() == 1)
            return *status;
        Command own = *status;
        own.targetRefs = {*target};
        status->targetRefs.erase(target);
        return *answers.insert(status + 1, std::move(own));
    }
    return *std::ranges::find_if(answers, answersGet);
}

} // namespace

/// Answers with 413 what the server does not take.
void CommandRunner::limitObjects(Commands &answers) const
{
    if (m_serversLargestObject == 0)
        return;
    const auto isTooLarge = [this](const Item &item) {
        return item.data && item.data->size() > m_serversLargestObject;
    };
    for (std::size_t i = 0; i < answers.size(); ++i) {
        if (answers[i].kind != CommandKind::Results)
            continue;
        for (;;) {
            const auto item = std::ranges::find_if(answers[i].items, isTooLarge);
            if (item == answers[i].items.end())
                break;
            const QString node = item->source->locUri;
            answers[i].items.erase(item);
            const Command results = answers[i];
            const std::size_t before = answers.size();
            separateStatus(answers, results, node).data =
                QByteArray::number(static_cast<int>(DmStatus::TooLarge));
            i += answers.size() - before;
        }
    }
    std::erase_if(answers, [](const Command &answer) {
        return answer.kind == CommandKind::Results && answer.items.empty();
    });
}

// ---- Alerts --------------------------------------------------------------------------------------

DmStatus CommandRunner::answerAlert(const Command &alert, std::vector<Item> &items)
{
    static constexpr const char *accepted[] = {"1222", "1223", "1225"};
    Outcome outcome;
    if (!alert.data)
        outcome = {DmStatus::IncompleteCommand, QStringLiteral("an alert without a code")};
    else if (isUserAlert(alert))
        outcome.status = answerUserAlert(alert, m_user, items);
    else if (std::ranges::none_of(accepted, [&](const char *code) { return isAlert(alert, code); }))
        outcome = {DmStatus::FeatureNotSupported,
                   QStringLiteral("no alert that a server sends to a client")};
    if (isUserAlert(alert) && !m_user)
        outcome.reason = QStringLiteral("there is no terminal to talk to the user");
    m_reasons.push_back({alert.cmdId.value_or(QString()), QString(), outcome});
    return outcome.status;
}

// ---- Reports -------------------------------------------------------------------------------------

namespace {

QString addressOf(const Item &item)
{
    return item.target ? item.target->locUri : item.source ? item.source->locUri : QString();
}

/// The command with that id, or one inside it.
const Command *findCommand(const Command &command, const QString &cmdId)
{
    if (command.cmdId == cmdId)
        return &command;
    for (const Command &inner : command.commands)
        if (const Command *const found = findCommand(inner, cmdId))
            return found;
    return nullptr;
}

/// What a Status is about: the addresses that it refers to, otherwise those of the whole command;
/// one empty text when there are none.
std::vector<QString> answeredUris(const Command &status, const Command *answered)
{
    std::vector<QString> uris = status.targetRefs.empty() ? status.sourceRefs : status.targetRefs;
    if (uris.empty() && answered)
        for (const Item &item : answered->items)
            uris.push_back(addressOf(item));
    std::erase(uris, QString());
    return uris.empty() ? std::vector<QString>(1) : uris;
}

/// Statuses by which a server hears that it has to prove itself.
bool isChallenge(int status)
{
    return status == static_cast<int>(DmStatus::InvalidCredentials) ||
           status == static_cast<int>(DmStatus::MissingCredentials);
}

/// "Get"; an alert with its code.
QString reportedName(const Command &command)
{
    const QString name = syncml::commandName(command);
    return command.kind == CommandKind::Alert && command.data
               ? name + u' ' + QString::fromUtf8(*command.data)
               : name;
}

} // namespace

void CommandRunner::noteReason(const Command &command, const Item &item, const Outcome &outcome)
{
    m_reasons.push_back({command.cmdId.value_or(QString()), addressOf(item), outcome});
}

QString CommandRunner::reasonFor(const QString &cmdId, const QString &uri, int status) const
{
    const auto reason = std::ranges::find_if(m_reasons, [&](const Reason &entry) {
        return entry.cmdId == cmdId && (entry.uri.isEmpty() || entry.uri == uri) &&
               static_cast<int>(entry.outcome.status) == status;
    });
    return reason == m_reasons.end() ? QString() : reason->outcome.reason;
}

void CommandRunner::report(const Command &command, const Commands &answers)
{
    constexpr int firstError = 400;
    for (const Command &answer : answers) {
        if (answer.kind != CommandKind::Status)
            continue;
        const Command *const answered = findCommand(command, *answer.cmdRef);
        AnsweredCommand report;
        report.name = answered ? reportedName(*answered) : *answer.cmd;
        report.status = answer.data->toInt();
        for (const QString &uri : answeredUris(answer, answered)) {
            report.uri = uri;
            report.reason = reasonFor(*answer.cmdRef, uri, report.status);
            m_answered += !isChallenge(report.status);
            m_refused += report.status >= firstError && !isChallenge(report.status);
            for (SessionObserver *const observer : m_observers)
                observer->commandAnswered(report);
        }
    }
}

} // namespace client
