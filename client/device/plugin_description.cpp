#include "plugin_description.h"

#include "json_object.h"
#include "media_type.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <algorithm>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr qint64 largestDescription = 64 * 1024;
constexpr qsizetype mostRoots = 64;
constexpr qsizetype mostLongExec = 64;

constexpr char libraryKey[] = "library";
constexpr char rootsKey[] = "roots";
constexpr char longExecKey[] = "longExec";
constexpr const char *memberKeys[] = {libraryKey, rootsKey, longExecKey};

/// Where the client has nodes that no plug-in can be in place of, or beneath.
constexpr const char *ownNodes[] = {"./DevInfo", "./DevDetail", "./DMAcc", "./Inbox"};
/// But for this one, which is there for others.
constexpr char extensionNode[] = "./DevDetail/Ext";

bool overlap(const NodeUri &one, const NodeUri &other)
{
    return one.contains(other) || other.contains(one);
}

/// Why no plug-in can be at the root; null when one can.
const char *objectionTo(const NodeUri &root)
{
    const NodeUri extension = nodeAt(extensionNode);
    if (root != extension && extension.contains(root))
        return nullptr;
    const bool isTaken = std::ranges::any_of(
        ownNodes, [&root](const char *node) { return overlap(nodeAt(node), root); });
    return isTaken ? "the client has nodes of its own there" : nullptr;
}

Expected<NodeUri, QString> readRoot(const QJsonValue &value)
{
    const QString text = value.toString();
    const auto address = parseAddress(text);
    if (!value.isString() || !address || address->query != Address::Query::None)
        return Unexpected(QStringLiteral("\"%1\" is not the address of a node").arg(text));
    if (const char *const objection = objectionTo(address->node))
        return Unexpected(QStringLiteral("%1: %2").arg(text, QLatin1String(objection)));
    return address->node;
}

Expected<std::vector<NodeUri>, QString> readRoots(const QJsonValue &value)
{
    const QJsonArray texts = value.toArray();
    if (texts.isEmpty() || texts.size() > mostRoots)
        return Unexpected(QStringLiteral("%1 is not a list of 1 to %2 addresses")
                              .arg(QLatin1String(rootsKey))
                              .arg(mostRoots));
    std::vector<NodeUri> roots;
    for (const QJsonValue &text : texts) {
        auto root = readRoot(text);
        if (!root)
            return Unexpected(root.error());
        const bool isTaken =
            std::ranges::any_of(roots, [&](const NodeUri &other) { return overlap(other, *root); });
        if (isTaken)
            return Unexpected(
                QStringLiteral("%1 is within another of the roots").arg(root->toDisplay()));
        roots.push_back(*std::move(root));
    }
    return roots;
}

Expected<std::map<NodeUri, QString>, QString> readLongExec(const QJsonValue &value,
                                                           const std::vector<NodeUri> &roots)
{
    std::map<NodeUri, QString> nodes;
    if (value.isUndefined())
        return nodes;
    const QJsonObject types = value.toObject();
    if (!value.isObject() || types.size() > mostLongExec)
        return Unexpected(QStringLiteral("%1 is not an object of at most %2 addresses")
                              .arg(QLatin1String(longExecKey))
                              .arg(mostLongExec));
    for (auto entry = types.begin(); entry != types.end(); ++entry) {
        const auto address = parseAddress(entry.key());
        const bool isNode = address && address->query == Address::Query::None;
        if (!isNode || std::ranges::none_of(roots, [&address](const NodeUri &root) {
                return root.contains(address->node);
            }))
            return Unexpected(
                QStringLiteral("\"%1\" is not the address of a node beneath its roots")
                    .arg(entry.key()));
        const QString type = entry.value().toString();
        if (!syncml::isAlertType(type))
            return Unexpected(
                QStringLiteral("%1: \"%2\" is neither Content-Type: nor Reversed-Domain-Name: "
                               "with a name behind it")
                    .arg(entry.key(), type));
        nodes[address->node] = type;
    }
    return nodes;
}

Expected<PluginDescription, QString> readMembers(const QJsonObject &members, const QString &folder)
{
    for (const QString &name : members.keys())
        if (std::ranges::none_of(memberKeys,
                                 [&name](const char *key) { return name == QLatin1String(key); }))
            return Unexpected(QStringLiteral("there is no member %1").arg(name));
    PluginDescription description;
    description.library = members[QLatin1String(libraryKey)].toString();
    if (description.library.isEmpty())
        return Unexpected(QStringLiteral("%1 is not a text").arg(QLatin1String(libraryKey)));
    // Without a slash it is the loader that looks for it.
    if (description.library.contains(u'/'))
        description.library = QDir(folder).absoluteFilePath(description.library);
    auto roots = readRoots(members[QLatin1String(rootsKey)]);
    if (!roots)
        return Unexpected(roots.error());
    description.roots = *std::move(roots);
    auto longExec = readLongExec(members[QLatin1String(longExecKey)], description.roots);
    if (!longExec)
        return Unexpected(longExec.error());
    description.longExec = *std::move(longExec);
    return description;
}

} // namespace

Expected<PluginDescription, QString> readPluginDescription(const QString &file)
{
    QFile opened(file);
    if (!opened.open(QIODevice::ReadOnly))
        return Unexpected(QStringLiteral("cannot read %1: %2").arg(file, opened.errorString()));
    const QByteArray bytes = opened.read(largestDescription + 1);
    if (opened.error() != QFileDevice::NoError)
        return Unexpected(QStringLiteral("cannot read %1: %2").arg(file, opened.errorString()));
    if (bytes.size() > largestDescription)
        return Unexpected(
            QStringLiteral("%1 is larger than %2 bytes").arg(file).arg(largestDescription));
    const auto members = support::parseJsonObject(bytes);
    if (!members)
        return Unexpected(QStringLiteral("%1: %2").arg(file, members.error()));
    auto description = readMembers(*members, QFileInfo(file).path());
    if (!description)
        return Unexpected(QStringLiteral("%1: %2").arg(file, description.error()));
    return description;
}

PluginDescriptions readPluginDescriptions(const QString &folder)
{
    PluginDescriptions found;
    const QDir files(folder);
    if (!files.isReadable()) {
        found.faults += QStringLiteral("cannot list the plug-ins in %1").arg(folder);
        return found;
    }
    std::vector<NodeUri> taken;
    for (const QString &name :
         files.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name)) {
        const QString file = files.filePath(name);
        auto description = readPluginDescription(file);
        if (!description) {
            found.faults += description.error();
            continue;
        }
        const auto isTaken = [&taken](const NodeUri &root) {
            return std::ranges::any_of(taken,
                                       [&](const NodeUri &other) { return overlap(other, root); });
        };
        const auto root = std::ranges::find_if(description->roots, isTaken);
        if (root != description->roots.end()) {
            found.faults +=
                QStringLiteral("%1: another plug-in is at %2 already").arg(file, root->toDisplay());
            continue;
        }
        taken.insert(taken.end(), description->roots.begin(), description->roots.end());
        found.plugins.push_back(*std::move(description));
    }
    return found;
}

} // namespace client
