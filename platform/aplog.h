/// @file
/// The handset's log stream, libaplog.so.1.0.0.
#pragma once

#include <cstdio>

/// Stream for the messages of loaded modules. A program points it at a file before it loads them;
/// while it is null, modules fall back to standard output. Not owned by this library.
extern "C" __attribute__((visibility("default"))) FILE *libaplog_to_module_ptr;
