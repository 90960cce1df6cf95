// How many profiles a store takes, kept in the database of the store.
#pragma once

#include <sqlite3.h>

inline constexpr unsigned int kDefaultMaximum = 127;
inline constexpr unsigned int kLargestMaximum = 1000000;

/// Reads the maximum: the default when none was ever stored, 0 when what is stored is none.
/// @return false with the database's error set
bool readMaximum(sqlite3 *database, unsigned int &maximum);

/// Stores the maximum. @return false with the database's error set
bool storeMaximum(sqlite3 *database, unsigned int maximum);
