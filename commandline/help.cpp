#include "help.h"

#include <algorithm>

namespace commandline {

namespace {

constexpr QChar unbrokenBlank(0xA0);

/// The text with blanks that no line break takes the place of.
QString inOnePiece(QString text)
{
    return text.replace(u' ', unbrokenBlank);
}

/// Breaks a text at its blanks.
/// @param first   what its first line begins with
/// @param indent  blanks that its other lines begin with
QString wrapped(const QString &first, const QString &text, int indent, int width)
{
    QString lines = first;
    qsizetype column = first.size();
    bool isFirstOfLine = true;
    for (const QString &word : text.split(u' ')) {
        if (!isFirstOfLine && column + 1 + word.size() > width) {
            lines += u'\n' + QString(indent, u' ');
            column = indent;
            isFirstOfLine = true;
        }
        if (!isFirstOfLine)
            lines += u' ';
        column += word.size() + (isFirstOfLine ? 0 : 1);
        lines += word;
        isFirstOfLine = false;
    }
    return lines.replace(unbrokenBlank, u' ') + u'\n';
}

QString paragraph(const QString &text, int width)
{
    return wrapped({}, text, 0, width);
}

struct Row {
    QString left;
    QString right;
};

Row row(const char *left, const char *right)
{
    return {QString::fromLatin1(left), QString::fromLatin1(right)};
}

/// Two columns beneath a heading, which does not stand alone. A left text that is too long has a
/// line of its own.
QString table(const char *heading, const std::vector<Row> &rows, int width)
{
    if (rows.empty())
        return {};
    constexpr int margin = 2;
    constexpr int widestLeft = 20;
    int leftWidth = 0;
    for (const Row &row : rows)
        if (row.left.size() <= widestLeft)
            leftWidth = std::max(leftWidth, static_cast<int>(row.left.size()));
    const int rightColumn = margin + leftWidth + margin;
    QString text = QStringLiteral("\n%1:\n").arg(QString::fromLatin1(heading));
    for (const Row &row : rows) {
        QString first = QString(margin, u' ') + row.left.leftJustified(rightColumn - margin);
        if (row.left.size() > leftWidth)
            first = QString(margin, u' ') + row.left + u'\n' + QString(rightColumn, u' ');
        // The column at which the right text begins does not count a line that is complete.
        const qsizetype lineBreak = first.indexOf(u'\n');
        const QString complete = first.left(lineBreak + 1);
        text += complete + wrapped(first.sliced(complete.size()), row.right, rightColumn, width);
    }
    return text;
}

QString optionSynopsis(const Option &option)
{
    const QString name = optionWord(option);
    return option.valueName ? name + u' ' + QString::fromLatin1(option.valueName) : name;
}

QString optionTable(const char *heading, std::span<const Option> options, int width)
{
    std::vector<Row> rows;
    for (const Option &option : options) {
        const QString letter = option.letter == '\0'
                                   ? QString()
                                   : QStringLiteral("-%1, ").arg(QLatin1Char(option.letter));
        rows.push_back({letter + optionSynopsis(option), QString::fromLatin1(option.help)});
    }
    return table(heading, rows, width);
}

QString withProgramName(const Program &program, const QString &text)
{
    return *program.name == '\0' ? text : QString::fromLatin1(program.name) + u' ' + text;
}

QString usageLine(const QString &text, int width)
{
    const QString usage = QStringLiteral("Usage: ");
    return wrapped(usage, text, static_cast<int>(usage.size()), width);
}

/// A sentence of the text.
QString sentence(const char *text)
{
    QString whole = QString::fromLatin1(text);
    whole[0] = whole[0].toUpper();
    return whole + u'.';
}

/// What follows the name of a command: its arguments, in one form or several, and its
/// options.
QStringList synopsisPieces(const Command &command)
{
    QStringList pieces = {QString::fromLatin1(command.name)};
    if (*command.arguments != '\0')
        pieces += QString::fromLatin1(command.arguments);
    for (const Option &option : command.options)
        pieces += QStringLiteral("[%1]").arg(optionSynopsis(option));
    return pieces;
}

/// The synopsis of a command, which a line break leaves in pieces that mean something.
QString usageText(const Command &command)
{
    const QString between = QStringLiteral(" | ");
    QStringList pieces;
    for (const QString &piece : synopsisPieces(command)) {
        QStringList forms;
        for (const QString &form : piece.split(between))
            forms += inOnePiece(form);
        pieces += forms.join(between);
    }
    return pieces.join(u' ');
}

} // namespace

QString synopsis(const Program &program)
{
    const char *const form =
        *program.name == '\0' ? "COMMAND [ARGUMENT...]" : "[OPTION...] COMMAND [ARGUMENT...]";
    return withProgramName(program, QString::fromLatin1(form));
}

QString synopsis(const Command &command)
{
    return synopsisPieces(command).join(u' ');
}

QString shortUsage(const Command &command)
{
    QString text = QString::fromLatin1(command.name);
    if (*command.arguments != '\0')
        text += u' ' + QString::fromLatin1(command.arguments);
    return command.options.empty() ? text : text + QStringLiteral(" [OPTION...]");
}

QString programHelp(const Program &program, int width)
{
    std::vector<Row> commands;
    for (const Command *command : program.commands)
        commands.push_back(row(command->name, command->help));
    std::vector<Row> statuses;
    for (const auto &[status, meaning] : program.exitStatuses)
        statuses.push_back(
            {QString::number(static_cast<int>(status)), QString::fromLatin1(meaning)});
    std::vector<Row> variables;
    for (const auto &[name, meaning] : program.environment)
        variables.push_back(row(name, meaning));
    const QString purpose = paragraph(sentence(program.purpose), width);
    const QString rest =
        table("Exit status", statuses, width) + table("Environment", variables, width);
    if (const Command *const only = program.onlyCommand)
        return usageLine(usageText(*only), width) + purpose +
               optionTable("Options", only->options, width) + rest;
    return usageLine(synopsis(program), width) + purpose + table("Commands", commands, width) +
           optionTable("Options, before or after a command", program.options, width) + rest +
           u'\n' +
           paragraph(QStringLiteral("'%1' tells more about a command.")
                         .arg(withProgramName(program, QStringLiteral("help COMMAND"))),
                     width);
}

QString commandHelp(const Program &program, const Command &command, int width)
{
    QString text = usageLine(withProgramName(program, usageText(command)), width) +
                   paragraph(sentence(command.help), width);
    if (command.details)
        for (const QString &line : command.details()) // what is indented goes on deeper
            text += wrapped({}, line, line.startsWith(u' ') ? 4 : 0, width);
    text += optionTable("Options", command.options, width);
    if (*program.name != '\0')
        text += u'\n' + paragraph(QStringLiteral("'%1' lists the options of every command.")
                                      .arg(withProgramName(program, QStringLiteral("help"))),
                                  width);
    return text;
}

} // namespace commandline
