// A question at the terminal.
#pragma once

namespace client::cli {

/// Asks the person at the terminal, on standard output and input. Anything but y and yes is a no.
/// @param question  goes before ": yes or no"
bool askYesOrNo(const char *question);

} // namespace client::cli
