// How many profiles a store takes, kept in the database of the store.
#pragma once

#include "sqlite_file.h"

inline constexpr unsigned int defaultMaximum = 127;
inline constexpr unsigned int largestMaximum = 1000000;

/// Reads the maximum, the default when none was ever stored.
StoreResult readMaximum(SqliteFile &file, unsigned int &maximum);

StoreResult storeMaximum(SqliteFile &file, unsigned int maximum);
