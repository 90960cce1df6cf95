// The streams that every program is started with, or should be.
#pragma once

namespace support {

/// Puts something in the place of a standard stream that the program was started without, so that
/// no file which is opened later is taken for standard input or printed to. Reading and writing
/// such a stream fails as before. To be called before anything is opened.
void occupyClosedStandardStreams();

} // namespace support
