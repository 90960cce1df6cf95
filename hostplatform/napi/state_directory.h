// The directory that holds the state of the simulated handset.
#pragma once

#include <string>

/// @return $KUB_STATE_DIR, else $XDG_STATE_HOME/kub-dm, else ~/.local/state/kub-dm, as an absolute
///         path without a slash at the end. An empty variable counts as unset, and so does a
///         relative $XDG_STATE_HOME.
std::string stateDirectory();

/// Creates the directory and the ones above it with mode 0700. @return 0 or an errno value.
int createPrivateDirectory(const std::string &path);
