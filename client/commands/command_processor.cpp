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
#include "device_tree.h"
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

Command &addStatus(const Command &command, DmStatus status, std::vector<Command> &answers)
{
    Command &answer = answers.emplace_back();
    answer.kind = CommandKind::Status;
    answer.cmdRef = command.cmdId ? command.cmdId : QString();
    answer.cmd = syncml::commandName(command);
    answer.data = status == DmStatus::Ok ? QByteArrayLiteral("200")
                                         : QByteArray::number(static_cast<int>(status));
    return answer;
}

void addReferences(Command &status, const Item &item)
{
    if (item.target)
        status.targetRefs.push_back(item.target->locUri);
    if (item.source)
        status.sourceRefs.push_back(item.source->locUri);
}

void addItemStatuses(const Command &command, std::span<const DmStatus> statuses,
                     std::vector<Command> &answers)
{
    const bool allAlike =
        std::ranges::adjacent_find(statuses, std::ranges::not_equal_to()) == statuses.end();
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        if (i == 0 || !allAlike)
            addStatus(command, statuses[i], answers);
        addReferences(answers.back(), command.items[i]);
    }
}

bool isAnswer(const Command &command)
{
    return command.kind == CommandKind::Status || command.kind == CommandKind::Results;
}

} // namespace

void CommandProcessor::answer(Parts &parts, std::vector<Command> &answers)
{
    for (Part &part : parts) {
        if (part.statuses.empty())
            addStatus(*part.command, part.status, answers);
        else
            addItemStatuses(*part.command, part.statuses, answers);
        answers.back().items = std::move(part.items);
        if (part.results.empty())
            continue;
        Command &results = answers.emplace_back();
        results.kind = CommandKind::Results;
        results.cmdRef = part.command->cmdId;
        results.items = std::move(part.results);
    }
}

/// Answers the command with one status and those in it with another, without running them.
void CommandProcessor::pass(const Command &command, DmStatus status, DmStatus ofInner, Parts &parts)
{
    if (isAnswer(command))
        return;
    Part &part = parts.emplace_back(Part{&command, status});
    part.statuses.resize(static_cast<qsizetype>(command.items.size()));
    std::ranges::fill(part.statuses, status);
    for (const Command &inner : command.commands)
        pass(inner, ofInner, ofInner, parts);
}

void CommandProcessor::refuse(const Command &command, DmStatus status,
                              std::vector<Command> &answers)
{
    Parts parts;
    pass(command, status, status, parts);
    answer(parts, answers);
}

// ---- Running commands ----------------------------------------------------------------------------

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
    Parts parts = std::exchange(m_spareParts, {});
    runAll({&command, 1}, parts);
    answer(parts, answers);
    parts.clear();
    m_spareParts = std::move(parts);
    // Results have taken their room when they were made.
    for (std::size_t i = first; i < answers.size(); ++i)
        if (answers[i].kind != CommandKind::Results)
            m_room -= answerBytes(answers[i]);
}

bool CommandProcessor::runAll(std::span<const Command> commands, Parts &parts)
{
    bool goesOn = true;
    for (const Command &command : commands) {
        goesOn = goesOn && !isOver();
        if (goesOn)
            goesOn = runCommand(command, parts);
        else
            pass(command, DmStatus::NotExecuted, DmStatus::NotExecuted, parts);
    }
    return goesOn;
}

/// What a command ends with before it is looked at any closer; none for one that can run.
std::optional<Outcome> CommandProcessor::refusalOf(const Command &command) const
{
    if (!command.cmdId)
        return Outcome{DmStatus::BadRequest, QStringLiteral("a command without CmdID")};
    const bool isKeptFromAtomic =
        command.kind == CommandKind::Get || command.kind == CommandKind::Atomic;
    if (m_undoLog && isKeptFromAtomic)
        return Outcome{
            DmStatus::CommandFailed,
            QStringLiteral("an Atomic has no %1 in it").arg(syncml::commandName(command))};
    if (command.kind == CommandKind::Unknown)
        return Outcome{DmStatus::BadRequest, {}};
    if (command.kind == CommandKind::Unsupported)
        return Outcome{DmStatus::FeatureNotSupported, {}};
    return std::nullopt;
}

