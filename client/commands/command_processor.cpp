// One command of a message at a time, and what answers it.
//
// A command has items; each is done on its own and has its own outcome, and outcomes that are alike
// share a Status. Get adds its Results after the Status. Sequence and Atomic hold commands, which
// are answered after their own Status.
//
// An Atomic is tried: an undo log notes what each item has replaced, and the first failure takes
// everything back in the reverse order. The Atomic is 507 then, what was taken back 216 (516 where
// that failed in turn), and what was not reached 215. Answers that would not fit into any message
// of the server (517) and the end of the session's time do the same.
//
// Answers wait in memory until they are sent, so they are limited: a result for which there is no
// room is answered 413, and is not read from the tree to its end.

#include "command_processor.h"

#include "alerts.h"
#include "answer_size.h"
#include "media_type.h"
#include "tnds.h"

#include <QByteArrayList>
#include <algorithm>
#include <iterator>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;
using syncml::Location;
using syncml::Meta;

// ---- Statuses ------------------------------------------------------------------------------------

namespace {

Command statusFor(const Command &command, DmStatus status)
{
    Command answer;
    answer.kind = CommandKind::Status;
    answer.cmdRef = command.cmdId.value_or(QString());
    answer.cmd = syncml::commandName(command);
    answer.data = QByteArray::number(static_cast<int>(status));
    return answer;
}

void addReferences(Command &status, const Item &item)
{
    if (item.target)
        status.targetRefs.push_back(item.target->locUri);
    if (item.source)
        status.sourceRefs.push_back(item.source->locUri);
}

void addItemStatuses(const Command &command, const std::vector<DmStatus> &statuses,
                     std::vector<Command> &answers)
{
    const bool allAlike = std::adjacent_find(statuses.begin(), statuses.end(),
                                             std::not_equal_to<>()) == statuses.end();
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        if (i == 0 || !allAlike)
            answers.push_back(statusFor(command, statuses[i]));
        addReferences(answers.back(), command.items[i]);
    }
}

} // namespace

void CommandProcessor::refuse(const Command &command, DmStatus status,
                              std::vector<Command> &answers)
{
    if (command.kind == CommandKind::Status || command.kind == CommandKind::Results)
        return;
    answers.push_back(statusFor(command, status));
    for (const Item &item : command.items)
        addReferences(answers.back(), item);
    for (const Command &inner : command.commands)
        refuse(inner, status, answers);
}

// ---- Running one command -------------------------------------------------------------------------

const CommandProcessor::ItemCommand CommandProcessor::itemCommands[] = {
    {CommandKind::Add, &CommandProcessor::add},
    {CommandKind::Copy, &CommandProcessor::copy},
    {CommandKind::Delete, &CommandProcessor::remove},
    {CommandKind::Exec, &CommandProcessor::execute},
    {CommandKind::Get, &CommandProcessor::get},
    {CommandKind::Replace, &CommandProcessor::replace},
};

const CommandProcessor::ItemCommand *CommandProcessor::itemCommandOf(const Command &command)
{
    const auto *const row =
        std::find_if(std::begin(itemCommands), std::end(itemCommands),
                     [&command](const ItemCommand &entry) { return entry.kind == command.kind; });
    return row == std::end(itemCommands) ? nullptr : row;
}

CommandProcessor::CommandProcessor(ManagementTree &tree, const Principal &principal)
    : m_tree(tree, principal)
{
    beginMessage(0);
}

void CommandProcessor::beginMessage(qsizetype waitingBytes)
{
    m_room = mostAnswerBytes - waitingBytes;
    m_listingRoom = 2 * mostAnswerBytes;
    m_isCancelled = false;
}

void CommandProcessor::run(const Command &command, std::vector<Command> &answers)
{
    const std::size_t first = answers.size();
    if (isOver())
        refuse(command, DmStatus::NotExecuted, answers);
    else
        runCommand(command, answers);
    // Results have taken their room when they were made.
    for (std::size_t i = first; i < answers.size(); ++i)
        if (answers[i].kind != CommandKind::Results)
            m_room -= answerBytes(answers[i]);
}

