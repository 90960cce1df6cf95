#include "session_commands.h"

#include "alerts.h"
#include "secret_item.h"

#include <QHash>
#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace client {

using namespace syncml;

SessionCommands::SessionCommands(ManagementTree &tree, const Principal &principal,
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
            if (!outcome.reason.isEmpty())
                noteReason(command.cmdId, addressOf(item), outcome);
            for (SessionObserver *const observer : m_observers)
                observer->itemEnded(command, item);
        });
    m_processor.setBeginListener([this](const Command &command, const Item &item) {
        for (SessionObserver *const observer : m_observers)
            observer->itemBegins(command, item);
    });
}

// ---- Messages ------------------------------------------------------------------------------------

namespace {

bool isAnswer(const Command &command)
{
    return command.kind == CommandKind::Status || command.kind == CommandKind::Results;
}

/// Commands that leave a large object alone that is on its way.
bool leavesObjectAlone(const Command &command)
{
    return isAnswer(command) || isAlert(command, AlertCode::NextMessage);
}

} // namespace

void SessionCommands::run(const Message &message, qsizetype waitingBytes, Commands &answers)
{
    const bool wasReceiving = m_object.isReceiving();
    m_processor.beginMessage(waitingBytes);
    m_objectWentOn = false;
    // A Status, and for a Get its Results.
    answers.reserve(answers.size() + 2 * message.commands.size());
    for (const Command &command : message.commands) {
        const std::size_t first = answers.size();
        m_reasons.clear();
        runCommand(command, answers);
        limitObjects(answers, first);
        report(message.header.msgId, command, std::span(answers).subspan(first));
    }
    if (wasReceiving && m_object.isReceiving() && !m_objectWentOn)
        abandonObject(answers);
}

void SessionCommands::refuse(const Message &message, const Outcome &outcome, Commands &answers)
{
    for (const Command &command : message.commands) {
        const std::size_t first = answers.size();
        m_reasons.clear();
        CommandProcessor::refuse(command, outcome.status, answers);
        const std::span<const Command> own = std::span(answers).subspan(first);
        for (const Command &answer : own)
            noteReason(answer.cmdRef, QString(), outcome);
        report(message.header.msgId, command, own);
    }
}

void SessionCommands::runCommand(const Command &command, Commands &answers)
{
    const bool hasValues = command.kind == CommandKind::Add || command.kind == CommandKind::Replace;
    const bool hasChunk = std::ranges::any_of(command.items, &Item::moreData);
    const bool concernsObject = hasValues && (hasChunk || m_object.isReceiving());
    if (command.cmdId && concernsObject && !m_processor.isOver()) {
        runItems(command, answers);
        return;
    }
    if (m_object.isReceiving() && !leavesObjectAlone(command))
        abandonObject(answers);
    m_processor.run(command, answers);
}

// ---- Large objects -------------------------------------------------------------------------------

/// Runs a command whose items may be chunks.
void SessionCommands::runItems(const Command &command, Commands &answers)
{
    Command whole = command; // the items that are not chunks, and objects that have become whole
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
        noteReason(command.cmdId, addressOf(item), outcome);
        Command one = command;
        one.items = {std::move(item)};
        CommandProcessor::refuse(one, outcome.status, answers);
    }
    flush(whole, answers);
}

void SessionCommands::flush(Command &items, Commands &answers)
{
    if (items.items.empty())
        return;
    m_processor.run(items, answers);
    items.items.clear();
}

void SessionCommands::abandonObject(Commands &answers)
{
    Command alert = makeAlert(AlertCode::NoEndOfData);
    alert.items = {m_object.abandon()};
    answers.push_back(std::move(alert));
    for (SessionObserver *const observer : m_observers)
        observer->note(QStringLiteral("a large object broke off before its end"));
}

