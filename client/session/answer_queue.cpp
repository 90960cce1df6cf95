#include "answer_queue.h"

#include "answer_size.h"
#include "command_id.h"
#include "foreign_text.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace client {

using namespace syncml;

// ---- Room in a message ---------------------------------------------------------------------------

namespace {

Command smallestCommand()
{
    Command command;
    command.kind = CommandKind::Alert;
    command.cmdId = QStringLiteral("1");
    command.data = QByteArrayLiteral("1");
    return command;
}

// Ids are numbered when a command has found its place, so its size is taken with one that is as
// long as any.
const auto longestId = QStringLiteral("99999");

} // namespace

/// Watches how much of the limit a message has left.
class AnswerQueue::Room {
public:
    Room(Message &message, Encoding encoding, qsizetype limit)
        : m_message(message), m_encoding(encoding), m_limit(limit)
    {
        m_message.commands.clear();
        if (!isLimited())
            return;
        Message nearlyEmpty = m_message;
        nearlyEmpty.final = true;
        nearlyEmpty.commands = {smallestCommand()};
        const syncml::EncodeResult encoded = syncml::encode(nearlyEmpty, m_encoding);
        m_headerBytes = (encoded ? encoded->size() : 0) - cost(nearlyEmpty.commands.front());
        m_usedBytes = m_headerBytes;
    }

    /// Bytes that a command takes in the message, whose CmdID may change by that; 0 where they do
    /// not matter, and for one that cannot be encoded, so that it is not held back and whoever
    /// encodes it hears of the fault.
    qsizetype cost(Command &command) const
    {
        if (!isLimited())
            return 0;
        command.cmdId = longestId;
        const auto bytes = syncml::sizeInMessage(command, m_encoding);
        if (!bytes)
            return 0;
        return m_encoding == Encoding::Wbxml ? *bytes + pageSwitch : *bytes;
    }

    /// Bytes that the items and references of a command add to one that has some already.
    qsizetype costOfPieces(const Command &pieces) const
    {
        qsizetype bytes = 0;
        const auto add = [&](const auto &size) {
            if (size)
                bytes += m_encoding == Encoding::Wbxml ? *size + pageSwitch : *size;
        };
        for (const Item &item : pieces.items)
            add(syncml::sizeInMessage(item, m_encoding));
        for (const auto *const references : {&pieces.targetRefs, &pieces.sourceRefs})
            for (const QString &uri : *references)
                add(syncml::referenceSizeInMessage(uri, m_encoding));
        return bytes;
    }

    bool isLimited() const { return m_limit > 0; }
    qsizetype leftBytes() const
    {
        return isLimited() ? m_limit - m_usedBytes : std::numeric_limits<qsizetype>::max();
    }
    bool fits(qsizetype bytes) const { return bytes <= leftBytes(); }
    /// Whether a command of that size fits into a message that has nothing but a status of the
    /// header like this one's in front of it.
    bool wouldFitIntoNextMessage(qsizetype bytes) const
    {
        return m_headerBytes + m_firstBytes + bytes <= m_limit;
    }

    void add(Command &&command, qsizetype bytes)
    {
        if (m_message.commands.empty())
            m_firstBytes = bytes;
        command.cmdId = commandId(m_message.commands.size() + 1);
        m_message.commands.push_back(std::move(command));
        m_usedBytes += bytes;
    }

    std::size_t taken() const { return m_message.commands.size(); }
    Encoding encoding() const { return m_encoding; }

private:
    /// A code page of WBXML may have to be switched back in front of what comes next.
    static constexpr qsizetype pageSwitch = 2;

    Message &m_message;
    Encoding m_encoding;
    qsizetype m_limit;
    qsizetype m_headerBytes = 0;
    qsizetype m_usedBytes = 0;
    qsizetype m_firstBytes = 0; ///< of the first command that was added
};

void AnswerQueue::Line::append(std::vector<Command> &&commands)
{
    if (empty()) {
        m_commands = std::move(commands);
        m_taken = 0;
    } else {
        std::ranges::move(commands, std::back_inserter(m_commands));
    }
}

std::vector<Command> AnswerQueue::Line::takeAll()
{
    m_commands.erase(m_commands.begin(), begin());
    return std::move(std::exchange(*this, Line()).m_commands);
}

