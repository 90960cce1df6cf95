#include "answer_queue.h"

#include "answer_size.h"
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
        // A code page of WBXML may have to be switched back in front of the next command.
        constexpr qsizetype pageSwitch = 2;
        command.cmdId = longestId;
        const auto bytes = syncml::sizeInMessage(command, m_encoding);
        if (!bytes)
            return 0;
        return m_encoding == Encoding::Wbxml ? *bytes + pageSwitch : *bytes;
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

    void add(Command command, qsizetype bytes)
    {
        if (m_message.commands.empty())
            m_firstBytes = bytes;
        command.cmdId = QString::number(m_message.commands.size() + 1);
        m_message.commands.push_back(std::move(command));
        m_usedBytes += bytes;
    }

    std::size_t taken() const { return m_message.commands.size(); }
    Encoding encoding() const { return m_encoding; }

private:
    Message &m_message;
    Encoding m_encoding;
    qsizetype m_limit;
    qsizetype m_headerBytes = 0;
    qsizetype m_usedBytes = 0;
    qsizetype m_firstBytes = 0; ///< of the first command that was added
};

qsizetype AnswerQueue::bytes() const
{
    qsizetype bytes = 0;
    for (const auto *const commands : {&m_leading, &m_commands})
        for (const Command &command : *commands)
            bytes += answerBytes(command);
    return bytes + (m_started ? answerBytes(m_started->results) : 0);
}

// ---- Filling a message ---------------------------------------------------------------------------

namespace {

/// What a message that goes on with the answers has after the status of the header.
Command statusOfRequestForMore(const std::deque<Command> &leading)
{
    Command status;
    status.kind = CommandKind::Status;
    status.msgRef = leading.empty() ? std::nullopt : leading.front().msgRef;
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
    trial.m_commands.assign(answers.begin(), answers.end());
    for (;;) {
        trial.m_leading = m_leading;
        trial.lead(statusOfRequestForMore(m_leading));
        const Filled filled = trial.fill(message, encoding, limit);
        if (filled != Filled::Part)
            return filled == Filled::Everything;
    }
}

AnswerQueue::Filled AnswerQueue::fill(Message &message, Encoding encoding, qsizetype limit)
{
    const std::size_t leading = m_leading.size();
    Room room(message, encoding, limit);
    while (!isEmpty() && takeFirst(room)) {
    }
    if (isEmpty())
        return Filled::Everything;
    // What leads comes again with every message of the server: with it alone there is no end.
    return room.taken() > leading ? Filled::Part : Filled::Nothing;
}

bool AnswerQueue::takeFirst(Room &room)
{
    std::deque<Command> &next = m_leading.empty() ? m_commands : m_leading;
    if (m_leading.empty() && m_started)
        return takeChunk(room);

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
    const Command &first = m_commands.front();
    const bool isObject = first.kind == CommandKind::Results && first.items.front().data;
    if (!isObject || room.wouldFitIntoNextMessage(bytes))
        return false;
    m_started = StartedObject{std::move(m_commands.front()), 0};
    m_commands.pop_front();
    return takeChunk(room);
}

namespace {

/// A command as one for each of its items.
std::vector<Command> commandsOfOneItem(Command command)
{
    std::vector<Item> items = std::exchange(command.items, {});
    std::vector<Command> all(items.size(), command);
    for (std::size_t i = 0; i < items.size(); ++i)
        all[i].items.push_back(std::move(items[i]));
    return all;
}

/// A Status of several items as one for each of them; none when it cannot be said whose source
/// belongs to whose target.
std::vector<Command> statusesOfOneItem(Command status)
{
    const std::vector<QString> targets = std::exchange(status.targetRefs, {});
    const std::vector<QString> sources = std::exchange(status.sourceRefs, {});
    if (!sources.empty() && !targets.empty() && sources.size() != targets.size())
        return {};
    std::vector<Command> all(std::max(targets.size(), sources.size()), status);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!targets.empty())
            all[i].targetRefs.push_back(targets[i]);
        if (!sources.empty())
            all[i].sourceRefs.push_back(sources[i]);
    }
    return all;
}

} // namespace

/// Takes the first command apart. @return false when that is not possible
bool AnswerQueue::splitFirst()
{
    Command &first = m_commands.front();
    std::vector<Command> all;
    // The Replace holds DevInfo.
    const bool hasItems = first.kind == CommandKind::Results || first.kind == CommandKind::Replace;
    if (hasItems && first.items.size() > 1)
        all = commandsOfOneItem(std::move(first));
    else if (first.kind == CommandKind::Status)
        all = statusesOfOneItem(first);
    if (all.size() < 2)
        return false;
    m_commands.pop_front();
    std::move(all.rbegin(), all.rend(), std::front_inserter(m_commands));
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
