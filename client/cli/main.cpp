#include "cli/command_table.h"
#include "cli/global_options.h"

#include <QCoreApplication>

namespace {

using namespace client;
using namespace client::cli;

ExitStatus runCommand(const CommandLine &commandLine)
{
    Output output;
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
    if (command->needsDevice) {
        device = DmDevice::open(commandLine.device, error);
        if (!device) {
            output.problem(error);
            return ExitStatus::Unusable;
        }
    }
    Context context{.device = device.get(), .output = output};
    const ExitStatus exitStatus = command->run(context, *invocation);
    if (device && !device->saveProperties(error)) {
        output.problem(error);
        return worse(exitStatus, ExitStatus::Unusable);
    }
    return exitStatus;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    ExitStatus exitStatus = ExitStatus::Success;
    if (const auto commandLine = parseCommandLine(QCoreApplication::arguments(), exitStatus))
        exitStatus = runCommand(*commandLine);
    return static_cast<int>(exitStatus);
}
