#include "agents.h"

#include "service_names.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QJsonArray>
#include <QStringList>
#include <algorithm>
#include <chrono>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

/// How the questions of a kind are put, and what their answers are.
struct QuestionRow {
    const char *question;
    const char *method;
    const char *replySignature;
};

constexpr QuestionRow questionRows[] = {
    {"display", "Display", ""}, {"confirmation", "Confirm", "b"}, {"text", "EnterText", "s"},
    {"choice", "Choose", "au"}, {"choices", "Choose", "au"},
};

const QuestionRow *rowOf(const QJsonObject &question)
{
    const QString kind = question[u"question"].toString();
    const auto *const row = std::ranges::find_if(questionRows, [&kind](const QuestionRow &one) {
        return kind == QLatin1String(one.question);
    });
    return row == std::end(questionRows) ? nullptr : row;
}

struct ErrorRow {
    const char *error; ///< after agentErrors
    const char *response;
};

constexpr ErrorRow errorRows[] = {
    {"Cancelled", "cancelled"}, {"TimedOut", "timed-out"}, {"CannotShow", "cannot-show"}};

QVariantMap optionsOf(const QJsonObject &question)
{
    QVariantMap options;
    const QJsonObject object = question[u"options"].toObject();
    for (auto option = object.begin(); option != object.end(); ++option)
        options.insert(option.key(),
                       option.value().isDouble()
                           ? QVariant(static_cast<quint64>(option.value().toInteger()))
                           : option.value().toVariant());
    return options;
}

QVariantList argumentsOf(const QString &account, const QJsonObject &question)
{
    QVariantList arguments{account, question[u"text"].toString()};
    const QString kind = question[u"question"].toString();
    if (question.contains(u"choices"))
        arguments << question[u"choices"].toVariant().toStringList() << (kind == u"choices");
    arguments << optionsOf(question);
    return arguments;
}

/// An answer without what the agent gave.
QJsonObject withoutContent(const char *response)
{
    return {{QStringLiteral("response"), QString::fromLatin1(response)}};
}

/// What the agent has answered; none when that is not an answer to the question.
/// @param choices  that there are to choose from
std::optional<QJsonObject> answerIn(const QDBusMessage &reply, const QuestionRow &row,
                                    qsizetype choices)
{
    if (reply.type() == QDBusMessage::ErrorMessage) {
        for (const ErrorRow &error : errorRows)
            if (reply.errorName() == QLatin1String(agentErrors) + QLatin1String(error.error))
                return withoutContent(error.response);
        return std::nullopt;
    }
    if (reply.signature() != QLatin1String(row.replySignature))
        return std::nullopt;
    QJsonObject answer = withoutContent("given");
    const QString signature = reply.signature();
    if (signature == u"b" && !reply.arguments().at(0).toBool())
        return withoutContent("refused");
    if (signature == u"s") {
        const QString text = reply.arguments().at(0).toString();
        if (text.size() > Agents::longestText)
            return withoutContent("cannot-show");
        answer[u"text"] = text;
    }
    if (signature == u"au") {
        const auto numbers = qdbus_cast<QList<uint>>(reply.arguments().at(0));
        if (numbers.size() > choices)
            return withoutContent("cannot-show");
        QJsonArray chosen;
        for (const uint number : numbers)
            chosen += static_cast<qint64>(number);
        answer[u"chosen"] = chosen;
    }
    return answer;
}

/// How long an agent may take; the session gives up before.
int timeLimit(const QJsonObject &question)
{
    using std::chrono::milliseconds;
    constexpr milliseconds more = std::chrono::seconds(5);
    constexpr milliseconds longest = std::chrono::hours(24);
    const auto asked = std::chrono::seconds(
        question[u"options"].toObject()[u"maximum-time"].toInteger(longest.count() / 1000));
    const auto most = std::clamp<milliseconds>(asked, milliseconds(0), longest);
    return static_cast<int>((most + more).count());
}

} // namespace

Agents::Agents(const QDBusConnection &bus)
    : m_bus(bus), m_watcher(QString(), bus, QDBusServiceWatcher::WatchForUnregistration)
{
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, &Agents::forget);
}