void CommandProcessor::runCommand(const Command &command, std::vector<Command> &answers)
{
    if (!command.cmdId) {
        refuse(command, DmStatus::BadRequest, answers);
        return;
    }
    if (const ItemCommand *const row = itemCommandOf(command)) {
        runItems(command, row->run, answers);
        return;
    }
    switch (command.kind) {
    case CommandKind::Alert:
        runAlert(command, answers);
        break;
    case CommandKind::Sequence:
        runSequence(command, answers);
        break;
    case CommandKind::Atomic:
        runAtomic(command, answers);
        break;
    case CommandKind::Unknown:
        refuse(command, DmStatus::BadRequest, answers);
        break;
    default:
        refuse(command, DmStatus::FeatureNotSupported, answers);
        break;
    }
}

void CommandProcessor::runItems(const Command &command, ItemOperation operation,
                                std::vector<Command> &answers)
{
    if (command.items.empty()) {
        answers.push_back(statusFor(command, DmStatus::IncompleteCommand));
        return;
    }
    m_results.clear();
    std::vector<DmStatus> statuses;
    for (const Item &item : command.items)
        statuses.push_back(isOver() ? DmStatus::NotExecuted
                                    : runItem(command, operation, item).status);
    addItemStatuses(command, statuses, answers);
    if (m_results.empty())
        return;
    Command results;
    results.kind = CommandKind::Results;
    results.cmdRef = command.cmdId;
    results.items = std::move(m_results);
    m_results.clear();
    answers.push_back(std::move(results));
}

Outcome CommandProcessor::runItem(const Command &command, ItemOperation operation, const Item &item)
{
    const Outcome outcome = (this->*operation)(command, item);
    report(command, item, outcome);
    return outcome;
}

void CommandProcessor::report(const Command &command, const Item &item, const Outcome &outcome)
{
    if (m_outcomeListener)
        m_outcomeListener(command, item, outcome);
}

DmStatus CommandProcessor::runAlert(const Command &alert, std::vector<Command> &answers)
{
    if (!alert.cmdId) {
        refuse(alert, DmStatus::BadRequest, answers);
        return DmStatus::BadRequest;
    }
    std::vector<Item> items;
    const DmStatus status =
        m_alertHandler ? m_alertHandler(alert, items) : DmStatus::FeatureNotSupported;
    m_isCancelled |= status == DmStatus::Cancelled;
    answers.push_back(statusFor(alert, status));
    answers.back().items = std::move(items);
    return status;
}

namespace {

/// Whether what follows on the alert must not run: it was to run when the user has seen the text,
/// and agreed where he was asked.
bool stopsSequence(const Command &alert, DmStatus status)
{
    return isUserAlert(alert) && status != DmStatus::Ok;
}

/// Whether the user refused to go on.
bool isUsersNo(DmStatus status)
{
    return status == DmStatus::NotModified || status == DmStatus::Cancelled;
}

} // namespace

void CommandProcessor::runSequence(const Command &command, std::vector<Command> &answers)
{
    answers.push_back(statusFor(command, DmStatus::Ok));
    bool isStopped = false;
    for (const Command &inner : command.commands) {
        if (isStopped || isOver())
            refuse(inner, DmStatus::NotExecuted, answers);
        else if (inner.kind == CommandKind::Alert)
            isStopped = stopsSequence(inner, runAlert(inner, answers));
        else
            runCommand(inner, answers);
    }
}

// ---- Atomic --------------------------------------------------------------------------------------

void CommandProcessor::runAtomic(const Command &atomic, std::vector<Command> &answers)
{
    UndoLog undoLog(m_tree.tree());
    m_undoLog = &undoLog;
    AtomicParts parts;
    Outcome outcome;
    if (!runParts(atomic.commands, parts))
        outcome = {DmStatus::AtomicFailed, QStringLiteral("one of its commands failed")};
    m_undoLog = nullptr;
    if (outcome && !canBeSent(atomicAnswers(atomic, outcome.status, parts)))
        outcome = {DmStatus::AtomicResponseTooLarge,
                   QStringLiteral("the server takes no messages as large as an answer in it")};
    if (!outcome) {
        const std::vector<bool> isBack = undoLog.rollBack();
        for (AtomicPart &part : parts)
            noteTakenBack(isBack, part);
        if (!canBeSent(atomicAnswers(atomic, outcome.status, parts)))
            shorten(parts);
    }
    report(atomic, Item(), outcome);
    std::ranges::move(atomicAnswers(atomic, outcome.status, parts), std::back_inserter(answers));
}

