// One command of a command line, on the device that its options choose.

#include "command_table.h"
#include "common_rows.h"
#include "difference_report.h"
#include "record_file.h"
#include "recording.h"

#include <optional>

namespace client::cli {

DmDevice::Options deviceOptions(const Invocation &invocation)
{
    DmDevice::Options options;
    options.stateDirectory = invocation.has(commandline::stateOption.name)
                                 ? invocation.value(commandline::stateOption.name)
                                 : StateDirectory::defaultPath();
    options.pluginFolder = invocation.value("plugins");
    options.profilePlugin = invocation.value("plugin");
    options.profileBackend = invocation.value(commandline::backendOption.name);
    options.pluginMessagesToStandardError = invocation.has("verbose");
    return options;
}

namespace {

support::Expected<std::unique_ptr<DmDevice>, QString> openDevice(const CommandRow &row,
                                                                 const Invocation &invocation)
{
    auto device = DmDevice::open(deviceOptions(invocation));
    if (device && row.needs == Needs::Tree)
        if (const auto made = (*device)->makeTree(); !made)
            return support::Unexpected(made.error());
    return device;
}

/// What a command does with the nodes that such an argument names. A shell goes on after a command:
/// it mounts the roots that belong together at once, so that they show the same moment.
ManagementTree::Use useOf(NodeArgument kind, bool inShell)
{
    if (kind == NodeArgument::UriToList)
        return ManagementTree::Use::ReadAll;
    return kind == NodeArgument::UriToRead && !inShell ? ManagementTree::Use::Read
                                                       : ManagementTree::Use::Change;
}

/// Mounts what the addresses of a command need.
support::Expected<void, QString> mountForArguments(const Context &context, const CommandRow &row)
{
    ManagementTree &tree = context.device->tree();
    const QStringList &arguments = context.invocation.arguments;
    if (row.firstNode == NodeArgument::UriToList && arguments.isEmpty())
        return tree.mountFor(NodeUri(), ManagementTree::Use::ReadAll);
    NodeArgument kind = row.firstNode;
    for (const QString &argument : arguments) {
        const auto address = parseAddress(argument, tree.uriLimits());
        const bool isNode = kind != NodeArgument::None && kind != NodeArgument::ChildValue;
        // The mount of the copy goes on beside that of the device.
        if (isNode && address && context.secondLook)
            context.secondLook->beforeChange(address->node);
        if (isNode && address)
            if (auto mounted = tree.mountFor(address->node, useOf(kind, context.inShell)); !mounted)
                return mounted;
        kind = row.otherNodes;
    }
    return {};
}

/// Whether the command is one on nodes, which a record has as a command of its own.
bool isOnNodes(const CommandRow &row)
{
    return row.firstNode != NodeArgument::None;
}

/// Runs a command that works with the tree, and says why something could not be mounted for it. A
/// command on its own does nothing then; a line of a shell ends with its status as any other.
ExitStatus runOnTree(Context &context, const CommandRow &row)
{
    Recorder *const recorder = context.recording ? &context.recording->recorder() : nullptr;
    if (recorder && isOnNodes(row))
        recorder->typedCommandBegins();
    const auto mounted = mountForArguments(context, row);
    const bool isRun = mounted || context.inShell;
    const ExitStatus status = isRun ? row.run(context) : ExitStatus::Unusable;
    if (recorder)
        recorder->typedCommandsOver();
    const QStringList faults = context.device->takeMountFaults();
    for (const QString &fault : faults)
        context.output.problem(fault);
    return faults.isEmpty() ? status : worse(status, ExitStatus::Unusable);
}

} // namespace

ExitStatus runAndKeep(Context &context)
{
    const CommandRow &row = rowOf(*context.invocation.command);
    recordLooks(context);
    const ExitStatus status = row.needs == Needs::Tree ? runOnTree(context, row) : row.run(context);
    if (!context.device)
        return status;
    const auto saved = context.device->saveProperties();
    return saved ? status
                 : context.output.problem(saved.error(), worse(status, ExitStatus::Unusable));
}

namespace {

/// Runs the command. What is not as it was asked for is a failure to those who say so.
ExitStatus runStrictly(Context &context)
{
    const ExitStatus status = runAndKeep(context);
    const bool isDifferent = context.secondLook && context.secondLook->differences() > 0;
    return status == ExitStatus::Success && isDifferent && context.invocation.has(strictOption)
               ? ExitStatus::Different
               : status;
}

/// Runs the command, and writes down what it does.
ExitStatus runRecorded(Context &context)
{
    const QString file = context.invocation.value("record");
    auto sink = RecordFile::create(file);
    if (!sink)
        return context.output.problem(sink.error(), ExitStatus::WrongUsage);
    Recording recording(*context.device, describeRun(*context.device, context.invocation),
                        *std::move(sink));
    context.recording = &recording;
    const ExitStatus status = recording.finish(runStrictly(context));
    context.recording = nullptr;
    recordLooks(context);
    const auto &loss = recording.recorder().lossReason();
    return !loss ? status
                 : context.output.problem(QStringLiteral("the record has gaps: %1").arg(*loss),
                                          worse(status, ExitStatus::Unusable));
}

} // namespace

ExitStatus execute(Output &output, const Invocation &invocation)
{
    const CommandRow &row = rowOf(*invocation.command);
    const bool isRecorded = invocation.has("record");
    if (row.runElsewhere) {
        Context context{.output = output, .invocation = invocation};
        if (const auto status = row.runElsewhere(context))
            return *status;
    }
    std::unique_ptr<DmDevice> device;
    if (row.needs != Needs::Nothing) {
        auto opened = openDevice(row, invocation);
        if (!opened)
            return output.problem(opened.error(), ExitStatus::Unusable);
        device = *std::move(opened);
        for (const QString &sentence : device->damage())
            output.problem(sentence);
    } else if (isRecorded) {
        return output.problem(QStringLiteral("%1 does nothing that a record could have")
                                  .arg(QString::fromLatin1(row.name)),
                              ExitStatus::WrongUsage);
    }
    std::optional<SecondLook> look;
    if (row.isChanging())
        look.emplace(*device);
    Context context{.device = device.get(),
                    .output = output,
                    .invocation = invocation,
                    .secondLook = look ? &*look : nullptr};
    return isRecorded ? runRecorded(context) : endSessionRecording(context, runStrictly(context));
}

} // namespace client::cli
