#include "message_writer.h"

#include "element.h"
#include "element_sink.h"

#include <algorithm>
#include <array>

namespace syncml {
namespace {

/// Every part that some command has, to find one that its command does not have.
constexpr Element allCommandParts[] = {Element::CmdID,      Element::MsgRef,    Element::CmdRef,
                                       Element::Cmd,        Element::TargetRef, Element::SourceRef,
                                       Element::Chal,       Element::Meta,      Element::Data,
                                       Element::Correlator, Element::Item};

/// How often `command` has that part.
std::size_t countOf(const Command &command, Element part)
{
    switch (part) {
    case Element::CmdID:
        return command.cmdId.has_value();
    case Element::MsgRef:
        return command.msgRef.has_value();
    case Element::CmdRef:
        return command.cmdRef.has_value();
    case Element::Cmd:
        return command.cmd.has_value();
    case Element::TargetRef:
        return command.targetRefs.size();
    case Element::SourceRef:
        return command.sourceRefs.size();
    case Element::Chal:
        return command.chal.has_value();
    case Element::Meta:
        return command.meta.has_value();
    case Element::Data:
        return command.data.has_value();
    case Element::Correlator:
        return command.correlator.has_value();
    case Element::Item:
        return command.items.size();
    default:
        Q_UNREACHABLE();
    }
}

/// A set of parts, a bit for each of allCommandParts.
using PartSet = quint16;

constexpr auto setOfPart = [] {
    std::array<PartSet, elementCount> sets{};
    PartSet next = 1;
    for (const Element part : allCommandParts) {
        sets[static_cast<std::size_t>(part)] = next;
        next = static_cast<PartSet>(next << 1);
    }
    return sets;
}();

constexpr PartSet setOf(Element part)
{
    return setOfPart[static_cast<std::size_t>(part)];
}

/// The parts that a command has, and those that it has several times.
struct PartsOfCommand {
    PartSet present = 0;
    PartSet repeated = 0;

    explicit PartsOfCommand(const Command &command)
    {
        add<Element::CmdID>(command);
        add<Element::MsgRef>(command);
        add<Element::CmdRef>(command);
        add<Element::Cmd>(command);
        add<Element::TargetRef>(command);
        add<Element::SourceRef>(command);
        add<Element::Chal>(command);
        add<Element::Meta>(command);
        add<Element::Data>(command);
        add<Element::Correlator>(command);
        add<Element::Item>(command);
    }

private:
    template <Element part>
    void add(const Command &command)
    {
        const std::size_t count = countOf(command, part);
        present |= count > 0 ? setOf(part) : PartSet(0);
        repeated |= count > 1 ? setOf(part) : PartSet(0);
    }
};

/// What a kind of command may have, and has to have.
struct PartRules {
    PartSet allowed = 0;
    PartSet mandatory = 0;
    PartSet single = 0;

    bool allow(const PartsOfCommand &parts) const
    {
        return (parts.present & ~allowed) == 0 && (mandatory & ~parts.present) == 0 &&
               (single & parts.repeated) == 0;
    }
};

const PartRules &rulesOf(CommandKind kind)
{
    static const std::array<PartRules, static_cast<std::size_t>(CommandKind::Status) + 1> rules =
        [] {
            std::array<PartRules, static_cast<std::size_t>(CommandKind::Status) + 1> made;
            for (std::size_t number = 0; number < made.size(); ++number) {
                for (const CommandPart &part : commandParts(static_cast<CommandKind>(number))) {
                    const PartSet set = setOf(part.element);
                    made[number].allowed |= set;
                    if (part.occurs == Occurs::Once || part.occurs == Occurs::AtLeastOnce)
                        made[number].mandatory |= set;
                    if (part.occurs == Occurs::Once || part.occurs == Occurs::AtMostOnce)
                        made[number].single |= set;
                }
            }
            return made;
        }();
    return rules[static_cast<std::size_t>(kind)];
}

class MessageWriter {
public:
    explicit MessageWriter(ElementSink &sink) : m_sink(sink) {}

