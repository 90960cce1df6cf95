#include "program.h"

#include "common_rows.h"
#include "help.h"
#include "parser.h"
#include "standard_streams.h"

#include <QCoreApplication>
#include <QUtf8StringView>

namespace commandline {

namespace {

/// Without this check other bytes would become replacement characters, and the name of something.
bool areUtf8(int argc, char *argv[], Output &output)
{
    for (int index = 1; index < argc; ++index) {
        if (!QUtf8StringView(argv[index]).isValidUtf8()) {
            output.problem(QStringLiteral("argument %1 is not UTF-8").arg(index));
            return false;
        }
    }
    return true;
}

/// @param command  null for the help of the program
ExitStatus printHelp(const Program &program, const Command *command, Output &output)
{
    const int width = output.width();
    const bool isOfCommand = command && command != program.onlyCommand;
    output.raw((isOfCommand ? commandHelp(program, *command, width) : programHelp(program, width))
                   .toUtf8());
    return ExitStatus::Success;
}

/// "help" and "help COMMAND".
ExitStatus runHelp(const Program &program, const QStringList &arguments, Output &output)
{
    const Command *const command =
        arguments.isEmpty() ? nullptr : findCommand(program, arguments.first());
    if (!arguments.isEmpty() && !command)
        return output.problem(
            QStringLiteral("help: %1").arg(unknownCommand(program, arguments.first())),
            ExitStatus::WrongUsage);
    return printHelp(program, command, output);
}

ExitStatus printVersion(const Program &program, Output &output)
{
    output.line(QStringLiteral("%1 " KUB_VERSION).arg(QString::fromLatin1(program.name)));
    return ExitStatus::Success;
}

/// @param words  of a command line, the one that is being typed last
ExitStatus printCompletion(const Program &program, QStringList words,
                           const ArgumentCompleter &completeArgument, Output &output)
{
    const QString prefix = words.isEmpty() ? QString() : words.takeLast();
    output.raw(completionLines(complete(program, {words, prefix}, completeArgument)));
    return ExitStatus::Success;
}

} // namespace

std::optional<Invocation> interpret(const Program &program, const QStringList &words,
                                    Output &output, ExitStatus &exitStatus)
{
    const auto invocation = parse(program, words);
    if (!invocation)
        exitStatus = output.problem(invocation.error(), ExitStatus::WrongUsage);
    else if (invocation->has(helpOption.name))
        exitStatus = printHelp(program, invocation->command, output);
    else if (invocation->has(versionOption.name))
        exitStatus = printVersion(program, output);
    else if (invocation->command == &helpCommand)
        exitStatus = runHelp(program, invocation->arguments, output);
    else
        return *invocation;
    return std::nullopt;
}

int run(int argc, char *argv[], const Program &program,
        ExitStatus (*execute)(Output &output, const Invocation &invocation),
        const ArgumentCompleter &completeArgument)
{
    support::occupyClosedStandardStreams();
    const QCoreApplication application(argc, argv);
    Output output(QString::fromLatin1(program.name));
    ExitStatus exitStatus = ExitStatus::WrongUsage;
    if (areUtf8(argc, argv, output)) {
        const QStringList words = QCoreApplication::arguments().sliced(1);
        if (!words.isEmpty() && words.first() == QLatin1StringView(completionWord))
            exitStatus = printCompletion(program, words.sliced(1), completeArgument, output);
        else if (const auto invocation = interpret(program, words, output, exitStatus))
            exitStatus = execute(output, *invocation);
    }
    return static_cast<int>(output.finish(exitStatus));
}

} // namespace commandline
