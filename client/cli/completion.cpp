#include "completion.h"

#include "command_table.h"
#include "common_rows.h"

#include <QFile>
#include <algorithm>

namespace client::cli {

using commandline::Candidate;

NodeArgument nodeArgumentAfter(const Invocation &before)
{
    if (before.command == &commandline::helpCommand)
        return NodeArgument::None;
    const CommandRow &row = rowOf(*before.command);
    return before.arguments.isEmpty() ? row.firstNode : row.otherNodes;
}

namespace {

using Candidates = std::vector<Candidate>;

void offer(Candidates &candidates, const QString &prefix, const QString &word, bool isWhole = true)
{
    if (word.startsWith(prefix))
        candidates.push_back({word, isWhole});
}

// ---- Words of the tree ---------------------------------------------------------------------------

/// The node that a command finds under the address.
std::optional<TreeNode> nodeAt(const QString &uri, const TreeView &tree)
{
    const Result<Address> address = parseAddress(uri, tree.uriLimits());
    if (!address || address->query != Address::Query::None)
        return std::nullopt;
    const Result<TreeNode> node = tree.find(address->node);
    return node ? std::optional(*node) : std::nullopt;
}

/// Whether a command finds the node under its address. Some have names that no command takes.
bool isReachable(const TreeNode &node, const TreeView &tree)
{
    return nodeAt(node.uri().toDisplay(), tree).has_value();
}

/// The addresses of a node's children.
Candidates childAddresses(const QString &parentUri, const TreeView &tree)
{
    Candidates candidates;
    const auto parent = nodeAt(parentUri, tree);
    if (!parent || parent->isLeaf())
        return candidates;
    for (const TreeNode &child : tree.children(*parent)) {
        const QString uri = parentUri + u'/' + displayName(child.uri().name());
        if (isReachable(child, tree))
            candidates.push_back({uri, child.isLeaf()});
    }
    return candidates;
}

Candidates completeNode(const QString &prefix, const TreeView &tree)
{
    if (prefix.isEmpty())
        return {{QStringLiteral("."), false}};
    Candidates candidates;
    if (const qsizetype slash = prefix.lastIndexOf(u'/'); slash >= 0)
        candidates = childAddresses(prefix.left(slash), tree);
    std::erase_if(candidates,
                  [&](const Candidate &candidate) { return !candidate.word.startsWith(prefix); });
    // A slash comes only with a name after it: without one it would make the address a wrong one.
    const bool nothingIsMissing = std::ranges::all_of(candidates, [&](const Candidate &candidate) {
        return candidate.word == prefix && !candidate.isWhole;
    });
    return nothingIsMissing ? childAddresses(prefix, tree) : candidates;
}

bool canReplace(const TreeNode &node, Property property, const TreeView &tree)
{
    return isReplaceable(property) && (property != Property::Name || tree.mayRename(node));
}

Candidates completeProperty(const QString &prefix, NodeArgument kind, const TreeView &tree)
{
    Candidates candidates;
    const QString uri = prefix.left(prefix.indexOf(u'?'));
    const auto node = nodeAt(uri, tree);
    if (!node)
        return candidates;
    for (const QString &name : propertyNames()) {
        const Property property = *propertyNamed(name);
        const bool isTaken = kind == NodeArgument::UriToRead ? bool(tree.property(*node, property))
                                                             : canReplace(*node, property, tree);
        if (isTaken)
            offer(candidates, prefix, uri + QStringLiteral("?prop=") + name);
    }
    return candidates;
}

Candidates completeUri(const QString &prefix, NodeArgument kind, const TreeView &tree)
{
    if (!prefix.contains(u'?'))
        return completeNode(prefix, tree);
    const bool takesProperty =
        kind == NodeArgument::UriToRead || kind == NodeArgument::UriToReplace;
    return takesProperty ? completeProperty(prefix, kind, tree) : Candidates();
}

/// A name in front of the equals sign of CHILD=VALUE.
QString childWord(const QByteArray &name)
{
    QString word = displayName(name).replace(u'=', QStringLiteral("%3D"));
    if (word.startsWith(u'-')) // which begins an option
        word.replace(0, 1, QStringLiteral("%2D"));
    return word;
}

Candidates completeChildValue(const QString &parentUri, const QString &prefix, const TreeView &tree)
{
    Candidates candidates;
    const auto parent = nodeAt(parentUri, tree);
    if (!parent)
        return candidates;
    for (const TreeNode &child : tree.children(*parent))
        if (child.isLeaf() && isReachable(child, tree))
            offer(candidates, prefix, childWord(child.uri().name()) + u'=', false);
    return candidates;
}

} // namespace

std::vector<Candidate> completeNodeArgument(const Invocation &before, const QString &prefix,
                                            const TreeView &tree)
{
    switch (nodeArgumentAfter(before)) {
    case NodeArgument::Uri:
    case NodeArgument::UriToList:
    case NodeArgument::UriToRead:
    case NodeArgument::UriToReplace:
        return completeUri(prefix, nodeArgumentAfter(before), tree);
    case NodeArgument::ChildValue:
        return completeChildValue(before.arguments[0], prefix, tree);
    case NodeArgument::None:
        break;
    }
    return {};
}

std::vector<Candidate> complete(const UnfinishedLine &line, const TreeView &tree)
{
    return commandline::complete(shellProgram(), line,
                                 [&tree](const Invocation &before, const QString &prefix) {
                                     return completeNodeArgument(before, prefix, tree);
                                 })
        .candidates;
}

// ---- Without a shell -----------------------------------------------------------------------------

namespace {

/// The actions of "account" that are about one that is there.
constexpr QStringView actionsOnAccounts[] = {u"show", u"set", u"remove"};

bool namesAccount(const Invocation &before)
{
    const QStringList &arguments = before.arguments;
    const QByteArrayView command = before.command->name;
    return (command == "session" && arguments.isEmpty()) ||
           (command == "account" && arguments.size() == 1 &&
            std::ranges::find(actionsOnAccounts, arguments.first()) != std::end(actionsOnAccounts));
}

Candidates accountNames(DmDevice &device)
{
    Candidates candidates;
    for (const auto &[name, account] : device.accounts().accounts())
        candidates.push_back({name});
    return candidates;
}

} // namespace

std::vector<Candidate> completeArgument(const Invocation &before, const QString &prefix)
{
    const bool isNode = nodeArgumentAfter(before) != NodeArgument::None;
    const DmDevice::Options options = deviceOptions(before);
    if ((!isNode && !namesAccount(before)) || !QFile::exists(options.stateDirectory))
        return {};
    const auto device = DmDevice::open(options);
    if (!device)
        return {};
    if (!isNode)
        return accountNames(**device);
    if (!(*device)->makeTree())
        return {};
    return completeNodeArgument(before, prefix, (*device)->ownersView());
}

QString commonStart(const std::vector<Candidate> &candidates)
{
    QString common = candidates.front().word;
    for (const Candidate &candidate : candidates)
        while (!candidate.word.startsWith(common))
            common.chop(1);
    if (candidates.size() == 1)
        return common;
    if (!common.isEmpty() && common.back().isHighSurrogate())
        common.chop(1);
    constexpr qsizetype escapeLength = 3;
    if (const qsizetype escape = common.lastIndexOf(u'%');
        escape >= 0 && escape > common.size() - escapeLength)
        common.truncate(escape);
    return common;
}

} // namespace client::cli
