// Where the state of the simulated handset lies.
#pragma once

#include <string>

namespace handset_state {

/// @return $KUB_STATE_DIR, else $XDG_STATE_HOME/kub-dm, else ~/.local/state/kub-dm, as an absolute
///         path without a slash at the end. An empty variable counts as unset, and so does a
///         relative $XDG_STATE_HOME or $HOME; without $HOME the user database names the home
///         directory.
std::string location();

} // namespace handset_state
