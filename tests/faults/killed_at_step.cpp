// A library that ends the process that it is preloaded into (LD_PRELOAD), as SIGKILL does, at one
// of the moments at which somebody else gets to know something: the disk of a file, a server of a
// message, the program of an answer. The moments are before and after each file takes its name,
// each message goes out over TCP, and each that came over TCP or UDP was read.
//
// KUB_KILL_PROGRAM is the name of the program (others are left alone), KUB_KILL_STEP the number of
// the moment, from 1.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The function of that name in the libraries behind this one.
template <class Function>
Function *behind(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int chosenStep()
{
    const char *const program = std::getenv("KUB_KILL_PROGRAM");
    const char *const step = std::getenv("KUB_KILL_STEP");
    const bool isMeant =
        program && step && std::strcmp(program, program_invocation_short_name) == 0;
    return isMeant ? std::atoi(step) : 0;
}

/// One more moment.
void pass()
{
    static const int chosen = chosenStep();
    static std::atomic<int> passed = 0;
    if (++passed != chosen)
        return;
    ::kill(::getpid(), SIGKILL);
    for (;;)
        ::pause();
}

/// Whether a descriptor leads to another machine, as far as a test has one.
bool isNetwork(int descriptor)
{
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    const int error = errno;
    const bool isSocket =
        ::getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size) == 0;
    errno = error;
    return isSocket && (address.ss_family == AF_INET || address.ss_family == AF_INET6);
}

/// What was read, or why there was nothing. The head of an HTTP answer is read byte by byte; only
/// its body says anything.
ssize_t passRead(int descriptor, ssize_t bytes)
{
    if (bytes > 1 && isNetwork(descriptor))
        pass();
    return bytes;
}

} // namespace

#pragma GCC visibility push(default) // in the place of the C library's
extern "C" {

int rename(const char *from, const char *to) noexcept
{
    static const auto next = behind<int(const char *, const char *)>("rename");
    pass();
    const int result = next(from, to);
    const int error = errno;
    pass();
    errno = error;
    return result;
}

ssize_t send(int descriptor, const void *bytes, size_t size, int flags)
{
    static const auto next = behind<ssize_t(int, const void *, size_t, int)>("send");
    if (!isNetwork(descriptor))
        return next(descriptor, bytes, size, flags);
    pass();
    const ssize_t result = next(descriptor, bytes, size, flags);
    const int error = errno;
    pass();
    errno = error;
    return result;
}

ssize_t read(int descriptor, void *bytes, size_t size)
{
    static const auto next = behind<ssize_t(int, void *, size_t)>("read");
    return passRead(descriptor, next(descriptor, bytes, size));
}

ssize_t recv(int descriptor, void *bytes, size_t size, int flags)
{
    static const auto next = behind<ssize_t(int, void *, size_t, int)>("recv");
    return passRead(descriptor, next(descriptor, bytes, size, flags));
}

ssize_t recvmsg(int descriptor, msghdr *message, int flags)
{
    static const auto next = behind<ssize_t(int, msghdr *, int)>("recvmsg");
    return passRead(descriptor, next(descriptor, message, flags));
}

} // extern "C"
#pragma GCC visibility pop