std::vector<Command> CommandProcessor::atomicAnswers(const Command &atomic, DmStatus status,
                                                     const AtomicParts &parts)
{
    std::vector<Command> answers = {statusFor(atomic, status)};
    for (const AtomicPart &part : parts) {
        if (part.statuses.empty())
            answers.push_back(statusFor(*part.command, part.status));
        else
            addItemStatuses(*part.command, part.statuses, answers);
        answers.back().items = part.items;
    }
    return answers;
}

/// Leaves one short Status of each command of a failed Atomic.
void CommandProcessor::shorten(AtomicParts &parts)
{
    for (AtomicPart &part : parts) {
        part.items.clear();
        if (part.statuses.empty())
            continue;
        // From "not executed" over "rolled back" and what failed to "not rolled back".
        part.status = std::ranges::max(part.statuses);
        part.statuses.clear();
    }
}

bool CommandProcessor::canBeSent(const std::vector<Command> &answers) const
{
    return !m_atomicAnswerCheck || m_atomicAnswerCheck(answers);
}

CommandProcessor::AtomicPart CommandProcessor::startPart(const Command &command) const
{
    return {&command, DmStatus::Ok, {}, {}, m_undoLog->size(), m_undoLog->size(), {}};
}

bool CommandProcessor::runParts(const std::vector<Command> &commands, AtomicParts &parts)
{
    bool goesOn = true;
    for (const Command &command : commands) {
        goesOn = goesOn && !isOver();
        if (goesOn)
            goesOn = runPart(command, parts);
        else
            skipPart(command, parts);
    }
    return goesOn;
}

void CommandProcessor::skipPart(const Command &command, AtomicParts &parts)
{
    if (command.kind == CommandKind::Status || command.kind == CommandKind::Results)
        return;
    AtomicPart part = startPart(command);
    part.status = DmStatus::NotExecuted;
    part.statuses.assign(command.items.size(), DmStatus::NotExecuted);
    parts.push_back(std::move(part));
    for (const Command &inner : command.commands)
        skipPart(inner, parts);
}

namespace {

/// What a command in an Atomic ends with before it is looked at any closer; none for one that can
/// run.
std::optional<Outcome> refusalInAtomic(const Command &command)
{
    if (!command.cmdId)
        return Outcome{DmStatus::BadRequest, QStringLiteral("a command without CmdID")};
    switch (command.kind) {
    case CommandKind::Get:
    case CommandKind::Atomic:
        return Outcome{
            DmStatus::CommandFailed,
            QStringLiteral("an Atomic has no %1 in it").arg(syncml::commandName(command))};
    case CommandKind::Unknown:
        return Outcome{DmStatus::BadRequest, {}};
    case CommandKind::Unsupported:
        return Outcome{DmStatus::FeatureNotSupported, {}};
    default:
        return std::nullopt;
    }
}

} // namespace

bool CommandProcessor::runPart(const Command &command, AtomicParts &parts)
{
    if (command.kind == CommandKind::Status || command.kind == CommandKind::Results)
        return true;
    AtomicPart part = startPart(command);
    if (const auto refusal = refusalInAtomic(command)) {
        report(command, Item(), *refusal);
        part.status = refusal->status;
        part.statuses.assign(command.items.size(), refusal->status);
        parts.push_back(std::move(part));
        for (const Command &inner : command.commands)
            skipPart(inner, parts);
        return false;
    }
    bool goesOn = true;
    if (const ItemCommand *const row = itemCommandOf(command)) {
        goesOn = runPartOfItems(*row, part);
        parts.push_back(std::move(part));
    } else if (command.kind == CommandKind::Alert) {
        part.status =
            m_alertHandler ? m_alertHandler(command, part.items) : DmStatus::FeatureNotSupported;
        m_isCancelled |= part.status == DmStatus::Cancelled;
        goesOn = succeeded(part.status) && !isUsersNo(part.status);
        parts.push_back(std::move(part));
    } else {
        const std::size_t sequence = parts.size();
        parts.push_back(std::move(part));
        goesOn = runParts(command.commands, parts);
        parts[sequence].endOfNotes = m_undoLog->size();
    }
    return goesOn;
}

