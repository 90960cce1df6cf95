#include "message_reader.h"

#include "element.h"
#include "element_source.h"

#include <algorithm>
#include <bitset>

namespace syncml {
namespace {

using OuterBlanks = ElementSource::OuterBlanks;

/// Elements met inside one parent.
using Seen = std::bitset<elementCount>;

/// Children of commands that the DTD knows and DM does not use.
constexpr Element unusedCommandParts[] = {
    Element::Archive,         Element::Cred,  Element::Lang, Element::NoResp, Element::NoResults,
    Element::NumberOfChanges, Element::SftDel};

bool isUnusedCommandPart(Element element)
{
    return std::ranges::find(unusedCommandParts, element) != std::end(unusedCommandParts);
}

class MessageReader {
public:
    MessageReader(ElementSource &source, const Limits &limits) : m_source(source), m_limits(limits)
    {
    }

    DecodeResult read()
    {
        readDocument();
        if (m_source.error()) {
            DecodeError error = *m_source.error();
            if (m_headerRead)
                error.header = std::move(m_message.header);
            return support::Unexpected(std::move(error));
        }
        return std::move(m_message);
    }

private:
    // ---- the document

    void readDocument()
    {
        if (!m_source.openDocument())
            return;
        if (m_source.element() != Element::SyncML) {
            fail(QStringLiteral("the document is %1, not SyncML").arg(m_source.name()));
            return;
        }
        bool bodyRead = false;
        readChildren([&](Element child) {
            switch (child) {
            case Element::SyncHdr:
                readHeader();
                m_headerRead = !m_source.error();
                break;
            case Element::SyncBody:
                readBody();
                bodyRead = true;
                break;
            default:
                m_source.skip();
            }
        });
        if (!m_headerRead)
            fail(QStringLiteral("the message has no SyncHdr"));
        if (!bodyRead)
            fail(QStringLiteral("the message has no SyncBody"));
        m_source.closeDocument();
    }

    void readHeader()
    {
        SyncHdr &header = m_message.header;
        readChildren([&](Element child) {
            switch (child) {
            case Element::VerDTD:
                header.verDtd = m_source.readText();
                break;
            case Element::VerProto:
                header.verProto = m_source.readText();
                break;
            case Element::SessionID:
                header.sessionId = m_source.readText();
                break;
            case Element::MsgID:
                header.msgId = m_source.readText();
                break;
            case Element::Target:
                header.target = readLocation();
                break;
            case Element::Source:
                header.source = readLocation();
                break;
            case Element::RespURI:
                header.respUri = m_source.readText();
                break;
            case Element::Cred:
                header.cred = readCred();
                break;
            case Element::Meta:
                header.meta = readMeta();
                break;
            default:
                m_source.skip();
            }
        });
    }

    void readBody()
    {
        Seen seen;
        while (m_source.nextChild()) {
            if (m_source.element() == Element::Final) {
                checkOnce(Element::SyncBody, Element::Final, seen);
                m_source.skip();
                m_message.final = true;
            } else {
                readCommandInto(m_message.commands);
            }
        }
    }

    // ---- commands

    void readCommandInto(std::vector<Command> &commands)
    {
        if (++m_commandCount > m_limits.commands) {
            failLimit(QStringLiteral("more than %1 commands").arg(m_limits.commands));
            return;
        }
        // Read in place: commands may hold large Data, and nest.
        Command &command = commands.emplace_back();
        command.kind = commandKind(m_source.element());
        if (command.kind == CommandKind::Unknown || command.kind == CommandKind::Unsupported)
            readForeignCommand(command);
        else
            readDmCommand(command);
    }

    void readForeignCommand(Command &command)
    {
        command.name = m_source.name();
        while (m_source.nextChild(ElementSource::TextBetween::Ignored)) {
            if (m_source.element() == Element::CmdID && !command.cmdId)
                command.cmdId = m_source.readText();
            else
                m_source.skip();
        }
    }

    void readDmCommand(Command &command)
    {
        const Element parent = commandElement(command.kind);
        const std::span<const CommandPart> parts = commandParts(command.kind);
        Seen seen;
        while (m_source.nextChild()) {
            const Element child = m_source.element();
            const auto part = std::ranges::find(parts, child, &CommandPart::element);
            if (part != parts.end()) {
                if (!mayRepeat(child))
                    checkOnce(parent, child, seen);
                readPart(command, child);
            } else if (holdsCommands(command.kind) && !isUnusedCommandPart(child)) {
                readCommandInto(command.commands);
            } else {
                m_source.skip();
            }
        }
    }

    static bool mayRepeat(Element part)
    {
        return part == Element::Item || part == Element::TargetRef || part == Element::SourceRef;
    }

