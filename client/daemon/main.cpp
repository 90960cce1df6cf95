// dmclientd: the client as a service of the device.

#include "boot_clock.h"
#include "bootstrap_handler.h"
#include "common_rows.h"
#include "journal.h"
#include "manager_object.h"
#include "modem_messages.h"
#include "network_state.h"
#include "notification_handler.h"
#include "notification_listener.h"
#include "notification_message.h"
#include "pending_bootstraps.h"
#include "program.h"
#include "program_folder.h"
#include "service.h"
#include "service_manager.h"
#include "service_names.h"
#include "start_pages.h"
#include "state_location.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QFile>
#include <QSocketNotifier>
#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace client {

namespace {

using commandline::ExitStatus;
using commandline::Invocation;
using commandline::Option;
using commandline::Output;
using commandline::ValueKind;

constexpr char portName[] = "notification-port";

constexpr Option options[] = {
    commandline::stateOption,
    commandline::pluginOption,
    commandline::pluginsOption,
    commandline::backendOption,
    {portName, "PORT",
     "listen for notifications of servers on that port of UDP, usually 2948; without it nobody "
     "listens",
     ValueKind::Text},
    commandline::onlyHelpOption,
    commandline::versionOption,
};

/// Those that a session's process gets, too.
constexpr const Option *sessionOptions[] = {&commandline::pluginOption, &commandline::pluginsOption,
                                            &commandline::backendOption};

constexpr commandline::Command serveCommand = {"dmclientd", "", "", 0, 0, options};

constexpr commandline::ExitMeaning exitStatuses[] = {
    {ExitStatus::Success, "SIGTERM, SIGINT or SIGHUP came, and a session that ran has ended"},
    {ExitStatus::WrongUsage, "wrong usage"},
    {ExitStatus::Unusable, "the state directory or the bus cannot be used"},
};

ExitStatus fail(const QString &reason)
{
    writeJournal(JournalPriority::Error, reason);
    return ExitStatus::Unusable;
}

struct DaemonOptions {
    Service::Options service;
    std::optional<quint16> notificationPort; ///< none: nobody listens
};

/// @return for a port that there is not, what is wrong
support::Expected<DaemonOptions, QString> readOptions(const Invocation &invocation)
{
    DaemonOptions read;
    if (invocation.has(portName)) {
        const QString text = invocation.value(portName);
        bool isNumber = false;
        const quint16 port = text.toUShort(&isNumber);
        if (!isNumber || port == 0)
            return support::Unexpected(
                QStringLiteral("--%1 wants a number from 1 to 65535 instead of \"%2\"")
                    .arg(QString::fromLatin1(portName), text));
        read.notificationPort = port;
    }
    Service::Options &service = read.service;
    service.stateDirectory = invocation.has(commandline::stateOption.name)
                                 ? invocation.value(commandline::stateOption.name)
                                 : QFile::decodeName(handset_state::location().c_str());
    service.sessionProgram = support::programFolder() + QStringLiteral("/dmclient");
    for (const Option *option : sessionOptions)
        if (invocation.has(option->name))
            service.deviceArguments << commandline::optionWord(*option)
                                    << invocation.value(option->name);
    return read;
}

/// SIGTERM, SIGINT and SIGHUP as something that can be read; from then on they do nothing else.
int endingSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&signals, number);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

ExitStatus serve(Output &output, const Invocation &invocation)
{
    const int signals = endingSignals(); // before there are threads, which have them blocked too
    ServiceManager manager;
    const auto read = readOptions(invocation);
    if (!read)
        return output.problem(read.error(), ExitStatus::WrongUsage);
    auto opened = Service::open(read->service);
    if (!opened)
        return fail(opened.error());
    Service &service = **opened;

    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return fail(
            QStringLiteral("cannot reach the system bus: %1").arg(bus.lastError().message()));
    QObject exported;
    Agents agents(bus);
    ManagerObject object(exported, service, agents, bus);
    int question = 0; // of the session that runs
    Service::Listener listener;
    listener.changed = [&object] { object.tellChanges(); };
    listener.sessionEnded = [&](const SessionResult &result) {
        agents.cancel(question);
        object.tellEnd(result);
    };
    listener.bootstrapEnded = [&] { agents.cancel(question); };
    listener.asked = [&](const QString &account, const QJsonObject &asked) {
        question = agents.ask(account, asked, [&service](const QJsonObject &answer) {
            service.answerQuestion(answer);
        });
    };
    service.setListener(listener);
    if (!bus.registerObject(QString::fromLatin1(managerPath), &exported) ||
        !bus.registerService(QString::fromLatin1(serviceName)))
        return fail(QStringLiteral("cannot be %1 on the system bus: %2")
                        .arg(QString::fromLatin1(serviceName), bus.lastError().message()));

    const NetworkState network(bus, [&service](bool isOnline) { service.setOnline(isOnline); });
    NotificationHandler notifications(service, agents);
    BootstrapHandler bootstraps(service);
    agents.setAdded([&bootstraps] { bootstraps.offerAll(); });
    const ModemMessages messages(bus, [&](const ModemMessages::Message &message) {
        bool isOver = false;
        if (notification::isNotificationPush(message.data))
            isOver = notifications.handle(message.data);
        else if (push::isBootstrapPush(message.data))
            isOver = bootstraps.handle(message.data, message.imsi);
        else
            return ModemMessages::Outcome::NotOurs;
        return isOver ? ModemMessages::Outcome::Over : ModemMessages::Outcome::Open;
    });
    std::unique_ptr<NotificationListener> listening;
    if (read->notificationPort) {
        auto listenerOpened = NotificationListener::open(notifications, *read->notificationPort);
        if (!listenerOpened)
            return fail(listenerOpened.error());
        listening = *std::move(listenerOpened);
    }
    QSocketNotifier ending(signals, QSocketNotifier::Read);
    QObject::connect(&ending, &QSocketNotifier::activated, &ending, [&] {
        ending.setEnabled(false);
        manager.tellStopping();
        service.stop([] { QCoreApplication::quit(); });
    });
    manager.tellReady();
    writeJournal(JournalPriority::Information,
                 QStringLiteral("serves the state directory %1").arg(service.stateDirectory()));
    giveBackStartPages();
    QCoreApplication::exec();
    service.setListener({});
    return ExitStatus::Success;
}

} // namespace

} // namespace client

int main(int argc, char *argv[])
{
    // The event loop of Qt alone: GLib's would be a library more in memory, and nothing here has
    // sources of its own in it.
    qputenv("QT_NO_GLIB", "1");
    return commandline::run(argc, argv,
                            {client::serveCommand.name,
                             "holds the sessions of a device with its DM servers; see dmclientd(8)",
                             {},
                             {},
                             client::exitStatuses,
                             {},
                             &client::serveCommand},
                            client::serve, [](const client::Invocation &, const QString &) {
                                return std::vector<commandline::Candidate>();
                            });
}
