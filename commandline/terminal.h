// Text for terminals.
#pragma once

#include <QByteArray>
#include <QString>

namespace commandline {

/// One line of text that a terminal shows and does not obey (foreign_text.h).
QString printable(const QByteArray &bytes);
QString printable(const QString &text);

/// Whether somebody types standard input and sees standard output.
bool isInteractive();

/// How many columns a terminal has; 80 for anything else.
int columns(int fileDescriptor);

enum class Colour { Name, Faint, Problem };

/// Adds colour, or leaves text alone.
class Painter {
public:
    /// Colours when the file is a terminal that has colours, and NO_COLOR is not set.
    static Painter forFile(int fileDescriptor);
    explicit Painter(bool colours) : m_colours(colours) {}

    QString paint(Colour colour, const QString &text) const;

private:
    bool m_colours;
};

} // namespace commandline
