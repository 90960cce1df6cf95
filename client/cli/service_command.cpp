// dmclient status, dmclient monitor, and sessions that dmclientd holds.

#include "command_table.h"
#include "commands.h"
#include "common_rows.h"
#include "file_descriptor.h"
#include "interrupt_guard.h"
#include "service_module.h"
#include "session_report.h"
#include "state_location.h"
#include "terminal_user.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <sys/eventfd.h>
#include <unistd.h>

namespace client::cli {

using commandline::Colour;
using commandline::isInteractive;
using commandline::printable;

namespace {

using Maps = QList<QVariantMap>;

/// The service of the device that the command line chooses: without a state directory that is the
/// one that runs.
support::Expected<std::unique_ptr<RunningService>, QString> findService(const Context &context)
{
    const auto module = ServiceModule::load();
    if (!module)
        return support::Unexpected(module.error());
    auto service = (*module)->find();
    if (!service)
        return support::Unexpected(QStringLiteral("dmclientd does not run"));
    const bool isChosen = context.invocation.has(commandline::stateOption.name) ||
                          !qEnvironmentVariableIsEmpty("KUB_STATE_DIR");
    const QString chosen = QFile::decodeName(
        handset_state::absolutePath(
            QFile::encodeName(deviceOptions(context.invocation).stateDirectory).toStdString())
            .c_str());
    if (isChosen && chosen != service->stateDirectory())
        return support::Unexpected(QStringLiteral("dmclientd serves the state directory %1, not %2")
                                       .arg(service->stateDirectory(), chosen));
    return service;
}

QString text(const QVariantMap &map, const char *key)
{
    return map.value(QString::fromLatin1(key)).toString();
}

Maps maps(const QVariantMap &properties, const char *key)
{
    return properties.value(QString::fromLatin1(key)).value<Maps>();
}

QString shownTime(const QVariantMap &map, const char *key)
{
    return QDateTime::fromMSecsSinceEpoch(map.value(QString::fromLatin1(key)).toLongLong())
        .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

QString now()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

bool isCompleted(const QVariantMap &result)
{
    return text(result, "session") == u"completed";
}

/// "completed", or "failed: Connection refused", and its numbers.
QString endOf(const QVariantMap &result)
{
    const QString reason = text(result, "reason");
    return QStringLiteral("%1%2 (messages %3, commands %4, refused %5, different %6)")
        .arg(text(result, "session"), reason.isEmpty() ? QString() : QStringLiteral(": ") + reason,
             text(result, "messages"), text(result, "commands"), text(result, "refused"),
             text(result, "differences"));
}

void printLine(const Context &context, const QString &line, bool isProblem)
{
    const QString harmless = printable(line);
    context.output.line(isProblem ? context.output.painter().paint(Colour::Problem, harmless)
                                  : harmless);
}

void printJson(const Context &context, const QVariantMap &map)
{
    context.output.json(QJsonDocument(QJsonObject::fromVariantMap(map)), QJsonDocument::Compact);
}

/// "idle", "offline" or "session with Operator".
QString stateOf(const QString &state, const QString &session)
{
    return session.isEmpty() ? state : QStringLiteral("%1 with %2").arg(state, session);
}

ExitStatus unusable(const Context &context, const QString &reason)
{
    return problem(context, reason, ExitStatus::Unusable);
}

// ---- status --------------------------------------------------------------------------------------

void printAccount(const Context &context, const QVariantMap &account)
{
    const QString interval = text(account, "interval");
    const QString failures = text(account, "failures");
    QString line = text(account, "name");
    if (account.contains(QStringLiteral("next")))
        line += QStringLiteral("  next session %1, every %2 s")
                    .arg(shownTime(account, "next"), interval);
    else
        line += QStringLiteral("  no sessions by itself");
    if (failures != u"0")
        line += QStringLiteral(", failed %1 times").arg(failures);
    printLine(context, line, failures != u"0");
}

void printStatus(const Context &context, const QVariantMap &properties)
{
    printLine(context,
              QStringLiteral("dmclientd %1 serves %2: %3")
                  .arg(text(properties, "Version"), text(properties, "StateDirectory"),
                       stateOf(text(properties, "State"), text(properties, "Session"))),
              false);
    for (const QString &name : properties.value(QStringLiteral("Waiting")).toStringList())
        printLine(context, QStringLiteral("%1 waits for its session").arg(name), false);
    for (const QVariantMap &account : maps(properties, "Accounts"))
        printAccount(context, account);
    for (const QVariantMap &result : maps(properties, "LastResults"))
        printLine(context,
                  QStringLiteral("%1  %2 by %3: %4")
                      .arg(shownTime(result, "ended"), text(result, "account"),
                           text(result, "cause"), endOf(result)),
                  !isCompleted(result));
}

/// Lists of maps in a form that JSON knows.
QVariantMap plain(QVariantMap properties)
{
    for (QVariant &value : properties) {
        if (value.metaType() != QMetaType::fromType<Maps>())
            continue;
        QVariantList list;
        for (const QVariantMap &map : value.value<Maps>())
            list += map;
        value = list;
    }
    return properties;
}

} // namespace

ExitStatus runStatus(Context &context)
{
    const auto service = findService(context);
    if (!service)
        return unusable(context, service.error());
    const auto properties = (*service)->properties();
    if (!properties)
        return unusable(context, properties.error());
    if (context.invocation.has("json"))
        printJson(context, plain(*properties));
    else
        printStatus(context, *properties);
    return ExitStatus::Success;
}

// ---- monitor -------------------------------------------------------------------------------------

ExitStatus runMonitor(Context &context)
{
    const auto service = findService(context);
    if (!service)
        return unusable(context, service.error());
    const bool asJson = context.invocation.has("json");
    RunningService::Listener listener;
    listener.statusChanged = [&context, asJson](const QString &state, const QString &session) {
        if (asJson)
            printJson(context, {{QStringLiteral("event"), QStringLiteral("status")},
                                {QStringLiteral("state"), state},
                                {QStringLiteral("account"), session}});
        else
            printLine(context, now() + QStringLiteral("  ") + stateOf(state, session), false);
    };
    listener.sessionEnded = [&context, asJson](const QVariantMap &result) {
        QVariantMap event = result;
        event[QStringLiteral("event")] = QStringLiteral("session");
        if (asJson)
            printJson(context, event);
        else
            printLine(context,
                      QStringLiteral("%1  session with %2 %3")
                          .arg(now(), text(result, "account"), endOf(result)),
                      !isCompleted(result));
    };
    (*service)->setListener(listener);
    const InterruptGuard guard;
    const auto listened = (*service)->listen([] { return false; }, guard.file());
    return listened ? ExitStatus::Success : unusable(context, listened.error());
}

// ---- agent ---------------------------------------------------------------------------------------

namespace {

/// A question ends when it can be read.
int newCancelFile()
{
    return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

/// The person at the terminal, whose question the service can take back.
class AskedTerminal {
public:
    int cancelFile() const { return m_cancel.get(); }
    UserInteraction &user() { return m_user; }

private:
    const handset_state::FileDescriptor m_cancel{newCancelFile()};
    TerminalUser m_user{STDIN_FILENO, STDOUT_FILENO, m_cancel.get()};
};

/// Has the user asked until Ctrl-C.
ExitStatus serveAsAgent(const Context &context, RunningService &service, UserInteraction &user,
                        int cancelFile)
{
    if (const auto agent = service.registerAgent(user, cancelFile); !agent)
        return unusable(context, agent.error());
    context.output.notice(QStringLiteral("servers may ask here; Ctrl-C ends that"));
    const InterruptGuard guard;
    const auto listened = service.listen([] { return false; }, guard.file());
    return listened ? ExitStatus::Success : unusable(context, listened.error());
}

ExitStatus serveAsDesktopAgent(const Context &context)
{
    const auto module = ServiceModule::load();
    if (!module)
        return unusable(context, module.error());
    const handset_state::FileDescriptor cancelFile(newCancelFile());
    const auto user = (*module)->desktopUser(cancelFile.get());
    if (!user)
        return unusable(context, user.error());
    const auto service = findService(context);
    return service ? serveAsAgent(context, **service, **user, cancelFile.get())
                   : unusable(context, service.error());
}

} // namespace

ExitStatus runAgent(Context &context)
{
    if (context.invocation.has("desktop"))
        return serveAsDesktopAgent(context);
    if (!isInteractive())
        return wrongUsage(context,
                          QStringLiteral("nobody can be asked: standard input is not a terminal"));
    AskedTerminal terminal;
    const auto service = findService(context);
    if (!service)
        return unusable(context, service.error());
    return serveAsAgent(context, **service, terminal.user(), terminal.cancelFile());
}

// ---- session -------------------------------------------------------------------------------------

namespace {

/// Whether the command line asks for no more than a service does.
bool isPlainSession(const Invocation &invocation)
{
    const QStringList plainOptions{QStringLiteral("json"),
                                   QString::fromLatin1(commandline::stateOption.name)};
    return std::ranges::all_of(invocation.options.keys(), [&plainOptions](const QString &option) {
        return plainOptions.contains(option);
    });
}

bool hasAccount(const QVariantMap &properties, const QString &name)
{
    const Maps accounts = maps(properties, "Accounts");
    return std::ranges::any_of(
        accounts, [&name](const QVariantMap &account) { return text(account, "name") == name; });
}

ExitStatus report(const Context &context, const QVariantMap &result)
{
    if (context.invocation.has("json"))
        printJson(context, result);
    else
        printLine(context, QStringLiteral("Session ") + endOf(result), !isCompleted(result));
    if (!isCompleted(result))
        return text(result, "session") == u"busy" ? ExitStatus::Unusable
                                                  : ExitStatus::SessionFailed;
    return text(result, "refused") == u"0" ? ExitStatus::Success : ExitStatus::Failed;
}

/// The ends of an account's sessions, of which one is waited for.
class AwaitedEnd {
public:
    explicit AwaitedEnd(const QString &account) : m_account(account) {}

