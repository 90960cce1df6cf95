// dmclientd: the client as a service of the device.

#include "boot_clock.h"
#include "bootstrap_handler.h"
#include "journal.h"
#include "manager_object.h"
#include "modem_messages.h"
#include "network_state.h"
#include "notification_handler.h"
#include "notification_listener.h"
#include "notification_message.h"
#include "pending_bootstraps.h"
#include "program_folder.h"
#include "service.h"
#include "service_manager.h"
#include "service_names.h"
#include "standard_streams.h"
#include "start_pages.h"
#include "state_location.h"

#include <QCommandLineParser>
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

/// Exit statuses of the service.
enum Status { Stopped = 0, WrongUsage = 2, Unusable = 3 };

int fail(const QString &reason)
{
    writeJournal(JournalPriority::Error, reason);
    return Unusable;
}

struct OptionRow {
    const char *name;
    const char *valueName;
    const char *help;
};

/// Those that choose the device; a session's process gets all but the first.
constexpr OptionRow deviceOptions[] = {
    {"state", "DIR", "state directory of the device"},
    {"plugin", "FILE", "the library to load in place of that of the plug-in of the profiles"},
    {"plugins", "DIR", "where files describe the plug-ins"},
    {"backend", "NAME", "where the profiles are kept, sqlite or networkmanager"},
};

constexpr char portOption[] = "notification-port";

struct DaemonOptions {
    Service::Options service;
    std::optional<quint16> notificationPort; ///< none: nobody listens
};

/// Ends the program when the port is none.
quint16 readPort(const QString &text)
{
    bool isNumber = false;
    const quint16 port = text.toUShort(&isNumber);
    if (isNumber && port != 0)
        return port;
    writeJournal(JournalPriority::Error,
                 QStringLiteral("--%1 wants a number from 1 to 65535 instead of \"%2\"")
                     .arg(QString::fromLatin1(portOption), text));
    std::exit(WrongUsage);
}

DaemonOptions readOptions(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Holds the sessions of a device with its DM servers; see dmclientd(8)."));
    for (const OptionRow &row : deviceOptions)
        parser.addOption({QString::fromLatin1(row.name), QString::fromLatin1(row.help),
                          QString::fromLatin1(row.valueName)});
    parser.addOption({QString::fromLatin1(portOption),
                      QStringLiteral("listen for notifications of servers on that port of UDP, "
                                     "usually 2948; without it nobody listens"),
                      QStringLiteral("port")});
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(application);
    if (!parser.positionalArguments().isEmpty()) {
        writeJournal(JournalPriority::Error,
                     QStringLiteral("there are no arguments, only options"));
        std::exit(WrongUsage);
    }
    DaemonOptions read;
    if (parser.isSet(QString::fromLatin1(portOption)))
        read.notificationPort = readPort(parser.value(QString::fromLatin1(portOption)));
    Service::Options &options = read.service;
    options.stateDirectory = QFile::decodeName(handset_state::location().c_str());
    options.sessionProgram = support::programFolder() + QStringLiteral("/dmclient");
    for (const OptionRow &row : deviceOptions) {
        const QString name = QString::fromLatin1(row.name);
        if (!parser.isSet(name))
            continue;
        if (name == u"state")
            options.stateDirectory = parser.value(name);
        else
            options.deviceArguments << QStringLiteral("--") + name << parser.value(name);
    }
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

int serve(const QCoreApplication &application)
{
    const int signals = endingSignals(); // before there are threads, which have them blocked too
    ServiceManager manager;
    const DaemonOptions options = readOptions(application);
    auto opened = Service::open(options.service);
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
    if (options.notificationPort) {
        auto listenerOpened = NotificationListener::open(notifications, *options.notificationPort);
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
    const int status = QCoreApplication::exec();
    service.setListener({});
    return status;
}

} // namespace

} // namespace client

int main(int argc, char *argv[])
{
    support::occupyClosedStandardStreams();
    // The event loop of Qt alone: GLib's would be a library more in memory, and nothing here has
    // sources of its own in it.
    qputenv("QT_NO_GLIB", "1");
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dmclientd"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KUB_VERSION));
    return client::serve(application);
}
