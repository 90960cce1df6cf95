// Libraries of a program's own that few of its commands need.
#pragma once

#include "expected.h"

#include <QString>

namespace support {

/// Loads a library from the program's own library folder (its RUNPATH), all of its symbols bound;
/// it stays loaded.
/// @return what the symbol stands for, never null; the error is a sentence that names the file and
///         the reason
Expected<const void *, QString> loadModule(const char *file, const char *symbol);

} // namespace support
