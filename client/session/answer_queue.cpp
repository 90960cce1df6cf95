#include "session/answer_queue.h"

#include <algorithm>
#include <limits>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;
using syncml::Item;
using syncml::Message;

// ---- Room in a message ---------------------------------------------------------------------------

namespace {

/// Encoded size; 0 for a message that cannot be encoded, so that it is not held back and whoever
/// encodes it hears of the fault.
qsizetype encodedSize(const Message &message, Encoding encoding)
{
    const syncml::EncodeResult result = syncml::encode(message, encoding);
    const auto *const bytes = std::get_if<QByteArray>(&result);
    return bytes ? bytes->size() : 0;
}

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
        m_probe.commands = {smallestCommand()};
        m_probeSize = encodedSize(m_probe, m_encoding);
        Message empty = m_message;
        empty.final = true;
        empty.commands = {smallestCommand()};
        m_headerBytes = encodedSize(empty, m_encoding) - cost(smallestCommand());
        m_usedBytes = m_headerBytes;
    }

    /// Bytes that a command takes in the message.
    qsizetype cost(Command command)
    {
        // A code page of WBXML may have to be switched back in front of the next command.
        constexpr qsizetype pageSwitch = 2;
        command.cmdId = longestId;
        m_probe.commands.push_back(std::move(command));
        const qsizetype bytes = encodedSize(m_probe, m_encoding) - m_probeSize;
        m_probe.commands.pop_back();
        return m_encoding == Encoding::Wbxml ? bytes + pageSwitch : bytes;
    }

    bool isLimited() const { return m_limit > 0; }
    qsizetype leftBytes() const
    {
        return isLimited() ? m_limit - m_usedBytes : std::numeric_limits<qsizetype>::max();
    }
    bool fits(qsizetype bytes) const { return bytes <= leftBytes(); }
    /// Whether a command of that size fits into a message that has nothing but the status of the
    /// header in front of it.
    bool wouldFitIntoNextMessage(qsizetype bytes) const
    {
        return !isLimited() || m_headerBytes + m_firstBytes + bytes <= m_limit;
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
    Message m_probe;
    qsizetype m_probeSize = 0;
    qsizetype m_headerBytes = 0;
    qsizetype m_usedBytes = 0;
    qsizetype m_firstBytes = 0; ///< of the first command that was added
};

// ---- Filling a message ---------------------------------------------------------------------------

std::size_t AnswerQueue::size() const
{
    return m_commands.size() + m_headerStatus.has_value() + m_started.has_value();
}

AnswerQueue::Filled AnswerQueue::fill(Message &message, Encoding encoding, qsizetype limit)
{
    const std::size_t waiting = size();
    Room room(message, encoding, limit);
    while (!isEmpty() && takeFirst(room)) {
    }
    if (isEmpty())
        return Filled::Everything;
    // A message with the status of the header alone would be answered with another header.
    const std::size_t leastProgress = std::min<std::size_t>(waiting, 2);
    return room.taken() < leastProgress ? Filled::Nothing : Filled::Part;
}

bool AnswerQueue::takeFirst(Room &room)
{
    if (m_headerStatus) {
        const qsizetype bytes = room.cost(*m_headerStatus);
        if (!room.fits(bytes))
            return false;
        room.add(std::move(*m_headerStatus), bytes);
        m_headerStatus.reset();
        return true;
    }
    if (m_started)
        return takeChunk(room);

    const qsizetype bytes = room.cost(m_commands.front());
    if (room.fits(bytes)) {
        room.add(std::move(m_commands.front()), bytes);
        m_commands.pop_front();
        return true;
    }
    if (m_commands.front().kind != CommandKind::Results)
        return false;
    if (m_commands.front().items.size() > 1) {
        splitFirstResults();
        return true;
    }
    if (room.wouldFitIntoNextMessage(bytes))
        return false;
    m_started = StartedObject{std::move(m_commands.front()), 0};
    m_commands.pop_front();
    return takeChunk(room);
}

/// Makes one Results an item of it.
void AnswerQueue::splitFirstResults()
{
    Command whole = std::move(m_commands.front());
    m_commands.pop_front();
    std::vector<Item> items = std::move(whole.items);
    std::for_each(items.rbegin(), items.rend(), [&](Item &item) {
        Command part = whole;
        part.items = {std::move(item)};
        m_commands.push_front(std::move(part));
    });
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

bool isInsideCharacter(const QByteArray &text, qsizetype position)
{
    return (static_cast<unsigned char>(text[position]) & 0xC0) == 0x80;
}

} // namespace

bool AnswerQueue::takeChunk(Room &room)
{
    // Below this it is not worth beginning an object at the end of a message.
    constexpr qsizetype shortestChunk = 64;

    const Command &results = m_started->results;
    const QByteArray &data = *results.items.front().data;
    const qsizetype offset = m_started->sentBytes;
    qsizetype fitting = 0;
    // No byte takes less than one, so there is no use in trying more than there is room for.
    qsizetype tooLong = std::min(data.size() - offset, room.leftBytes()) + 1;
    while (tooLong - fitting > 1) {
        const qsizetype middle = fitting + (tooLong - fitting) / 2;
        (room.fits(room.cost(chunkOf(results, offset, middle))) ? fitting : tooLong) = middle;
    }
    const bool isRest = offset + fitting == data.size();
    // XML carries characters, so a chunk has to end between two.
    while (!isRest && room.encoding() == Encoding::Xml && fitting > 0 &&
           isInsideCharacter(data, offset + fitting))
        --fitting;
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
