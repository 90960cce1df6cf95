#include "database_file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "sqlite_status.h"

using handset_state::Refusal;

Refusal makeDatabaseFile(const std::string &path)
{
    if (Refusal refusal = handset_state::makeStateDirectory(path.substr(0, path.rfind('/'))))
        return refusal;
    // SQLite gives these the mode of the database.
    for (const char *const suffix : {"-journal", "-wal", "-shm"})
        if (Refusal refusal = handset_state::checkFile(path + suffix))
            return refusal;
    Refusal refusal;
    const int file = handset_state::openFile(path, O_RDWR | O_CREAT, refusal);
    if (file >= 0)
        ::close(file);
    return refusal;
}

NAPI_STATUS statusOfRefusal(const Refusal &refusal)
{
    // What stands in the place of the file is no database.
    return refusal.error == EINVAL ? NAPI_ERROR_CORRUPT : statusOfSystemError(refusal.error);
}
