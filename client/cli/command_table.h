// The commands of dmclient: one table drives dispatch, --help, the shell's help and completion.
#pragma once

#include "dm_device.h"
#include "output.h"

#include <QMap>
#include <QStringList>
#include <optional>
#include <span>

namespace client::cli {

using commandline::ExitStatus;
using commandline::Output;

/// What a command works with.
struct Context {
    DmDevice *device = nullptr; ///< null for commands that need none
    Output &output;
    bool inShell = false;
    bool leaveShell = false; ///< set by the command that ends the shell
};

/// The words behind a command's name, sorted.
struct Invocation {
    QStringList arguments;
    QMap<QString, QStringList> options; ///< values by name without dashes; a flag has an empty one

    bool has(const char *option) const { return options.contains(QString::fromLatin1(option)); }
    /// Everything that an option was given, in that order.
    QStringList values(const char *option) const
    {
        return options.value(QString::fromLatin1(option));
    }
    /// What an option was given last; null when it is not there.
    QString value(const char *option) const
    {
        const QStringList all = values(option);
        return all.isEmpty() ? QString() : all.last();
    }
};

/// What an argument stands for, as completion needs to know it.
enum class ArgumentKind {
    None,
    Uri,          ///< of a node
    UriToRead,    ///< of a node or a property
    UriToReplace, ///< the same
    ChildValue,
    File,
    Command
};

/// What an option's value stands for.
enum class OptionValue { None, Property, Format, File, Text };

struct OptionRow {
    const char *name;
    OptionValue value;
    const char *valueName; ///< as help shows it; null for a flag
    const char *help;
};

enum class Availability { Everywhere, CommandLineOnly, ShellOnly };

/// What of the device a command works with. The tree needs the plug-in.
enum class Needs { Nothing, Accounts, Tree };

struct CommandRow {
    const char *name;
    const char *arguments; ///< as help shows them
    const char *help;
    int minArguments;
    int maxArguments; ///< -1: any number
    ArgumentKind firstArgument;
    ArgumentKind otherArguments;
    std::span<const OptionRow> options;
    Availability availability;
    Needs needs;
    ExitStatus (*run)(Context &, const Invocation &);
    QString (*details)() = nullptr; ///< one more line of its help; null for none
};

std::span<const CommandRow> commandTable();

/// The row of a command that can be used there; null when there is none.
const CommandRow *findCommand(const QString &name, bool inShell);

/// Whether words are missing that are still being typed.
enum class Completeness { Whole, Partial };

/// Sorts the words of one command.
/// @return none for wrong usage, with what is wrong in error
std::optional<Invocation> parseInvocation(const CommandRow &command, const QStringList &words,
                                          QString &error,
                                          Completeness completeness = Completeness::Whole);

/// "tree [URI] [--json] [--show-secrets]"
QString synopsis(const CommandRow &command);
/// The commands that can be used there, a line each.
QString commandOverview(bool inShell);
/// Synopsis, meaning and options of one command.
QString commandHelp(const CommandRow &command);

} // namespace client::cli