bool CommandProcessor::runCommand(const Command &command, Parts &parts)
{
    if (isAnswer(command))
        return true;
    const std::size_t place = parts.size();
    bool isDone = false;
    if (const auto refusal = refusalOf(command)) {
        if (m_undoLog)
            report(command, Item(), *refusal);
        pass(command, refusal->status, m_undoLog ? DmStatus::NotExecuted : refusal->status, parts);
    } else if (command.kind == CommandKind::Atomic) {
        runAtomic(command, parts);
    } else {
        markNotes(parts.emplace_back(Part{&command}));
        if (const ItemOperation operation = operationOf(command.kind)) {
            isDone = runItems(operation, parts[place]);
        } else {
            isDone = command.kind == CommandKind::Alert ? runAlert(parts[place])
                                                        : runAll(command.commands, parts);
            markNotes(parts[place]);
        }
    }
    if (m_undoLog)
        return isDone;
    // What follows on an alert was to run when the user has seen the text, and agreed where he was
    // asked. Other commands do not depend on each other.
    return !isUserAlert(command) || parts[place].status == DmStatus::Ok;
}

CommandProcessor::ItemOperation CommandProcessor::operationOf(CommandKind kind)
{
    static constexpr std::pair<CommandKind, ItemOperation> operations[] = {
        {CommandKind::Add, &CommandProcessor::add},
        {CommandKind::Copy, &CommandProcessor::copy},
        {CommandKind::Delete, &CommandProcessor::remove},
        {CommandKind::Exec, &CommandProcessor::execute},
        {CommandKind::Get, &CommandProcessor::get},
        {CommandKind::Replace, &CommandProcessor::replace},
    };
    const auto *const row =
        std::ranges::find(operations, kind, [](const auto &entry) { return entry.first; });
    return row == std::end(operations) ? nullptr : row->second;
}

bool CommandProcessor::runItems(ItemOperation operation, Part &part)
{
    const Command &command = *part.command;
    if (command.items.empty()) {
        part.status = DmStatus::IncompleteCommand;
        return false;
    }
    bool goesOn = true;
    part.statuses.reserve(static_cast<qsizetype>(command.items.size()));
    for (const Item &item : command.items) {
        const bool isRun = !isOver() && (goesOn || !m_undoLog);
        Outcome outcome{DmStatus::NotExecuted, {}};
        if (isRun) {
            begin(command, item);
            outcome = runItem(operation, command, item);
            report(command, item, outcome);
        }
        goesOn = isRun && outcome;
        part.statuses.push_back(outcome.status);
        markNotes(part);
    }
    part.results = std::exchange(m_results, {});
    return goesOn;
}

void CommandProcessor::begin(const Command &command, const Item &item)
{
    if (m_beginListener)
        m_beginListener(command, item);
}

Outcome CommandProcessor::runItem(ItemOperation operation, const Command &command, const Item &item)
{
    CommandWatch *const watch = m_tree.tree().commandWatch();
    if (watch)
        watch->begin(syncml::commandName(command), addressOf(item));
    Outcome outcome = (this->*operation)(command, item);
    if (watch)
        watch->end(outcome);
    return outcome;
}

void CommandProcessor::report(const Command &command, const Item &item, const Outcome &outcome)
{
    if (m_outcomeListener)
        m_outcomeListener(command, item, outcome);
}

namespace {

/// Whether the user refused to go on.
bool isUsersNo(DmStatus status)
{
    return status == DmStatus::NotModified || status == DmStatus::Cancelled;
}

} // namespace

bool CommandProcessor::runAlert(Part &part)
{
    part.status =
        m_alertHandler ? m_alertHandler(*part.command, part.items) : DmStatus::FeatureNotSupported;
    m_isCancelled |= part.status == DmStatus::Cancelled;
    return succeeded(part.status) && !isUsersNo(part.status);
}

// ---- Atomic --------------------------------------------------------------------------------------

void CommandProcessor::runAtomic(const Command &atomic, Parts &parts)
{
    begin(atomic, Item());
    UndoLog undoLog(m_tree.tree());
    m_undoLog = &undoLog;
    Parts tried{{&atomic}};
    Outcome outcome;
    if (!runAll(atomic.commands, tried))
        outcome = {DmStatus::AtomicFailed, QStringLiteral("one of its commands failed")};
    m_undoLog = nullptr;
    if (outcome && !canBeSent(tried))
        outcome = {DmStatus::AtomicResponseTooLarge,
                   QStringLiteral("the server takes no messages as large as an answer in it")};
    if (!outcome) {
        const std::vector<bool> isBack = takeBack(undoLog, atomic, outcome);
        for (Part &part : std::span(tried).subspan(1))
            noteTakenBack(isBack, part);
        tried.front().status = outcome.status;
        if (!canBeSent(tried))
            std::ranges::for_each(tried, shorten);
    }
    report(atomic, Item(), outcome);
    std::ranges::move(tried, std::back_inserter(parts));
}

