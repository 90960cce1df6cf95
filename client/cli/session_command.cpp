// dmclient session

#include "cli/command_table.h"
#include "cli/commands.h"
#include "cli/interrupt_guard.h"
#include "cli/session_report.h"
#include "cli/terminal_user.h"
#include "session/http_transport.h"
#include "session/trace.h"

#include <memory>
#include <unistd.h>

namespace client::cli {

namespace {

// ---- Options -------------------------------------------------------------------------------------

bool wrong(QString &error, const QString &problem)
{
    error = QStringLiteral("session: %1").arg(problem);
    return false;
}

/// A positive whole number; leaves the field alone when the option is not there.
template <class Number>
bool readNumber(const Invocation &invocation, const char *option, Number &field, QString &error)
{
    if (!invocation.has(option))
        return true;
    const QString text = invocation.options[QString::fromLatin1(option)];
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (!isNumber || number < 1)
        return wrong(error, QStringLiteral("--%1 wants a positive number instead of \"%2\"")
                                .arg(QString::fromLatin1(option), text));
    field = number;
    return true;
}

bool readEncoding(const Invocation &invocation, syncml::Encoding &encoding, QString &error)
{
    const QString word =
        invocation.options.value(QStringLiteral("encoding"), QStringLiteral("xml"));
    if (word != u"xml" && word != u"wbxml")
        return wrong(error,
                     QStringLiteral("--encoding is xml or wbxml instead of \"%1\"").arg(word));
    encoding = word == u"xml" ? syncml::Encoding::Xml : syncml::Encoding::Wbxml;
    return true;
}

/// TYPE=TEXT of one kind of event.
bool readEvent(const Invocation &invocation, const char *option, ClientEvent::Kind kind,
               std::vector<ClientEvent> &events, QString &error)
{
    if (!invocation.has(option))
        return true;
    const QString text = invocation.options[QString::fromLatin1(option)];
    const qsizetype equals = text.indexOf(u'=');
    if (equals < 1)
        return wrong(error, QStringLiteral("--%1 wants TYPE=TEXT instead of \"%2\"")
                                .arg(QString::fromLatin1(option), text));
    events.push_back({kind, text.left(equals), text.mid(equals + 1).toUtf8()});
    return true;
}

struct Settings {
    SessionOptions session;
    HttpTransport::Options transport;
};

bool readSettings(const Invocation &invocation, Settings &settings, QString &error)
{
    using Kind = ClientEvent::Kind;
    SessionOptions &session = settings.session;
    int seconds = static_cast<int>(
        std::chrono::duration_cast<std::chrono::seconds>(settings.transport.timeLimit).count());
    if (!readEncoding(invocation, session.encoding, error) ||
        !readNumber(invocation, "max-msg-size", session.maxMessageBytes, error) ||
        !readNumber(invocation, "max-obj-size", session.maxObjectBytes, error) ||
        !readNumber(invocation, "timeout", seconds, error) ||
        !readEvent(invocation, "event", Kind::ClientEvent, session.events, error) ||
        !readEvent(invocation, "generic-alert", Kind::GenericAlert, session.events, error))
        return false;
    settings.transport.timeLimit = std::chrono::seconds(seconds);
    settings.transport.authoritiesFile = invocation.options[QStringLiteral("ca")];
    return true;
}

// ---- Whom to have a session with -----------------------------------------------------------------

struct Server {
    std::optional<QString> accountName; ///< none for a server without an account
    Account account;
};

bool findServer(const AccountStore &accounts, const QString &word, Server &server, QString &error)
{
    const QUrl url(word, QUrl::StrictMode);
    server.accountName = accounts.find(word) ? std::optional(word) : accounts.nameOf(url);
    if (server.accountName) {
        server.account = *accounts.find(*server.accountName);
        QString missing;
        return isComplete(server.account, missing) || wrong(error, missing);
    }
    QString reason;
    if (!accountField(QStringLiteral("address"))->set(server.account, word, reason))
        return wrong(error, QStringLiteral("\"%1\" is no account and %2").arg(word, reason));
    // Without an account nobody has said who the server is, so its address has to do.
    server.account.serverId = url.host().toUtf8();
    return true;
}

/// Keeps the nonces that a session has brought; one that the server has written into the account
/// meanwhile is newer.
/// @return false when they could not be kept, which is reported
bool keepNonces(AccountStore &accounts, const Server &server, const Session &session,
                SessionReport &report)
{
    if (!server.accountName)
        return true;
    Account account = *accounts.find(*server.accountName);
    if (account.toServer.nonce == server.account.toServer.nonce)
        account.toServer.nonce = session.nonceToServer();
    if (account.toClient.nonce == server.account.toClient.nonce)
        account.toClient.nonce = session.nonceToClient();
    QString error;
    if (account == *accounts.find(*server.accountName) ||
        accounts.put(*server.accountName, account, error))
        return true;
    report.note(QStringLiteral("the nonces for the next session are not kept: %1").arg(error));
    return false;
}

/// Keeps the properties that a message has changed before the next one is sent.
class PropertyKeeper final : public SessionObserver {
public:
    PropertyKeeper(DmDevice &device, SessionReport &report) : m_device(device), m_report(report) {}

    void messageSent(const TransportRequest &, const syncml::Message &) override
    {
        QString error;
        if (m_device.saveProperties(error) || m_hasFailed)
            return;
        m_hasFailed = true;
        m_report.note(QStringLiteral("properties that the server set are not kept: %1").arg(error));
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
    return end.refused > 0 ? ExitStatus::CommandRefused : ExitStatus::Success;
}

} // namespace

ExitStatus runSession(Context &context, const Invocation &invocation)
{
    AccountStore &accounts = context.device->accounts();
    QString error;
    Settings settings;
    Server server;
    if (!readSettings(invocation, settings, error) ||
        !findServer(accounts, invocation.arguments[0], server, error)) {
        context.output.problem(error);
        return ExitStatus::WrongUsage;
    }
    std::unique_ptr<TraceWriter> trace;
    if (invocation.has("trace"))
        trace = TraceWriter::open(invocation.options[QStringLiteral("trace")], error);
    const auto transport = HttpTransport::create(settings.transport, error);
    if (!error.isEmpty()) {
        context.output.problem(QStringLiteral("session: %1").arg(error));
        return ExitStatus::WrongUsage;
    }

    std::unique_ptr<SessionReport> report;
    if (invocation.has("json"))
        report = std::make_unique<JsonSessionReport>(context.output);
    else
        report = std::make_unique<ReadableSessionReport>(context.output);
    PropertyKeeper keeper(*context.device, *report);
    std::vector<SessionObserver *> observers = {report.get(), &keeper};
    if (trace)
        observers.push_back(trace.get());

    const bool hasUser =
        ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO) && !invocation.has("json");
    const InterruptGuard guard;
    settings.session.isAbortRequested = &InterruptGuard::wasInterrupted;
    TerminalUser user(STDIN_FILENO, STDOUT_FILENO, guard.file());
    Session session(server.account, context.device->tree(), *transport, hasUser ? &user : nullptr,
                    observers, settings.session);
    const SessionEnd end = session.run();
    const bool isKept = keepNonces(accounts, server, session, *report);
    report->ended(end);
    return isKept ? exitStatusOf(end) : worse(exitStatusOf(end), ExitStatus::Unusable);
}

} // namespace client::cli
