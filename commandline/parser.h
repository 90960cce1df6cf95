// From the words of a command line to what they ask for.
#pragma once

#include "command.h"
#include "expected.h"

namespace commandline {

/// Whether words are missing that are still being typed.
enum class Completeness { Whole, Partial };

/// Sorts the words of a command line, without the program's name. The program's options can stand
/// before or after the command; a program without commands has them before and after its arguments.
/// @return for wrong usage, what is wrong. With --help or --version the arguments are not checked.
support::Expected<Invocation, QString> parse(const Program &program, const QStringList &words,
                                             Completeness completeness = Completeness::Whole);

/// "there is no command lst; did you mean list?", or what to see in order to know better.
QString unknownCommand(const Program &program, const QString &name);

/// The error for arguments that are not what the command takes, with what it does take.
QString wrongArguments(const Command &command, const QString &problem);

} // namespace commandline
