// Many commands on one mount.
#pragma once

#include "dm_device.h"
#include "output.h"
#include "second_look.h"

#include <QByteArray>

namespace client::cli {

using commandline::ExitStatus;
using commandline::Output;

class Recording;

/// Whether a line may go into a history file: not when it may carry a password.
bool mayBeRemembered(const QByteArray &line);

/// Reads commands, a line each, and runs them on one device. On a terminal the line can be edited;
/// otherwise the lines come from standard input as they are. Empty lines and lines that begin with
/// "#" are skipped. A line that fails does not stop the next one, unless the shell fails fast.
class Shell {
public:
    /// @param recording  of everything that the lines do; may be null
    Shell(DmDevice &device, SecondLook &look, Output &output, Recording *recording, bool failFast)
        : m_device(device), m_look(look), m_output(output), m_recording(recording),
          m_failFast(failFast)
    {
    }

    /// @return the highest status of all lines
    ExitStatus run();

private:
    /// The file for the typed lines; empty, and a problem is printed, when it cannot be trusted.
    QString usableHistoryFile();
    void runOnTerminal();
    void runFromPipe();
    /// @return false when no more lines are to be read
    bool runLine(const QByteArray &line);
    ExitStatus runWords(const QStringList &words);

    DmDevice &m_device;
    SecondLook &m_look;
    Output &m_output;
    Recording *m_recording;
    bool m_failFast;
    bool m_leave = false;
    ExitStatus m_worst = ExitStatus::Success;
};

} // namespace client::cli
