#include "networkmanager_bus.h"

#include "connection_settings.h"
#include "record_conversion.h"
#include "silent_bus.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QUuid>
#include <algorithm>
#include <deque>

namespace {

const QString service = QStringLiteral("org.freedesktop.NetworkManager");
const QString settingsPath = QStringLiteral("/org/freedesktop/NetworkManager/Settings");
const QString settingsInterface = QStringLiteral("org.freedesktop.NetworkManager.Settings");
const QString connectionInterface =
    QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection");

/// What the names of errors mean, the first row that a name begins with. NetworkManager's begin
/// with "org.freedesktop.NetworkManager.", the bus's with "org.freedesktop.DBus.Error.".
struct ErrorRow {
    const char *name;
    NAPI_STATUS status;
    Cause cause;
};
constexpr ErrorRow errorRows[] = {
    {"org.freedesktop.NetworkManager.AgentManager.NoSecrets", NAPI_ERROR_NOT_FOUND,
     Cause::NoSecrets},
    {"org.freedesktop.NetworkManager.SecretAgent.", NAPI_ERROR_NOT_FOUND, Cause::NoSecrets},
    {"org.freedesktop.NetworkManager.Settings.PermissionDenied", NAPI_ERROR_UNAVAILABLE,
     Cause::NotPermitted},
    {"org.freedesktop.NetworkManager.Settings.NotPrivileged", NAPI_ERROR_UNAVAILABLE,
     Cause::NotPermitted},
    {"org.freedesktop.NetworkManager.PermissionDenied", NAPI_ERROR_UNAVAILABLE,
     Cause::NotPermitted},
    {"org.freedesktop.NetworkManager.Settings.ReadOnlyConnection", NAPI_ERROR_READ_ONLY,
     Cause::Other},
    {"org.freedesktop.NetworkManager.Settings.UuidExists", NAPI_ERROR_EXISTS, Cause::Other},
    {"org.freedesktop.NetworkManager.Settings.Connection.", NAPI_ERROR_VALUE_REFUSED, Cause::Other},
    {"org.freedesktop.DBus.Error.UnknownObject", NAPI_ERROR_NOT_FOUND, Cause::NoObject},
    {"org.freedesktop.DBus.Error.UnknownMethod", NAPI_ERROR_NOT_FOUND, Cause::NoObject},
    {"org.freedesktop.DBus.Error.ServiceUnknown", NAPI_ERROR_UNAVAILABLE, Cause::NoDaemon},
    {"org.freedesktop.DBus.Error.NameHasNoOwner", NAPI_ERROR_UNAVAILABLE, Cause::NoDaemon},
    {"org.freedesktop.DBus.Error.Disconnected", NAPI_ERROR_UNAVAILABLE, Cause::NoDaemon},
    {"org.freedesktop.DBus.Error.AccessDenied", NAPI_ERROR_UNAVAILABLE, Cause::NotPermitted},
    {"org.freedesktop.DBus.Error.NoReply", NAPI_ERROR_UNAVAILABLE, Cause::Other},
    {"org.freedesktop.DBus.Error.Timeout", NAPI_ERROR_UNAVAILABLE, Cause::Other},
    {"org.freedesktop.DBus.Error.TimedOut", NAPI_ERROR_UNAVAILABLE, Cause::Other},
    {"", NAPI_ERROR_IO, Cause::Other},
};

/// The D-Bus types of the answers of NetworkManager that are looked into.
struct AnswerRow {
    QLatin1StringView method;
    QLatin1StringView signature;
};
constexpr AnswerRow answerRows[] = {
    {QLatin1StringView("ListConnections"), QLatin1StringView("ao")},
    {QLatin1StringView("AddConnection2"), QLatin1StringView("oa{sv}")},
    {QLatin1StringView("GetSettings"), QLatin1StringView("a{sa{sv}}")},
    {QLatin1StringView("GetSecrets"), QLatin1StringView("a{sa{sv}}")},
};

bool isExpected(const QDBusMessage &answer, const QString &method)
{
    return std::ranges::all_of(answerRows, [&](const AnswerRow &row) {
        return row.method != method || row.signature == answer.signature();
    });
}

bool isAnswerMissing(const QDBusMessage &message)
{
    const QDBusError::ErrorType type = QDBusError(message).type();
    return type == QDBusError::NoReply || type == QDBusError::Timeout ||
           type == QDBusError::TimedOut;
}

/// What a failure is about. A lost bus shows in a call when Qt has not noticed the loss before.
QString subjectOf(const QDBusMessage &message)
{
    if (QDBusError(message).type() == QDBusError::Disconnected)
        return QStringLiteral("cannot reach the system bus: ");
    return isAnswerMissing(message) ? QStringLiteral("NetworkManager has not answered: ")
                                    : QStringLiteral("NetworkManager: ");
}

/// The daemon names a refused property at the beginning of its reason: "gsm.apn: ...".
QString withFieldName(const QString &reason)
{
    const QString field = fieldOfProperty(reason.left(reason.indexOf(u':')));
    return field.isEmpty() ? reason : field + QStringLiteral(" is refused: ") + reason;
}

} // namespace

