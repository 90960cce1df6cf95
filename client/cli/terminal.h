// Text for terminals.
#pragma once

#include <QByteArray>
#include <QString>

namespace client::cli {

/// Text that a terminal shows and does not obey: control characters, and bytes that are no UTF-8,
/// come as \n, \t or \xNN.
QString printable(const QByteArray &bytes);

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

} // namespace client::cli
