#include "secret_input.h"

#include "line_input.h"
#include "terminal.h"
#include "utf8.h"

#include <unistd.h>

namespace commandline {

using support::LineInput;

namespace {

/// Writes to the person at the terminal, if there is one.
void tell(const QByteArray &text)
{
    if (::isatty(STDIN_FILENO) &&
        ::write(STDERR_FILENO, text.constData(), static_cast<std::size_t>(text.size())) < 0) {
        // Who cannot see the question can still answer it.
    }
}

/// Asks for a line that is a secret.
std::optional<QString> readLine(const QString &name, QString &error)
{
    QByteArray line;
    tell(printable(name).toUtf8() + ": ");
    const auto result = LineInput(STDIN_FILENO).readLine(LineInput::Echo::Off, std::nullopt, line);
    tell("\n");
    std::optional<QString> secret = support::fromUtf8(line);
    if (result != LineInput::Result::Line)
        error = QStringLiteral("no value for %1").arg(name);
    else if (line.size() >= LineInput::longestLine)
        error = QStringLiteral("the value of %1 is too long").arg(name);
    else if (!secret)
        error = QStringLiteral("the value of %1 is not UTF-8").arg(name);
    else
        return secret;
    return std::nullopt;
}

} // namespace

std::optional<QString> secretMeant(const QString &text, const QString &name,
                                   StandardInput standardInput, QString &error)
{
    if (text != u"-")
        return text;
    if (standardInput == StandardInput::Unused || ::isatty(STDIN_FILENO))
        return readLine(name, error);
    error = QStringLiteral("standard input is the shell's");
    return std::nullopt;
}

} // namespace commandline
