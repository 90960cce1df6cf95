#include "sqlite_status.h"

#include <cerrno>

#include <sqlite3.h>

namespace {

int primaryCode(int extendedCode)
{
    return extendedCode & 0xFF;
}

} // namespace

NAPI_STATUS statusOfSystemError(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return NAPI_ERROR_NO_SPACE;
    case EROFS:
        return NAPI_ERROR_READ_ONLY;
    case EACCES:
    case EPERM:
        return NAPI_ERROR_UNAVAILABLE;
    case EISDIR:
        return NAPI_ERROR_CORRUPT;
    default:
        return NAPI_ERROR_IO;
    }
}

bool isSystemFailure(int extendedCode)
{
    return primaryCode(extendedCode) == SQLITE_CANTOPEN ||
           primaryCode(extendedCode) == SQLITE_IOERR;
}

NAPI_STATUS statusOfSqliteError(int extendedCode, int systemError)
{
    switch (primaryCode(extendedCode)) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return NAPI_ERROR_BUSY;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return NAPI_ERROR_CORRUPT;
    case SQLITE_FULL:
        return NAPI_ERROR_NO_SPACE;
    case SQLITE_READONLY:
        return NAPI_ERROR_READ_ONLY;
    case SQLITE_PERM:
        return NAPI_ERROR_UNAVAILABLE;
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
        return statusOfSystemError(systemError);
    default:
        return NAPI_ERROR_IO;
    }
}
