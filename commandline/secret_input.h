// Secrets, which are better typed than written on a command line that every user of the machine can
// read.
#pragma once

#include "expected.h"

#include <QString>

namespace commandline {

/// What the lines of standard input are.
enum class StandardInput {
    Unused,   ///< nothing that the program reads
    Commands, ///< lines of a shell
};

/// The secret that is meant by a text of a command line: a line of standard input by "-", the text
/// by anything else. A terminal shows "name: " and not what is typed. From anything but a terminal
/// no line is taken that is a command.
/// @param name  what it is the secret of, shown escaped where somebody else chose it
/// @return what is wrong when there is none
support::Expected<QString, QString> secretMeant(const QString &text, const QString &name,
                                                StandardInput standardInput);

} // namespace commandline
