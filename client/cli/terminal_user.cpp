#include "terminal_user.h"

#include "terminal.h"

#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <cerrno>
#include <iterator>
#include <unistd.h>

namespace client::cli {

using commandline::printable;
using support::LineInput;
using support::Unexpected;

// ---- Texts ---------------------------------------------------------------------------------------

void TerminalUser::print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count = ::write(m_output, bytes.constData() + written,
                                      static_cast<std::size_t>(bytes.size() - written));
        if (count < 0 && errno != EINTR)
            return;
        written += std::max<ssize_t>(count, 0);
    }
}

void TerminalUser::printFromServer(const QString &text)
{
    for (const QString &line : text.split(u'\n'))
        print(QStringLiteral("[server] %1\n").arg(printable(line)));
}

// ---- Questions -----------------------------------------------------------------------------------

UserInteraction::Response
TerminalUser::askUntilAccepted(const QString &prompt, const InteractionOptions &options,
                               const std::function<Answer(const QString &typed)> &accept)
{
    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (options.maximumTime)
        deadline = std::chrono::steady_clock::now() + *options.maximumTime;
    const auto echo = options.isSecret ? LineInput::Echo::Off : LineInput::Echo::On;
    QString shownPrompt = prompt;
    if (!options.defaultResponse.isEmpty())
        shownPrompt += QStringLiteral(" [%1]").arg(
            options.isSecret ? QStringLiteral("default") : printable(options.defaultResponse));
    m_input.flush();
    for (;;) {
        print(shownPrompt + QStringLiteral(": "));
        QByteArray line;
        const LineInput::Result result = m_input.readLine(echo, deadline, line);
        if (result != LineInput::Result::Line || options.isSecret)
            print(QStringLiteral("\n"));
        if (result == LineInput::Result::TimedOut)
            return Response::TimedOut;
        if (result != LineInput::Result::Line)
            return Response::Cancelled;
        const Answer answer =
            accept(line.isEmpty() ? options.defaultResponse : QString::fromUtf8(line));
        if (answer)
            return *answer;
        print(answer.error() + u'\n');
    }
}

UserInteraction::Response TerminalUser::show(const QString &text, const InteractionOptions &)
{
    printFromServer(text);
    return Response::Given;
}

UserInteraction::Response TerminalUser::confirm(const QString &text,
                                                const InteractionOptions &options)
{
    static const QStringList yes = {QStringLiteral("y"), QStringLiteral("yes"),
                                    QStringLiteral("1")};
    static const QStringList no = {QStringLiteral("n"), QStringLiteral("no"), QStringLiteral("0")};
    printFromServer(text);
    return askUntilAccepted(
        QStringLiteral("yes or no"), options, [](const QString &typed) -> Answer {
            const QString word = typed.trimmed().toLower();
            if (yes.contains(word))
                return Response::Given;
            if (no.contains(word))
                return Response::Refused;
            return Unexpected(QStringLiteral("Please type yes or no; Ctrl-D cancels."));
        });
}

UserInteraction::Response TerminalUser::ask(const QString &text, const InteractionOptions &options,
                                            QString &typed)
{
    printFromServer(text);
    return askUntilAccepted(QStringLiteral("your answer"), options, [&](const QString &line) {
        typed = line;
        const auto accepted = checkTyped(line, options);
        return accepted ? Answer(Response::Given) : Unexpected(accepted.error());
    });
}

UserInteraction::Response TerminalUser::choose(const QString &text,
                                               const std::vector<QString> &choices, Choice kind,
                                               const InteractionOptions &options,
                                               std::vector<int> &chosen)
{
    printFromServer(text);
    int shown = 0;
    for (const QString &choice : choices)
        printFromServer(QStringLiteral("%1) %2").arg(++shown).arg(choice));
    const bool isSingle = kind == Choice::Single;
    const auto accept = [&](const QString &typed) -> Answer {
        static const QRegularExpression separators(QStringLiteral("[ ,\\-]+"));
        chosen.clear();
        for (const QString &word : typed.split(separators, Qt::SkipEmptyParts)) {
            const int number = word.toInt(); // 0 is none of them
            if (std::ranges::find(chosen, number) == chosen.end())
                chosen.push_back(number);
        }
        const auto accepted = checkChosen(chosen, choices.size(), kind);
        return accepted ? Answer(Response::Given) : Unexpected(accepted.error());
    };
    const QString prompt = isSingle ? QStringLiteral("number") : QStringLiteral("numbers");
    return askUntilAccepted(prompt, options, accept);
}

} // namespace client::cli
