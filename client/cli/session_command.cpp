// dmclient session

#include "client_event.h"
#include "command_table.h"
#include "commands.h"
#include "difference_report.h"
#include "http_module.h"
#include "inbox.h"
#include "interrupt_guard.h"
#include "json_user.h"
#include "late_execution.h"
#include "notification_message.h"
#include "notification_proof.h"
#include "recording.h"
#include "session_report.h"
#include "terminal.h"
#include "terminal_user.h"
#include "trace.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <limits>
#include <memory>
#include <unistd.h>

namespace client::cli {

using commandline::isInteractive;
using support::Unexpected;

namespace {

// ---- Options -------------------------------------------------------------------------------------

/// Nothing, or what is wrong.
using Check = support::Expected<void, QString>;

/// A whole number from 1 to the largest; leaves the field alone when the option is not there.
template <class Number>
Check readNumber(const Invocation &invocation, const char *option, int largest, Number &field)
{
    if (!invocation.has(option))
        return {};
    const QString text = invocation.value(option);
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (!isNumber || number < 1 || number > largest)
        return Unexpected(QStringLiteral("--%1 wants a number from 1 to %2 instead of \"%3\"")
                              .arg(QString::fromLatin1(option))
                              .arg(largest)
                              .arg(text));
    field = number;
    return {};
}

Check readSeconds(const Invocation &invocation, const char *option,
                  std::chrono::milliseconds &field)
{
    constexpr std::chrono::seconds longest = std::chrono::hours(24);
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(field).count();
    const Check check = readNumber(invocation, option, longest.count(), seconds);
    if (check)
        field = std::chrono::seconds(seconds);
    return check;
}

struct EventOption {
    const char *name;
    support::Expected<ClientEvent, QString> (*parse)(const QString &text);
};

constexpr EventOption eventOptions[] = {
    {"event", parseClientEvent},
    {"generic-alert", parseGenericAlert},
};

Check readEvents(const Invocation &invocation, std::vector<ClientEvent> &events)
{
    for (const EventOption &option : eventOptions) {
        for (const QString &text : invocation.values(option.name)) {
            const auto event = option.parse(text);
            if (!event)
                return Unexpected(QStringLiteral("--%1 \"%2\": %3")
                                      .arg(QString::fromLatin1(option.name), text, event.error()));
            events.push_back(*event);
        }
    }
    return {};
}

struct Settings {
    SessionOptions session;
    HttpTransport::Options transport;
};

/// The session that the options say a server has asked for.
support::Expected<std::optional<NotifiedSession>, QString>
readNotified(const Invocation &invocation)
{
    using Notified = std::optional<NotifiedSession>;
    if (!invocation.has("notified")) {
        if (invocation.has("zero-nonce"))
            return Unexpected(QStringLiteral("--zero-nonce is for a session with --notified"));
        return Notified();
    }
    const QString text = invocation.value("notified");
    bool isNumber = false;
    NotifiedSession notified{text.toUShort(&isNumber, 16), std::nullopt};
    if (!isNumber || notified.sessionId == 0 ||
        notification::sessionIdText(notified.sessionId) != text)
        return Unexpected(QStringLiteral("--notified wants an identifier from 1 to FFFF, in "
                                         "hexadecimal digits and capitals, instead of \"%1\"")
                              .arg(text));
    if (invocation.has("zero-nonce"))
        notified.firstNonce = invocation.value("zero-nonce") == u"text"
                                  ? notification::zeroNonceAsText()
                                  : notification::zeroNonceAsOctets();
    return Notified(notified);
}

support::Expected<Settings, QString> readSettings(const Invocation &invocation)
{
    Settings settings;
    SessionOptions &session = settings.session;
    constexpr int anyNumber = std::numeric_limits<int>::max();
    // What is larger is not read, whatever was announced.
    constexpr int largestMessage = syncml::Limits().messageBytes;
    session.encoding =
        invocation.value("encoding") == u"wbxml" ? syncml::Encoding::Wbxml : syncml::Encoding::Xml;
    for (const Check &check :
         {readNumber(invocation, "max-msg-size", largestMessage, session.maxMessageBytes),
          readNumber(invocation, "max-obj-size", anyNumber, session.maxObjectBytes),
          readSeconds(invocation, "timeout", settings.transport.timeLimit),
          readSeconds(invocation, "session-timeout", session.timeLimit),
          readEvents(invocation, session.events)})
        if (!check)
            return Unexpected(check.error());
    settings.transport.authoritiesFile = invocation.value("ca");
    if (invocation.has("json") && invocation.value("trace") == u"-")
        return Unexpected(QStringLiteral("--json and --trace - cannot share standard output"));
    return settings;
}

// ---- Whom to have a session with -----------------------------------------------------------------

struct Server {
    std::optional<QString> accountName; ///< none for a server without an account
    Account account;
};

/// The account whose server is on the same machine.
std::optional<QString> accountOnHost(const AccountStore &accounts, const HttpModule &http,
                                     const QUrl &url)
{
    for (const auto &[name, account] : accounts.accounts())
        if (http.areSameHost(account.address, url))
            return name;
    return std::nullopt;
}

support::Expected<Server, QString> findServer(const AccountStore &accounts, const HttpModule &http,
                                              const QString &word)
{
    Server server;
    const QUrl url(word, QUrl::StrictMode);
    server.accountName = accounts.find(word) ? std::optional(word) : accounts.nameOf(url);
    if (server.accountName) {
        server.account = *accounts.find(*server.accountName);
        if (const auto complete = checkComplete(server.account); !complete)
            return Unexpected(complete.error());
        return server;
    }
    // One that cannot be read may be the one that is meant.
    if (!accounts.damagedAccounts().empty())
        return Unexpected(QStringLiteral("\"%1\" is not an account, and %2")
                              .arg(word, accounts.damagedAccounts().begin()->second.reason));
    if (const auto set = accountField(QStringLiteral("address"))->set(server.account, word); !set)
        return Unexpected(QStringLiteral("\"%1\" is not an account and %2").arg(word, set.error()));
    // Whoever answers there would not have to prove that it is the account's server.
    if (const auto name = accountOnHost(accounts, http, server.account.address))
        return Unexpected(QStringLiteral("%1 is on the host of the account %2 (%3); name the "
                                         "account, or give it that address")
                              .arg(word, *name, accounts.find(*name)->address.toString()));
    return server;
}

/// Keeps the nonces of a session in its account. One that the server has written into the account
/// meanwhile is newer and stays.
class NonceKeeper {
public:
    NonceKeeper(AccountStore &accounts, const Server &server)
        : m_accounts(accounts), m_name(server.accountName), m_kept{server.account.toServer.nonce,
                                                                   server.account.toClient.nonce}
    {
    }

