#include "parser.h"

#include "common_rows.h"
#include "help.h"
#include "nearest_name.h"

#include <QCommandLineParser>

namespace commandline {

namespace {

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
    QStringList words = {QString::fromLatin1(program.name), QStringLiteral("help"),
                         QString::fromLatin1(command ? command->name : "")};
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

/// What is wrong with the value of an option; null when nothing is.
QString valueFault(const Option &option, const QString &value)
{
    if (option.kind == ValueKind::File && value.isEmpty())
        return QStringLiteral("names no file");
    if (option.kind == ValueKind::Directory && value.isEmpty())
        return QStringLiteral("names no directory");
    if (option.kind == ValueKind::OneOf && !option.words().contains(value))
        return QStringLiteral("is %1, not \"%2\"")
            .arg(option.words().join(QStringLiteral(" or ")), value);
    return {};
}

/// Sorts words into options and the rest, and checks the values of the options.
bool sortWords(QCommandLineParser &parser, const Options &options, const QStringList &words,
               const QString &help, Invocation &invocation, QString &error)
{
    addOptions(parser, options);
    // The parser takes the first word for the name of the program.
    if (!parser.parse(QStringList(QString()) + words)) {
        const QStringList unknown = parser.unknownOptionNames();
        error = unknown.isEmpty() ? sentencePart(parser.errorText())
                                  : unknownOption(unknown.first(), options, help);
        return false;
    }
    for (const Option *option : options) {
        const QString name = QString::fromLatin1(option->name);
        if (!parser.isSet(name))
            continue;
        const QStringList values = parser.values(name);
        for (const QString &value : values) {
            if (const QString fault = valueFault(*option, value); !fault.isNull()) {
                error = QStringLiteral("%1 %2").arg(optionWord(*option), fault);
                return false;
            }
        }
        invocation.options[name] += values;
    }
    return true;
}

/// What is wrong with the arguments; null when nothing is.
QString argumentFault(const Command &command, const QStringList &arguments)
{
    if (arguments.size() < command.minArguments)
        return wrongArguments(command, QStringLiteral("arguments are missing"));
    if (command.maxArguments != anyNumber && arguments.size() > command.maxArguments)
        return wrongArguments(command, QStringLiteral("too many arguments"));
    if (command.firstArgument == ValueKind::File && arguments.value(0).isEmpty())
        return QStringLiteral("%1: %2 names no file")
            .arg(QString::fromLatin1(command.name), QString::fromLatin1(command.arguments));
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
    return QStringLiteral("%1: %2; usage: %3")
        .arg(QString::fromLatin1(command.name), problem, shortUsage(command));
}

std::optional<Invocation> parse(const Program &program, const QStringList &words, QString &error,
                                Completeness completeness)
{
    Invocation invocation;
    QCommandLineParser before;
    before.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    if (!sortWords(before, optionsOf(program, nullptr), words, helpWords(program, nullptr),
                   invocation, error))
        return std::nullopt;
    const QStringList rest = before.positionalArguments();
    if (rest.isEmpty()) {
        if (asksForMore(invocation))
            return invocation;
        error = QStringLiteral("a command is missing; see '%1'").arg(helpWords(program, nullptr));
        return std::nullopt;
    }
    const Command *const command = findCommand(program, rest.first());
    if (!command) {
        error = unknownCommand(program, rest.first());
        return std::nullopt;
    }
    invocation.command = command;
    QCommandLineParser after;
    if (!sortWords(after, optionsOf(program, command), rest.sliced(1), helpWords(program, command),
                   invocation, error)) {
        error.prepend(QString::fromLatin1(command->name) + QStringLiteral(": "));
        return std::nullopt;
    }
    invocation.arguments = after.positionalArguments();
    if (completeness == Completeness::Partial || asksForMore(invocation))
        return invocation;
    if (const QString fault = argumentFault(*command, invocation.arguments); !fault.isNull()) {
        error = fault;
        return std::nullopt;
    }
    return invocation;
}

} // namespace commandline
