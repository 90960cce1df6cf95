// How many profiles a store takes, kept in the database of the store.
#pragma once

#include "sqlite_file.h"

inline constexpr unsigned int kDefaultMaximum = 127;
inline constexpr unsigned int kLargestMaximum = 1000000;

/// Reads the maximum, the default when none was ever stored.
StoreResult readMaximum(SqliteFile &file, unsigned int &maximum);

StoreResult storeMaximum(SqliteFile &file, unsigned int maximum);
