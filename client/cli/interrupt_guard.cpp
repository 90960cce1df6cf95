#include "cli/interrupt_guard.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace client::cli {

namespace {

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t interruptFile = -1;

void noteInterrupt(int)
{
    const int errorBefore = errno;
    interrupted = 1;
    ::eventfd_write(interruptFile, 1);
    errno = errorBefore;
}

} // namespace

InterruptGuard::InterruptGuard() : m_file(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    interrupted = 0;
    interruptFile = m_file;
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, &m_before);
}

InterruptGuard::~InterruptGuard()
{
    ::sigaction(SIGINT, &m_before, nullptr);
    interruptFile = -1;
    if (m_file >= 0)
        ::close(m_file);
}

bool InterruptGuard::wasInterrupted()
{
    return interrupted != 0;
}

} // namespace client::cli
