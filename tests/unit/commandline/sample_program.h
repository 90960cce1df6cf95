// A program with a command of each kind.
#pragma once

#include "common_rows.h"

namespace commandline {

inline constexpr Option sampleOptions[] = {stateOption, backendOption, helpOption, versionOption};
inline constexpr Option listOptions[] = {
    {"json", nullptr, "print JSON"},
    {"sort", "KEY", "sort by name or size", ValueKind::OneOf,
     [] {
         return QStringList{QStringLiteral("name"), QStringLiteral("size")};
     }},
    {"trace", "FILE", "write what is done to a file", ValueKind::File},
    {"note", "TEXT", "write a note; repeatable", ValueKind::Text},
};
inline constexpr Command listCommand = {
    "list", "[NAME]", "list what there is, all of it or what is called so", 0, 1, listOptions};
inline constexpr Command copyCommand = {"copy", "FROM TO | FROM TO=NAME", "copy one to another", 2,
                                        2};
inline constexpr Command loadCommand = {"load", "FILE", "load a file", 1, 1, {}, ValueKind::File};
inline constexpr Command removeCommand = {"remove", "NAME...", "remove things", 1, anyNumber};

inline constexpr ExitMeaning sampleStatuses[] = {
    {ExitStatus::Success, "everything was done"},
    {ExitStatus::WrongUsage, "wrong usage"},
};

inline constexpr EnvironmentVariable sampleEnvironment[] = {
    {"SAMPLE_DIR", "where samples are"},
    {"A_LONG_NAME_OF_A_VARIABLE", "has a line of its own"},
};

inline Program sampleProgram()
{
    return {
        "sample",       "look after samples",
        sampleOptions,  {&listCommand, &copyCommand, &loadCommand, &removeCommand, &helpCommand},
        sampleStatuses, sampleEnvironment};
}

/// The same commands as lines of a shell.
inline Program sampleShell()
{
    static constexpr Option options[] = {helpOption};
    return {"", "lines", options, sampleProgram().commands};
}

inline constexpr Option sumOptions[] = {
    {"by", "COLUMN", "add up that column", ValueKind::OneOf,
     [] {
         return QStringList{QStringLiteral("weight"), QStringLiteral("price")};
     }},
    onlyHelpOption};
inline constexpr Command sumCommand = {"sum", "TABLE", "", 1, 1, sumOptions, ValueKind::File};

/// One without commands.
inline Program sampleWithoutCommands()
{
    return {"sum", "adds up a table", {}, {}, sampleStatuses, {}, &sumCommand};
}

/// Words as a shell would split them, which have no quotes.
inline QStringList wordsOf(const char *line)
{
    return QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts);
}

} // namespace commandline
