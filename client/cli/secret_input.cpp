#include "secret_input.h"

#include "command_table.h"
#include "line_input.h"

#include <unistd.h>

namespace client::cli {

std::optional<QString> readSecret(const Context &context, const QString &name, QString &error)
{
    if (!context.inShell || ::isatty(STDIN_FILENO))
        return support::readSecret(name, error);
    error = QStringLiteral("standard input is the shell's");
    return std::nullopt;
}

} // namespace client::cli