    void readPart(Command &command, Element part)
    {
        switch (part) {
        case Element::CmdID:
            command.cmdId = m_source.readText();
            break;
        case Element::Meta:
            command.meta = readMeta();
            break;
        case Element::Item:
            readItemInto(command.items);
            break;
        case Element::Data:
            command.data = m_source.readData();
            break;
        case Element::Correlator:
            command.correlator = m_source.readText(OuterBlanks::Kept);
            break;
        case Element::MsgRef:
            command.msgRef = m_source.readText();
            break;
        case Element::CmdRef:
            command.cmdRef = m_source.readText();
            break;
        case Element::Cmd:
            command.cmd = m_source.readText();
            break;
        case Element::TargetRef:
            readTextInto(command.targetRefs);
            break;
        case Element::SourceRef:
            readTextInto(command.sourceRefs);
            break;
        case Element::Chal:
            command.chal = readChal();
            break;
        default:
            Q_UNREACHABLE();
        }
    }

    void readItemInto(std::vector<Item> &items)
    {
        if (!countItem())
            return;
        Item &item = items.emplace_back();
        readChildren([&](Element child) {
            switch (child) {
            case Element::Target:
                item.target = readLocation();
                break;
            case Element::Source:
                item.source = readLocation();
                break;
            case Element::Meta:
                item.meta = readMeta();
                break;
            case Element::Data:
                item.data = m_source.readData();
                break;
            case Element::MoreData:
                m_source.skip();
                item.moreData = true;
                break;
            default:
                m_source.skip();
            }
        });
    }

    // ---- parts of several elements

    Location readLocation()
    {
        Location location;
        readChildren([&](Element child) {
            switch (child) {
            case Element::LocURI:
                location.locUri = m_source.readText();
                break;
            case Element::LocName:
                location.locName = m_source.readText(OuterBlanks::Kept);
                break;
            default:
                m_source.skip();
            }
        });
        return location;
    }

    Cred readCred()
    {
        Cred cred;
        readChildren([&](Element child) {
            switch (child) {
            case Element::Meta:
                cred.meta = readMeta();
                break;
            case Element::Data:
                cred.data = m_source.readData();
                break;
            default:
                m_source.skip();
            }
        });
        return cred;
    }

    Chal readChal()
    {
        Chal chal;
        readChildren([&](Element child) {
            if (child == Element::Meta)
                chal.meta = readMeta();
            else
                m_source.skip();
        });
        return chal;
    }

    Meta readMeta()
    {
        Meta meta;
        Seen seen;
        readMetaChildren(meta, seen);
        return meta;
    }

    void readMetaChildren(Meta &meta, Seen &seen)
    {
        readChildren(seen, [&](Element child) {
            switch (child) {
            case Element::MetInf:
                readMetaChildren(meta, seen);
                break;
            case Element::Format:
                meta.format = m_source.readText().toLower();
                break;
            case Element::Type:
                meta.type = m_source.readText();
                break;
            case Element::Mark:
                meta.mark = m_source.readText();
                break;
            case Element::Size:
                meta.size = m_source.readText();
                break;
            case Element::NextNonce:
                meta.nextNonce = m_source.readBytes();
                break;
            case Element::MaxMsgSize:
                meta.maxMsgSize = m_source.readText();
                break;
            case Element::MaxObjSize:
                meta.maxObjSize = m_source.readText();
                break;
            case Element::EMI:
                readTextInto(meta.emi);
                break;
            default:
                m_source.skip();
            }
        });
    }

    // ---- tools

    /// Calls `readChild` for each child of the current element, and leaves it.
    template <class ReadChild>
    void readChildren(ReadChild readChild)
    {
        Seen seen;
        readChildren(seen, readChild);
    }

    template <class ReadChild>
    void readChildren(Seen &seen, ReadChild readChild)
    {
        const Element parent = m_source.element();
        while (m_source.nextChild()) {
            const Element child = m_source.element();
            if (child != Element::Unknown && child != Element::EMI)
                checkOnce(parent, child, seen);
            readChild(child);
        }
    }

    /// Which of two differing ones was meant cannot be known, and guessing would change a device.
    void checkOnce(Element parent, Element child, Seen &seen)
    {
        const auto bit = static_cast<std::size_t>(child);
        if (seen.test(bit))
            fail(QStringLiteral("a second %1 in one %2")
                     .arg(elementName(child), elementName(parent)));
        seen.set(bit);
    }

    void readTextInto(std::vector<QString> &texts)
    {
        if (countItem())
            texts.push_back(m_source.readText());
    }

    bool countItem()
    {
        if (++m_itemCount <= m_limits.items)
            return true;
        failLimit(QStringLiteral("more than %1 items and references").arg(m_limits.items));
        return false;
    }

    void fail(const QString &text) { m_source.fail(400, text); }
    void failLimit(const QString &text) { m_source.fail(416, text); }

    ElementSource &m_source;
    const Limits m_limits;
    Message m_message;
    bool m_headerRead = false;
    qsizetype m_commandCount = 0;
    qsizetype m_itemCount = 0;
};

} // namespace

DecodeResult readMessage(ElementSource &source, const Limits &limits)
{
    return MessageReader(source, limits).read();
}

} // namespace syncml
