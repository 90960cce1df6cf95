// Running the program once more beneath what looks at memory: a sanitizer or valgrind.
#pragma once

#include "exit_status.h"

#include <QStringList>
#include <optional>

/// Whether a sanitizer is in this process already.
bool isSanitized();

/// The sanitizer's library that has to be loaded before a plug-in which was built with it; empty
/// when it wants none.
std::string sanitizerOf(const std::string &library);

/// Becomes this program with these words of a command line and a sanitizer's library before all
/// others.
/// @return why it could not
QString runWithSanitizer(const QStringList &words, const std::string &sanitizer);

/// Runs this program under valgrind, with its logs where the examinations look for them.
/// @param words  of the command line, the program first
/// @return its exit status; none when there is no valgrind
std::optional<commandline::ExitStatus> runUnderValgrind(const QStringList &words);
