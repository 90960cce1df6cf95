// A person on the bus, whom the service may ask.
#pragma once

#include "user_interaction.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <thread>

namespace client {

/// The interface org.kub.DmClient1.Agent (agents.h). The user is asked in a thread of its own, one
/// question at a time, so that one can be taken back. Nobody but the service is answered.
class AgentObject : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kub.DmClient1.Agent")
public:
    /// @param owner       the object that is to be on the bus; the adaptor is its child
    /// @param user        outlives the adaptor
    /// @param cancelFile  an eventfd that ends a question of the user's when it can be read
    AgentObject(QObject &owner, UserInteraction &user, int cancelFile, const QDBusConnection &bus);
    /// Takes back what is asked.
    ~AgentObject() override;

public Q_SLOTS:
    // Each is answered later.
    void Display(const QString &account, const QString &text, const QVariantMap &options,
                 const QDBusMessage &message);
    bool Confirm(const QString &account, const QString &text, const QVariantMap &options,
                 const QDBusMessage &message);
    QString EnterText(const QString &account, const QString &text, const QVariantMap &options,
                      const QDBusMessage &message);
    QList<uint> Choose(const QString &account, const QString &text, const QStringList &choices,
                       bool several, const QVariantMap &options, const QDBusMessage &message);
    void Cancel(const QDBusMessage &message);

private:
    /// Asks the user; stores what a reply has.
    using Question = std::function<UserInteraction::Response(QVariantList &reply)>;

    bool isFromService(const QDBusMessage &message) const;
    void ask(const QDBusMessage &message, const Question &question);
    void cancel();

    UserInteraction &m_user;
    const int m_cancelFile;
    QDBusConnection m_bus;
    std::thread m_asking;
};

} // namespace client