bool CommandProcessor::runPartOfItems(const ItemCommand &operation, AtomicPart &part)
{
    const Command &command = *part.command;
    if (command.items.empty()) {
        part.status = DmStatus::IncompleteCommand;
        return false;
    }
    bool goesOn = true;
    for (const Item &item : command.items) {
        goesOn = goesOn && !isOver();
        const DmStatus status =
            goesOn ? runItem(command, operation.run, item).status : DmStatus::NotExecuted;
        goesOn = goesOn && succeeded(status);
        part.statuses.push_back(status);
        part.endOfItemNotes.push_back(m_undoLog->size());
    }
    part.endOfNotes = m_undoLog->size();
    return goesOn;
}

namespace {

/// Whether the command did what it was to do, before an Atomic failed.
bool wasDone(DmStatus status)
{
    return succeeded(status) && status != DmStatus::NotExecuted && !isUsersNo(status);
}

} // namespace

/// Gives what had succeeded the status of what became of it.
void CommandProcessor::noteTakenBack(const std::vector<bool> &isBack, AtomicPart &part)
{
    const auto takenBack = [&](std::size_t begin, std::size_t end, const Item &item) {
        const auto first = isBack.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = isBack.begin() + static_cast<std::ptrdiff_t>(end);
        const bool isWhole = std::all_of(first, last, [](bool back) { return back; });
        const Outcome outcome =
            isWhole ? Outcome{DmStatus::RolledBack, QStringLiteral("taken back")}
                    : Outcome{DmStatus::RollBackFailed,
                              QStringLiteral("taken back, but not everything is as it was")};
        report(*part.command, item, outcome);
        return outcome.status;
    };
    if (part.statuses.empty()) {
        if (wasDone(part.status))
            part.status = takenBack(part.firstNote, part.endOfNotes, Item());
        return;
    }
    std::size_t begin = part.firstNote;
    for (std::size_t i = 0; i < part.endOfItemNotes.size(); ++i) {
        const std::size_t end = part.endOfItemNotes[i];
        if (wasDone(part.statuses[i]))
            part.statuses[i] = takenBack(begin, end, part.command->items[i]);
        begin = end;
    }
}

void CommandProcessor::noteForUndo(const NodeUri &node, const std::optional<NodeUri> &renamedTo)
{
    if (m_undoLog)
        m_undoLog->note(node, renamedTo);
}

// ---- Items ---------------------------------------------------------------------------------------

namespace {

const Outcome noAddress{DmStatus::IncompleteCommand, QStringLiteral("an item without an address")};

/// What the item says about its value; what it leaves out, the command says for all items.
TreeView::NewValue newValue(const Command &command, const Item &item)
{
    const auto either = [&](std::optional<QString> Meta::*member) {
        if (item.meta && (*item.meta).*member)
            return *((*item.meta).*member);
        return command.meta ? ((*command.meta).*member).value_or(QString()) : QString();
    };
    return {either(&Meta::format), either(&Meta::type), item.data};
}

/// A session puts large objects together before they get here. What is left are chunks inside a
/// Sequence or an Atomic, which has to fit into one message, and in a package without a session.
const Outcome chunkRefused{DmStatus::FeatureNotSupported,
                           QStringLiteral("a large object cannot come in pieces here")};

} // namespace

