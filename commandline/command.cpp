#include "command.h"

#include <algorithm>

namespace commandline {

const Command *findCommand(const Program &program, const QString &name)
{
    const auto found = std::ranges::find_if(program.commands, [&](const Command *command) {
        return name == QLatin1StringView(command->name);
    });
    return found == program.commands.end() ? nullptr : *found;
}

QString optionWord(const Option &option)
{
    return QStringLiteral("--") + QString::fromLatin1(option.name);
}

} // namespace commandline
