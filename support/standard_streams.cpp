#include "standard_streams.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace support {

void occupyClosedStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF)
            continue;
        // Opened the wrong way round: lost output stays an error. The lowest free number is it.
        if (::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream)
            std::abort();
    }
}

} // namespace support
