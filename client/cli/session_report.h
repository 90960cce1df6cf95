// A session as it goes by, for people and for programs.
#pragma once

#include "output.h"
#include "session.h"

namespace client::cli {

using commandline::Output;

/// Prints each command of the server as soon as it has been answered, and how the session ended.
class SessionReport : public SessionObserver {
public:
    virtual void ended(const SessionEnd &end) = 0;
};

/// Lines for people: "Replace ./A/B: 405 Command Not Allowed: ./A/B is read-only".
class ReadableSessionReport final : public SessionReport {
public:
    explicit ReadableSessionReport(Output &output) : m_output(output) {}

    void commandAnswered(const AnsweredCommand &command) override;
    void note(const QString &text) override;
    void ended(const SessionEnd &end) override;

private:
    Output &m_output;
};

/// One JSON object a line: {"command", "uri", "status", "meaning", "reason"} for each command,
/// {"note"}, and at last {"session", "reason", "messages", "commands", "refused"}, with "session"
/// one of completed, aborted-by-server, aborted and failed.
class JsonSessionReport final : public SessionReport {
public:
    explicit JsonSessionReport(Output &output) : m_output(output) {}

    void commandAnswered(const AnsweredCommand &command) override;
    void note(const QString &text) override;
    void ended(const SessionEnd &end) override;

private:
    Output &m_output;
};

} // namespace client::cli
