#include "message_json.h"

#include "message_scan.h"
#include "secret_mask.h"
#include "text_or_base64.h"
#include "tnds_secrets.h"

#include <QJsonArray>
#include <QSet>
#include <algorithm>
#include <iterator>

namespace client {

using support::secretMask;
using syncml::Command;
using syncml::CommandKind;
using syncml::Item;
using syncml::Message;

// ---- What may be shown ---------------------------------------------------------------------------

Secrecy secrecyOf(const Command &command, const Item &item, const MessageSecrecy &secrecy)
{
    if (secrecy.showsSecrets)
        return Secrecy::None;
    const bool answersSecretQuestion =
        command.kind == CommandKind::Status &&
        secrecy.secretQuestions.contains(
            {command.msgRef.value_or(QString()), command.cmdRef.value_or(QString())});
    return answersSecretQuestion ? Secrecy::Whole : secrecyOf(command, item);
}

namespace {

/// Replaces the values of secret leaves.
QByteArray withoutFields(const QByteArray &tree)
{
    const auto values = secretValues(tree);
    if (!values)
        return secretMask;
    QByteArray shown;
    qsizetype from = 0;
    ByteSpans inOrder = *values;
    std::ranges::sort(inOrder, {}, &ByteSpan::begin);
    for (const ByteSpan &value : inOrder) {
        shown += tree.sliced(from, std::max(value.begin - from, qsizetype(0))) + secretMask;
        from = std::max(from, value.end);
    }
    return shown + tree.sliced(from);
}

} // namespace

QByteArray shownData(const Command &command, const Item &item, const MessageSecrecy &secrecy)
{
    const QByteArray data = item.data.value_or(QByteArray());
    if (data.isEmpty())
        return data;
    switch (secrecyOf(command, item, secrecy)) {
    case Secrecy::Whole:
        return secretMask;
    case Secrecy::Fields:
        return withoutFields(data);
    case Secrecy::None:
        break;
    }
    return data;
}

// ---- JSON ----------------------------------------------------------------------------------------

namespace {

void add(QJsonObject &object, const char *name, const std::optional<QString> &text)
{
    if (text)
        object[QLatin1String(name)] = *text;
}

void add(QJsonObject &object, const char *name, const support::Boxed<QString> &text)
{
    if (text)
        object[QLatin1String(name)] = *text;
}

/// A text that the protocol gives no meaning to, and a server any.
QString freeText(const QString &text, const MessageSecrecy &secrecy)
{
    return secrecy.showsSecrets ? text : secrecy.known.masked(text);
}

void addLocation(QJsonObject &object, const QString &name, const syncml::Location &location,
                 const MessageSecrecy &secrecy)
{
    object[name] = location.locUri;
    if (location.locName)
        object[name + QStringLiteral("Name")] = freeText(*location.locName, secrecy);
}

QJsonArray texts(const std::vector<QString> &list)
{
    QJsonArray array;
    for (const QString &text : list)
        array += text;
    return array;
}

void addList(QJsonObject &object, const char *name, const QJsonArray &list)
{
    if (!list.isEmpty())
        object[QLatin1String(name)] = list;
}

QJsonObject metaToJson(const syncml::Meta &meta, const MessageSecrecy &secrecy)
{
    QJsonObject object;
    add(object, "format", meta.format);
    add(object, "type", meta.type);
    if (meta.mark)
        object[u"mark"] = freeText(*meta.mark, secrecy);
    add(object, "size", meta.size);
    if (meta.nextNonce)
        object[u"nextNonce"] = QString::fromUtf8(*meta.nextNonce);
    add(object, "maxMsgSize", meta.maxMsgSize);
    add(object, "maxObjSize", meta.maxObjSize);
    QJsonArray emi;
    for (const QString &text : meta.emi)
        emi += freeText(text, secrecy);
    addList(object, "emi", emi);
    return object;
}

void addMeta(QJsonObject &object, const char *name, const support::Boxed<syncml::Meta> &meta,
             const MessageSecrecy &secrecy)
{
    if (meta)
        object[QLatin1String(name)] = metaToJson(*meta, secrecy);
}

QJsonObject headerToJson(const syncml::SyncHdr &header, const MessageSecrecy &secrecy)
{
    QJsonObject object{{QStringLiteral("verDtd"), header.verDtd},
                       {QStringLiteral("verProto"), header.verProto},
                       {QStringLiteral("sessionId"), header.sessionId},
                       {QStringLiteral("msgId"), header.msgId}};
    addLocation(object, QStringLiteral("target"), header.target, secrecy);
    addLocation(object, QStringLiteral("source"), header.source, secrecy);
    add(object, "respUri", header.respUri);
    if (header.cred) {
        QJsonObject cred;
        const bool isShown = secrecy.showsSecrets || header.cred->data.isEmpty();
        addText(cred, QStringLiteral("data"), isShown ? header.cred->data : QByteArray(secretMask));
        cred.remove(QStringLiteral("encoding"));
        if (header.cred->meta) {
            add(cred, "type", header.cred->meta->type);
            add(cred, "format", header.cred->meta->format);
        }
        object[u"cred"] = cred;
    }
    if (header.meta) {
        add(object, "maxMsgSize", header.meta->maxMsgSize);
        add(object, "maxObjSize", header.meta->maxObjSize);
    }
    return object;
}

QJsonObject itemToJson(const Command &command, const Item &item, const MessageSecrecy &secrecy)
{
    QJsonObject object;
    if (item.target)
        addLocation(object, QStringLiteral("target"), *item.target, secrecy);
    if (item.source)
        addLocation(object, QStringLiteral("source"), *item.source, secrecy);
    addMeta(object, "meta", item.meta, secrecy);
    if (item.data)
        addText(object, QStringLiteral("data"), shownData(command, item, secrecy));
    if (item.moreData)
        object[u"moreData"] = true;
    return object;
}

QJsonArray commandsToJson(const std::vector<Command> &commands, const MessageSecrecy &secrecy);

QJsonObject commandToJson(const Command &command, const MessageSecrecy &secrecy)
{
    QJsonObject object{{QStringLiteral("name"), syncml::commandName(command)}};
    add(object, "cmdId", command.cmdId);
    add(object, "msgRef", command.msgRef);
    add(object, "cmdRef", command.cmdRef);
    add(object, "cmd", command.cmd);
    addList(object, "targetRefs", texts(command.targetRefs));
    addList(object, "sourceRefs", texts(command.sourceRefs));
    if (command.data)
        addText(object, QStringLiteral("data"), *command.data);
    addMeta(object, "meta", command.meta, secrecy);
    if (command.chal)
        addMeta(object, "chal", command.chal->meta, secrecy);
    add(object, "correlator", command.correlator);
    QJsonArray items;
    for (const Item &item : command.items)
        items += itemToJson(command, item, secrecy);
    addList(object, "items", items);
    addList(object, "commands", commandsToJson(command.commands, secrecy));
    return object;
}

QJsonArray commandsToJson(const std::vector<Command> &commands, const MessageSecrecy &secrecy)
{
    QJsonArray array;
    for (const Command &command : commands)
        array += commandToJson(command, secrecy);
    return array;
}

} // namespace

QJsonObject messageToJson(const Message &message, const MessageSecrecy &secrecy)
{
    return {{QStringLiteral("header"), headerToJson(message.header, secrecy)},
            {QStringLiteral("commands"), commandsToJson(message.commands, secrecy)},
            {QStringLiteral("final"), message.final}};
}

// ---- Bytes ---------------------------------------------------------------------------------------

namespace {

bool isOverwritten(QByteArrayView bytes)
{
    return std::ranges::all_of(bytes, [](char byte) { return byte == '*'; });
}

bool isOverwritten(const std::vector<Command> &commands, const MessageSecrecy &secrecy);

bool isOverwritten(const Command &command, const Item &item, const MessageSecrecy &secrecy)
{
    const QByteArray data = item.data.value_or(QByteArray());
    const Secrecy kind = secrecyOf(command, item, secrecy);
    if (kind == Secrecy::None || isOverwritten(data))
        return true;
    const auto values = kind == Secrecy::Fields ? secretValues(data) : std::nullopt;
    return values && std::ranges::all_of(*values, [&data](const ByteSpan &value) {
               return isOverwritten(
                   QByteArrayView(data).sliced(value.begin, value.end - value.begin));
           });
}

bool isOverwritten(const std::vector<Command> &commands, const MessageSecrecy &secrecy)
{
    return std::ranges::all_of(commands, [&](const Command &command) {
        return std::ranges::all_of(
                   command.items,
                   [&](const Item &item) { return isOverwritten(command, item, secrecy); }) &&
               isOverwritten(command.commands, secrecy);
    });
}

/// Whether nothing in the message is a secret any more.
bool isOverwritten(const Message &message, const MessageSecrecy &secrecy)
{
    return (!message.header.cred || isOverwritten(message.header.cred->data)) &&
           isOverwritten(message.commands, secrecy);
}

/// The texts of a message.
void collectTexts(const QJsonValue &value, QSet<QString> &texts)
{
    if (value.isString())
        texts.insert(value.toString());
    for (const QJsonValue &entry : value.toArray())
        collectTexts(entry, texts);
    for (const QJsonValue &field : value.toObject())
        collectTexts(field, texts);
}

} // namespace

std::optional<QByteArray> shownBytes(const QByteArray &bytes, const Message &message,
                                     const MessageSecrecy &secrecy)
{
    if (secrecy.showsSecrets)
        return bytes;
    const syncml::Encoding encoding = *syncml::recogniseEncoding(bytes);
    auto spans = secretSpans(bytes, encoding, secrecy.secretQuestions);
    if (!spans)
        return std::nullopt;
    const QJsonObject decoded = messageToJson(message, secrecy);
    if (!secrecy.known.isEmpty()) {
        QSet<QString> texts;
        collectTexts(decoded, texts);
        std::ranges::move(unreadSecretSpans(bytes, encoding, secrecy.known, texts),
                          std::back_inserter(*spans));
    }
    if (spans->empty())
        return isOverwritten(message, secrecy) ? std::optional(bytes) : std::nullopt;
    QByteArray shown = bytes;
    overwrite(shown, *spans);
    const syncml::DecodeResult again = syncml::decode(shown);
    const bool isTheSame =
        again && isOverwritten(*again, secrecy) && messageToJson(*again, secrecy) == decoded;
    return isTheSame ? std::optional(shown) : std::nullopt;
}

} // namespace client
