// The logger that every module of the plug-in uses.
#pragma once

#include "aplog.h"

#include <cstdarg>
#include <cstdio>

// ---- Log ----------------------------------------------------------------------------------------

/// Messages of a level below this one are printed. Builds for tests and for records of a client
/// raise it to have the traces.
#ifndef KUB_LOG_PRINT_BELOW
#define KUB_LOG_PRINT_BELOW 8
#endif

/// Who reads the traces of such a build beside other messages tells them apart by these marks, for
/// not every trace ends with its line.
#ifdef KUB_LOG_MARKS_TRACES
#define KUB_TRACE_BEGIN "\x1e"
#define KUB_TRACE_END "\x1f"
#else
#define KUB_TRACE_BEGIN
#define KUB_TRACE_END
#endif

// Traces are part of the binary although they do not print, so that a patched threshold shows them:
// the compiler must not see through LogPrints and drop them.
#if __has_attribute(noipa)
#define KUB_OPAQUE_TO_OPTIMIZER __attribute__((noipa))
#else
#define KUB_OPAQUE_TO_OPTIMIZER __attribute__((noinline, optnone))
#endif

namespace {

constexpr int LOG_LEVEL_FAILURE = 4;
constexpr int LOG_LEVEL_TRACE = 8;

/// Every module has its own copy of the logger.
[[maybe_unused]] KUB_OPAQUE_TO_OPTIMIZER bool LogPrints(int level)
{
    return level < KUB_LOG_PRINT_BELOW;
}

/// Writes the text as it is, with nothing added and nothing flushed, to the stream that the log
/// library holds at this moment; to standard output while it holds none.
[[maybe_unused]] __attribute__((format(printf, 2, 3))) void LogMessage(int level,
                                                                       const char *format, ...)
{
    if (!LogPrints(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(libaplog_to_module_ptr ? libaplog_to_module_ptr : stdout, format, arguments);
    va_end(arguments);
}

} // namespace

// The arguments of a message that does not print are not evaluated.
#define KUB_LOG(level, format, ...)                                                                \
    do {                                                                                           \
        if (LogPrints(level))                                                                      \
            LogMessage(level, format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__);         \
    } while (false)
#define LOG_FAILURE(text, ...) KUB_LOG(LOG_LEVEL_FAILURE, "(%s:%d)" text __VA_OPT__(, ) __VA_ARGS__)
#define LOG_TRACE(text, ...)                                                                       \
    KUB_LOG(LOG_LEVEL_TRACE,                                                                       \
            KUB_TRACE_BEGIN "(%s:%d)" text KUB_TRACE_END __VA_OPT__(, ) __VA_ARGS__)
