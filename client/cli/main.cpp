#include "command_table.h"
#include "global_options.h"
#include "standard_streams.h"

#include <QCoreApplication>
#include <QUtf8StringView>

namespace {

using namespace client;
using namespace client::cli;

ExitStatus runCommand(const CommandLine &commandLine, Output &output)
{
    const CommandRow *const command = findCommand(commandLine.command, false);
    if (!command) {
        output.problem(
            QStringLiteral("no command %1; try dmclient --help").arg(commandLine.command));
        return ExitStatus::WrongUsage;
    }
    if (commandLine.words.contains(QStringLiteral("--help"))) {
        output.raw(commandHelp(*command).toUtf8());
        return ExitStatus::Success;
    }
    QString error;
    const auto invocation = parseInvocation(*command, commandLine.words, error);
    if (!invocation) {
        output.problem(error);
        return ExitStatus::WrongUsage;
    }
    std::unique_ptr<DmDevice> device;
    if (command->needs != Needs::Nothing) {
        device = DmDevice::open(commandLine.device, error);
        if (!device || (command->needs == Needs::Tree && !device->mount(error))) {
            output.problem(error);
            return ExitStatus::Unusable;
        }
        for (const QString &sentence : device->damage())
            output.problem(sentence);
    }
    Context context{.device = device.get(), .output = output};
    const ExitStatus exitStatus = command->run(context, *invocation);
    if (device && !device->saveProperties(error)) {
        output.problem(error);
        return worse(exitStatus, ExitStatus::Unusable);
    }
    return exitStatus;
}

/// Without this check other bytes would become replacement characters, and the name of a node.
bool areUtf8(int argc, char *argv[], Output &output)
{
    for (int index = 1; index < argc; ++index) {
        if (!QUtf8StringView(argv[index]).isValidUtf8()) {
            output.problem(QStringLiteral("argument %1 is not UTF-8").arg(index));
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    support::occupyClosedStandardStreams();
    const QCoreApplication application(argc, argv);
    Output output(QStringLiteral("dmclient"));
    ExitStatus exitStatus = ExitStatus::WrongUsage;
    if (areUtf8(argc, argv, output)) {
        const auto commandLine =
            parseCommandLine(QCoreApplication::arguments(), output, exitStatus);
        if (commandLine)
            exitStatus = runCommand(*commandLine, output);
    }
    return static_cast<int>(output.finish(exitStatus));
}