    support::Expected<void, QString> keep(const Nonces &nonces)
    {
        const Account *const stored = m_name ? m_accounts.find(*m_name) : nullptr;
        if (!stored)
            return {};
        Account account = *stored;
        if (account.toServer.nonce == m_kept.toServer)
            account.toServer.nonce = m_kept.toServer = nonces.toServer;
        if (account.toClient.nonce == m_kept.toClient)
            account.toClient.nonce = m_kept.toClient = nonces.toClient;
        return account == *stored ? support::Expected<void, QString>()
                                  : m_accounts.put(*m_name, account);
    }

private:
    AccountStore &m_accounts;
    std::optional<QString> m_name;
    Nonces m_kept; ///< as the session knows them
};

/// Keeps the properties that a message has changed before the next one is sent.
class PropertyKeeper final : public SessionObserver {
public:
    PropertyKeeper(DmDevice &device, SessionReport &report) : m_device(device), m_report(report) {}

    void messageSent(const TransportRequest &, const syncml::Message &) override
    {
        const auto saved = m_device.saveProperties();
        if (saved || m_hasFailed)
            return;
        m_hasFailed = true;
        m_report.note(
            QStringLiteral("properties that the server set are not kept: %1").arg(saved.error()));
    }

private:
    DmDevice &m_device;
    SessionReport &m_report;
    bool m_hasFailed = false; ///< which is told once
};

ExitStatus exitStatusOf(const SessionEnd &end)
{
    if (end.kind != SessionEnd::Kind::Completed)
        return ExitStatus::SessionFailed;
    return end.refused > 0 ? ExitStatus::Failed : ExitStatus::Success;
}

ExitStatus haveSessionWith(const Context &context, const HttpModule &http, const Server &server,
                           const Settings &settings, TraceWriter *trace)
{
    Recorder *const recorder = context.recording ? &context.recording->recorder() : nullptr;
    HttpTransport::Options transportOptions = settings.transport;
    transportOptions.observer = recorder;
    const auto transport = http.createTransport(transportOptions);
    if (!transport)
        return wrongUsage(context, transport.error());

    const bool asJson = context.invocation.has("json");
    const auto report = asJson ? jsonReport(context.output) : readableReport(context.output);
    PropertyKeeper keeper(*context.device, *report);
    recordLooks(context);
    ChangeOrigins origins(*context.secondLook);
    LateExecution late(*context.device, server.accountName, *report);
    std::vector<SessionObserver *> observers = {report.get(), &keeper, &origins, &late};
    if (trace)
        observers.push_back(trace);
    if (recorder)
        observers.push_back(recorder);

    NonceKeeper nonces(context.device->accounts(), server);
    SessionOptions options = settings.session;
    options.isAbortRequested = &InterruptGuard::wasInterrupted;
    options.inbox = [&](const std::vector<TndsNode> &objects) {
        return bootstrap::addToInbox(objects, *context.device, principalOf(server.account),
                                     http.areSameHost);
    };
    options.keepNonces = [&nonces](const Nonces &changed) { return nonces.keep(changed); };
    late.addTo(options);
    TerminalUser terminal(STDIN_FILENO, STDOUT_FILENO, settings.transport.interruptFile);
    JsonUser program(context.output, STDIN_FILENO, settings.transport.interruptFile);
    UserInteraction *user = nullptr;
    if (context.invocation.has("questions"))
        user = &program;
    else if (isInteractive() && !asJson)
        user = &terminal;
    Session session(server.account, context.device->tree(), **transport, user, observers, options);
    const SessionEnd end = session.run();
    if (end.kind != SessionEnd::Kind::AbortedHere)
        late.runAccepted(observers);
    reportDifferences(context, origins, *report);
    report->ended(end);
    if (context.recording)
        context.recording->setSession(end);
    if (!trace || !trace->lossReason())
        return exitStatusOf(end);
    return problem(context, QStringLiteral("the trace has gaps: %1").arg(*trace->lossReason()),
                   worse(exitStatusOf(end), ExitStatus::Unusable));
}

/// Keeps a record of the session with those of others, unless it is in that of a shell. That it
/// cannot be kept is told, and keeps nobody from having the session.
void beginRecord(Context &context)
{
    // A record is of one run: the numbers of a shell's go on, and what the session found was there
    // before it.
    if (context.recording && context.inShell)
        return;
    const auto tell = [&context](const QString &reason) {
        problem(context, QStringLiteral("the session is not recorded: %1").arg(reason),
                ExitStatus::Success);
    };
    if (context.recording) {
        if (const auto kept = context.recording->keep(); !kept)
            tell(kept.error());
        return;
    }
    auto recording = Recording::kept(*context.device, context.invocation);
    if (!recording) {
        tell(recording.error());
        return;
    }
    context.sessionRecording = *std::move(recording);
    context.recording = context.sessionRecording.get();
}

/// Whether the signal was meant for more than the session. Ctrl-C is meant for the command that
/// runs, where somebody types one after the other.
bool endsShell(int signal)
{
    return signal != 0 && (signal != SIGINT || !isInteractive());
}

} // namespace

ExitStatus runSession(Context &context)
{
    const auto notified = readNotified(context.invocation);
    if (!notified)
        return wrongUsage(context, notified.error());
    return haveSession(context, context.invocation.arguments[0], *notified);
}

ExitStatus haveSession(Context &context, const QString &serverWord,
                       const std::optional<NotifiedSession> &notified)
{
    const Invocation &invocation = context.invocation;
    if (const QString reason = context.device->reasonAgainstServers(); !reason.isEmpty())
        return problem(context, reason, ExitStatus::Unusable);
    if (invocation.has("questions") && (!invocation.has("json") || context.inShell))
        return wrongUsage(context, QStringLiteral("--questions needs --json, and standard input"));
    auto settings = readSettings(invocation);
    if (!settings)
        return wrongUsage(context, settings.error());
    if (notified) {
        settings->session.isNotified = true;
        settings->session.sessionId = notification::sessionIdText(notified->sessionId);
        settings->session.firstNonce = notified->firstNonce;
    }
    const auto http = HttpModule::load();
    if (!http)
        return problem(context, http.error(), ExitStatus::Unusable);
    const auto server = findServer(context.device->accounts(), **http, serverWord);
    if (!server)
        return wrongUsage(context, server.error());
    std::unique_ptr<TraceWriter> trace;
    if (invocation.has("trace")) {
        auto opened = TraceWriter::open(invocation.value("trace"));
        if (!opened)
            return wrongUsage(context, opened.error());
        trace = *std::move(opened);
    }

    const InterruptGuard guard;
    settings->transport.interruptFile = guard.file();
    beginRecord(context);
    const ExitStatus status = haveSessionWith(context, **http, *server, *settings, trace.get());
    if (!context.inShell || !endsShell(InterruptGuard::signal()))
        return status;
    context.leaveShell = true;
    // The session may have come to its own end; the lines after it have not.
    return problem(context,
                   QStringLiteral("SIG%1 ends the shell")
                       .arg(QString::fromLatin1(::sigabbrev_np(InterruptGuard::signal()))),
                   worse(status, ExitStatus::SessionFailed));
}

} // namespace client::cli
