// Counts against those that a file has.
#pragma once

#include <string>
#include <vector>

namespace costs {

/// Prints the lines when there is no file, and otherwise what is different in the file.
/// @param lines  one an operation; allocations after the last comma, or after the colon
/// @return the program's exit status: 0, 1 with differences, 2 when the file cannot be read
int CompareWithFile(const std::vector<std::string> &lines, int argc, char **argv);

} // namespace costs
