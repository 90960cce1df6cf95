// Requests to callgrind, which do nothing where its header is not installed.
#pragma once

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT static_cast<void>(0)
#define CALLGRIND_ZERO_STATS static_cast<void>(0)
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif
