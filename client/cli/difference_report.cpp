#include "difference_report.h"

#include "recording.h"

namespace client::cli {

// ---- Origins -------------------------------------------------------------------------------------

namespace {

bool isOf(const TreeChange &change, const AnsweredCommand &command)
{
    const Result<Address> address = parseAddress(command.uri);
    if (!address || commandName(change) != command.name || address->node != change.node)
        return false;
    const bool isOfProperty = change.kind == TreeChange::Kind::ReplaceProperty;
    return isOfProperty == (address->query == Address::Query::Property) &&
           (!isOfProperty || address->argument == nameOf(change.property));
}

} // namespace

void ChangeOrigins::commandAnswered(const AnsweredCommand &command)
{
    const std::vector<TreeChange> &changes = m_look->changes();
    for (std::size_t i = m_first; i < changes.size(); ++i) {
        if (m_commands.contains(i) || !isOf(changes[i], command))
            continue;
        m_commands.emplace(i, command);
        while (m_commands.contains(m_first))
            ++m_first;
        return;
    }
}

const AnsweredCommand *ChangeOrigins::of(std::size_t change) const
{
    const auto command = m_commands.find(change);
    return command == m_commands.end() ? nullptr : &command->second;
}

Difference differenceOf(const SecondLook &look, const DifferenceNote &note,
                        const ChangeOrigins *origins)
{
    const TreeChange &change = look.changes()[note.change];
    Difference difference;
    const AnsweredCommand *const command = origins ? origins->of(note.change) : nullptr;
    if (command)
        difference.command = *command;
    difference.command.name = commandName(change);
    if (!command)
        difference.command.uri = addressOf(change);
    difference.command.status = change.outcome.status;
    difference.text = note.text;
    difference.reads = note.reads;
    difference.isAtNextMount = note.isAtNextMount;
    return difference;
}

// ---- Looking and telling -------------------------------------------------------------------------

void recordLooks(const Context &context)
{
    if (context.secondLook)
        context.secondLook->setObserver(context.recording ? &context.recording->recorder()
                                                          : nullptr);
}

std::vector<DifferenceNote> lookAfterCommand(const Context &context)
{
    std::vector<DifferenceNote> notes;
    if (!context.secondLook)
        return notes;
    notes = context.secondLook->lookNow();
    if (!context.inShell)
        for (DifferenceNote &note : context.secondLook->lookAtNextMount())
            notes.push_back(std::move(note));
    return notes;
}

QString missingLook(const Context &context)
{
    return context.secondLook ? context.secondLook->takeFailure() : QString();
}

void reportDifferences(const Context &context, const ChangeOrigins &origins, SessionReport &report)
{
    for (const DifferenceNote &note : lookAfterCommand(context))
        report.differs(differenceOf(*context.secondLook, note, &origins));
    if (const QString missing = missingLook(context); !missing.isEmpty())
        report.note(missing);
}

void printDifferences(Output &output, SecondLook &look, const std::vector<DifferenceNote> &notes)
{
    for (const DifferenceNote &note : notes)
        output.notice(lineOf(differenceOf(look, note)));
    if (const QString failure = look.takeFailure(); !failure.isEmpty())
        output.notice(failure);
}

} // namespace client::cli
