#include "bash_completion.h"

using commandline::Command;
using commandline::Option;
using commandline::Program;
using commandline::ValueKind;

namespace {

/// The script, with capitals for what comes from the tables.
constexpr const char *SCRIPT =
    R"(# Completion of NAME for bash, from the tables of its commands and options.

_NAME()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' index arguments=0
    COMPREPLY=()

    # What stands before the word: the command, and how many arguments it has so far.
    for ((index = 1; index < COMP_CWORD; ++index)); do
        case ${COMP_WORDS[index]} in
            VALUEOPTIONS)
                ((++index))
                [[ ${COMP_WORDS[index]} == '=' ]] && ((++index))
                ;;
            -* | =) ;;
            *)
                if [[ -z $command ]]; then
                    command=${COMP_WORDS[index]}
                else
                    ((++arguments))
                fi
                ;;
        esac
    done

    # An equals sign is a word of its own: --option=value, FIELD=VALUE.
    if [[ $word == '=' ]]; then
        word=''
        [[ $before == --* ]] || return
    elif [[ $before == '=' ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
        [[ $before == --* ]] || return
    fi

    case $command:$before in
VALUES    esac

    if [[ $word == -* ]]; then
        case $command in
OPTIONS        esac
        return
    fi

    case $command:$arguments in
ARGUMENTS    esac
    [[ ${COMPREPLY[0]-} == *= ]] && compopt -o nospace
}

complete -F _NAME NAME
)";

QString quoted(const QStringList &words)
{
    return u'\'' + words.join(u' ') + u'\'';
}

/// A branch of a case that offers something and leaves the function where that is all.
QString branch(int indent, const QString &pattern, const QString &action, bool isLast)
{
    const QString blanks(indent, u' ');
    const QString deeper = blanks + QStringLiteral("    ");
    QString text = blanks + pattern + QStringLiteral(")\n");
    if (!action.isEmpty())
        text += deeper + action + u'\n';
    if (isLast)
        text += deeper + QStringLiteral("return\n");
    return text + deeper + QStringLiteral(";;\n");
}

/// How bash finds the words of that kind; empty where there is nothing to offer.
QString offer(ValueKind kind, const QStringList &words)
{
    QString what;
    if (!words.isEmpty())
        what = QStringLiteral("-W %1").arg(quoted(words));
    else if (kind == ValueKind::File)
        what = QStringLiteral("-f");
    else if (kind == ValueKind::Directory)
        what = QStringLiteral("-d");
    else
        return {};
    const QString fill =
        QStringLiteral("mapfile -t COMPREPLY < <(compgen %1 -- \"$word\")").arg(what);
    return words.isEmpty() ? QStringLiteral("compopt -o filenames; ") + fill : fill;
}

QStringList wordsOf(commandline::WordList words)
{
    return words ? words() : QStringList();
}

/// "-o" and "--output", or one of them.
QStringList wordsOfOption(const Option &option)
{
    QStringList words;
    if (option.letter != '\0')
        words += QStringLiteral("-%1").arg(QLatin1Char(option.letter));
    return words << optionWord(option);
}

QString valueBranches(const char *command, std::span<const Option> options)
{
    QString text;
    for (const Option &option : options) {
        QStringList patterns;
        for (const QString &word : wordsOfOption(option))
            patterns += QStringLiteral("%1:%2").arg(QString::fromLatin1(command), word);
        if (option.valueName)
            text += branch(8, patterns.join(QStringLiteral(" | ")),
                           offer(option.kind, wordsOf(option.words)), true);
    }
    return text;
}

QStringList optionWords(std::span<const Option> options)
{
    QStringList words;
    for (const Option &option : options)
        words += wordsOfOption(option);
    return words;
}

} // namespace

std::string bashCompletion(const Program &program)
{
    QStringList names;
    QStringList valueOptions;
    for (const Option &option : program.options)
        if (option.valueName)
            valueOptions += wordsOfOption(option);
    QString values = valueBranches("*", program.options);
    QString options;
    QString arguments;
    for (const Command *command : program.commands)
        names += QString::fromLatin1(command->name);
    arguments += branch(8, QStringLiteral(":*"), offer(ValueKind::Command, names), false);
    for (const Command *command : program.commands) {
        const QString name = QString::fromLatin1(command->name);
        for (const Option &option : command->options)
            if (option.valueName)
                valueOptions += wordsOfOption(option);
        values += valueBranches(command->name, command->options);
        if (!command->options.empty())
            options += branch(12, name,
                              offer(ValueKind::None,
                                    optionWords(command->options) + optionWords(program.options)),
                              false);
        const bool takesCommand = command->firstArgument == ValueKind::Command;
        const QString first =
            offer(command->firstArgument, takesCommand ? names : wordsOf(command->firstWords));
        const QString other = offer(ValueKind::Text, wordsOf(command->otherWords));
        if (!first.isEmpty())
            arguments += branch(8, name + QStringLiteral(":0"), first, false);
        if (!other.isEmpty() && !first.isEmpty())
            arguments += branch(8, name + QStringLiteral(":*"), other, false);
        else if (!other.isEmpty())
            arguments += branch(8, name + QStringLiteral(":[1-9]*"), other, false);
    }
    options += branch(12, QStringLiteral("*"), offer(ValueKind::None, optionWords(program.options)),
                      false);
    valueOptions.removeDuplicates();

    QString script = QString::fromLatin1(SCRIPT);
    script.replace(QStringLiteral("VALUEOPTIONS"), valueOptions.join(QStringLiteral(" | ")));
    script.replace(QStringLiteral("VALUES"), values);
    script.replace(QStringLiteral("OPTIONS"), options);
    script.replace(QStringLiteral("ARGUMENTS"), arguments);
    script.replace(QStringLiteral("_NAME"), u'_' + QString::fromLatin1(program.name));
    script.replace(QStringLiteral(" NAME"), u' ' + QString::fromLatin1(program.name));
    return script.toStdString();
}
