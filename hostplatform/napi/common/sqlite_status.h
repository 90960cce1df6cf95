// What a failure of SQLite means to a caller of the profile service.
#pragma once

#include "napi.h"

/// @param error  an errno value
NAPI_STATUS statusOfSystemError(int error);

/// @param extendedCode  SQLite's extended result code
/// @param systemError   the errno value behind it, looked at where the code says that there is one
NAPI_STATUS statusOfSqliteError(int extendedCode, int systemError);

/// @return true for the failures behind which stands one of the operating system.
bool isSystemFailure(int extendedCode);