qsizetype AnswerQueue::bytes() const
{
    qsizetype bytes = 0;
    for (const auto *const commands : {&m_leading, &m_commands})
        for (const Command &command : *commands)
            bytes += answerBytes(command);
    return bytes + (m_started ? answerBytes(m_started->results) : 0) +
           (m_split ? m_split->bytes() : 0);
}

// ---- Filling a message ---------------------------------------------------------------------------

namespace {

/// What a message that goes on with the answers has after the status of the header.
Command statusOfRequestForMore(const std::optional<QString> &msgRef)
{
    Command status;
    status.kind = CommandKind::Status;
    status.msgRef = msgRef;
    status.cmdRef = longestId;
    status.cmd = QStringLiteral("Alert");
    status.data = QByteArrayLiteral("200");
    return status;
}

} // namespace

bool AnswerQueue::canSend(const std::vector<Command> &answers, Message message, Encoding encoding,
                          qsizetype limit) const
{
    if (limit == 0)
        return true;
    AnswerQueue trial;
    trial.push(std::vector(answers));
    for (;;) {
        trial.m_leading = m_leading;
        trial.lead(
            statusOfRequestForMore(m_leading.empty() ? std::nullopt : m_leading.front().msgRef));
        const Filled filled = trial.fill(message, encoding, limit);
        if (filled != Filled::Part)
            return filled == Filled::Everything;
    }
}

AnswerQueue::Filled AnswerQueue::fill(Message &message, Encoding encoding, qsizetype limit)
{
    if (limit == 0 && !m_started && !m_split) {
        takeAll(message);
        return Filled::Everything;
    }
    const std::size_t leading = m_leading.size();
    Room room(message, encoding, limit);
    while (!isEmpty() && takeFirst(room)) {
    }
    if (isEmpty())
        return Filled::Everything;
    // What leads comes again with every message of the server: with it alone there is no end.
    return room.taken() > leading ? Filled::Part : Filled::Nothing;
}

void AnswerQueue::takeAll(Message &message)
{
    std::vector<Command> leading = m_leading.takeAll();
    message.commands = m_commands.takeAll();
    message.commands.insert(message.commands.begin(), std::move_iterator(leading.begin()),
                            std::move_iterator(leading.end()));
    std::size_t number = 0;
    for (Command &command : message.commands)
        command.cmdId = commandId(++number);
}

bool AnswerQueue::takeFirst(Room &room)
{
    if (m_leading.empty() && m_started)
        return takeChunk(room);
    if (m_leading.empty() && m_split)
        return takePieces(room);

    Line &next = m_leading.empty() ? m_commands : m_leading;
    const qsizetype bytes = room.cost(next.front());
    if (room.fits(bytes)) {
        room.add(std::move(next.front()), bytes);
        next.pop_front();
        return true;
    }
    if (!m_leading.empty())
        return false;
    if (splitFirst())
        return true;
    if (!mustBeCut(room, m_commands.front(), bytes))
        return false;
    m_started = StartedObject{std::move(m_commands.front()), 0};
    m_commands.pop_front();
    return takeChunk(room);
}

/// Whether a command of that size, which does not fit into the message, is sent in chunks.
bool AnswerQueue::mustBeCut(const Room &room, const Command &command, qsizetype bytes)
{
    const bool isObject = command.kind == CommandKind::Results && command.items.front().data;
    return isObject && !room.wouldFitIntoNextMessage(bytes);
}

// ---- Pieces --------------------------------------------------------------------------------------

std::size_t AnswerQueue::SplitCommand::pieces() const
{
    return std::max({items.size(), targetRefs.size(), sourceRefs.size()});
}

qsizetype AnswerQueue::SplitCommand::bytes() const
{
    qsizetype bytes = answerBytes(command);
    for (std::size_t i = next; i < items.size(); ++i)
        bytes += answerBytes(items[i]);
    for (const auto *const references : {&targetRefs, &sourceRefs})
        for (std::size_t i = next; i < references->size(); ++i)
            bytes += (*references)[i].size();
    return bytes;
}

void AnswerQueue::SplitCommand::appendNextTo(Command &part) const
{
    if (!items.empty())
        part.items.push_back(items[next]);
    if (!targetRefs.empty())
        part.targetRefs.push_back(targetRefs[next]);
    if (!sourceRefs.empty())
        part.sourceRefs.push_back(sourceRefs[next]);
}