NetworkManagerBus::NetworkManagerBus()
    : m_connectionName(QUuid::createUuid().toString(QUuid::WithoutBraces))
{
    qDBusRegisterMetaType<ConnectionSettings>();
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qDBusRegisterMetaType<QList<uint>>();
}

NetworkManagerBus::~NetworkManagerBus()
{
    disconnect();
}

void NetworkManagerBus::disconnect()
{
    m_daemon.clear();
    m_watch.close();
    if (m_connection.has_value()) {
        m_connection.reset();
        QDBusConnection::disconnectFromBus(m_connectionName);
    }
}

StoreResult NetworkManagerBus::connect()
{
    lookForNews();
    if (m_isDaemonInDoubt)
        m_daemon.clear();
    m_isDaemonInDoubt = false;
    StoreResult result = connectToBus();
    if (!result.failed())
        result = connectToDaemon();
    return result;
}

StoreResult NetworkManagerBus::connectToDaemon()
{
    if (!m_daemon.isEmpty() && m_sinceAnswer.hasExpired(silenceLimitMs)) {
        const BusReply sign = askForASign();
        lookForNews();
        if (isAnswerMissing(sign.message))
            return sign.result;
    }
    return m_daemon.isEmpty() ? findDaemon() : StoreResult();
}

/// Asks for something that takes the daemon no time, and that it answers in the order of its work.
BusReply NetworkManagerBus::askForASign()
{
    return call(message(settingsPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                        QStringLiteral("Get"), {settingsInterface, QStringLiteral("CanModify")}));
}

void NetworkManagerBus::lookForNews()
{
    const ConnectionNews news = m_watch.take(m_daemon);
    m_isDaemonInDoubt = m_isDaemonInDoubt || news.isEverything;
    m_news.isEverything = m_news.isEverything || news.isEverything;
    m_news.added += news.added;
    m_news.changed += news.changed;
    m_news.removed += news.removed;
}

StoreResult NetworkManagerBus::connectToBus()
{
    if (m_connection.has_value() && !(m_connection->isConnected() && m_watch.isOpen()))
        disconnect();
    if (m_connection.has_value())
        return {};
    const QString greeting = QStringLiteral("AUTH");
    if (isBusSilent(systemBusAddresses(), limitMs())) {
        m_unansweredMethod = greeting;
        return {NAPI_ERROR_UNAVAILABLE, "the system bus does not answer"};
    }
    if (m_unansweredMethod == greeting)
        m_unansweredMethod.clear();
    m_connection = QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    if (m_connection->isConnected())
        return m_watch.open(systemBusAddresses(), limitMs());
    return {NAPI_ERROR_UNAVAILABLE,
            "cannot reach the system bus: " + m_connection->lastError().message().toStdString()};
}

StoreResult NetworkManagerBus::findDaemon()
{
    const QString method = QStringLiteral("GetNameOwner");
    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), method);
    question.setArguments({service});
    const BusReply reply = judge(m_connection->call(question, QDBus::Block, limitMs()), method);
    if (reply.cause == Cause::NoDaemon) {
        return {NAPI_ERROR_UNAVAILABLE,
                "NetworkManager is not running: " + reply.message.errorMessage().toStdString()};
    }
    if (!reply.result.failed()) {
        m_daemon = reply.message.arguments().value(0).toString();
        m_news.isEverything = true;
        m_areSecretsSignalled.reset();
        m_sinceAnswer.start();
    }
    return reply.result;
}

