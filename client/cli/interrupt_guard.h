// Ctrl-C during a session.
#pragma once

#include <csignal>

namespace client::cli {

/// While it lives the first Ctrl-C ends the session in good order. The second one ends the program.
/// There is one at a time.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

    static bool wasInterrupted();
    /// A file that can be read from the first Ctrl-C on, so that a wait for it and for input misses
    /// none, whenever the signal comes and whichever thread gets it. -1 when there is no such file;
    /// it belongs to the guard.
    int file() const { return m_file; }

private:
    int m_file;
    struct sigaction m_before {};
};

} // namespace client::cli
