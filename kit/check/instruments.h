// Running the program once more beneath what looks at memory: a sanitizer or valgrind.
#pragma once

#include <QString>

/// Whether a sanitizer is in this process already.
bool isSanitized();

/// The sanitizer's library that has to be loaded before a plug-in which was built with it; empty
/// when it wants none.
std::string sanitizerOf(const std::string &library);

/// Becomes this program with these arguments and a sanitizer's library before all others.
/// @return why it could not
QString runWithSanitizer(char *argv[], const std::string &sanitizer);

/// Runs this program under valgrind, with its logs where the examinations look for them.
/// @return its exit status; negative when there is no valgrind
int runUnderValgrind(char *argv[]);