int NetworkManagerBus::limitMs() const
{
    return m_unansweredMethod.isEmpty() ? callLimitMs : impatientLimitMs;
}

QDBusMessage NetworkManagerBus::message(const QString &path, const QString &interface,
                                        const QString &method, const QVariantList &arguments) const
{
    QDBusMessage message = QDBusMessage::createMethodCall(m_daemon, path, interface, method);
    message.setArguments(arguments);
    return message;
}

/// Works out what an answer means, and what it says about the daemon.
BusReply NetworkManagerBus::judge(const QDBusMessage &message, const QString &method)
{
    if (isAnswerMissing(message)) {
        m_unansweredMethod = method;
    } else {
        m_sinceAnswer.start();
        if (method == m_unansweredMethod)
            m_unansweredMethod.clear();
    }
    if (message.type() == QDBusMessage::ReplyMessage) {
        if (isExpected(message, method))
            return {message, Cause::None, {}};
        return {message,
                Cause::Other,
                {NAPI_ERROR_IO,
                 "NetworkManager: the answer to " + method.toStdString() + " has another form"}};
    }
    const std::string name = message.errorName().toStdString();
    const ErrorRow &row = *std::ranges::find_if(
        errorRows, [&](const ErrorRow &candidate) { return name.starts_with(candidate.name); });
    if (row.cause == Cause::NoDaemon)
        m_daemon.clear();
    const QString text = subjectOf(message) + withFieldName(message.errorMessage());
    return {message, row.cause, {row.status, text.toStdString() + " (" + name + ")"}};
}

BusReply NetworkManagerBus::call(const QDBusMessage &message)
{
    return judge(m_connection->call(message, QDBus::Block, limitMs()), message.member());
}

BusReply NetworkManagerBus::callSettings(const QString &method, const QVariantList &arguments)
{
    const auto send = [&] {
        return call(message(settingsPath, settingsInterface, method, arguments));
    };
    BusReply reply = send();
    if (reply.cause != Cause::NoDaemon)
        return reply;
    // The bus or the daemon is another one: the call has reached nobody, and means the same there.
    reply.result = connect();
    return reply.result.failed() ? reply : send();
}

BusReply NetworkManagerBus::callConnection(const QString &path, const QString &method,
                                           const QVariantList &arguments)
{
    return call(message(path, connectionInterface, method, arguments));
}

BusReply NetworkManagerBus::callForSecrets(const QString &path, const QString &setting)
{
    lookForNews();
    const qsizetype signalsBefore = m_news.changed.count(path);
    BusReply reply = callConnection(path, QStringLiteral("GetSecrets"), {setting});
    lookForNews();
    if (!reply.result.failed())
        dropOwnSignal(path, signalsBefore);
    return reply;
}

/// Two signals are that of the secrets and somebody's change; so would one be from a daemon that
/// hands out secrets without a signal, which it has to be seen not to do first.
void NetworkManagerBus::dropOwnSignal(const QString &path, qsizetype signalsBefore)
{
    const qsizetype signalled = m_news.changed.count(path) - signalsBefore;
    if (signalled == 1 && m_areSecretsSignalled == true)
        m_news.changed.removeOne(path);
    m_areSecretsSignalled = signalled > 0 && m_areSecretsSignalled.value_or(true);
}

StoreResult NetworkManagerBus::callConnections(
    const QStringList &paths, const QString &method,
    const std::function<StoreResult(const QString &path, const BusReply &reply)> &take)
{
    std::deque<QDBusPendingCall> calls;
    qsizetype sent = 0;
    for (const QString &path : paths) {
        while (sent < paths.size() && calls.size() < callsInFlight) {
            calls.push_back(m_connection->asyncCall(
                message(paths[sent], connectionInterface, method, {}), limitMs()));
            ++sent;
        }
        calls.front().waitForFinished();
        StoreResult result = take(path, judge(calls.front().reply(), method));
        if (result.failed())
            return result;
        calls.pop_front();
    }
    return {};
}
