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

template <class Accept>
UserInteraction::Response TerminalUser::askUntilAccepted(const QString &prompt,
                                                         const InteractionOptions &options,
                                                         Accept accept)
{
    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (options.maximumTime)
        deadline = std::chrono::steady_clock::now() + *options.maximumTime;
    const auto echo =
        options.isSecret ? support::LineInput::Echo::Off : support::LineInput::Echo::On;
    QString shownPrompt = prompt;
    if (!options.defaultResponse.isEmpty())
        shownPrompt += QStringLiteral(" [%1]").arg(
            options.isSecret ? QStringLiteral("default") : printable(options.defaultResponse));
    m_input.flush();
    for (;;) {
        print(shownPrompt + QStringLiteral(": "));
        QByteArray line;
        const support::LineInput::Result result = m_input.readLine(echo, deadline, line);
        if (result != support::LineInput::Result::Line || options.isSecret)
            print(QStringLiteral("\n"));
        if (result == support::LineInput::Result::TimedOut)
            return Response::TimedOut;
        if (result != support::LineInput::Result::Line)
            return Response::Cancelled;
        const QString typed = line.isEmpty() ? options.defaultResponse : QString::fromUtf8(line);
        Response response = Response::Given;
        const QString problem = accept(typed, response);
        if (problem.isEmpty())
            return response;
        print(problem + u'\n');
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
    return askUntilAccepted(QStringLiteral("yes or no"), options,
                            [](const QString &typed, Response &response) {
                                const QString word = typed.trimmed().toLower();
                                if (no.contains(word))
                                    response = Response::Refused;
                                else if (!yes.contains(word))
                                    return QStringLiteral("Please type yes or no; Ctrl-D cancels.");
                                return QString();
                            });
}

namespace {

struct InputForm {
    InteractionOptions::Input input;
    const char *pattern;
    const char *problem;
};

constexpr InputForm inputForms[] = {
    {InteractionOptions::Input::Number, "[0-9]*", "Digits only, please."},
    {InteractionOptions::Input::Date, "[0-9]{8}", "A date of eight digits, please: DDMMYYYY."},
    {InteractionOptions::Input::Time, "[0-9]{6}", "A time of six digits, please: hhmmss."},
    {InteractionOptions::Input::Telephone, "\\+?[0-9*#pw]*", "A telephone number, please."},
    {InteractionOptions::Input::IpAddress, "[0-9]{1,3}(\\.[0-9]{1,3}){3}",
     "An address of four numbers, please: 192.0.2.1."},
};

/// What is wrong with a typed text; empty when nothing is.
QString problemOf(const QString &typed, const InteractionOptions &options)
{
    if (options.maximumLength && typed.size() > *options.maximumLength)
        return QStringLiteral("At most %1 characters, please.").arg(*options.maximumLength);
    for (const InputForm &form : inputForms) {
        const QRegularExpression expression(
            QRegularExpression::anchoredPattern(QString::fromLatin1(form.pattern)));
        if (form.input == options.input && !expression.match(typed).hasMatch())
            return QString::fromLatin1(form.problem);
    }
    return {};
}

} // namespace

UserInteraction::Response TerminalUser::ask(const QString &text, const InteractionOptions &options,
                                            QString &typed)
{
    printFromServer(text);
    return askUntilAccepted(QStringLiteral("your answer"), options,
                            [&](const QString &line, Response &) {
                                typed = line;
                                return problemOf(line, options);
                            });
}

UserInteraction::Response TerminalUser::choose(const QString &text,
                                               const std::vector<QString> &choices, Choice kind,
                                               const InteractionOptions &options,
                                               std::vector<int> &chosen)
{
    const auto count = static_cast<int>(choices.size());
    printFromServer(text);
    int shown = 0;
    for (const QString &choice : choices)
        printFromServer(QStringLiteral("%1) %2").arg(++shown).arg(choice));
    const bool isSingle = kind == Choice::Single;
    const auto accept = [&](const QString &typed, Response &) {
        static const QRegularExpression separators(QStringLiteral("[ ,\\-]+"));
        chosen.clear();
        for (const QString &word : typed.split(separators, Qt::SkipEmptyParts)) {
            bool isNumber = false;
            const int number = word.toInt(&isNumber);
            if (!isNumber || number < 1 || number > count)
                return QStringLiteral("Numbers from 1 to %1, please.").arg(count);
            if (std::ranges::find(chosen, number) == chosen.end())
                chosen.push_back(number);
        }
        return isSingle && chosen.size() != 1 ? QStringLiteral("One number, please.") : QString();
    };
    const QString prompt = isSingle ? QStringLiteral("number") : QStringLiteral("numbers");
    return askUntilAccepted(prompt, options, accept);
}

} // namespace client::cli