// ---- Who there is --------------------------------------------------------------------------------

Expected<void, QString> Agents::add(const QString &owner, const QString &path)
{
    const Agent agent{owner, path};
    if (std::ranges::find(m_agents, agent) != m_agents.end())
        return Unexpected(QStringLiteral("this agent is registered"));
    if (m_agents.size() >= mostAgents)
        return Unexpected(QStringLiteral("there are %1 agents, which is the most").arg(mostAgents));
    m_agents.push_back(agent);
    m_watcher.addWatchedService(owner);
    m_added();
    return {};
}

Expected<void, QString> Agents::remove(const QString &owner, const QString &path)
{
    const Agent agent{owner, path};
    if (std::erase(m_agents, agent) == 0)
        return Unexpected(QStringLiteral("this agent is not registered"));
    if (std::ranges::find(m_agents, owner, &Agent::owner) == m_agents.end())
        m_watcher.removeWatchedService(owner);
    if (m_asked && m_asked->agent == agent)
        askNext();
    return {};
}

void Agents::forget(const QString &owner)
{
    std::erase_if(m_agents, [&owner](const Agent &agent) { return agent.owner == owner; });
    m_watcher.removeWatchedService(owner);
    if (m_asked && m_asked->agent && m_asked->agent->owner == owner)
        askNext();
}

// ---- Questions -----------------------------------------------------------------------------------

int Agents::ask(const QString &account, const QJsonObject &question, Answered answered)
{
    if (const auto before = takeBack())
        tell(*before, withoutContent("cancelled"));
    const int number = ++m_numbers;
    m_asked = Asked{number, number, account, question, std::move(answered), m_agents, {}};
    askNext();
    return number;
}

void Agents::askNext()
{
    const QuestionRow *const row = rowOf(m_asked->question);
    if (!row)
        return answer(withoutContent("cannot-show"));
    auto &left = m_asked->left;
    std::erase_if(left, [this](const Agent &agent) {
        return std::ranges::find(m_agents, agent) == m_agents.end();
    });
    if (left.empty())
        return answer(withoutContent("nobody"));
    m_asked->agent = left.back();
    left.pop_back();
    // A call of an earlier agent may still be answered.
    m_asked->call = ++m_numbers;
    QDBusMessage call = QDBusMessage::createMethodCall(m_asked->agent->owner, m_asked->agent->path,
                                                       QString::fromLatin1(agentInterface),
                                                       QString::fromLatin1(row->method));
    call.setArguments(argumentsOf(m_asked->account, m_asked->question));
    auto *const watcher =
        new QDBusPendingCallWatcher(m_bus.asyncCall(call, timeLimit(m_asked->question)), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, number = m_asked->call](QDBusPendingCallWatcher *finished) {
                take(number, finished->reply());
                finished->deleteLater();
            });
}

void Agents::take(int call, const QDBusMessage &reply)
{
    if (!m_asked || m_asked->call != call)
        return;
    const QJsonObject &question = m_asked->question;
    if (const auto answered =
            answerIn(reply, *rowOf(question), question[u"choices"].toArray().size()))
        answer(*answered);
    else
        askNext();
}

void Agents::answer(const QJsonObject &answer)
{
    tell(*std::exchange(m_asked, std::nullopt), answer);
}

void Agents::tell(const Asked &asked, QJsonObject answer)
{
    answer[u"id"] = asked.question[u"id"];
    asked.answered(answer);
}

void Agents::cancel(int question)
{
    if (isAsking(question))
        takeBack();
}

std::optional<Agents::Asked> Agents::takeBack()
{
    auto asked = std::exchange(m_asked, std::nullopt);
    if (!asked || !asked->agent)
        return asked;
    QDBusMessage call = QDBusMessage::createMethodCall(asked->agent->owner, asked->agent->path,
                                                       QString::fromLatin1(agentInterface),
                                                       QStringLiteral("Cancel"));
    call.setAutoStartService(false);
    m_bus.send(call); // whatever it answers
    return asked;
}

} // namespace client