/// @param outcome  of the Atomic; its reason gets what went wrong on the way back
std::vector<bool> CommandProcessor::takeBack(UndoLog &undoLog, const Command &atomic,
                                             Outcome &outcome)
{
    CommandWatch *const watch = m_tree.tree().commandWatch();
    if (watch)
        watch->begin(syncml::commandName(atomic), {});
    std::vector<bool> isBack = undoLog.rollBack();
    Outcome ofWayBack;
    if (watch)
        watch->end(ofWayBack);
    if (!ofWayBack.reason.isEmpty())
        outcome.reason += QStringLiteral("; taking back: ") + ofWayBack.reason;
    return isBack;
}

/// Leaves one short Status of a command in a failed Atomic.
void CommandProcessor::shorten(Part &part)
{
    part.items.clear();
    // From "not executed" over "rolled back" and what failed to "not rolled back".
    if (!part.statuses.empty())
        part.status = std::ranges::max(part.statuses);
    part.statuses.clear();
}

bool CommandProcessor::canBeSent(const Parts &parts) const
{
    if (!m_atomicAnswerCheck)
        return true;
    std::vector<Command> answers;
    Parts copy = parts;
    answer(copy, answers);
    return m_atomicAnswerCheck(answers);
}

namespace {

/// Whether the command did what it was to do, before an Atomic failed.
bool wasDone(DmStatus status)
{
    return succeeded(status) && status != DmStatus::NotExecuted && !isUsersNo(status);
}

} // namespace

/// Gives what had succeeded the status of what became of it.
void CommandProcessor::noteTakenBack(const std::vector<bool> &isBack, Part &part)
{
    for (std::size_t i = 0; i + 1 < part.notes.size(); ++i) {
        const bool isOfItem = !part.statuses.empty();
        DmStatus &status = isOfItem ? part.statuses[static_cast<qsizetype>(i)] : part.status;
        if (!wasDone(status))
            continue;
        const auto first = isBack.begin() + static_cast<std::ptrdiff_t>(part.notes[i]);
        const auto last = isBack.begin() + static_cast<std::ptrdiff_t>(part.notes[i + 1]);
        const bool isWhole = std::find(first, last, false) == last;
        const Outcome outcome =
            isWhole ? Outcome{DmStatus::RolledBack, QStringLiteral("taken back")}
                    : Outcome{DmStatus::RollBackFailed,
                              QStringLiteral("taken back, but not everything is as it was")};
        report(*part.command, isOfItem ? part.command->items[i] : Item(), outcome);
        status = outcome.status;
    }
}

void CommandProcessor::markNotes(Part &part) const
{
    if (m_undoLog)
        part.notes.push_back(m_undoLog->size());
}

void CommandProcessor::noteForUndo(const NodeUri &node, const std::optional<NodeUri> &renamedTo)
{
    if (m_undoLog)
        m_undoLog->note(node, renamedTo);
}

// ---- Items ---------------------------------------------------------------------------------------

namespace {

const Outcome noAddress{DmStatus::IncompleteCommand, QStringLiteral("an item without an address")};

const Outcome treeWithoutData{DmStatus::IncompleteCommand,
                              QStringLiteral("a serialised tree without Data")};

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
    const TreeView::NewValue value = newValue(command, item);
    if (m_inbox && *uri == nodeAt(inboxAddress))
        return addToInbox(value);
    if (syncml::isSerialisedTree(value.type))
        return changeTree(&TndsChange::add, *uri, value);
    noteForUndo(*uri);
    return m_tree.add(*uri, value);
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
        const TreeView::NewValue value = newValue(command, item);
        if (syncml::isSerialisedTree(value.type))
            return changeTree(&TndsChange::replace, address->node, value);
        noteForUndo(address->node);
        return m_tree.replace(address->node, value);
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
    if (*property == Property::Name && !address->node.isRoot()) {
        // Nothing is called what cannot be the name of a node.
        const bool isName = bool(checkNewName(value, m_tree.uriLimits()));
        noteForUndo(address->node,
                    isName ? std::optional(address->node.parent().child(value)) : std::nullopt);
    }
    return m_tree.replaceProperty(address->node, *property, value);
}