Result<NodeUri> CommandProcessor::wholeNode(const std::optional<Location> &location) const
{
    if (!location)
        return noAddress;
    const Result<Address> address = parseAddress(location->locUri, m_tree.uriLimits());
    if (!address)
        return address.outcome();
    if (address->query == Address::Query::None)
        return address->node;
    if (const Result<TreeNode> node = m_tree.find(address->node); !node)
        return node.outcome();
    return Outcome{DmStatus::NotAllowed,
                   QStringLiteral("the command works on nodes, not on ?%1").arg(address->argument)};
}

Outcome CommandProcessor::add(const Command &command, const Item &item)
{
    const Result<NodeUri> uri = wholeNode(item.target);
    if (!uri)
        return uri.outcome();
    if (item.moreData)
        return chunkRefused;
    noteForUndo(*uri);
    return m_tree.add(*uri, newValue(command, item));
}

Outcome CommandProcessor::replace(const Command &command, const Item &item)
{
    if (!item.target)
        return noAddress;
    const Result<Address> address = parseAddress(item.target->locUri, m_tree.uriLimits());
    if (!address)
        return address.outcome();
    if (item.moreData)
        return chunkRefused;
    if (address->query == Address::Query::None) {
        noteForUndo(address->node);
        return m_tree.replace(address->node, newValue(command, item));
    }
    if (const Result<TreeNode> node = m_tree.find(address->node); !node)
        return node.outcome();
    const auto property = address->query == Address::Query::Property
                              ? propertyNamed(address->argument)
                              : std::nullopt;
    if (!property)
        return {DmStatus::FeatureNotSupported,
                QStringLiteral("no property %1").arg(address->argument)};
    const QByteArray value = item.data.value_or(QByteArray());
    if (*property == Property::Name && !address->node.isRoot())
        noteForUndo(address->node, address->node.parent().child(value));
    return m_tree.replaceProperty(address->node, *property, value);
}

Outcome CommandProcessor::remove(const Command &, const Item &item)
{
    const Result<NodeUri> uri = wholeNode(item.target);
    if (!uri)
        return uri.outcome();
    noteForUndo(*uri);
    return m_tree.remove(*uri);
}

Outcome CommandProcessor::copy(const Command &, const Item &item)
{
    const Result<NodeUri> source = wholeNode(item.source);
    if (!source)
        return source.outcome();
    const Result<NodeUri> target = wholeNode(item.target);
    if (!target)
        return target.outcome();
    noteForUndo(*target);
    return m_tree.copy(*source, *target);
}

Outcome CommandProcessor::execute(const Command &, const Item &item)
{
    const Result<NodeUri> uri = wholeNode(item.target);
    return uri ? m_tree.execute(*uri) : uri.outcome();
}

// ---- Get -----------------------------------------------------------------------------------------

namespace {

/// What a Results says about a node; nothing when both have their default.
std::optional<Meta> describeNode(signed char valueType, const QString &type)
{
    Meta meta;
    if (valueType == DmtData::Bin)
        meta.format = QStringLiteral("b64");
    else if (valueType != DmtData::String)
        meta.format = formatName(valueType);
    if (!type.isEmpty() &&
        (type != QLatin1String(syncml::media_type::plainText) || valueType == DmtData::Node))
        meta.type = type;
    return meta == Meta() ? std::nullopt : std::optional(meta);
}

Item resultItem(const QString &uri, std::optional<Meta> meta, std::optional<QByteArray> data)
{
    Item item;
    item.source = Location{uri, std::nullopt};
    item.meta = std::move(meta);
    item.data = std::move(data);
    return item;
}

Outcome answersTooLarge()
{
    return {DmStatus::TooLarge,
            QStringLiteral("more than %1 bytes of answers at once").arg(mostAnswerBytes)};
}

QByteArray childList(const std::vector<TreeNode> &children)
{
    QByteArrayList names;
    for (const TreeNode &child : children)
        names.push_back(escapeName(child.uri().name()));
    return names.join('/');
}

} // namespace

