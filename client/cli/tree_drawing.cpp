#include "tree_drawing.h"

#include "json_value.h"
#include "secret_leaf.h"

#include <QJsonArray>
#include <algorithm>

namespace client::cli {

using commandline::Colour;
using commandline::printable;

namespace {

bool isMasked(const ListedNode &leaf, Secrets secrets)
{
    return secrets == Secrets::Mask &&
           client::isMasked(leaf.node.uri().name(), valueText(**leaf.value));
}

// ---- Drawing -------------------------------------------------------------------------------------

QString valueColumn(const ListedNode &leaf, Secrets secrets, const Painter &painter)
{
    if (!*leaf.value)
        return painter.paint(Colour::Problem, describe(leaf.value->outcome().status));
    if (isMasked(leaf, secrets))
        return painter.paint(Colour::Faint, QString::fromLatin1(secretMask));
    const QString text = printable(valueText(**leaf.value));
    const bool isEmptyText = text.isEmpty() && (*leaf.value)->GetType() == DmtData::String;
    return isEmptyText ? painter.paint(Colour::Faint, QStringLiteral("\"\"")) : text;
}

/// Branches in front of each node: "│   └── ".
std::vector<QString> branches(const std::vector<ListedNode> &listing)
{
    std::vector<QString> prefixes(listing.size());
    // From the last line up it is known which levels have another node further down.
    std::vector<bool> continues;
    for (std::size_t i = listing.size(); i-- > 0;) {
        const auto depth = static_cast<std::size_t>(listing[i].depth);
        continues.resize(depth + 1, false);
        QString &prefix = prefixes[i];
        for (std::size_t level = 1; level < depth; ++level)
            prefix += continues[level] ? QStringLiteral("│   ") : QStringLiteral("    ");
        if (depth > 0)
            prefix += continues[depth] ? QStringLiteral("├── ") : QStringLiteral("└── ");
        continues[depth] = true;
    }
    return prefixes;
}

QString nameColumn(const ListedNode &entry)
{
    return entry.depth == 0 ? entry.node.uri().toDisplay() : displayName(entry.node.uri().name());
}

} // namespace

QStringList drawTree(const std::vector<ListedNode> &listing, Secrets secrets,
                     const Painter &painter)
{
    const std::vector<QString> prefixes = branches(listing);
    qsizetype width = 0;
    for (std::size_t i = 0; i < listing.size(); ++i)
        if (listing[i].value)
            width = std::max(width, prefixes[i].size() + nameColumn(listing[i]).size());

    constexpr int formatWidth = 4; // "bool" and "null"
    QStringList lines;
    for (std::size_t i = 0; i < listing.size(); ++i) {
        const ListedNode &entry = listing[i];
        QString line = painter.paint(Colour::Faint, prefixes[i]);
        if (entry.value) {
            const QString format = formatName(entry.node.valueType()).leftJustified(formatWidth);
            line += nameColumn(entry).leftJustified(width - prefixes[i].size()) +
                    QStringLiteral("  ") + painter.paint(Colour::Faint, format) +
                    QStringLiteral("  ") + valueColumn(entry, secrets, painter);
        } else {
            line += painter.paint(Colour::Name, nameColumn(entry));
        }
        while (line.endsWith(u' '))
            line.chop(1);
        lines.push_back(line);
    }
    return lines;
}

// ---- JSON ----------------------------------------------------------------------------------------

namespace {

void addLeafValue(QJsonObject &object, const ListedNode &leaf, Secrets secrets)
{
    if (!*leaf.value) {
        object[u"status"] = static_cast<int>(leaf.value->outcome().status);
        return;
    }
    const DmtData &value = **leaf.value;
    int number = 0;
    bool flag = false;
    if (isMasked(leaf, secrets))
        addValue(object, valueText(value), true);
    else if (value.GetType() == DmtData::Null)
        object[u"value"] = QJsonValue();
    else if (value.GetInt(number) == 0)
        object[u"value"] = number;
    else if (value.GetBoolean(flag) == 0)
        object[u"value"] = flag;
    else if (value.GetType() == DmtData::Bin)
        addBinary(object, valueBytes(value));
    else
        addValue(object, valueText(value), false);
}

/// The node at the position with everything beneath it; the position moves after them.
QJsonObject nodeToJson(const std::vector<ListedNode> &listing, std::size_t &position,
                       Secrets secrets)
{
    const ListedNode &entry = listing[position++];
    QJsonObject object;
    object[u"name"] = QString::fromUtf8(entry.node.uri().name());
    object[u"uri"] = QString::fromLatin1(entry.node.uri().toUri());
    object[u"format"] = formatName(entry.node.valueType());
    if (entry.value) {
        addLeafValue(object, entry, secrets);
        return object;
    }
    QJsonArray children;
    while (position < listing.size() && listing[position].depth > entry.depth)
        children.append(nodeToJson(listing, position, secrets));
    object[u"children"] = children;
    return object;
}

} // namespace

QJsonObject treeToJson(const std::vector<ListedNode> &listing, Secrets secrets)
{
    std::size_t position = 0;
    return nodeToJson(listing, position, secrets);
}

} // namespace client::cli
