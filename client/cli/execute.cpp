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

support::Expected<std::unique_ptr<DmDevice>, QString> openDevice(const CommandRow &row,
                                                                 const Invocation &invocation)
{
    auto device = DmDevice::open(deviceOptions(invocation));
    if (device && row.needs == Needs::Tree)
        if (const auto mounted = (*device)->mount(); !mounted)
            return support::Unexpected(mounted.error());
    return device;
}

} // namespace

ExitStatus runAndKeep(Context &context)
{
    const ExitStatus status = rowOf(*context.invocation.command).run(context);
    if (!context.device)
        return status;
    const auto saved = context.device->saveProperties();
    return saved ? status
                 : context.output.problem(saved.error(), worse(status, ExitStatus::Unusable));
}

ExitStatus execute(Output &output, const Invocation &invocation)
{
    const CommandRow &row = rowOf(*invocation.command);
    std::unique_ptr<DmDevice> device;
    if (row.needs != Needs::Nothing) {
        auto opened = openDevice(row, invocation);
        if (!opened)
            return output.problem(opened.error(), ExitStatus::Unusable);
        device = *std::move(opened);
        for (const QString &sentence : device->damage())
            output.problem(sentence);
    }
    Context context{.device = device.get(), .output = output, .invocation = invocation};
    return runAndKeep(context);
}

} // namespace client::cli
