// Telling what the second look has found.
#pragma once

#include "command_table.h"
#include "session_report.h"

#include <map>
#include <utility>

namespace client::cli {

/// Finds the commands of a server's messages that the changes of a tree come from. An observer of
/// the session, or of the package.
class ChangeOrigins final : public SessionObserver {
public:
    explicit ChangeOrigins(const SecondLook &look) : m_look(&look), m_first(look.changes().size())
    {
    }

    void commandAnswered(const AnsweredCommand &command) override;
    /// The command that the change comes from; null for one that no command was found for.
    const AnsweredCommand *of(std::size_t change) const;

private:
    const SecondLook *m_look;
    std::size_t m_first; ///< change that may belong to the next command
    std::map<std::size_t, AnsweredCommand> m_commands;
};

/// What is told of a note: the command as its change has it, and where it comes from.
Difference differenceOf(const SecondLook &look, const DifferenceNote &note,
                        const ChangeOrigins *origins = nullptr);

/// Has what a second look sees written to the record of the command, if there is one.
void recordLooks(const Context &context);

/// Looks after a command, and for the last time when no other follows.
std::vector<DifferenceNote> lookAfterCommand(const Context &context);
/// Why there was no second look, as a sentence; empty when nothing is to be said.
QString missingLook(const Context &context);

/// Tells a report of everything that has turned out differently.
void reportDifferences(const Context &context, const ChangeOrigins &origins, SessionReport &report);
/// Prints it, a line each: a result in a shell, otherwise on standard error.
void printDifferences(Output &output, SecondLook &look, const std::vector<DifferenceNote> &notes);

} // namespace client::cli
