// The tables of commands and options that a program is made of. Usage, help, the manual page and
// the completion of shells come from them.
#pragma once

#include "exit_status.h"

#include <QMap>
#include <QStringList>
#include <span>
#include <vector>

namespace commandline {

/// What a value or an argument is.
enum class ValueKind {
    None, ///< there is none
    Text,
    Words,     ///< several of the words that go with it, with commas between them
    OneOf,     ///< one of the words that go with it, and nothing else
    File,      ///< the name of a file, which is not empty
    Directory, ///< the name of a directory, which is not empty
    Command,   ///< the name of a command
};

using WordList = QStringList (*)();

struct Option {
    const char *name;      ///< without dashes
    const char *valueName; ///< as help shows it; null for a flag
    const char *help;
    ValueKind kind = ValueKind::None;
    WordList words = nullptr; ///< of OneOf all that there are, of Text some that can be offered
    char letter = '\0';       ///< of the short form; NUL for none
};

inline constexpr int anyNumber = -1;

struct Command {
    const char *name;
    const char *arguments; ///< as help shows them
    const char *help;
    int minArguments = 0;
    int maxArguments = 0; ///< or anyNumber
    std::span<const Option> options = {};
    ValueKind firstArgument = ValueKind::Text;
    WordList firstWords = nullptr; ///< that can be offered for the first argument
    WordList otherWords =
        nullptr;                ///< that can be offered for the others; "=" ends one that goes on
    WordList details = nullptr; ///< more lines of its help
};

/// What a program means by an exit status.
struct ExitMeaning {
    ExitStatus status;
    const char *meaning;
};

/// A variable of the environment that a program goes by.
struct EnvironmentVariable {
    const char *name;
    const char *meaning;
};

struct Program {
    const char *name; ///< empty for a shell, whose lines begin with a command
    const char *purpose;
    std::span<const Option> options; ///< which stand before or after every command
    std::vector<const Command *> commands;
    std::span<const ExitMeaning> exitStatuses = {};
    std::span<const EnvironmentVariable> environment = {};
    /// What a program without commands does; it has the program's name and all options.
    const Command *onlyCommand = nullptr;
};

/// @return null when there is none of that name.
const Command *findCommand(const Program &program, const QString &name);

/// The words of a command line, sorted.
struct Invocation {
    const Command *command = nullptr; ///< null when help or the version is asked for without one
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

/// "--name"
QString optionWord(const Option &option);

} // namespace commandline