Outcome CommandProcessor::get(const Command &, const Item &item)
{
    if (!item.target)
        return noAddress;
    const QString &uri = item.target->locUri;
    const Result<Address> address = parseAddress(uri, m_tree.uriLimits());
    if (!address)
        return address.outcome();
    const Result<TreeNode> node = m_tree.findToRead(address->node);
    if (!node)
        return node.outcome();
    switch (address->query) {
    case Address::Query::None:
        return getValue(*node, uri);
    case Address::Query::Property:
        return getProperty(*node, address->argument, uri);
    case Address::Query::List:
        return getListing(*node, address->argument, uri);
    case Address::Query::Unknown:
        break;
    }
    return {DmStatus::FeatureNotSupported,
            QStringLiteral("unknown query ?%1").arg(address->argument)};
}

Outcome CommandProcessor::queue(std::vector<Item> items)
{
    qsizetype bytes = 0;
    for (const Item &item : items)
        bytes += answerBytes(item);
    if (bytes > m_room)
        return answersTooLarge();
    m_room -= bytes;
    std::ranges::move(items, std::back_inserter(m_results));
    return {};
}

std::optional<std::vector<ListedNode>> CommandProcessor::list(const TreeNode &node,
                                                              TreeView::Values values)
{
    const qsizetype most = std::min(m_room, m_listingRoom);
    qsizetype left = most;
    auto listing = m_tree.list(node, values, left);
    m_listingRoom -= most - left;
    return listing;
}

Outcome CommandProcessor::getValue(const TreeNode &node, const QString &uri)
{
    if (!node.isLeaf()) {
        if (const Outcome right = m_tree.mayGet(node); !right)
            return right;
        return queue({resultItem(
            uri, describeNode(DmtData::Node, QLatin1String(syncml::media_type::plainText)),
            childList(m_tree.children(node)))});
    }
    const Result<DmtData> value = m_tree.value(node);
    if (!value)
        return value.outcome();
    return queue(
        {resultItem(uri, describeNode(node.valueType(), m_tree.type(node)), valueText(*value))});
}

Outcome CommandProcessor::getProperty(const TreeNode &node, const QString &name, const QString &uri)
{
    const auto property = propertyNamed(name);
    if (!property)
        return {DmStatus::FeatureNotSupported, QStringLiteral("no property %1").arg(name)};
    const Result<QByteArray> value = m_tree.property(node, *property);
    if (!value)
        return value.outcome();
    return queue({resultItem(uri, std::nullopt, *value)});
}

Outcome CommandProcessor::getListing(const TreeNode &node, const QString &kind, const QString &uri)
{
    const bool withValues = kind == QStringLiteral("StructData");
    if (!withValues && kind != QStringLiteral("Struct"))
        return getSerialised(node, kind, uri);
    if (const Outcome right = m_tree.mayGet(node); !right)
        return right;
    const auto values = withValues ? TreeView::Values::Read : TreeView::Values::Omit;
    const auto listing = list(node, values);
    if (!listing)
        return answersTooLarge();
    std::vector<Item> items;
    for (const ListedNode &listed : *listing) {
        // A leaf that cannot be read is listed without data.
        std::optional<QByteArray> data;
        if (listed.value && *listed.value)
            data = valueText(**listed.value);
        items.push_back(resultItem(QString::fromLatin1(listed.node.uri().toUri()),
                                   describeNode(listed.node.valueType(), m_tree.type(listed.node)),
                                   data));
    }
    return queue(std::move(items));
}

Outcome CommandProcessor::getSerialised(const TreeNode &node, const QString &request,
                                        const QString &uri)
{
    const auto content = parseTndsRequest(request);
    if (!content)
        return {DmStatus::FeatureNotSupported, content.error()};
    if (const Outcome right = m_tree.mayGet(node); !right)
        return right;
    const auto values = content->hasValues ? TreeView::Values::Read : TreeView::Values::Omit;
    Meta meta;
    meta.format = QStringLiteral("xml");
    meta.type = QString::fromLatin1(syncml::media_type::serialisedTree);
    const auto listing = list(node, values);
    const auto document = listing ? tndsDocument(m_tree, *listing, *content, m_room) : std::nullopt;
    return document ? queue({resultItem(uri, meta, *document)}) : answersTooLarge();
}

} // namespace client