namespace {

/// Takes everything back. @return whether it is as it was
bool isTakenBack(UndoLog &undoLog)
{
    const std::vector<bool> isBack = undoLog.rollBack();
    return std::ranges::find(isBack, false) == isBack.end();
}

} // namespace

Outcome CommandProcessor::changeTree(TreeOperation operation, const NodeUri &target,
                                     const TreeView::NewValue &value)
{
    if (!value.data)
        return treeWithoutData;
    const Result<std::vector<TndsNode>> nodes = readTnds(*value.data);
    if (!nodes)
        return nodes.outcome();
    std::optional<UndoLog> ownLog;
    if (!m_undoLog)
        ownLog.emplace(m_tree.tree());
    UndoLog &undoLog = ownLog ? *ownLog : *m_undoLog;
    Result<TndsChange> change = TndsChange::plan(m_tree, target, *nodes);
    if (!change)
        return change.outcome();
    Outcome outcome = ((*change).*operation)(undoLog);
    // An Atomic takes back everything at once.
    if (!outcome && ownLog && !isTakenBack(*ownLog))
        outcome.reason += QStringLiteral("; taken back, but not everything is as it was");
    return outcome;
}

Outcome CommandProcessor::addToInbox(const TreeView::NewValue &value)
{
    if (m_undoLog)
        return notAllowed(nodeAt(inboxAddress),
                          "takes nothing in an Atomic, which may be taken back");
    if (!syncml::isSerialisedTree(value.type))
        return unsupportedFormat(QStringLiteral("the Inbox takes serialised trees only"));
    if (!value.data)
        return treeWithoutData;
    const Result<std::vector<TndsNode>> nodes = readTnds(*value.data);
    return nodes ? m_inbox(*nodes) : nodes.outcome();
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

Outcome CommandProcessor::execute(const Command &command, const Item &item)
{
    const Result<NodeUri> uri = wholeNode(item.target);
    if (!uri)
        return uri.outcome();
    if (!m_undoLog) {
        const QByteArray argument = item.data.value_or(QByteArray());
        const Outcome may = m_lateExec ? m_tree.mayExecute(*uri) : Outcome();
        if (!may)
            return may;
        const auto late = m_lateExec ? m_lateExec(command, *uri, argument) : std::nullopt;
        return late ? *late : m_tree.execute(*uri, argument);
    }
    const Result<TreeNode> node = m_tree.find(*uri);
    return node ? notAllowed(*uri, "cannot be executed in an Atomic, which may be taken back")
                : node.outcome();
}

// ---- Get -----------------------------------------------------------------------------------------

namespace {

/// What a Results says about a node; nothing when both have their default.
support::Boxed<Meta> describeNode(signed char valueType, const QString &type)
{
    const bool hasUsualFormat = valueType == DmtData::String;
    const bool hasUsualType =
        type.isEmpty() ||
        (type == QLatin1String(syncml::media_type::plainText) && valueType != DmtData::Node);
    support::Boxed<Meta> meta;
    if (hasUsualFormat && hasUsualType)
        return meta;
    meta.emplace();
    if (!hasUsualFormat)
        meta->format = valueType == DmtData::Bin ? QStringLiteral("b64") : formatName(valueType);
    if (!hasUsualType)
        meta->type = type;
    return meta;
}

Item resultItem(const QString &uri, support::Boxed<Meta> meta, std::optional<QByteArray> data)
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

Outcome CommandProcessor::queue(std::span<Item> items)
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

Outcome CommandProcessor::queue(Item item)
{
    return queue(std::span(&item, 1));
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
        return queue(resultItem(
            uri, describeNode(DmtData::Node, QLatin1String(syncml::media_type::plainText)),
            childList(m_tree.children(node))));
    }
    const Result<DmtData> value = m_tree.value(node);
    if (!value)
        return value.outcome();
    return queue(
        resultItem(uri, describeNode(node.valueType(), m_tree.type(node)), valueText(*value)));
}

Outcome CommandProcessor::getProperty(const TreeNode &node, const QString &name, const QString &uri)
{
    const auto property = propertyNamed(name);
    if (!property)
        return {DmStatus::FeatureNotSupported, QStringLiteral("no property %1").arg(name)};
    const Result<QByteArray> value = m_tree.property(node, *property);
    if (!value)
        return value.outcome();
    return queue(resultItem(uri, std::nullopt, *value));
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
    return queue(items);
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
    return document ? queue(resultItem(uri, meta, *document)) : answersTooLarge();
}

} // namespace client
