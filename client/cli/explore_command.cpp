// `dmclient explore`.

#include "command_table.h"
#include "commands.h"
#include "common_rows.h"
#include "explore_module.h"
#include "installed_page.h"
#include "interrupt_guard.h"

#include <QCoreApplication>
#include <memory>

namespace client::cli {

namespace {

/// The options that choose the handset, for a process that works on the same one.
QStringList handsetArguments(const Invocation &invocation)
{
    QStringList arguments;
    for (const char *name :
         {commandline::stateOption.name, "plugin", "plugins", commandline::backendOption.name})
        if (invocation.has(name))
            arguments << QStringLiteral("--") + QString::fromLatin1(name) << invocation.value(name);
    return arguments;
}

/// The lock of a state directory, which goes with what is returned.
support::Expected<std::shared_ptr<void>, QString> lockState(const QString &path)
{
    auto state = StateDirectory::open(path);
    if (!state)
        return support::Unexpected(state.error());
    return std::shared_ptr<void>(std::shared_ptr<StateDirectory>(*std::move(state)));
}

/// Where the profiles are kept; what is kept elsewhere than in the state directory has no
/// snapshots.
QString chosenBackend(const Invocation &invocation)
{
    const char *const option = commandline::backendOption.name;
    return invocation.has(option) ? invocation.value(option)
                                  : qEnvironmentVariable("KUB_NAPI_BACKEND");
}

} // namespace

ExitStatus runExplore(Context &context)
{
    const Invocation &invocation = context.invocation;
    const auto module = ExploreModule::load();
    if (!module)
        return problem(context, module.error(), ExitStatus::Unusable);
    const auto page = installedPage("explore", {});
    if (!page)
        return problem(context, page.error(), ExitStatus::Unusable);
    const DmDevice::Options device = deviceOptions(invocation);
    ExplorerOptions options;
    options.handset = {QCoreApplication::applicationFilePath(), handsetArguments(invocation),
                       device.stateDirectory,
                       [path = device.stateDirectory] { return lockState(path); }};
    options.canGoBack = chosenBackend(invocation) != u"networkmanager";
    options.page = *page;
    const InterruptGuard guard;
    options.interruptFile = guard.file();
    const auto explored = (*module)->explore(options, [&context](const QUrl &address) {
        context.output.line(QStringLiteral("%1  (Ctrl-C ends it)").arg(address.toString()));
    });
    return explored ? ExitStatus::Success
                    : problem(context, explored.error(), ExitStatus::Unusable);
}

} // namespace client::cli
