// One command of a command line, on the device that its options choose.

#include "command_table.h"
#include "common_rows.h"

namespace client::cli {

namespace {

DmDevice::Options deviceOptions(const Invocation &invocation)
{
    DmDevice::Options options;
    options.stateDirectory = invocation.has(commandline::stateOption.name)
                                 ? invocation.value(commandline::stateOption.name)
                                 : StateDirectory::defaultPath();
    if (invocation.has("plugin"))
        options.pluginFile = invocation.value("plugin");
    options.profileBackend = invocation.value(commandline::backendOption.name);
    options.pluginMessagesToStandardError = invocation.has("verbose");
    return options;
}

} // namespace

ExitStatus execute(Output &output, const Invocation &invocation)
{
    const CommandRow &row = rowOf(*invocation.command);
    QString error;
    std::unique_ptr<DmDevice> device;
    if (row.needs != Needs::Nothing) {
        device = DmDevice::open(deviceOptions(invocation), error);
        if (!device || (row.needs == Needs::Tree && !device->mount(error))) {
            output.problem(error);
            return ExitStatus::Unusable;
        }
        for (const QString &sentence : device->damage())
            output.problem(sentence);
    }
    Context context{.device = device.get(), .output = output};
    const ExitStatus exitStatus = row.run(context, invocation);
    if (device && !device->saveProperties(error)) {
        output.problem(error);
        return worse(exitStatus, ExitStatus::Unusable);
    }
    return exitStatus;
}

} // namespace client::cli
