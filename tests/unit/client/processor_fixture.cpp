#include "processor_fixture.h"

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;
using syncml::Location;

Location location(const QByteArray &uri)
{
    return {QString::fromUtf8(uri), std::nullopt};
}

Item target(const QByteArray &uri, std::optional<QByteArray> data)
{
    Item item;
    item.target = location(uri);
    item.data = std::move(data);
    return item;
}

Item formatted(Item item, const char *format)
{
    item.meta.emplace();
    item.meta->format = QString::fromLatin1(format);
    return item;
}

Command command(CommandKind kind, std::vector<Item> items, const char *cmdId)
{
    Command made;
    made.kind = kind;
    made.cmdId = QString::fromLatin1(cmdId);
    made.items = std::move(items);
    return made;
}

Command group(CommandKind kind, std::vector<Command> commands, const char *cmdId)
{
    Command made = command(kind, {}, cmdId);
    made.commands = std::move(commands);
    return made;
}

Lines summary(const std::vector<Command> &answers)
{
    Lines lines;
    for (const Command &answer : answers) {
        std::string line = answer.kind == CommandKind::Status ? "Status " : "Results ";
        line += answer.cmdRef->toStdString();
        if (answer.kind == CommandKind::Status)
            line += " " + answer.cmd->toStdString() + " " + answer.data->toStdString();
        for (const QString &reference : answer.targetRefs)
            line += " <" + reference.toStdString();
        for (const QString &reference : answer.sourceRefs)
            line += " >" + reference.toStdString();
        for (const Item &item : answer.items) {
            line += " [" + (item.source ? item.source->locUri.toStdString() : std::string());
            if (item.meta)
                line += " " + item.meta->format.value_or(QString()).toStdString() + " " +
                        item.meta->type.value_or(QString()).toStdString();
            line += item.data ? "=" + item.data->toStdString() : "";
            line += "]";
        }
        lines.push_back(line);
    }
    return lines;
}

} // namespace client
