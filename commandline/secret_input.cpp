#include "secret_input.h"

#include "line_input.h"
#include "terminal.h"
#include "utf8.h"

#include <unistd.h>

namespace commandline {

using support::Expected;
using support::LineInput;
using support::Unexpected;

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
Expected<QString, QString> readLine(const QString &name)
{
    QByteArray line;
    tell(printable(name).toUtf8() + ": ");
    const auto result = LineInput(STDIN_FILENO).readLine(LineInput::Echo::Off, std::nullopt, line);
    tell("\n");
    if (result != LineInput::Result::Line)
        return Unexpected(QStringLiteral("no value for %1").arg(name));
    if (line.size() >= LineInput::longestLine)
        return Unexpected(QStringLiteral("the value of %1 is too long").arg(name));
    std::optional<QString> secret = support::fromUtf8(line);
    if (!secret)
        return Unexpected(QStringLiteral("the value of %1 is not UTF-8").arg(name));
    return *std::move(secret);
}

} // namespace

Expected<QString, QString> secretMeant(const QString &text, const QString &name,
                                       StandardInput standardInput)
{
    if (text != u"-")
        return text;
    if (standardInput == StandardInput::Unused || ::isatty(STDIN_FILENO))
        return readLine(name);
    return Unexpected(QStringLiteral("standard input is the shell's"));
}

} // namespace commandline
