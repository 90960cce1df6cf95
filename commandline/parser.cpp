#include "parser.h"

#include "common_rows.h"
#include "help.h"
#include "nearest_name.h"

#include <QCommandLineParser>

namespace commandline {

using support::Unexpected;

namespace {

/// Nothing, or what is wrong.
using Check = support::Expected<void, QString>;
using Options = std::vector<const Option *>;

/// What to say about a name that there is not.
QString hint(const QString &nearest, const QString &help)
{
    return nearest.isNull() ? QStringLiteral("see '%1'").arg(help)
                            : QStringLiteral("did you mean %1?").arg(nearest);
}

/// The words that ask for the help of a command, or of the program.
QString helpWords(const Program &program, const Command *command)
{
    QStringList words = {
        QString::fromLatin1(program.name),
        QString::fromLatin1(program.onlyCommand ? "--help" : "help"),
        QString::fromLatin1(command && command != program.onlyCommand ? command->name : "")};
    words.removeAll(QString());
    return words.join(u' ');
}

QString unknownOption(const QString &name, const Options &options, const QString &help)
{
    if (name.size() == 1)
        return QStringLiteral("there is no option -%1; an argument that begins with a dash goes "
                              "after --")
            .arg(name);
    QStringList names;
    for (const Option *option : options)
        names += optionWord(*option);
    const QString word = QStringLiteral("--") + name;
    return QStringLiteral("there is no option %1; %2")
        .arg(word, hint(nearestName(word, names), help));
}

/// Qt's sentence as one of ours: "Missing value after '--prop'."
QString sentencePart(QString sentence)
{
    sentence[0] = sentence[0].toLower();
    return sentence.endsWith(u'.') ? sentence.chopped(1) : sentence;
}

void addOptions(QCommandLineParser &parser, const Options &options)
{
    for (const Option *option : options) {
        QStringList names(QString::fromLatin1(option->name));
        if (option->letter != '\0')
            names += QString(QLatin1Char(option->letter));
        parser.addOption(
            {names, QString(), QString::fromLatin1(option->valueName ? option->valueName : "")});
    }
}

Check checkValue(const Option &option, const QString &value)
{
    if (option.kind == ValueKind::File && value.isEmpty())
        return Unexpected(QStringLiteral("names no file"));
    if (option.kind == ValueKind::Directory && value.isEmpty())
        return Unexpected(QStringLiteral("names no directory"));
    if (option.kind == ValueKind::OneOf && !option.words().contains(value))
        return Unexpected(QStringLiteral("is %1, not \"%2\"")
                              .arg(option.words().join(QStringLiteral(" or ")), value));
    return {};
}

/// Sorts words into options and the rest, and checks the values of the options.
Check sortWords(QCommandLineParser &parser, const Options &options, const QStringList &words,
                const QString &help, Invocation &invocation)
{
    addOptions(parser, options);
    // The parser takes the first word for the name of the program.
    if (!parser.parse(QStringList(QString()) + words)) {
        const QStringList unknown = parser.unknownOptionNames();
        return Unexpected(unknown.isEmpty() ? sentencePart(parser.errorText())
                                            : unknownOption(unknown.first(), options, help));
    }
    for (const Option *option : options) {
        const QString name = QString::fromLatin1(option->name);
        if (!parser.isSet(name))
            continue;
        const QStringList values = parser.values(name);
        for (const QString &value : values) {
            if (const Check check = checkValue(*option, value); !check)
                return Unexpected(QStringLiteral("%1 %2").arg(optionWord(*option), check.error()));
        }
        invocation.options[name] += values;
    }
    return {};
}

/// What is wrong with a command, as one of several.
QString ofCommand(const Command &command, const QString &problem)
{
    return QStringLiteral("%1: %2").arg(QString::fromLatin1(command.name), problem);
}

QString withUsage(const Command &command, const QString &problem)
{
    return QStringLiteral("%1; usage: %2").arg(problem, shortUsage(command));
}

Check checkArguments(const Command &command, const QStringList &arguments)
{
    if (arguments.size() < command.minArguments)
        return Unexpected(withUsage(command, QStringLiteral("arguments are missing")));
    if (command.maxArguments != anyNumber && arguments.size() > command.maxArguments)
        return Unexpected(withUsage(command, QStringLiteral("too many arguments")));
    if (command.firstArgument == ValueKind::File && !arguments.isEmpty() &&
        arguments.first().isEmpty())
        return Unexpected(
            QStringLiteral("%1 names no file").arg(QString::fromLatin1(command.arguments)));
    return {};
}

bool asksForMore(const Invocation &invocation)
{
    return invocation.has(helpOption.name) || invocation.has(versionOption.name);
}

Options optionsOf(const Program &program, const Command *command)
{
    Options options;
    for (const Option &option : command ? command->options : std::span<const Option>())
        options.push_back(&option);
    for (const Option &option : program.options)
        options.push_back(&option);
    return options;
}

} // namespace

QString unknownCommand(const Program &program, const QString &name)
{
    QStringList names;
    for (const Command *command : program.commands)
        names += QString::fromLatin1(command->name);
    return QStringLiteral("there is no command %1; %2")
        .arg(name, hint(nearestName(name, names), helpWords(program, nullptr)));
}

QString wrongArguments(const Command &command, const QString &problem)
{
    return ofCommand(command, withUsage(command, problem));
}

namespace {

/// @param words  after the command
support::Expected<Invocation, QString> parseOf(const Program &program, const Command &command,
                                               const QStringList &words, Completeness completeness,
                                               Invocation invocation)
{
    invocation.command = &command;
    QCommandLineParser parser;
    if (const Check check = sortWords(parser, optionsOf(program, &command), words,
                                      helpWords(program, &command), invocation);
        !check)
        return Unexpected(check.error());
    invocation.arguments = parser.positionalArguments();
    if (completeness == Completeness::Partial || asksForMore(invocation))
        return invocation;
    if (const Check check = checkArguments(command, invocation.arguments); !check)
        return Unexpected(check.error());
    return invocation;
}

} // namespace

support::Expected<Invocation, QString> parse(const Program &program, const QStringList &words,
                                             Completeness completeness)
{
    if (program.onlyCommand)
        return parseOf(program, *program.onlyCommand, words, completeness, {});
    Invocation invocation;
    QCommandLineParser before;
    before.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    if (const Check check = sortWords(before, optionsOf(program, nullptr), words,
                                      helpWords(program, nullptr), invocation);
        !check)
        return Unexpected(check.error());
    const QStringList rest = before.positionalArguments();
    if (rest.isEmpty() && asksForMore(invocation))
        return invocation;
    if (rest.isEmpty())
        return Unexpected(
            QStringLiteral("a command is missing; see '%1'").arg(helpWords(program, nullptr)));
    const Command *const command = findCommand(program, rest.first());
    if (!command)
        return Unexpected(unknownCommand(program, rest.first()));
    auto read = parseOf(program, *command, rest.sliced(1), completeness, std::move(invocation));
    if (!read)
        return Unexpected(ofCommand(*command, read.error()));
    return read;
}

} // namespace commandline
