#include "terminal.h"

#include "foreign_text.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace commandline {

QString printable(const QByteArray &bytes)
{
    return QString::fromStdString(foreign_text::printable(bytes.toStdString()));
}

QString printable(const QString &text)
{
    return printable(text.toUtf8());
}

bool isInteractive()
{
    return ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
}

int columns(int fileDescriptor)
{
    constexpr int usualColumns = 80;
    constexpr int fewestColumns = 40; // less is not worth reading
    winsize size{};
    if (!::isatty(fileDescriptor) || ::ioctl(fileDescriptor, TIOCGWINSZ, &size) != 0 ||
        size.ws_col == 0)
        return usualColumns;
    return std::max<int>(size.ws_col, fewestColumns);
}

Painter Painter::forFile(int fileDescriptor)
{
    const QByteArray terminal = qgetenv("TERM");
    return Painter(::isatty(fileDescriptor) && qgetenv("NO_COLOR").isEmpty() &&
                   !terminal.isEmpty() && terminal != "dumb");
}

QString Painter::paint(Colour colour, const QString &text) const
{
    if (!m_colours || text.isEmpty())
        return text;
    const char *const code = colour == Colour::Name ? "1;34" : colour == Colour::Faint ? "2" : "31";
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QString::fromLatin1(code), text);
}

} // namespace commandline
