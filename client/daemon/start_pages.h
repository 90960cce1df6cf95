// What of the program and its libraries only the start needs.
#pragma once

namespace client {

/// Takes out of memory what the start has read of the program and its libraries: tables that the
/// dynamic linker has searched, code that runs once. What is used again is read again from the page
/// cache, or, when the system needed the room for something else, from the disk. A service that is
/// idle for hours needs a third of it.
///
/// Nothing that can have been written to is touched, so it can be called at any time.
void giveBackStartPages();

} // namespace client
