#include "sample_messages.h"

#include "xml_codec.h"

#include <ostream>
#include <utility>

using namespace syncml;

namespace syncml {

void PrintTo(const Message &message, std::ostream *out)
{
    const EncodeResult encoded = encodeXml(message);
    if (encoded)
        *out << encoded->toStdString();
    else
        *out << "message that XML cannot carry: " << encoded.error().text.toStdString();
}

} // namespace syncml

namespace samples {
namespace {

Location location(const QString &uri)
{
    Location result;
    result.locUri = uri;
    return result;
}

Item itemAt(const QString &target)
{
    Item item;
    item.target = location(target);
    return item;
}

Meta formatAndType(const QString &format, const QString &type)
{
    Meta meta;
    meta.format = format;
    meta.type = type;
    return meta;
}

Meta everyMeta()
{
    Meta meta = formatAndType(QStringLiteral("b64"), QStringLiteral("application/octet-stream"));
    meta.mark = QStringLiteral("warning");
    meta.size = QStringLiteral("4096");
    meta.nextNonce = QByteArray("Tm9uY2U=");
    meta.maxMsgSize = QStringLiteral("16384");
    meta.maxObjSize = QStringLiteral("1048576");
    meta.emi = {QStringLiteral("first"), QStringLiteral("second <&> \u00E9")};
    return meta;
}

Command command(CommandKind kind, const QString &id)
{
    Command result;
    result.kind = kind;
    result.cmdId = id;
    return result;
}

Command commandOn(CommandKind kind, const QString &id, std::vector<Item> items)
{
    Command result = command(kind, id);
    result.items = std::move(items);
    return result;
}

Command valueCommand(CommandKind kind, const QString &id, const QString &target,
                     const QByteArray &value)
{
    Item item = itemAt(target);
    item.meta = formatAndType(QStringLiteral("chr"), QStringLiteral("text/plain"));
    item.data = value;
    return commandOn(kind, id, {item});
}

Message fullHeaderMessage()
{
    Message message = messageOf(commandOn(CommandKind::Get, QStringLiteral("1"),
                                          {itemAt(QStringLiteral("./DevDetail/FwV"))}));
    SyncHdr &header = message.header;
    header.source.locName = QStringLiteral(" Bruce2 ");
    header.target.locName = QStringLiteral("Management \u670D\u52A1");
    header.respUri = QStringLiteral("https://dm.example/next?session=1&step=2");
    Cred cred;
    cred.meta = formatAndType(QStringLiteral("b64"), QStringLiteral("syncml:auth-md5"));
    cred.data = QByteArray("Zz6EivR3yeaaENcRN6lpAQ==");
    header.cred = cred;
    header.meta.emplace();
    header.meta->maxMsgSize = QStringLiteral("5000");
    header.meta->maxObjSize = QStringLiteral("100000");
    message.final = false;
    return message;
}

Message credWithoutMeta()
{
    Message message = fullHeaderMessage();
    message.header.cred->meta.reset();
    message.header.cred->data.clear();
    return message;
}

Message fullStatus()
{
    Command status = command(CommandKind::Status, QStringLiteral("1"));
    status.msgRef = QStringLiteral("7");
    status.cmdRef = QStringLiteral("0");
    status.cmd = QStringLiteral("SyncHdr");
    status.targetRefs = {QStringLiteral("./A"), QStringLiteral("./B?prop=ACL")};
    status.sourceRefs = {QStringLiteral("./C"), QStringLiteral("./D")};
    status.chal.emplace();
    status.chal->meta = formatAndType(QStringLiteral("b64"), QStringLiteral("syncml:auth-md5"));
    status.chal->meta.nextNonce = QByteArray("ZG9iZWhhdmU=");
    status.data = QByteArray("401");
    status.items = {itemAt(QStringLiteral("./A/missing")), Item()};
    return messageOf(status);
}

Message statusOfCommandWithoutId()
{
    Command status = command(CommandKind::Status, QString());
    status.msgRef = QStringLiteral("1");
    status.cmdRef = QString();
    status.cmd = QStringLiteral("Get");
    status.data = QByteArray("400");
    return messageOf(status);
}

Message fullResults()
{
    Command results = command(CommandKind::Results, QStringLiteral("12"));
    results.msgRef = QStringLiteral("3");
    results.cmdRef = QStringLiteral("c1a5e7f0-0d0e-4b7f-9d6e-2c4f00000001");
    results.meta = formatAndType(QStringLiteral("node"), QStringLiteral("text/plain"));
    results.targetRefs = {QStringLiteral("./Nap")};
    results.sourceRefs = {QStringLiteral("./Other")};
    Item first;
    first.source = location(QStringLiteral("./Nap"));
    first.data = QByteArray("Vid\xC3\xA9otron/\xD9\x87\xD9\x85\xD8\xB1\xD8\xA7\xD9\x87/O2%2FUK");
    Item empty;
    empty.source = location(QStringLiteral("./Nap/Name"));
    empty.data = QByteArray("");
    Item absent;
    absent.source = location(QStringLiteral("./Nap/None"));
    results.items = {first, empty, absent};
    return messageOf(results);
}

Message alertWithItems()
{
    Command alert = command(CommandKind::Alert, QStringLiteral("2"));
    alert.data = QByteArray("1226");
    alert.correlator = QStringLiteral(" correlator-1 ");
    Item item;
    item.source = location(QStringLiteral("./Vendor/Update"));
    item.meta = formatAndType(QStringLiteral("int"), QStringLiteral("Reversed-Domain-Name: com.x"));
    item.meta->mark = QStringLiteral("critical");
    item.data = QByteArray("5");
    alert.items = {item};
    return messageOf(alert);
}

Message execWithCorrelator()
{
    Command exec = commandOn(CommandKind::Exec, QStringLiteral("5"),
                             {itemAt(QStringLiteral("./Vendor/Update"))});
    exec.correlator = QStringLiteral("abc");
    exec.meta = formatAndType(QStringLiteral("chr"), QStringLiteral("text/plain"));
    return messageOf(exec);
}

Message copyBetweenNodes()
{
    Item item = itemAt(QStringLiteral("./A/target"));
    item.source = location(QStringLiteral("./A/source"));
    item.source->locName = QStringLiteral("from here");
    return messageOf(commandOn(CommandKind::Copy, QStringLiteral("6"), {item}));
}

Message chunkOfLargeObject()
{
    Message message = messageWithData(QByteArray(5000, 'x'));
    Item &item = message.commands.front().items.front();
    item.meta.emplace();
    item.meta->size = QStringLiteral("20000");
    item.moreData = true;
    message.final = false;
    return message;
}

Message everyMetaEverywhere()
{
    Command add = commandOn(CommandKind::Add, QStringLiteral("1"), {itemAt(QStringLiteral("./A"))});
    add.meta = everyMeta();
    add.items.front().meta = everyMeta();
    Item emptyMeta = itemAt(QStringLiteral("./B"));
    emptyMeta.meta.emplace();
    add.items.push_back(emptyMeta);
    return messageOf(add);
}

Message nestedCommands()
{
    Command atomic = command(CommandKind::Atomic, QStringLiteral("2"));
    atomic.meta = formatAndType(QStringLiteral("chr"), QStringLiteral("text/plain"));
    atomic.commands = {
        valueCommand(CommandKind::Add, QStringLiteral("3"), QStringLiteral("./A/x"), "1"),
        valueCommand(CommandKind::Replace, QStringLiteral("4"), QStringLiteral("./A/y"), "2"),
        commandOn(CommandKind::Delete, QStringLiteral("5"), {itemAt(QStringLiteral("./A/z"))})};
    Command sequence = command(CommandKind::Sequence, QStringLiteral("1"));
    sequence.commands = {atomic, commandOn(CommandKind::Get, QStringLiteral("6"),
                                           {itemAt(QStringLiteral("./A")),
                                            itemAt(QStringLiteral("./A?list=StructData"))})};
    Message message = messageOf(sequence);
    message.commands.push_back(
        commandOn(CommandKind::Get, QStringLiteral("7"), {itemAt(QStringLiteral("."))}));
    return message;
}

Message everyMarkupCharacter()
{
    Message message = messageWithData("<Delete/>&amp;&#10;\"'\t  outer blanks ");
    message.commands.front().items.front().target->locUri =
        QStringLiteral("./A/a<b>&c\"d'e]]>/\U0001F4F6");
    return message;
}

Message lineEnds()
{
    return messageWithData("\r\nfirst\rsecond\n\r");
}

} // namespace

void PrintTo(const Sample &sample, std::ostream *out)
{
    *out << sample.name;
}

SyncHdr plainHeader()
{
    SyncHdr header;
    header.verDtd = QStringLiteral("1.2");
    header.verProto = QStringLiteral("DM/1.2");
    header.sessionId = QStringLiteral("A1");
    header.msgId = QStringLiteral("1");
    header.target = location(QStringLiteral("IMEI:493005100592800"));
    header.source = location(QStringLiteral("http://dm.example/dm"));
    return header;
}

Message messageOf(const Command &command)
{
    Message message;
    message.header = plainHeader();
    message.commands = {command};
    message.final = true;
    return message;
}

Message messageWithData(const QByteArray &data)
{
    Item item = itemAt(QStringLiteral("./A/value"));
    item.data = data;
    return messageOf(commandOn(CommandKind::Replace, QStringLiteral("1"), {item}));
}

std::vector<Sample> allSamples()
{
    Command alert = command(CommandKind::Alert, QStringLiteral("1"));
    alert.data = QByteArray("1201");
    const Command twoDeletes =
        commandOn(CommandKind::Delete, QStringLiteral("1"),
                  {itemAt(QStringLiteral("./A")), itemAt(QStringLiteral("./B"))});
    const Command add =
        valueCommand(CommandKind::Add, QStringLiteral("1"), QStringLiteral("./A/x"), "value");

    return {
        {"FullHeader", fullHeaderMessage()},
        {"CredWithoutMeta", credWithoutMeta()},
        {"FullStatus", fullStatus()},
        {"StatusOfCommandWithoutId", statusOfCommandWithoutId()},
        {"FullResults", fullResults()},
        {"PlainAlert", messageOf(alert)},
        {"AlertWithItems", alertWithItems()},
        {"Add", messageOf(add)},
        {"TwoDeletes", messageOf(twoDeletes)},
        {"Exec", execWithCorrelator()},
        {"Copy", copyBetweenNodes()},
        {"ChunkOfLargeObject", chunkOfLargeObject()},
        {"EveryMetaEverywhere", everyMetaEverywhere()},
        {"NestedCommands", nestedCommands()},
        {"EveryMarkupCharacter", everyMarkupCharacter()},
        {"LineEnds", lineEnds()},
        {"EndOfData", messageWithData("]]></Data></Item></Replace><Delete/>")},
        {"EmptyData", messageWithData("")},
        {"ByteOrderMarkInData", messageWithData("\xEF\xBB\xBF"
                                                "text")},
    };
}

} // namespace samples
