#include "output.h"

#include "foreign_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace commandline {

namespace {

bool write(FILE *file, const QByteArray &bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, file) == size && std::fflush(file) == 0;
}

} // namespace

Output::Output(const QString &programName)
    : m_programName(programName), m_toTerminal(::isatty(STDOUT_FILENO)),
      m_painter(Painter::forFile(STDOUT_FILENO)), m_errorPainter(Painter::forFile(STDERR_FILENO))
{
}

int Output::width() const
{
    return columns(STDOUT_FILENO);
}

void Output::line(const QString &text)
{
    raw(text.toUtf8() + '\n');
}

void Output::value(const QByteArray &bytes)
{
    raw((m_toTerminal ? printable(bytes).toUtf8() : bytes) + '\n');
}

void Output::document(const QByteArray &bytes)
{
    raw(m_toTerminal ? QByteArray::fromStdString(foreign_text::printableLines(bytes.toStdString()))
                     : bytes);
}

void Output::json(const QByteArray &document)
{
    raw(QByteArray::fromStdString(foreign_text::printableJson(document.trimmed().toStdString())) +
        '\n');
}

void Output::json(const QJsonDocument &document, QJsonDocument::JsonFormat format)
{
    json(document.toJson(format));
}

void Output::raw(const QByteArray &bytes)
{
    if (!write(stdout, bytes) && m_writeError == 0)
        m_writeError = errno;
}

void Output::ending(const QString &text, bool succeeded)
{
    if (!succeeded || m_reports == Reports::Everything)
        report(text, !succeeded);
}

void Output::notice(const QString &text)
{
    report(text, false);
}

void Output::problem(const QString &text)
{
    report(text, true);
}

ExitStatus Output::problem(const QString &text, ExitStatus status)
{
    problem(text);
    return status;
}

void Output::report(const QString &text, bool failed)
{
    const bool toError = m_reports == Reports::Failures;
    const QString prefixed = toError ? QStringLiteral("%1: %2").arg(m_programName, text) : text;
    const QString harmless = printable(prefixed);
    const Painter &painter = toError ? m_errorPainter : m_painter;
    const QString painted = failed ? painter.paint(Colour::Problem, harmless) : harmless;
    if (toError)
        write(stderr, painted.toUtf8() + '\n');
    else
        line(painted);
}

ExitStatus Output::finish(ExitStatus status)
{
    if (m_writeError == 0)
        return status;
    return problem(QStringLiteral("cannot write the output: %1")
                       .arg(QString::fromLocal8Bit(std::strerror(m_writeError))),
                   worse(status, ExitStatus::Unusable));
}

} // namespace commandline
