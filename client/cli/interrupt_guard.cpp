#include "interrupt_guard.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace client::cli {

namespace {

volatile std::sig_atomic_t firstSignal = 0;
volatile std::sig_atomic_t interruptFile = -1;

} // namespace

void InterruptGuard::noteSignal(int received)
{
    const int errorBefore = errno;
    // The next one, whichever it is, finds no handler any more.
    for (const int number : watchedSignals) {
        struct sigaction action {};
        ::sigaction(number, nullptr, &action);
        if (action.sa_handler != noteSignal)
            continue;
        action.sa_handler = SIG_DFL;
        ::sigaction(number, &action, nullptr);
    }
    firstSignal = received;
    ::eventfd_write(interruptFile, 1);
    errno = errorBefore;
}

InterruptGuard::InterruptGuard() : m_file(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    firstSignal = 0;
    interruptFile = m_file;
    for (std::size_t i = 0; i < watchedSignals.size(); ++i) {
        ::sigaction(watchedSignals[i], nullptr, &m_before[i]);
        if (watchedSignals[i] == SIGHUP && m_before[i].sa_handler == SIG_IGN)
            continue;
        struct sigaction action {};
        action.sa_handler = noteSignal;
        ::sigaction(watchedSignals[i], &action, nullptr);
    }
}

InterruptGuard::~InterruptGuard()
{
    for (std::size_t i = 0; i < watchedSignals.size(); ++i)
        ::sigaction(watchedSignals[i], &m_before[i], nullptr);
    interruptFile = -1;
    if (m_file >= 0)
        ::close(m_file);
}

int InterruptGuard::signal()
{
    return firstSignal;
}

} // namespace client::cli
