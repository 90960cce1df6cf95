#include "cli/terminal.h"

#include <QStringDecoder>
#include <unistd.h>

namespace client::cli {

namespace {

QString escaped(char byte)
{
    switch (byte) {
    case '\n':
        return QStringLiteral("\\n");
    case '\t':
        return QStringLiteral("\\t");
    default:
        return QStringLiteral("\\x%1").arg(static_cast<unsigned char>(byte), 2, 16, QChar(u'0'));
    }
}

QString escapedBytes(const QByteArray &bytes)
{
    QString text;
    for (const char byte : bytes)
        text += escaped(byte);
    return text;
}

bool obeyedByTerminals(QChar character)
{
    return character.category() == QChar::Other_Control || character == QChar::LineSeparator ||
           character == QChar::ParagraphSeparator;
}

bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Length in bytes of the character at the position, or of the rubbish there.
qsizetype characterLength(const QByteArray &bytes, qsizetype position)
{
    const bool isAscii = static_cast<unsigned char>(bytes[position]) < 0x80;
    qsizetype end = position + 1;
    while (!isAscii && end < bytes.size() && end - position < 4 && isContinuation(bytes[end]))
        ++end;
    return end - position;
}

} // namespace

QString printable(const QByteArray &bytes)
{
    QString text;
    for (qsizetype position = 0; position < bytes.size();) {
        const QByteArray piece = bytes.mid(position, characterLength(bytes, position));
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString character = decoder(piece);
        const bool isRubbish = decoder.hasError() || character.isEmpty();
        text += isRubbish || obeyedByTerminals(character[0]) ? escapedBytes(piece) : character;
        position += piece.size();
    }
    return text;
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

} // namespace client::cli
