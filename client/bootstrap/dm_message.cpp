#include "dm_message.h"

#include "bootstrap_message.h"
#include "byte_reader.h"
#include "codec.h"
#include "device_tree.h"
#include "element_source.h"
#include "media_type.h"
#include "node_uri.h"
#include "wbxml_tokens.h"

#include <algorithm>
#include <iterator>

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;
using syncml::Command;
using syncml::CommandKind;
using syncml::Item;

namespace {

bool hasPublicIdOfDm(const QByteArray &wbxml)
{
    constexpr quint32 dmIds[] = {0x0FD3, 0x1201};
    syncml::ByteReader reader(wbxml);
    quint8 version = 0;
    quint32 publicId = 0;
    if (!reader.readByte(version) || !reader.readNumber(publicId))
        return false;
    if (publicId != syncml::wbxml::idInStringTable)
        return std::ranges::find(dmIds, publicId) != std::end(dmIds);
    return wbxml.contains("//DTD SyncML ");
}

/// Appends the objects of an item.
Expected<void, QString> readItem(const Command &add, const Item &item, std::vector<TndsNode> &nodes)
{
    const QString place =
        QStringLiteral("Add %1 of %2").arg(add.cmdId.value_or(QString()), addressOf(item));
    const auto wrong = [&place](const QString &what) {
        return Unexpected(QStringLiteral("%1: %2").arg(place, what));
    };
    const Result<Address> address = item.target
                                        ? parseAddress(item.target->locUri)
                                        : Result<Address>(Outcome{DmStatus::IncompleteCommand, {}});
    if (!address || address->query != Address::Query::None || address->node != nodeAt(inboxAddress))
        return wrong(QStringLiteral("a bootstrap message adds to ./Inbox"));
    const auto typeOf = [](const support::Boxed<syncml::Meta> &meta) {
        return meta ? meta->type.value_or(QString()) : QString();
    };
    const QString own = typeOf(item.meta);
    if (!syncml::isSerialisedTree(own.isEmpty() ? typeOf(add.meta) : own))
        return wrong(QStringLiteral("its type is not that of a serialised tree"));
    if (!item.data || item.moreData)
        return wrong(QStringLiteral("the tree is not there as a whole"));
    TndsLimits limits;
    limits.bytes = largestBootstrapMessage;
    const Result<std::vector<TndsNode>> read = readTnds(*item.data, limits);
    if (!read)
        return wrong(read.error().reason);
    nodes.insert(nodes.end(), read->begin(), read->end());
    return {};
}

Expected<void, QString> readCommands(const std::vector<Command> &commands,
                                     std::vector<TndsNode> &nodes)
{
    for (const Command &command : commands) {
        if (command.kind == CommandKind::Sequence || command.kind == CommandKind::Atomic) {
            if (auto read = readCommands(command.commands, nodes); !read)
                return read;
            continue;
        }
        if (command.kind != CommandKind::Add)
            return Unexpected(QStringLiteral("a bootstrap message has Adds in it, and no %1")
                                  .arg(syncml::commandName(command)));
        for (const Item &item : command.items)
            if (auto read = readItem(command, item, nodes); !read)
                return read;
    }
    return {};
}

} // namespace

bool looksLikeDmMessage(const QByteArray &bytes)
{
    const auto encoding = syncml::recogniseEncoding(bytes);
    if (encoding != syncml::Encoding::Xml)
        return encoding && hasPublicIdOfDm(bytes);
    const auto source = syncml::makeTreeSource(bytes, {});
    return source->openDocument() && source->element() == syncml::Element::SyncML;
}

Expected<std::vector<TndsNode>, QString> readDmMessage(const QByteArray &bytes)
{
    syncml::Limits limits;
    limits.messageBytes = limits.textBytes = largestBootstrapMessage;
    const syncml::DecodeResult message = syncml::decode(bytes, limits);
    if (!message)
        return Unexpected(message.error().toString());
    std::vector<TndsNode> nodes;
    if (auto read = readCommands(message->commands, nodes); !read)
        return Unexpected(read.error());
    return nodes;
}

} // namespace client::bootstrap
