// A session as it goes by, for people and for programs.
#pragma once

#include "output.h"
#include "session.h"

#include <memory>

namespace client::cli {

using commandline::Output;

/// Prints each command of the server as soon as it has been answered, and how the session ended.
class SessionReport : public SessionObserver {
public:
    virtual void ended(const SessionEnd &end) = 0;
};

/// Lines for people: "Replace ./A/B: 405 Command Not Allowed: ./A/B is read-only". The output has
/// to outlive the report.
std::unique_ptr<SessionReport> readableReport(Output &output);
/// One JSON object a line: {"command", "uri", "status", "meaning", "reason", "msgId", "cmdId",
/// "time"} for each command, with "format" and "value" where it has them, {"note"}, and at last
/// {"session", "reason", "messages", "commands", "refused"}, with "session" one of completed,
/// aborted-by-server, aborted and failed. The time is UTC, when the command was answered.
std::unique_ptr<SessionReport> jsonReport(Output &output);

} // namespace client::cli
