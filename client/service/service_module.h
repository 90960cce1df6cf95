// The way to a running dmclientd for a program of which few commands need it: the code, and Qt DBus
// beneath it, are in a library of their own that is loaded at first use.
#pragma once

#include "expected.h"
#include "user_interaction.h"

#include <QList>
#include <QString>
#include <QVariantMap>
#include <functional>
#include <memory>

namespace client {

/// A dmclientd that runs. Every error is a sentence for people: the service's own, or what is wrong
/// with the bus.
class RunningService {
public:
    /// What the service tells while somebody listens.
    struct Listener {
        std::function<void(const QString &state, const QString &session)> statusChanged;
        std::function<void(const QVariantMap &result)> sessionEnded;
    };

    virtual ~RunningService() = default;

    /// The state directory that it serves, absolute.
    virtual QString stateDirectory() const = 0;
    /// All properties of its interface by name, those of the type aa{sv} as QList<QVariantMap>.
    virtual support::Expected<QVariantMap, QString> properties() const = 0;
    virtual support::Expected<void, QString> startSession(const QString &account) = 0;
    virtual support::Expected<void, QString> cancelSession(const QString &account) = 0;
    /// Has a user asked what servers ask, as long as this lives and listen() runs.
    /// @param user        asked in a thread of its own; outlives this
    /// @param cancelFile  an eventfd that ends a question of the user's when it can be read
    virtual support::Expected<void, QString> registerAgent(UserInteraction &user,
                                                           int cancelFile) = 0;
    /// Hands on what the service tells from now on, when listen() runs.
    virtual void setListener(const Listener &listener) = 0;
    /// Runs until isOver says so after something was told, or until the file, if it is one, can be
    /// read.
    /// @return that the service ended
    virtual support::Expected<void, QString> listen(const std::function<bool()> &isOver,
                                                    int interruptFile) = 0;
};

/// What the library of the service's bus offers.
struct ServiceModule {
    /// The service that runs now; null when none does or there is no bus.
    std::unique_ptr<RunningService> (*find)();
    /// Whoever sits at the desktop that the program runs on (desktop_user.h).
    /// @param interruptFile  takes a question back when it can be read
    /// @return never null; the error is a sentence that says what the desktop lacks
    support::Expected<std::unique_ptr<UserInteraction>, QString> (*desktopUser)(int interruptFile);

    /// Loads the library from the program's own library folder (its RUNPATH); it stays loaded.
    /// @return never null; the error is a sentence that names the file and the reason
    static support::Expected<const ServiceModule *, QString> load();
};

} // namespace client
