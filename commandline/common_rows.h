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
inline constexpr Option helpOption = {
    "help",          nullptr, "print this help; with a command, help for that command",
    ValueKind::None, nullptr, 'h'};
inline constexpr Option versionOption = {"version", nullptr, "print the version"};

inline constexpr Command helpCommand = {"help", "[COMMAND]", "say what the commands do", 0,
                                        1,      {},          ValueKind::Command};

} // namespace commandline
