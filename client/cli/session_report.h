// A session as it goes by, for people and for programs.
#pragma once

#include "output.h"
#include "session.h"

#include <memory>

namespace client::cli {

using commandline::Output;

/// A command that was answered 200 and has done something else, now or for the next mount.
struct Difference {
    AnsweredCommand command;
    QString text;                    ///< goes after "200 OK, but "
    std::optional<QByteArray> reads; ///< what the leaf reads instead
    bool isAtNextMount = false;
};

/// "Replace ./A/B: 200 OK, but reads 4464"
QString lineOf(const Difference &difference);

/// Prints each command of the server as soon as it has been answered, and how the session ended.
class SessionReport : public SessionObserver {
public:
    virtual void differs(const Difference &difference) = 0;
    virtual void ended(const SessionEnd &end) = 0;
};

/// Lines for people: "Replace ./A/B: 405 Command Not Allowed: ./A/B is read-only". The output has
/// to outlive the report.
std::unique_ptr<SessionReport> readableReport(Output &output);
/// One JSON object a line: {"command", "uri", "status", "meaning", "reason", "msgId", "cmdId",
/// "time"} for each command, with "format" and "value" where it has them; {"note", "command",
/// "uri", "status", "when"} for each difference, with "reads", "msgId" and "cmdId" where they are
/// known; {"note"}; and at last {"session", "reason", "messages", "commands", "refused",
/// "differences"}, with "session" one of completed, aborted-by-server, aborted and failed. The time
/// is UTC, when the command was answered; "when" is now or next mount.
std::unique_ptr<SessionReport> jsonReport(Output &output);

} // namespace client::cli
