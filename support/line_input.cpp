#include "line_input.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace support {

namespace {

/// Turns the echo off while it lives; a signal that ends or stops the program meanwhile finds the
/// terminal as it was. There is one at a time.
class SilentTerminal {
public:
    explicit SilentTerminal(int file)
    {
        m_isTerminal = ::tcgetattr(file, &s_before) == 0;
        if (!m_isTerminal)
            return;
        s_file = file;
        s_silent = s_before;
        s_silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        for (std::size_t i = 0; i < watchedSignals.size(); ++i) {
            ::sigaction(watchedSignals[i], nullptr, &m_actions[i]);
            // What has a handler ends the wait in its own way.
            if (m_actions[i].sa_handler != SIG_DFL)
                continue;
            struct sigaction action {};
            action.sa_handler = lendTerminal;
            ::sigaction(watchedSignals[i], &action, nullptr);
        }
        ::tcsetattr(file, TCSADRAIN, &s_silent);
    }
    ~SilentTerminal()
    {
        if (!m_isTerminal)
            return;
        ::tcsetattr(s_file, TCSADRAIN, &s_before);
        for (std::size_t i = 0; i < watchedSignals.size(); ++i)
            if (m_actions[i].sa_handler == SIG_DFL)
                ::sigaction(watchedSignals[i], &m_actions[i], nullptr);
    }
    SilentTerminal(const SilentTerminal &) = delete;
    SilentTerminal &operator=(const SilentTerminal &) = delete;

private:
    static constexpr std::array watchedSignals = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};

    /// Gives the terminal back for what the signal does to the program, and takes it again where
    /// the program goes on after that.
    static void lendTerminal(int number)
    {
        const int errorBefore = errno;
        ::tcsetattr(s_file, TCSANOW, &s_before);
        struct sigaction systems {};
        struct sigaction ours {};
        systems.sa_handler = SIG_DFL;
        ::sigaction(number, &systems, &ours);
        ::raise(number);
        sigset_t raised;
        ::sigemptyset(&raised);
        ::sigaddset(&raised, number);
        ::pthread_sigmask(SIG_UNBLOCK, &raised, nullptr); // here it ends or stops
        ::sigaction(number, &ours, nullptr);
        ::tcsetattr(s_file, TCSANOW, &s_silent);
        errno = errorBefore;
    }

    // What a handler can reach.
    static inline int s_file = -1;
    static inline termios s_before{};
    static inline termios s_silent{};

    bool m_isTerminal = false;
    std::array<struct sigaction, watchedSignals.size()> m_actions{};
};

/// Milliseconds until then for poll(); -1 for ever.
int waitingTime(std::optional<std::chrono::steady_clock::time_point> deadline)
{
    if (!deadline)
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24);
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds::zero(), longest).count());
}

} // namespace

void LineInput::flush() const
{
    ::tcflush(m_file, TCIFLUSH);
}

LineInput::Result LineInput::readLine(Echo echo,
                                      std::optional<std::chrono::steady_clock::time_point> deadline,
                                      QByteArray &line) const
{
    std::optional<SilentTerminal> silence;
    if (echo == Echo::Off)
        silence.emplace(m_file);
    line.clear();
    // One byte at a time: what follows the line on a pipe is for the next reader.
    for (;;) {
        pollfd waiting[] = {{m_file, POLLIN, 0}, {m_interruptFile, POLLIN, 0}};
        const int ready = ::poll(waiting, std::size(waiting), waitingTime(deadline));
        if (ready == 0)
            return Result::TimedOut;
        if (ready > 0 && waiting[1].revents != 0)
            return Result::Interrupted;
        char byte = 0;
        const ssize_t count = ready < 0 ? -1 : ::read(m_file, &byte, 1);
        if (count < 0 && errno == EINTR)
            continue; // what a signal asks for is known from the interrupt file
        if (count <= 0)
            return line.isEmpty() ? Result::EndOfInput : Result::Line;
        if (byte == '\n')
            return Result::Line;
        if (line.size() < longestLine)
            line += byte;
    }
}

} // namespace support
