// The rows that every program has in its tables.
#pragma once

#include "command.h"

namespace commandline {

inline constexpr Option stateOption = {
    "state", "DIR",
    "state directory of the simulated handset; without it $KUB_STATE_DIR, or "
    "$XDG_STATE_HOME/kub-dm, or ~/.local/state/kub-dm",
    ValueKind::Directory};
inline constexpr Option backendOption = {
    "backend", "NAME",
    "where the profiles are kept, sqlite or networkmanager; without it $KUB_NAPI_BACKEND, or "
    "sqlite",
    ValueKind::OneOf, [] {
        return QStringList{QStringLiteral("sqlite"), QStringLiteral("networkmanager")};
    }};
inline constexpr Option pluginOption = {
    "plugin", "FILE", "the library to load in place of that of the plug-in of the profiles",
    ValueKind::File};
inline constexpr Option pluginsOption = {
    "plugins", "DIR", "where files describe the plug-ins; without it, where they are installed",
    ValueKind::Directory};
inline constexpr Option helpOption = {
    "help",          nullptr, "print this help; with a command, help for that command",
    ValueKind::None, nullptr, 'h'};
inline constexpr Option onlyHelpOption = {"help",          nullptr, "print this help",
                                          ValueKind::None, nullptr, 'h'};
inline constexpr Option versionOption = {"version", nullptr, "print the version"};

inline constexpr Command helpCommand = {"help", "[COMMAND]", "say what the commands do", 0,
                                        1,      {},          ValueKind::Command};

/// What every program that has a handset goes by, on the way through its libraries too.
inline constexpr EnvironmentVariable handsetEnvironment[] = {
    {"KUB_STATE_DIR", "state directory of the simulated handset"},
    {"XDG_STATE_HOME", "the folder that has the state directory kub-dm otherwise"},
    {"HOME", "the folder that has .local/state/kub-dm otherwise"},
    {"KUB_NAPI_BACKEND", "where the profiles are kept, sqlite or networkmanager"},
    {"KUB_NAPI_MAX", "how many profiles can be stored; the store keeps it"},
    {"DBUS_SYSTEM_BUS_ADDRESS", "the system bus, in place of the usual one"},
    {"NO_COLOR", "when it is not empty, nothing is coloured"},
    {"TERM", "nothing is coloured when it is empty or dumb"},
};

} // namespace commandline
