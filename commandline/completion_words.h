// What could stand next on a command line, for shells and for the programs' own.
#pragma once

#include "command.h"

#include <functional>

namespace commandline {

struct Candidate {
    QString word;
    bool isWhole = true; ///< false: more of the same word follows, as after "="
    QString help = {};   ///< what it means, in a few words

    bool operator==(const Candidate &) const = default;
};

/// The words of a command line up to a place in it.
struct UnfinishedLine {
    QStringList words; ///< those before the one that is being typed
    QString prefix;    ///< what there is of that one
};

struct Completion {
    std::vector<Candidate> candidates;
    ValueKind files = ValueKind::None; ///< File or Directory: names of those, too
};

/// Candidates for an argument that no table knows: names of what there is. They need not begin with
/// the prefix.
/// @param before  the words before it; the command is never null
using ArgumentCompleter =
    std::function<std::vector<Candidate>(const Invocation &before, const QString &prefix)>;

/// Words that continue the line, in the order of the tables: commands, options, their values, and
/// arguments. Nothing is run for the first three of them.
Completion complete(const Program &program, const UnfinishedLine &line,
                    const ArgumentCompleter &completeArgument);

/// The word with which a shell asks a program to complete a command line. The words of the line
/// follow it, the one that is being typed last.
inline constexpr char completionWord[] = "--complete-words";

/// The completion as the scripts of the shells read it: a line for each candidate, with its help
/// after a tab. A line that begins with a tab says "files" or "directories" for names of those, and
/// "unfinished" when more of the same word follows. Candidates that a line cannot hold are left
/// out.
QByteArray completionLines(const Completion &completion);

} // namespace commandline
