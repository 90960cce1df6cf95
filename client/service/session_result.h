// What the service knows of a session: who asked for it, and how it ended.
#pragma once

#include "expected.h"
#include "schedule.h"

#include <QJsonObject>
#include <QString>
#include <QVariantMap>
#include <chrono>

namespace client {

/// Who wants a session.
enum class SessionCause {
    User,
    Schedule,
    Notification,
    Bootstrap,
    Operation, ///< an operation has ended, of which the server is to hear
};

/// "user" and so on.
QString wordOf(SessionCause cause);

/// How a session ended, or why there was none.
enum class SessionConclusion {
    Completed,
    AbortedByServer,
    Aborted, ///< by somebody here
    Failed,  ///< between client and server, or before there could be one
    Busy,    ///< another client works on the state directory
    TimedOut,
    Crashed, ///< its process ended without a word
};

/// "completed" and so on; those of a session are words of `dmclient session --json`.
QString wordOf(SessionConclusion conclusion);

/// A session that is over.
struct SessionResult {
    QString account;
    SessionCause cause = SessionCause::User;
    std::chrono::milliseconds began{0}; ///< since 1970, UTC
    std::chrono::milliseconds ended{0};
    SessionConclusion conclusion = SessionConclusion::Failed;
    QString reason; ///< of another end than completed; may be a text of a server
    int messages = 0;
    int commands = 0;
    int refused = 0; ///< of the commands, answered 4xx or 5xx
    int differences = 0;

    bool operator==(const SessionResult &) const = default;
};

/// What it means for the schedule.
SessionOutcome outcomeOf(SessionConclusion conclusion);

/// Takes from the last object that `dmclient session --json` prints how the session ended.
/// @return false, with the result as it was, when the object says no such thing
bool readSummary(const QJsonObject &summary, SessionResult &result);

QJsonObject toJson(const SessionResult &result);
/// @return what is wrong
support::Expected<SessionResult, QString> sessionResultFromJson(const QJsonObject &object);
/// For the bus: account, cause, began and ended (t, milliseconds since 1970), session (the
/// conclusion), reason, and the numbers (u).
QVariantMap toVariantMap(const SessionResult &result);

} // namespace client
