// What asks the program to end during a session: Ctrl-C, SIGTERM and SIGHUP.
#pragma once

#include <array>
#include <csignal>

namespace client::cli {

/// While it lives the first SIGINT, SIGTERM or SIGHUP ends the session in good order. The second
/// one ends the program. A SIGHUP that the program was started to ignore stays ignored. There is
/// one guard at a time.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

    static bool wasInterrupted() { return signal() != 0; }
    /// The first signal that came since the last guard was made; 0 when there was none.
    static int signal();
    /// A file that can be read from the first signal on, so that a wait for it and for input misses
    /// none, whenever the signal comes and whichever thread gets it. -1 when there is no such file;
    /// it belongs to the guard.
    int file() const { return m_file; }

private:
    static constexpr std::array watchedSignals = {SIGINT, SIGTERM, SIGHUP};

    static void noteSignal(int number);

    int m_file;
    std::array<struct sigaction, watchedSignals.size()> m_before{};
};

} // namespace client::cli
