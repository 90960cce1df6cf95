#include "commands.h"

#include "command_table.h"
#include "ddf.h"
#include "difference_report.h"
#include "input_file.h"
#include "json_value.h"
#include "package.h"
#include "recording.h"
#include "secret_leaf.h"
#include "session_report.h"
#include "shell.h"
#include "tree_drawing.h"

#include <QByteArrayList>
#include <QJsonArray>
#include <QJsonDocument>
#include <optional>
#include <utility>

namespace client::cli {

ExitStatus problem(const Context &context, const QString &text, ExitStatus status)
{
    return context.output.problem(QStringLiteral("%1: %2").arg(context.commandName(), text),
                                  status);
}

ExitStatus wrongUsage(const Context &context, const QString &text)
{
    return problem(context, text, ExitStatus::WrongUsage);
}

namespace {

/// Name of the DM command that a person's command is, as far as there is one.
QString dmName(const Context &context)
{
    QString name = context.commandName();
    name[0] = name[0].toUpper();
    return name;
}

/// Tells the record how the command on a node ended.
void recordEnd(Context &context, const QString &uri, const Outcome &outcome)
{
    if (!context.recording)
        return;
    const QStringList &arguments = context.invocation.arguments;
    TypedCommand command{.name = dmName(context), .target = uri, .outcome = outcome};
    if (command.name == QStringLiteral("Copy"))
        command.source = arguments[0];
    else if (command.name == QStringLiteral("Rename"))
        command.source = arguments[1];
    command.format = context.invocation.value("format");
    command.value = std::exchange(context.value, std::nullopt);
    context.recording->recorder().typedCommandEnded(command);
}

/// Reports how the command on a node ended. What succeeded and yet has a reason is told as well.
ExitStatus reportEnd(Context &context, const QString &uri, const Outcome &outcome)
{
    const QString ending =
        QStringLiteral("%1 %2: %3").arg(context.commandName(), uri, describe(outcome));
    QStringList differences;
    for (const DifferenceNote &note : lookAfterCommand(context))
        differences += note.text;
    if (differences.isEmpty())
        context.output.ending(ending, outcome && outcome.reason.isEmpty());
    else
        context.output.notice(ending + QStringLiteral(", but ") +
                              differences.join(QStringLiteral("; ")));
    if (const QString missing = missingLook(context); !missing.isEmpty())
        context.output.notice(QStringLiteral("%1 %2: %3").arg(context.commandName(), uri, missing));
    return outcome ? ExitStatus::Success : ExitStatus::Failed;
}

/// Both.
ExitStatus finish(Context &context, const QString &uri, const Outcome &outcome)
{
    recordEnd(context, uri, outcome);
    return reportEnd(context, uri, outcome);
}

Secrets secretsOf(const Invocation &invocation)
{
    return invocation.has("show-secrets") ? Secrets::Show : Secrets::Mask;
}

/// Runs an operation on what a URI names. @return its outcome, with what was said meanwhile
template <class Operation>
Outcome watched(const Context &context, const QString &uri, Operation operation)
{
    CommandWatch *const watch = context.device->tree().commandWatch();
    if (watch)
        watch->begin(context.commandName(), uri);
    Outcome outcome = operation();
    if (watch)
        watch->end(outcome);
    return outcome;
}

/// Runs an operation on the node that a URI names, and reports how it ended.
template <class Operation>
ExitStatus onNode(Context &context, const QString &uri, Operation operation)
{
    const Result<Address> address = parseAddress(uri, context.device->tree().uriLimits());
    if (!address)
        return finish(context, uri, address.outcome());
    if (address->query != Address::Query::None)
        return wrongUsage(context, QStringLiteral("%1 names more than a node").arg(uri));
    return finish(context, uri,
                  watched(context, uri, [&] { return Outcome(operation(address->node)); }));
}

} // namespace

// ---- Reading -------------------------------------------------------------------------------------

ExitStatus runTree(Context &context)
{
    const Invocation &invocation = context.invocation;
    const QString uri = invocation.arguments.value(0, QStringLiteral("."));
    const Secrets secrets = secretsOf(invocation);
    return onNode(context, uri, [&](const NodeUri &node) {
        const TreeView tree = context.device->ownersView();
        const Result<TreeNode> start = tree.find(node);
        if (!start)
            return start.outcome();
        const std::vector<ListedNode> listing = tree.list(*start, TreeView::Values::Read);
        if (invocation.has("json")) {
            context.output.json(QJsonDocument(treeToJson(listing, secrets)),
                                QJsonDocument::Indented);
        } else {
            for (const QString &line : drawTree(listing, secrets, context.output.painter()))
                context.output.line(line);
        }
        // A leaf that nobody can read, such as a secret of an account, is not a failure of the
        // drawing.
        for (const ListedNode &listed : listing)
            if (listed.value && !*listed.value &&
                listed.value->outcome().status != DmStatus::NotAllowed)
                return listed.value->outcome();
        return Outcome();
    });
}

namespace {

/// What a node or a property was read as: for people, or for programs.
struct Reading {
    QByteArrayList lines;
    QJsonObject object;
};

Reading readingOfNode(const TreeView &tree, const TreeNode &node, Secrets secrets)
{
    Reading reading{{}, treeToJson({ListedNode{node, 0, std::nullopt}}, secrets)};
    QJsonArray names;
    for (const TreeNode &child : tree.children(node)) {
        reading.lines += displayName(child.uri().name()).toUtf8();
        names += QString::fromUtf8(child.uri().name());
    }
    reading.object[u"children"] = names;
    return reading;
}

Result<Reading> readLeaf(const TreeView &tree, const TreeNode &leaf, Secrets secrets)
{
    const Result<DmtData> value = tree.value(leaf);
    if (!value)
        return value.outcome();
    const QByteArray text = valueText(*value);
    const bool isHidden = secrets == Secrets::Mask && isMasked(leaf.uri().name(), text);
    return Reading{{isHidden ? QByteArray(secretMask) : text},
                   treeToJson({ListedNode{leaf, 0, value}}, secrets)};
}

Result<Reading> readProperty(const TreeView &tree, const TreeNode &node, const QString &name)
{
    const auto property = propertyNamed(name);
    if (!property)
        return Outcome{DmStatus::FeatureNotSupported, QStringLiteral("no property %1").arg(name)};
    const Result<QByteArray> value = tree.property(node, *property);
    if (!value)
        return value.outcome();
    Reading reading{{*value},
                    {{QStringLiteral("uri"), QString::fromLatin1(node.uri().toUri())},
                     {QStringLiteral("property"), name}}};
    addValue(reading.object, *value, false);
    return reading;
}

Result<Reading> readAddress(const Context &context, const QString &uri)
{
    const Invocation &invocation = context.invocation;
    const TreeView tree = context.device->ownersView();
    const Result<Address> address = parseAddress(uri, tree.uriLimits());
    if (!address)
        return address.outcome();
    const Result<TreeNode> node = tree.findToRead(address->node);
    if (!node)
        return node.outcome();
    if (invocation.has("prop"))
        return readProperty(tree, *node, invocation.value("prop"));
    switch (address->query) {
    case Address::Query::None:
        return node->isLeaf() ? readLeaf(tree, *node, secretsOf(invocation))
                              : readingOfNode(tree, *node, secretsOf(invocation));
    case Address::Query::Property:
        return readProperty(tree, *node, address->argument);
    default:
        return Outcome{DmStatus::FeatureNotSupported,
                       QStringLiteral("listings are for DM packages; tree draws them for people")};
    }
}

Outcome readWatched(const Context &context, const QString &uri,
                    std::optional<Result<Reading>> &reading)
{
    return watched(context, uri,
                   [&] { return reading.emplace(readAddress(context, uri)).outcome(); });
}

QJsonObject failureToJson(const QString &uri, const Outcome &outcome)
{
    return {{QStringLiteral("uri"), uri},
            {QStringLiteral("status"), static_cast<int>(outcome.status)},
            {QStringLiteral("meaning"), meaning(outcome.status)},
            {QStringLiteral("reason"), outcome.reason}};
}

ExitStatus getAsJson(Context &context)
{
    QJsonArray array;
    std::vector<Outcome> outcomes;
    for (const QString &uri : context.invocation.arguments) {
        std::optional<Result<Reading>> reading;
        const Outcome outcome = readWatched(context, uri, reading);
        array += *reading ? (*reading)->object : failureToJson(uri, outcome);
        if (*reading)
            context.value = (*reading)->lines.join('\n');
        recordEnd(context, uri, outcome);
        outcomes.push_back(outcome);
    }
    context.output.json(QJsonDocument(array), QJsonDocument::Indented);
    ExitStatus worst = ExitStatus::Success;
    for (std::size_t i = 0; i < outcomes.size(); ++i)
        worst = worse(worst, reportEnd(context, context.invocation.arguments[static_cast<int>(i)],
                                       outcomes[i]));
    return worst;
}

} // namespace

ExitStatus runGet(Context &context)
{
    if (context.invocation.has("json"))
        return getAsJson(context);
    ExitStatus worst = ExitStatus::Success;
    for (const QString &uri : context.invocation.arguments) {
        std::optional<Result<Reading>> reading;
        const Outcome outcome = readWatched(context, uri, reading);
        if (*reading) {
            context.value = (*reading)->lines.join('\n');
            for (const QByteArray &line : (*reading)->lines)
                context.output.value(line);
        }
        worst = worse(worst, finish(context, uri, outcome));
    }
    return worst;
}

// ---- Changing ------------------------------------------------------------------------------------

namespace {

/// What is meant by the text that was given as a leaf's value: for a secret it may stand for a line
/// of standard input.
support::Expected<QByteArray, QString> valueMeant(const Context &context, const QString &leafName,
                                                  bool isSecret, const QString &text)
{
    if (!isSecret)
        return text.toUtf8();
    const auto secret = commandline::secretMeant(text, leafName, context.standardInput());
    if (!secret)
        return support::Unexpected(secret.error());
    if (context.recording)
        context.recording->recorder().learnSecret(secret->toUtf8());
    return secret->toUtf8();
}

} // namespace

ExitStatus runAdd(Context &context)
{
    const Invocation &invocation = context.invocation;
    TreeView::NewValue value;
    const QString uri = invocation.arguments[0];
    if (invocation.arguments.size() > 1) {
        const auto data = valueMeant(context, uri, isSecretUri(uri), invocation.arguments[1]);
        if (!data)
            return wrongUsage(context, data.error());
        value.data = *data;
    }
    const QString usualFormat = value.data ? QStringLiteral("chr") : QStringLiteral("node");
    value.format = invocation.has("format") ? invocation.value("format") : usualFormat;
    if (value.data && typeOfFormat(value.format) == DmtData::Node)
        return wrongUsage(context, QStringLiteral("an interior node has no VALUE"));
    context.value = value.data;
    return onNode(context, uri, [&](const NodeUri &node) {
        return context.device->ownersView().add(node, value);
    });
}

namespace {

/// "Addr=internet" as a child's name, escaped as in an address, and its value.
support::Expected<TreeView::ChildValue, QString>
parseChildValue(const Context &context, const QString &parentUri, const QString &word)
{
    const qsizetype equals = word.indexOf(u'=');
    if (equals < 1)
        return support::Unexpected(
            QStringLiteral("%1 is an interior node, so CHILD=VALUE is wanted").arg(parentUri));
    const Result<Address> child = parseAddress(word.left(equals), UriLimits());
    if (!child || child->query != Address::Query::None || child->node.depth() != 1)
        return support::Unexpected(
            QStringLiteral("\"%1\" is not the name of a child").arg(word.left(equals)));
    const QByteArray name = child->node.name();
    const auto value =
        valueMeant(context, word.left(equals), isSecretLeaf(name), word.mid(equals + 1));
    if (!value)
        return support::Unexpected(value.error());
    return TreeView::ChildValue{name, *value};
}

ExitStatus replaceProperty(Context &context, const QString &uri, const Address &address,
                           const QStringList &words)
{
    if (words.size() > 1)
        return wrongUsage(context, QStringLiteral("one VALUE for one property"));
    context.value = words[0].toUtf8();
    const auto property = propertyNamed(address.argument);
    const Outcome outcome = watched(context, uri, [&] {
        return property ? context.device->ownersView().replaceProperty(address.node, *property,
                                                                       words[0].toUtf8())
                        : Outcome{DmStatus::FeatureNotSupported,
                                  QStringLiteral("no property %1").arg(address.argument)};
    });
    return finish(context, uri, outcome);
}

} // namespace

ExitStatus runReplace(Context &context)
{
    TreeView tree = context.device->ownersView();
    const QString uri = context.invocation.arguments[0];
    const QStringList words = context.invocation.arguments.mid(1);
    const Result<Address> address = parseAddress(uri, tree.uriLimits());
    if (address && address->query == Address::Query::Property)
        return replaceProperty(context, uri, *address, words);
    const Result<TreeNode> node = address ? tree.find(address->node) : address.outcome();

    if (!node || node->isLeaf()) {
        if (words.size() > 1)
            return wrongUsage(context, QStringLiteral("one VALUE for one leaf"));
        const auto value = valueMeant(context, uri, isSecretUri(uri), words[0]);
        if (!value)
            return wrongUsage(context, value.error());
        context.value = *value;
        return onNode(context, uri, [&](const NodeUri &leaf) {
            return tree.replace(leaf, {{}, {}, *value});
        });
    }
    std::vector<TreeView::ChildValue> values;
    QByteArrayList shown;
    for (const QString &word : words) {
        const auto value = parseChildValue(context, uri, word);
        if (!value)
            return wrongUsage(context, value.error());
        values.push_back(*value);
        const bool isHidden =
            secretsOf(context.invocation) == Secrets::Mask && isMasked(value->name, value->text);
        shown += value->name + '=' + (isHidden ? QByteArray(secretMask) : value->text);
    }
    context.value = shown.join(' ');
    return onNode(context, uri,
                  [&](const NodeUri &interior) { return tree.replaceChildren(interior, values); });
}

ExitStatus runRename(Context &context)
{
    const QStringList &arguments = context.invocation.arguments;
    return onNode(context, arguments[0], [&](const NodeUri &node) {
        return context.device->ownersView().replaceProperty(node, Property::Name,
                                                            arguments[1].toUtf8());
    });
}

ExitStatus runDelete(Context &context)
{
    return onNode(context, context.invocation.arguments[0],
                  [&](const NodeUri &node) { return context.device->ownersView().remove(node); });
}

ExitStatus runCopy(Context &context)
{
    const QString source = context.invocation.arguments[0];
    return onNode(context, context.invocation.arguments[1], [&](const NodeUri &target) {
        TreeView tree = context.device->ownersView();
        const Result<Address> from = parseAddress(source, tree.uriLimits());
        return from ? tree.copy(from->node, target) : from.outcome();
    });
}

// ---- Packages ------------------------------------------------------------------------------------

ExitStatus runProcess(Context &context)
{
    const Invocation &invocation = context.invocation;
    const QString file = invocation.arguments[0];
    if (context.inShell && file == QStringLiteral("-"))
        return wrongUsage(context, QStringLiteral("standard input is the shell's"));
    if (invocation.has("json") && invocation.has("summary"))
        return wrongUsage(context,
                          QStringLiteral("--json and --summary are two forms of the same"));
    const auto package = commandline::readInput(file, syncml::Limits().messageBytes);
    if (!package)
        return wrongUsage(context, package.error());

    Recorder *const recorder = context.recording ? &context.recording->recorder() : nullptr;
    const syncml::DecodeResult decoded = syncml::decode(*package);
    if (recorder)
        recorder->packageReceived(*package, decoded);
    if (!decoded)
        return wrongUsage(context, QStringLiteral("%1: %2").arg(file, decoded.error().toString()));
    const auto encoding = *syncml::recogniseEncoding(*package);
    const QString serverId = invocation.value("server-id");
    if (invocation.has("server-id") && !isServerIdentifier(serverId))
        return wrongUsage(context,
                          QStringLiteral("\"%1\" is not a Server Identifier").arg(serverId));
    const QString reasonAgainst = context.device->reasonAgainstServers();
    if (!reasonAgainst.isEmpty() &&
        (!serverId.isEmpty() || context.device->tree().deviceId().isEmpty()))
        return problem(context, reasonAgainst, ExitStatus::Unusable);
    const std::unique_ptr<SessionReport> report =
        invocation.has("json")      ? jsonReport(context.output)
        : invocation.has("summary") ? readableReport(context.output)
                                    : nullptr;
    ChangeOrigins origins(*context.secondLook);
    std::vector<SessionObserver *> observers = {recorder, &origins, report.get()};
    std::erase(observers, nullptr);
    // Without a report nobody sees the reasons: the answer to the server has none.
    context.device->setReasonsShown(report != nullptr);
    const PackageAnswer answer = answerPackage(
        *decoded, context.device->tree(), encoding,
        serverId.isEmpty() ? Principal::owner() : Principal::server(serverId.toUtf8()), observers);
    context.device->setReasonsShown(true);
    if (answer.refusal)
        return problem(context, QStringLiteral("%1: %2").arg(file, *answer.refusal),
                       ExitStatus::SessionFailed);
    if (!answer.message)
        return problem(
            context,
            answer.isAbortedByServer
                ? QStringLiteral("the server aborts the session")
                : QStringLiteral("the package asks for nothing; the session would end here"),
            ExitStatus::Success);
    const ExitStatus status = answer.allSucceeded ? ExitStatus::Success : ExitStatus::Failed;
    if (report && !recorder) {
        reportDifferences(context, origins, *report);
        return status;
    }
    const syncml::EncodeResult encoded =
        syncml::encode(*answer.message, encoding, syncml::XmlLayout::Indented);
    if (!encoded)
        return problem(context, encoded.error().text, ExitStatus::Failed);
    if (recorder)
        recorder->packageSent(*encoded, *answer.message);
    if (report) {
        reportDifferences(context, origins, *report);
        return status;
    }
    context.output.document(*encoded);
    printDifferences(context.output, *context.secondLook, lookAfterCommand(context));
    return status;
}

// ---- Description ---------------------------------------------------------------------------------

ExitStatus runDdf(Context &context)
{
    context.output.document(deviceDescriptionDocument());
    return ExitStatus::Success;
}

// ---- The shell -----------------------------------------------------------------------------------

ExitStatus runShell(Context &context)
{
    return Shell(*context.device, *context.secondLook, context.output, context.recording,
                 context.invocation.has("fail-fast"))
        .run();
}

ExitStatus runStored(Context &context)
{
    if (!context.recording)
        return wrongUsage(context,
                          QStringLiteral("the shell has no record; begin it with --record"));
    const QString &uri = context.invocation.arguments.first();
    const auto address = parseAddress(uri, context.device->tree().uriLimits());
    if (!address)
        return wrongUsage(context, address.outcome().reason);
    const auto stored = context.device->storedFor(address->node);
    if (!stored)
        return problem(context, stored.error(), ExitStatus::Unusable);
    context.recording->recorder().storedSeen(uri, *stored);
    return ExitStatus::Success;
}

ExitStatus runQuit(Context &context)
{
    context.leaveShell = true;
    return ExitStatus::Success;
}

} // namespace client::cli
