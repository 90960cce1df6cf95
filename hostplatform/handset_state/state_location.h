// Where the state of the simulated handset lies.
#pragma once

#include <string>

namespace handset_state {

/// @return $KUB_STATE_DIR, else $XDG_STATE_HOME/kub-dm, else ~/.local/state/kub-dm, as absolutePath
///         has it. An empty variable counts as unset, and so does a relative $XDG_STATE_HOME or
///         $HOME; without $HOME the user database names the home directory.
std::string location();

/// What a state directory is called everywhere, also after a change of the working directory.
/// @return an absolute path without a slash at the end; the relative one when there is no working
///         directory any more
std::string absolutePath(const std::string &directory);

} // namespace handset_state
