// The bytes of a record, as a map.
#pragma once

#include <QString>

#include "napi.h"
#include "profile_fields.h"

/// A line for each field of the record: its place and its size in bytes, its name, its first eight
/// bytes, and what they mean; further lines for the bytes after those. An asterisk stands for lines
/// that hold nothing but zeros, up to the end of the field. A masked secret that is not all zeros
/// has one line, whatever its length.
QString rawRecord(const NAP_PROFILE_S &record, Secrets secrets);