/// Takes the first command apart. @return false when that is not possible: also for a Status of
/// which it cannot be said whose source belongs to whose target
bool AnswerQueue::splitFirst()
{
    Command &first = m_commands.front();
    const std::size_t targets = first.targetRefs.size();
    const std::size_t sources = first.sourceRefs.size();
    const bool isStatus = first.kind == CommandKind::Status && std::max(targets, sources) > 1 &&
                          (targets == 0 || sources == 0 || targets == sources);
    // The Replace holds DevInfo.
    const bool hasItems = first.items.size() > 1 && (first.kind == CommandKind::Results ||
                                                     first.kind == CommandKind::Replace);
    if (!isStatus && !hasItems)
        return false;
    SplitCommand split;
    if (hasItems) {
        split.items = std::exchange(first.items, {});
    } else {
        split.targetRefs = std::exchange(first.targetRefs, {});
        split.sourceRefs = std::exchange(first.sourceRefs, {});
    }
    split.command = std::move(first);
    m_split = std::move(split);
    m_commands.pop_front();
    return true;
}

/// Takes as many pieces as fit, in one command.
bool AnswerQueue::takePieces(Room &room)
{
    Command part = m_split->command;
    m_split->appendNextTo(part);
    qsizetype bytes = room.cost(part);
    const bool isCut = !room.fits(bytes) && mustBeCut(room, part, bytes);
    if (!room.fits(bytes) && !isCut)
        return false;
    ++m_split->next;
    for (; !isCut && m_split->next < m_split->pieces(); ++m_split->next) {
        Command longer;
        m_split->appendNextTo(longer);
        const qsizetype more = room.costOfPieces(longer);
        if (!room.fits(bytes + more))
            break;
        m_split->appendNextTo(part);
        bytes += more;
    }
    if (m_split->next == m_split->pieces())
        m_split.reset();
    if (isCut) {
        m_started = StartedObject{std::move(part), 0};
        return takeChunk(room);
    }
    room.add(std::move(part), bytes);
    return true;
}

// ---- Chunks --------------------------------------------------------------------------------------

namespace {

/// The chunk of a Results that begins at an offset.
Command chunkOf(const Command &results, qsizetype offset, qsizetype length)
{
    Command chunk = results;
    Item &item = chunk.items.front();
    const qsizetype size = item.data->size();
    item.data = item.data->sliced(offset, length);
    item.moreData = offset + length < size;
    if (offset == 0) {
        if (!item.meta)
            item.meta.emplace();
        item.meta->size = QString::number(size);
    }
    return chunk;
}

/// The length of the longest piece of the text that is no longer, begins at the offset and does not
/// end inside a character.
qsizetype wholeCharacters(const QByteArray &text, qsizetype offset, qsizetype length)
{
    const std::string_view rest(text.data() + offset,
                                static_cast<std::size_t>(text.size() - offset));
    return static_cast<qsizetype>(
        foreign_text::cutAtCharacter(rest, static_cast<std::size_t>(length)).size());
}

} // namespace

bool AnswerQueue::takeChunk(Room &room)
{
    // Below this it is not worth beginning an object at the end of a message.
    constexpr qsizetype shortestChunk = 64;

    const Command &results = m_started->results;
    const QByteArray &data = *results.items.front().data;
    const qsizetype offset = m_started->sentBytes;
    const auto chunkOfLength = [&](qsizetype length) {
        // XML carries characters, so a chunk has to end between two.
        return room.encoding() == Encoding::Xml ? wholeCharacters(data, offset, length) : length;
    };
    qsizetype fitting = 0;
    // No byte takes less than one, so there is no use in trying more than there is room for.
    qsizetype tooLong = std::min(data.size() - offset, room.leftBytes()) + 1;
    while (tooLong - fitting > 1) {
        const qsizetype middle = fitting + (tooLong - fitting) / 2;
        Command chunk = chunkOf(results, offset, chunkOfLength(middle));
        (room.fits(room.cost(chunk)) ? fitting : tooLong) = middle;
    }
    fitting = chunkOfLength(fitting);
    const bool isRest = offset + fitting == data.size();
    if (fitting <= 0 || (!isRest && fitting < shortestChunk && room.taken() > 1))
        return false;
    Command chunk = chunkOf(results, offset, fitting);
    const qsizetype bytes = room.cost(chunk);
    room.add(std::move(chunk), bytes);
    m_started->sentBytes += fitting;
    if (isRest)
        m_started.reset();
    return isRest;
}

} // namespace client