    support::Expected<void, EncodeError> write(const Message &message)
    {
        if (message.commands.empty())
            fail(QStringLiteral("the message has no command"));
        m_sink.start(Element::SyncML);
        writeHeader(message.header);
        m_sink.start(Element::SyncBody);
        for (const Command &command : message.commands)
            writeCommand(command);
        if (message.final)
            m_sink.empty(Element::Final);
        m_sink.end();
        m_sink.end();
        return m_written;
    }

    /// Writes one part.
    template <class Write>
    support::Expected<qsizetype, EncodeError> sizeOf(Write write)
    {
        const qsizetype before = m_sink.size();
        write(*this);
        if (!m_written)
            return support::Unexpected(m_written.error());
        return m_sink.size() - before;
    }

    void writeHeader(const SyncHdr &header)
    {
        m_sink.start(Element::SyncHdr);
        writeText(Element::VerDTD, header.verDtd);
        writeText(Element::VerProto, header.verProto);
        writeText(Element::SessionID, header.sessionId);
        writeText(Element::MsgID, header.msgId);
        writeLocation(Element::Target, header.target);
        writeLocation(Element::Source, header.source);
        if (header.respUri)
            writeText(Element::RespURI, *header.respUri);
        if (header.cred)
            writeCred(*header.cred);
        if (header.meta)
            writeMeta(*header.meta);
        m_sink.end();
    }

    void writeCommand(const Command &command)
    {
        const Element element = commandElement(command.kind);
        m_command = &command;
        if (element == Element::Unknown) {
            fail(QStringLiteral("%1 is not a DM command").arg(place()));
            return;
        }
        const PartsOfCommand parts(command);
        if (!rulesOf(command.kind).allow(parts) ||
            holdsCommands(command.kind) == command.commands.empty())
            explainParts(command);
        m_sink.start(element);
        for (const CommandPart &part : commandParts(command.kind)) {
            if ((parts.present & setOf(part.element)) != 0)
                writePart(command, part.element);
        }
        for (const Command &inner : command.commands) {
            if (inner.kind == CommandKind::Status || inner.kind == CommandKind::Results)
                fail(QStringLiteral("%1 inside %2").arg(commandName(inner), commandName(command)));
            writeCommand(inner);
        }
        m_sink.end();
    }

    /// Says what of a command does not belong to it, or is missing.
    void explainParts(const Command &command)
    {
        const std::span<const CommandPart> parts = commandParts(command.kind);
        for (const Element element : allCommandParts) {
            const auto part = std::ranges::find(parts, element, &CommandPart::element);
            checkCount(countOf(command, element), element, part == parts.end() ? nullptr : &*part);
        }
        if (holdsCommands(command.kind) && command.commands.empty())
            fail(QStringLiteral("%1 has no command in it").arg(place()));
        if (!holdsCommands(command.kind) && !command.commands.empty())
            fail(QStringLiteral("%1 cannot have commands in it").arg(place()));
    }

    void checkCount(std::size_t count, Element element, const CommandPart *part)
    {
        const bool mandatory =
            part && (part->occurs == Occurs::Once || part->occurs == Occurs::AtLeastOnce);
        const bool single =
            part && (part->occurs == Occurs::Once || part->occurs == Occurs::AtMostOnce);
        if (!part && count > 0)
            fail(QStringLiteral("%1 cannot have %2").arg(place(), elementName(element)));
        else if (mandatory && count == 0)
            fail(QStringLiteral("%1 has no %2").arg(place(), elementName(element)));
        else if (single && count > 1)
            fail(QStringLiteral("%1 has more than one %2").arg(place(), elementName(element)));
    }

    void writePart(const Command &command, Element part)
    {
        switch (part) {
        case Element::CmdID:
            writeText(part, *command.cmdId);
            break;
        case Element::MsgRef:
            writeText(part, *command.msgRef);
            break;
        case Element::CmdRef:
            writeText(part, *command.cmdRef);
            break;
        case Element::Cmd:
            writeText(part, *command.cmd);
            break;
        case Element::TargetRef:
            writeTexts(part, command.targetRefs);
            break;
        case Element::SourceRef:
            writeTexts(part, command.sourceRefs);
            break;
        case Element::Chal:
            m_sink.start(part);
            writeMeta(command.chal->meta);
            m_sink.end();
            break;
        case Element::Meta:
            writeMeta(*command.meta);
            break;
        case Element::Data:
            writeBytes(part, *command.data);
            break;
        case Element::Correlator:
            writeText(part, *command.correlator);
            break;
        case Element::Item:
            for (const Item &item : command.items)
                writeItem(item);
            break;
        default:
            Q_UNREACHABLE();
        }
    }