    void take(const QVariantMap &result)
    {
        if (text(result, "account") == m_account && m_before-- == 0)
            m_result = result;
    }
    /// Another session of the account ends before.
    void skipOne() { ++m_before; }
    const std::optional<QVariantMap> &result() const { return m_result; }

private:
    const QString m_account;
    int m_before = 0;
    std::optional<QVariantMap> m_result;
};

/// @param terminal  where the server may ask; null for nowhere
ExitStatus holdByService(const Context &context, RunningService &service, const QString &account,
                         AskedTerminal *terminal)
{
    const InterruptGuard guard;
    if (terminal)
        if (const auto agent = service.registerAgent(terminal->user(), terminal->cancelFile());
            !agent)
            return unusable(context, agent.error());
    AwaitedEnd end(account);
    RunningService::Listener listener;
    listener.sessionEnded = [&end](const QVariantMap &result) { end.take(result); };
    service.setListener(listener);
    if (const auto started = service.startSession(account); !started)
        return unusable(context, started.error());
    const auto properties = service.properties();
    if (properties && text(*properties, "Session") == account &&
        properties->value(QStringLiteral("Waiting")).toStringList().contains(account))
        end.skipOne();
    const auto isOver = [&end] { return end.result().has_value(); };
    auto listened = service.listen(isOver, guard.file());
    if (listened && !end.result()) {
        if (const auto cancelled = service.cancelSession(account); !cancelled)
            return problem(context, cancelled.error(), ExitStatus::SessionFailed);
        listened = service.listen(isOver, -1);
    }
    return end.result() ? report(context, *end.result())
                        : problem(context, listened.error(), ExitStatus::SessionFailed);
}

} // namespace

std::optional<ExitStatus> runSessionByService(Context &context)
{
    if (!isPlainSession(context.invocation))
        return std::nullopt;
    AskedTerminal terminal;
    const auto service = findService(context);
    const auto properties =
        service ? (*service)->properties() : support::Unexpected(service.error());
    const QString &account = context.invocation.arguments[0];
    if (!properties || !hasAccount(*properties, account))
        return std::nullopt;
    const bool hasUser = isInteractive() && !context.invocation.has("json");
    return holdByService(context, **service, account, hasUser ? &terminal : nullptr);
}

} // namespace client::cli
