#include "agent_object.h"

#include "service_names.h"

#include <QDBusConnectionInterface>
#include <sys/eventfd.h>

namespace client {

namespace {

using Response = UserInteraction::Response;

/// Options of a question as they come over the bus (json_user.h has their meaning).
InteractionOptions optionsFrom(const QVariantMap &map)
{
    using Input = InteractionOptions::Input;
    static constexpr std::pair<const char *, Input> inputs[] = {{"number", Input::Number},
                                                                {"date", Input::Date},
                                                                {"time", Input::Time},
                                                                {"telephone", Input::Telephone},
                                                                {"address", Input::IpAddress}};
    InteractionOptions options;
    const auto seconds = [&map](const char *key) -> std::optional<std::chrono::seconds> {
        const auto value = map.constFind(QString::fromLatin1(key));
        if (value == map.constEnd())
            return std::nullopt;
        return std::chrono::seconds(value->toUInt());
    };
    options.minimumTime = seconds("minimum-time");
    options.maximumTime = seconds("maximum-time");
    options.defaultResponse = map.value(QStringLiteral("default")).toString();
    if (const int length = map.value(QStringLiteral("maximum-length")).toInt(); length > 0)
        options.maximumLength = length;
    for (const auto &[word, input] : inputs)
        if (map.value(QStringLiteral("input")) == QString::fromLatin1(word))
            options.input = input;
    options.isSecret = map.value(QStringLiteral("secret")).toBool();
    return options;
}

/// A person who has several accounts wants to know whose question it is. A bootstrap message has
/// none yet.
QString saidBy(const QString &account, const QString &text)
{
    return account.isEmpty() ? text : account + QStringLiteral(": ") + text;
}

QDBusMessage replyTo(const QDBusMessage &message, Response response, const QVariantList &reply)
{
    if (response == Response::Given)
        return message.createReply(reply);
    const char *const error = response == Response::Cancelled  ? "Cancelled"
                              : response == Response::TimedOut ? "TimedOut"
                                                               : "CannotShow";
    return message.createErrorReply(QString::fromLatin1(agentErrors) + QString::fromLatin1(error),
                                    QStringLiteral("the question has no answer"));
}

} // namespace

AgentObject::AgentObject(QObject &owner, UserInteraction &user, int cancelFile,
                         const QDBusConnection &bus)
    : QDBusAbstractAdaptor(&owner), m_user(user), m_cancelFile(cancelFile), m_bus(bus)
{
}

AgentObject::~AgentObject()
{
    cancel();
}

bool AgentObject::isFromService(const QDBusMessage &message) const
{
    const QString service =
        m_bus.interface()->serviceOwner(QString::fromLatin1(serviceName)).value();
    return !service.isEmpty() && message.service() == service;
}

void AgentObject::ask(const QDBusMessage &message, const Question &question)
{
    message.setDelayedReply(true);
    if (!isFromService(message)) {
        m_bus.send(message.createErrorReply(QDBusError::AccessDenied,
                                            QStringLiteral("only dmclientd may ask")));
        return;
    }
    cancel();
    m_asking = std::thread([message, question, bus = m_bus] {
        QVariantList reply;
        const Response response = question(reply);
        bus.send(replyTo(message, response, reply));
    });
}

void AgentObject::cancel()
{
    if (!m_asking.joinable())
        return;
    ::eventfd_write(m_cancelFile, 1);
    m_asking.join();
    eventfd_t written = 0;
    ::eventfd_read(m_cancelFile, &written);
}

void AgentObject::Display(const QString &account, const QString &text, const QVariantMap &options,
                          const QDBusMessage &message)
{
    ask(message, [this, shown = saidBy(account, text), options](QVariantList &) {
        return m_user.show(shown, optionsFrom(options));
    });
}

bool AgentObject::Confirm(const QString &account, const QString &text, const QVariantMap &options,
                          const QDBusMessage &message)
{
    ask(message, [this, shown = saidBy(account, text), options](QVariantList &reply) {
        const Response response = m_user.confirm(shown, optionsFrom(options));
        reply << (response == Response::Given);
        return response == Response::Refused ? Response::Given : response;
    });
    return false;
}

QString AgentObject::EnterText(const QString &account, const QString &text,
                               const QVariantMap &options, const QDBusMessage &message)
{
    ask(message, [this, shown = saidBy(account, text), options](QVariantList &reply) {
        QString typed;
        const Response response = m_user.ask(shown, optionsFrom(options), typed);
        reply << typed;
        return response;
    });
    return {};
}

QList<uint> AgentObject::Choose(const QString &account, const QString &text,
                                const QStringList &choices, bool several,
                                const QVariantMap &options, const QDBusMessage &message)
{
    const auto kind = several ? UserInteraction::Choice::Multiple : UserInteraction::Choice::Single;
    ask(message,
        [this, shown = saidBy(account, text), choices, kind, options](QVariantList &reply) {
            std::vector<int> chosen;
            const Response response = m_user.choose(shown, {choices.begin(), choices.end()}, kind,
                                                    optionsFrom(options), chosen);
            QList<uint> numbers;
            for (const int number : chosen)
                numbers += static_cast<uint>(number);
            reply << QVariant::fromValue(numbers);
            return response;
        });
    return {};
}

void AgentObject::Cancel(const QDBusMessage &message)
{
    if (isFromService(message))
        cancel();
}

} // namespace client
