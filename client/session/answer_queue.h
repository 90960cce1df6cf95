// What the client has still to say, in messages of the size that the server takes.
#pragma once

#include "codec.h"

#include <QString>
#include <optional>
#include <utility>
#include <vector>

namespace client {

/// Commands on their way to the server, in order. A Results that does not fit into a message is
/// split between its items, and a Status between its references, each part as large as there is
/// room; an item that is too large is sent in chunks.
class AnswerQueue {
public:
    bool isEmpty() const
    {
        return m_leading.empty() && !m_started && !m_split && m_commands.empty();
    }

    /// A status that has to stand in the next message, in front of what waits: that of the last
    /// header received, first of all.
    void lead(syncml::Command &&status) { m_leading.push_back(std::move(status)); }
    void push(syncml::Command &&command) { m_commands.push_back(std::move(command)); }
    void push(std::vector<syncml::Command> &&commands) { m_commands.append(std::move(commands)); }
    void clear() { *this = AnswerQueue(); }
    /// Drops everything but what leads.
    void dropWaiting()
    {
        m_started.reset();
        m_split.reset();
        m_commands.clear();
    }
    /// What waits counts so many bytes, as answerBytes counts them.
    qsizetype bytes() const;
    /// Whether these answers can be sent, in as many messages as it takes: whether no piece of them
    /// is too large for a message that begins with what leads now and the answer to a request for
    /// more.
    bool canSend(const std::vector<syncml::Command> &answers, syncml::Message message,
                 syncml::Encoding encoding, qsizetype limit) const;
    /// Drops what is left of an object of which a part was sent already.
    void dropStartedObject() { m_started.reset(); }

    enum class Filled { Everything, Part, Nothing };
    /// Moves commands from the queue into the message as far as they fit, and numbers them from 1.
    /// @param message  has its header; its commands are replaced
    /// @param limit    bytes of the encoded message; 0 is no limit
    /// @return Nothing when the limit is too small to get on at all
    Filled fill(syncml::Message &message, syncml::Encoding encoding, qsizetype limit);

private:
    class Room;

    /// Commands of which the first are taken. Together in memory, since there may be many.
    class Line {
    public:
        bool empty() const { return size() == 0; }
        std::size_t size() const { return m_commands.size() - m_taken; }
        syncml::Command &front() { return m_commands[m_taken]; }
        const syncml::Command &front() const { return m_commands[m_taken]; }
        auto begin() const { return m_commands.begin() + static_cast<std::ptrdiff_t>(m_taken); }
        auto end() const { return m_commands.end(); }
        void push_back(syncml::Command &&command) { m_commands.push_back(std::move(command)); }
        /// Where nothing waits, the commands stay where they are in memory.
        void append(std::vector<syncml::Command> &&commands);
        /// Gives away all that are left.
        std::vector<syncml::Command> takeAll();
        void pop_front()
        {
            if (++m_taken == m_commands.size())
                clear();
        }
        void clear() { *this = Line(); }

    private:
        std::vector<syncml::Command> m_commands;
        std::size_t m_taken = 0;
    };

    /// A Results with one item, of which the first bytes were sent.
    struct StartedObject {
        syncml::Command results;
        qsizetype sentBytes = 0;
    };

    /// A command that does not fit into a message, and the pieces that it is sent in: items, or
    /// references.
    struct SplitCommand {
        syncml::Command command; ///< without its pieces
        std::vector<syncml::Item> items;
        std::vector<QString> targetRefs;
        std::vector<QString> sourceRefs;
        std::size_t next = 0; ///< of the pieces

        std::size_t pieces() const;
        /// What is left of it, as answerBytes counts it.
        qsizetype bytes() const;
        void appendNextTo(syncml::Command &part) const;
    };

    void takeAll(syncml::Message &message);
    bool takeFirst(Room &room);
    bool takePieces(Room &room);
    bool takeChunk(Room &room);
    bool splitFirst();
    static bool mustBeCut(const Room &room, const syncml::Command &command, qsizetype bytes);

    Line m_leading;
    std::optional<StartedObject> m_started;
    std::optional<SplitCommand> m_split; ///< goes on after m_started
    Line m_commands;
};

} // namespace client