    void writeItem(const Item &item)
    {
        m_sink.start(Element::Item);
        if (item.target)
            writeLocation(Element::Target, *item.target);
        if (item.source)
            writeLocation(Element::Source, *item.source);
        if (item.meta)
            writeMeta(*item.meta);
        if (item.data)
            writeBytes(Element::Data, *item.data);
        if (item.moreData)
            m_sink.empty(Element::MoreData);
        m_sink.end();
    }

    void writeLocation(Element element, const Location &location)
    {
        m_sink.start(element);
        writeText(Element::LocURI, location.locUri);
        if (location.locName)
            writeText(Element::LocName, *location.locName);
        m_sink.end();
    }

    void writeCred(const Cred &cred)
    {
        m_sink.start(Element::Cred);
        if (cred.meta)
            writeMeta(*cred.meta);
        writeBytes(Element::Data, cred.data);
        m_sink.end();
    }

    void writeMeta(const Meta &meta)
    {
        m_sink.start(Element::Meta);
        writeOptional(Element::Format, meta.format);
        writeOptional(Element::Type, meta.type);
        writeOptional(Element::Mark, meta.mark);
        writeOptional(Element::Size, meta.size);
        if (meta.nextNonce)
            writeBytes(Element::NextNonce, *meta.nextNonce);
        writeOptional(Element::MaxMsgSize, meta.maxMsgSize);
        writeOptional(Element::MaxObjSize, meta.maxObjSize);
        writeTexts(Element::EMI, meta.emi);
        m_sink.end();
    }

    void writeOptional(Element element, const std::optional<QString> &text)
    {
        if (text)
            writeText(element, *text);
    }

    void writeTexts(Element element, const std::vector<QString> &texts)
    {
        for (const QString &text : texts)
            writeText(element, text);
    }

    void writeText(Element element, const QString &text)
    {
        if (!m_sink.text(element, text))
            failContent(element);
    }

    void writeBytes(Element element, const QByteArray &bytes)
    {
        if (!m_sink.bytes(element, bytes))
            failContent(element);
    }

    void failContent(Element element)
    {
        fail(QStringLiteral("%1 has a %2 that cannot be written as text")
                 .arg(place(), elementName(element)));
    }

    /// The header, or the command being written with its CmdID.
    QString place() const
    {
        if (!m_command)
            return elementName(Element::SyncHdr);
        const QString name = commandName(*m_command);
        return m_command->cmdId ? name + u' ' + *m_command->cmdId : name;
    }

    void fail(const QString &text)
    {
        if (m_written)
            m_written = support::Unexpected(EncodeError{text});
    }

private:
    ElementSink &m_sink;
    const Command *m_command = nullptr;             ///< being written; none in the header
    support::Expected<void, EncodeError> m_written; ///< the first fault
};

} // namespace

support::Expected<void, EncodeError> writeMessage(const Message &message, ElementSink &sink)
{
    return MessageWriter(sink).write(message);
}

support::Expected<qsizetype, EncodeError> sizeOf(const Command &command, ElementSink &sink)
{
    return MessageWriter(sink).sizeOf([&](MessageWriter &writer) { writer.writeCommand(command); });
}

support::Expected<qsizetype, EncodeError> sizeOf(const Item &item, ElementSink &sink)
{
    return MessageWriter(sink).sizeOf([&](MessageWriter &writer) { writer.writeItem(item); });
}

support::Expected<qsizetype, EncodeError> sizeOfReference(const QString &uri, ElementSink &sink)
{
    return MessageWriter(sink).sizeOf(
        [&](MessageWriter &writer) { writer.writeText(Element::TargetRef, uri); });
}

} // namespace syncml