namespace {

/// Where what is too large for the server was found.
struct Addresses {
    std::set<QString> texts;
    std::set<NodeUri> nodes;
};

/// Takes the items that are larger from a Results, and adds their addresses.
void takeTooLarge(Command &results, qsizetype limit, Addresses &addresses)
{
    std::erase_if(results.items, [&](const Item &item) {
        const bool isTooLarge = item.data && item.data->size() > limit;
        if (!isTooLarge)
            return false;
        addresses.texts.insert(item.source->locUri);
        if (const auto address = parseAddress(item.source->locUri, UriLimits()))
            addresses.nodes.insert(address->node);
        return true;
    });
}

/// Whether an item of a Get asked for one of these addresses, or for a listing that has one.
bool asksForOneOf(const QString &target, const Addresses &addresses)
{
    if (addresses.texts.contains(target))
        return true;
    const Result<Address> asked = parseAddress(target, UriLimits());
    if (!asked || asked->query != Address::Query::List)
        return false;
    // Addresses are ordered by their names, so what stands beneath a node comes right after it.
    const auto first = addresses.nodes.lower_bound(asked->node);
    return first != addresses.nodes.end() && asked->node.contains(*first);
}

/// Gives those items of a Status that asked for one of the addresses the status 413: all of them,
/// or those that move into a second Status. @return that one
std::optional<Command> refuseTooLarge(Command &status, const Addresses &addresses)
{
    const QByteArray code = QByteArray::number(static_cast<int>(DmStatus::TooLarge));
    const auto refused =
        std::stable_partition(status.targetRefs.begin(), status.targetRefs.end(),
                              [&](const QString &uri) { return !asksForOneOf(uri, addresses); });
    if (refused == status.targetRefs.end())
        return std::nullopt;
    if (refused == status.targetRefs.begin()) {
        status.data = code;
        return std::nullopt;
    }
    Command second = status;
    second.data = code;
    second.targetRefs.assign(refused, status.targetRefs.end());
    status.targetRefs.erase(refused, status.targetRefs.end());
    return second;
}

} // namespace

/// Answers with 413 what the server does not take, from the first answer of a command on.
void SessionCommands::limitObjects(Commands &answers, std::size_t first) const
{
    if (m_serversLargestObject == 0)
        return;
    const std::span<Command> own = std::span(answers).subspan(first);
    std::map<std::optional<QString>, Addresses> tooLarge; // by CmdRef
    for (Command &answer : own)
        if (answer.kind == CommandKind::Results)
            takeTooLarge(answer, m_serversLargestObject, tooLarge[answer.cmdRef]);

    Commands limited;
    for (Command &answer : own) {
        std::optional<Command> second;
        if (answer.kind == CommandKind::Status && tooLarge.contains(answer.cmdRef))
            second = refuseTooLarge(answer, tooLarge[answer.cmdRef]);
        if (answer.kind != CommandKind::Results || !answer.items.empty())
            limited.push_back(std::move(answer));
        if (second)
            limited.push_back(std::move(*second));
    }
    answers.resize(first);
    std::ranges::move(limited, std::back_inserter(answers));
}

// ---- Alerts --------------------------------------------------------------------------------------

std::optional<std::chrono::seconds> SessionCommands::timeForQuestion() const
{
    if (!m_timeLeft)
        return std::nullopt;
    return std::chrono::ceil<std::chrono::seconds>(m_timeLeft());
}

DmStatus SessionCommands::answerAlert(const Command &alert, std::vector<Item> &items)
{
    static constexpr AlertCode accepted[] = {AlertCode::NextMessage, AlertCode::SessionAbort,
                                             AlertCode::NoEndOfData};
    for (SessionObserver *const observer : m_observers)
        observer->itemBegins(alert, Item());
    Outcome outcome;
    if (!alert.data)
        outcome = {DmStatus::IncompleteCommand, QStringLiteral("an alert without a code")};
    else if (isUserAlert(alert))
        outcome.status = answerUserAlert(alert, m_user, timeForQuestion(), items);
    else if (std::ranges::none_of(accepted, [&](AlertCode code) { return isAlert(alert, code); }))
        outcome = {DmStatus::FeatureNotSupported,
                   QStringLiteral("no alert that a server sends to a client")};
    if (isUserAlert(alert) && !m_user)
        outcome.reason = QStringLiteral("there is no terminal to talk to the user");
    noteReason(alert.cmdId, QString(), outcome);
    for (SessionObserver *const observer : m_observers)
        observer->itemEnded(alert, Item());
    return outcome.status;
}

// ---- Reports -------------------------------------------------------------------------------------

