// Programs of users that a server may talk to.
#pragma once

#include "expected.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace client {

/// Has the questions of sessions answered by agents: programs on the bus that have the interface
/// org.kub.DmClient1.Agent and have registered.
///
///     Display(s account, s text, a{sv} options)
///     Confirm(s account, s text, a{sv} options) -> b
///     EnterText(s account, s text, a{sv} options) -> s
///     Choose(s account, s text, as choices, b several, a{sv} options) -> au, from 1
///     Cancel(): what was asked last is not asked any more
///
/// The options are those of a question (json_user.h), numbers as t. An agent may answer with an
/// error instead, org.kub.DmClient1.Agent.Error.Cancelled, .TimedOut or .CannotShow. The one that
/// registered last is asked; when that one is of no use, because it has gone or answers something
/// else, the one before it.
class Agents : public QObject {
    Q_OBJECT
public:
    /// Programs of one user could otherwise take the memory of the service.
    static constexpr std::size_t mostAgents = 16;
    /// Characters of a text. In JSON each has six bytes at most, and a session reads lines of 64
    /// KiB (json_user.h): what is longer would be cut there, after it has kept the session waiting.
    static constexpr qsizetype longestText = 10'000;

    explicit Agents(const QDBusConnection &bus);

    /// @param owner  unique name of the program on the bus
    /// @return why it cannot be: it is registered, or there are too many
    support::Expected<void, QString> add(const QString &owner, const QString &path);
    /// @return that it is not registered
    support::Expected<void, QString> remove(const QString &owner, const QString &path);
    bool isEmpty() const { return m_agents.empty(); }
    /// Called when there is one more.
    void setAdded(std::function<void()> added) { m_added = std::move(added); }

    using Answered = std::function<void(const QJsonObject &answer)>;
    /// Asks, and calls with the answer when there is one: at once when there is nobody to ask. What
    /// was asked before and has no answer yet is cancelled.
    /// @return the number of the question, never 0
    int ask(const QString &account, const QJsonObject &question, Answered answered);
    bool isAsking() const { return m_asked.has_value(); }
    /// Whether that is the question that has no answer yet.
    bool isAsking(int question) const { return m_asked && m_asked->number == question; }
    /// Takes back a question, if it has no answer yet.
    void cancel(int question);

private:
    struct Agent {
        QString owner;
        QString path;
        bool operator==(const Agent &) const = default;
    };
    struct Asked {
        int number = 0;
        int call = 0; ///< tells late answers of an agent
        QString account;
        QJsonObject question;
        Answered answered;
        std::vector<Agent> left; ///< that can be asked, the next one last
        std::optional<Agent> agent;
    };

    void askNext();
    void take(int call, const QDBusMessage &reply);
    void forget(const QString &owner);
    void answer(const QJsonObject &answer);
    static void tell(const Asked &asked, QJsonObject answer);
    /// @return what was asked; none when nothing is
    std::optional<Asked> takeBack();

    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    std::vector<Agent> m_agents;
    std::function<void()> m_added = [] {};
    std::optional<Asked> m_asked;
    int m_numbers = 0;
};

} // namespace client
