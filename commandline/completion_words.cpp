#include "completion_words.h"

#include "common_rows.h"
#include "parser.h"

#include <algorithm>

namespace commandline {

namespace {

/// Takes what begins with a prefix, each word once.
class Candidates {
public:
    explicit Candidates(QString prefix) : m_prefix(std::move(prefix)) {}

    void offer(Candidate candidate)
    {
        const bool isNew =
            std::ranges::find(m_found, candidate.word, &Candidate::word) == m_found.end();
        if (isNew && candidate.word.startsWith(m_prefix))
            m_found.push_back(std::move(candidate));
    }
    /// A word; one with "=" grows by what comes before that first, and then by what comes after it.
    void offerWord(const QString &word)
    {
        const qsizetype equals = word.indexOf(u'=');
        const bool isField = equals >= 0 && !m_prefix.contains(u'=');
        const bool isUnknownValue = !isField && word.endsWith(u'=');
        if (!isUnknownValue)
            offer({isField ? word.first(equals + 1) : word, !isField});
    }
    std::vector<Candidate> take() { return std::move(m_found); }

private:
    QString m_prefix;
    std::vector<Candidate> m_found;
};

const Option *findOption(std::span<const Option> options, const QString &word)
{
    const auto option = std::ranges::find_if(options, [&word](const Option &one) {
        const bool isLetter = one.letter != '\0' && word == u'-' + QString(QLatin1Char(one.letter));
        return isLetter || word == optionWord(one);
    });
    return option == options.end() ? nullptr : &*option;
}

/// The words before the one that is being typed.
struct Before {
    const Command *command = nullptr; ///< null when there is none yet
    QStringList words;                ///< without an option that lacks its value
    const Option *option = nullptr;   ///< that lacks its value
    bool areOptionsOver = false;      ///< after "--"
};

const Option *optionOf(const Program &program, const Command *command, const QString &word)
{
    const Option *const option = findOption(program.options, word);
    return option || !command ? option : findOption(command->options, word);
}

Before readBefore(const Program &program, const QStringList &words)
{
    Before before;
    before.command = program.onlyCommand;
    for (const QString &word : words) {
        if (before.option)
            before.option = nullptr;
        else if (before.areOptionsOver || !word.startsWith(u'-') || word == u"-")
            before.command = before.command ? before.command : findCommand(program, word);
        else if (word == u"--")
            before.areOptionsOver = true;
        else if (const Option *const option = optionOf(program, before.command, word);
                 option && option->valueName)
            before.option = option;
        before.words += word;
    }
    if (before.option)
        before.words.removeLast();
    return before;
}

/// @param start  what stands before the value in its word: "--option=", or nothing
Completion completeValue(const Option &option, const QString &start, const QString &prefix)
{
    Completion completion;
    if (option.kind == ValueKind::File || option.kind == ValueKind::Directory)
        completion.files = option.kind;
    // Of several words the last one is being typed.
    const qsizetype comma = option.kind == ValueKind::Words ? prefix.lastIndexOf(u',') + 1 : 0;
    Candidates candidates(start + prefix);
    if (option.words)
        for (const QString &word : option.words())
            candidates.offer({start + prefix.first(comma) + word, option.kind != ValueKind::Words});
    completion.candidates = candidates.take();
    return completion;
}

Completion completeCommand(const Program &program, const QString &prefix)
{
    Candidates candidates(prefix);
    for (const Command *command : program.commands)
        candidates.offer(
            {QString::fromLatin1(command->name), true, QString::fromLatin1(command->help)});
    return {candidates.take()};
}

Completion completeOption(const Program &program, const Command *command, const QString &prefix)
{
    Candidates candidates(prefix);
    for (const auto options :
         {command ? command->options : std::span<const Option>(), program.options})
        for (const Option &option : options)
            candidates.offer({optionWord(option), true, QString::fromLatin1(option.help)});
    return {candidates.take()};
}

Completion completeArgument(const Program &program, const Before &before, const QString &prefix,
                            const ArgumentCompleter &completeArgument)
{
    const auto read = parse(program, before.words, Completeness::Partial);
    Invocation invocation = read ? *read : Invocation();
    invocation.command = before.command;
    const bool isFirst = invocation.arguments.isEmpty();
    const Command &command = *before.command;
    if (command.firstArgument == ValueKind::Command)
        return isFirst ? completeCommand(program, prefix) : Completion();
    const bool isTooMany =
        command.maxArguments != anyNumber && invocation.arguments.size() >= command.maxArguments;
    if (isTooMany)
        return {};
    Completion completion;
    if (isFirst && command.firstArgument == ValueKind::File)
        completion.files = ValueKind::File;
    Candidates candidates(prefix);
    if (const WordList words = isFirst ? command.firstWords : command.otherWords)
        for (const QString &word : words())
            candidates.offerWord(word);
    for (Candidate &candidate : completeArgument(invocation, prefix))
        candidates.offer(std::move(candidate));
    completion.candidates = candidates.take();
    return completion;
}

} // namespace

Completion complete(const Program &program, const UnfinishedLine &line,
                    const ArgumentCompleter &completer)
{
    const QString &prefix = line.prefix;
    const Before before = readBefore(program, line.words);
    if (before.option)
        return completeValue(*before.option, {}, prefix);
    if (prefix.startsWith(u'-') && !before.areOptionsOver) {
        const qsizetype equals = prefix.indexOf(u'=');
        const Option *const option =
            equals < 0 ? nullptr : optionOf(program, before.command, prefix.first(equals));
        return option && option->valueName
                   ? completeValue(*option, prefix.first(equals + 1), prefix.sliced(equals + 1))
                   : completeOption(program, before.command, prefix);
    }
    return before.command ? completeArgument(program, before, prefix, completer)
                          : completeCommand(program, prefix);
}

QByteArray completionLines(const Completion &completion)
{
    const auto hasControls = [](const QString &text) {
        return std::ranges::any_of(text,
                                   [](QChar c) { return c.category() == QChar::Other_Control; });
    };
    QByteArray lines;
    bool isUnfinished = false;
    for (const Candidate &candidate : completion.candidates) {
        if (hasControls(candidate.word))
            continue;
        lines += candidate.word.toUtf8() +
                 (candidate.help.isEmpty() ? QByteArray() : '\t' + candidate.help.toUtf8()) + '\n';
        isUnfinished = isUnfinished || !candidate.isWhole;
    }
    if (isUnfinished)
        lines += "\tunfinished\n";
    if (completion.files != ValueKind::None)
        lines += completion.files == ValueKind::File ? "\tfiles\n" : "\tdirectories\n";
    return lines;
}

} // namespace commandline
