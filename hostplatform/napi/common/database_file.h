// The file of an SQLite database in the state directory.
#pragma once

#include <string>

#include "napi.h"
#include "private_storage.h"

/// Makes the state directory and the file, mode 0600, as far as they are missing, and checks them
/// and the files that SQLite has beside it: it opens them all by their paths, and creates what is
/// missing for everybody to read.
/// @return EACCES or EROFS with the path of the file for one that can only be read, or not even
///         that
handset_state::Refusal makeDatabaseFile(const std::string &path);

/// What a refusal means to a caller of the profile service.
NAPI_STATUS statusOfRefusal(const handset_state::Refusal &refusal);
