#include "output.h"

#include "foreign_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace client::cli {

namespace {

bool write(FILE *file, const QByteArray &bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, file) == size && std::fflush(file) == 0;
}

} // namespace

Output::Output()
    : m_toTerminal(::isatty(STDOUT_FILENO)), m_painter(Painter::forFile(STDOUT_FILENO)),
      m_errorPainter(Painter::forFile(STDERR_FILENO))
{
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

void Output::json(const QJsonDocument &document, QJsonDocument::JsonFormat format)
{
    const std::string text = document.toJson(format).trimmed().toStdString();
    raw(QByteArray::fromStdString(foreign_text::printableJson(text)) + '\n');
}

void Output::raw(const QByteArray &bytes)
{
    if (!write(stdout, bytes) && m_writeError == 0)
        m_writeError = errno;
}

void Output::status(const QString &command, const QString &uri, const Outcome &outcome)
{
    if (outcome && m_reports == Reports::Failures)
        return;
    report(QStringLiteral("%1 %2: %3").arg(command, uri, describe(outcome)), !outcome);
}

void Output::problem(const QString &text)
{
    report(text, true);
}

void Output::report(const QString &text, bool failed)
{
    const bool toError = m_reports == Reports::Failures;
    const QString prefixed = toError ? QStringLiteral("dmclient: ") + text : text;
    const QString harmless = printable(prefixed.toUtf8());
    const Painter &painter = toError ? m_errorPainter : m_painter;
    const QString painted = failed ? painter.paint(Colour::Problem, harmless) : harmless;
    if (toError)
        write(stderr, painted.toUtf8() + '\n');
    else
        line(painted);
}

QString Output::lossReason() const
{
    return m_writeError == 0 ? QString() : QString::fromLocal8Bit(std::strerror(m_writeError));
}

} // namespace client::cli
