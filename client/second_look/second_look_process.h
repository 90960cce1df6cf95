// The process that looks a second time.
#pragma once

namespace client {

/// The word on a command line by which the client starts its own program as that process.
inline constexpr char secondLookWord[] = "--second-look";

/// Makes on a copy of the state what standard input says, and says on standard output what it has
/// seen, until standard input ends. Then the copy is removed.
/// @param folder  the copy, a scratch folder of the client's
[[noreturn]] void runSecondLook(const char *folder);

} // namespace client
