#include "cli/completion.h"

#include "cli/command_table.h"

#include <algorithm>

namespace client::cli {

namespace {

using Candidates = std::vector<Candidate>;

void offer(Candidates &candidates, const QString &prefix, const QString &word, bool isWhole = true)
{
    if (word.startsWith(prefix))
        candidates.push_back({word, isWhole});
}

// ---- Words of the table --------------------------------------------------------------------------

Candidates completeCommand(const QString &prefix)
{
    Candidates candidates;
    for (const CommandRow &command : commandTable())
        if (command.availability != Availability::CommandLineOnly)
            offer(candidates, prefix, QString::fromLatin1(command.name));
    return candidates;
}

Candidates completeOption(const CommandRow &command, const QString &prefix)
{
    Candidates candidates;
    for (const OptionRow &option : command.options)
        offer(candidates, prefix, QStringLiteral("--") + QString::fromLatin1(option.name));
    return candidates;
}

Candidates completeOptionValue(OptionValue value, const QString &prefix)
{
    Candidates candidates;
    if (value == OptionValue::Property)
        for (const QString &property : propertyNames())
            offer(candidates, prefix, property);
    if (value == OptionValue::Format)
        for (const QString &format : settableFormats())
            offer(candidates, prefix, format);
    return candidates;
}

/// What the option in front of the word wants; None when there is no such option.
OptionValue valueWantedBy(const CommandRow &command, const QString &word)
{
    for (const OptionRow &option : command.options)
        if (word == QStringLiteral("--") + QString::fromLatin1(option.name))
            return option.value;
    return OptionValue::None;
}

// ---- Words of the tree ---------------------------------------------------------------------------

std::vector<TreeNode> childrenOf(const QString &uri, const ManagementTree &tree)
{
    const Result<Address> address = parseAddress(uri, tree.uriLimits());
    if (!address)
        return {};
    const Result<TreeNode> node = tree.find(address->node);
    return node ? tree.children(*node) : std::vector<TreeNode>();
}

Candidates completeUri(const QString &prefix, const ManagementTree &tree)
{
    Candidates candidates;
    if (const qsizetype query = prefix.indexOf(u'?'); query >= 0) {
        for (const QString &property : propertyNames())
            offer(candidates, prefix, prefix.left(query) + QStringLiteral("?prop=") + property);
        return candidates;
    }
    const qsizetype slash = prefix.lastIndexOf(u'/');
    if (slash < 0) {
        offer(candidates, prefix, QStringLiteral("./"), false);
        return candidates;
    }
    for (const TreeNode &child : childrenOf(prefix.left(slash), tree)) {
        const QString uri = prefix.left(slash + 1) + displayName(child.uri().name());
        offer(candidates, prefix, child.isLeaf() ? uri : uri + u'/', child.isLeaf());
    }
    return candidates;
}

Candidates completeChildValue(const QString &parentUri, const QString &prefix,
                              const ManagementTree &tree)
{
    Candidates candidates;
    for (const TreeNode &child : childrenOf(parentUri, tree))
        if (child.isLeaf())
            offer(candidates, prefix, displayName(child.uri().name()) + u'=', false);
    return candidates;
}

} // namespace

std::vector<Candidate> complete(const UnfinishedLine &line, const ManagementTree &tree)
{
    if (line.words.isEmpty())
        return completeCommand(line.prefix);
    const CommandRow *const command = findCommand(line.words[0], true);
    if (!command)
        return {};
    if (line.prefix.startsWith(QStringLiteral("--")))
        return completeOption(*command, line.prefix);
    if (const OptionValue wanted = valueWantedBy(*command, line.words.last());
        wanted != OptionValue::None)
        return completeOptionValue(wanted, line.prefix);

    QString error;
    const auto before = parseInvocation(*command, line.words.mid(1), error, Completeness::Partial);
    const QStringList arguments = before ? before->arguments : QStringList();
    switch (arguments.isEmpty() ? command->firstArgument : command->otherArguments) {
    case ArgumentKind::Uri:
        return completeUri(line.prefix, tree);
    case ArgumentKind::ChildValue:
        return completeChildValue(arguments[0], line.prefix, tree);
    case ArgumentKind::Command:
        return completeCommand(line.prefix);
    case ArgumentKind::File:
    case ArgumentKind::None:
        break;
    }
    return {};
}

} // namespace client::cli