namespace {

using CommandIndex = QHash<QString, const Command *>;

/// Enters the command and those inside it under their ids.
void enter(const Command &command, CommandIndex &index)
{
    if (command.cmdId && !index.contains(*command.cmdId))
        index.insert(*command.cmdId, &command);
    for (const Command &inner : command.commands)
        enter(inner, index);
}

/// Visits what a Status is about: the addresses that it refers to, otherwise those of the whole
/// command; one empty text when there are none.
template <class Visit>
void forEachAnsweredUri(const Command &status, const Command *answered, Visit visit)
{
    bool hasVisited = false;
    const auto visitText = [&](const QString &uri) {
        hasVisited |= !uri.isEmpty();
        if (!uri.isEmpty())
            visit(uri);
    };
    const std::vector<QString> &references =
        status.targetRefs.empty() ? status.sourceRefs : status.targetRefs;
    std::ranges::for_each(references, visitText);
    if (references.empty() && answered)
        for (const Item &item : answered->items)
            visitText(addressOf(item));
    if (!hasVisited)
        visit(QString());
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

void SessionCommands::noteReason(const std::optional<QString> &cmdId, const QString &uri,
                                 const Outcome &outcome)
{
    if (!outcome.reason.isEmpty())
        m_reasons.try_emplace({cmdId.value_or(QString()), uri, outcome.status}, outcome.reason);
}

QString SessionCommands::reasonFor(const QString &cmdId, const QString &uri, DmStatus status) const
{
    if (m_reasons.empty())
        return {};
    auto reason = m_reasons.find({cmdId, uri, status});
    if (reason == m_reasons.end())
        reason = m_reasons.find({cmdId, QString(), status});
    return reason == m_reasons.end() ? QString() : reason->second;
}

namespace {

/// Enters the value of an item, and what is said about it there or for all items.
void addValue(const Command &command, const Item &item, AnsweredCommand &report)
{
    report.value = item.data;
    report.mayBeSecret = mayHoldSecret(command, item);
    for (const auto &meta : {item.meta, command.meta})
        if (meta && meta->format && report.format.isEmpty())
            report.format = *meta->format;
}

/// Enters the value that a command carries to the address, or that it was answered from there.
void addValue(const Command &command, std::span<const Command> answers, AnsweredCommand &report)
{
    const auto isAbout = [&](const Item &item) { return addressOf(item) == report.uri; };
    const auto addFrom = [&](const Command &carrier) {
        const auto item = std::ranges::find_if(carrier.items, isAbout);
        if (item != carrier.items.end())
            addValue(carrier, *item, report);
    };
    if (command.kind == CommandKind::Add || command.kind == CommandKind::Replace)
        addFrom(command);
    if (command.kind != CommandKind::Get || !succeeded(report.status))
        return;
    for (const Command &answer : answers)
        if (answer.kind == CommandKind::Results && answer.cmdRef == command.cmdId)
            addFrom(answer);
}

} // namespace

void SessionCommands::report(const QString &msgId, const Command &command,
                             std::span<const Command> answers)
{
    CommandIndex index;
    if (!command.commands.empty())
        enter(command, index);
    for (const Command &answer : answers) {
        if (answer.kind != CommandKind::Status)
            continue;
        const Command *const answered =
            answer.cmdRef == command.cmdId ? &command : index.value(*answer.cmdRef, nullptr);
        AnsweredCommand report;
        report.status = *parseStatus(*answer.data);
        if (!m_observers.empty()) {
            report.msgId = msgId;
            report.cmdId = *answer.cmdRef;
            report.name = answered ? reportedName(*answered) : *answer.cmd;
        }
        forEachAnsweredUri(answer, answered, [&](const QString &uri) {
            m_answered += !isChallenge(report.status);
            m_refused += isRefusal(report.status) && !isChallenge(report.status);
            if (m_observers.empty())
                return;
            report.uri = uri;
            report.reason = reasonFor(*answer.cmdRef, uri, report.status);
            report.format.clear();
            report.value.reset();
            if (answered)
                addValue(*answered, answers, report);
            for (SessionObserver *const observer : m_observers)
                observer->commandAnswered(report);
        });
    }
}

} // namespace client
