// The record of a run, and of its sessions.
#pragma once

#include "command_table.h"
#include "kept_records.h"
#include "recorder.h"

#include <memory>
#include <optional>

namespace client::cli {

/// Records what a device does for as long as it lives. Goes before the device.
class Recording {
public:
    /// @param sink  the first place that the record is written to
    Recording(DmDevice &device, const RunDescription &run, EventWriter::Sink sink);
    ~Recording();
    /// Begins a record that is kept with those of other sessions.
    static support::Expected<std::unique_ptr<Recording>, QString>
    kept(DmDevice &device, const Invocation &invocation);
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    Recorder &recorder() { return m_recorder; }
    /// Keeps the record with those of other sessions as well. When that fails nothing else does.
    support::Expected<void, QString> keep();
    /// How the session ended that the run was about.
    void setSession(const SessionEnd &end) { m_session = end; }

    /// Writes the end. @return the status, for the run to end with
    ExitStatus finish(ExitStatus status);

private:
    DmDevice &m_device;
    RunDescription m_run;
    Recorder m_recorder;
    std::optional<SessionEnd> m_session;
    bool m_isKept = false;
};

/// Ends the record that a session has begun for itself, if it has.
/// @param status  what the command ends with
/// @return the status
ExitStatus endSessionRecording(Context &context, ExitStatus status);

/// Where sessions with that device are recorded.
KeptRecords keptRecords(const DmDevice &device);
/// The same of a state directory that need not be there.
KeptRecords keptRecords(const QString &stateDirectory);

/// What a record says about the run of a command.
RunDescription describeRun(const DmDevice &device, const Invocation &invocation);

} // namespace client::cli
