#include "shell.h"

#include "command_table.h"
#include "completion.h"
#include "difference_report.h"
#include "line_editor.h"
#include "private_storage.h"
#include "program.h"
#include "recording.h"
#include "secret_leaf.h"
#include "terminal.h"
#include "words.h"

#include <QFile>
#include <algorithm>
#include <iostream>
#include <string>

namespace client::cli {

namespace {

bool isSkipped(const QByteArray &line)
{
    const QByteArray text = line.trimmed();
    return text.isEmpty() || text.startsWith('#');
}

/// What is not text would be cut off or read as something else.
bool isText(const QByteArray &line)
{
    return !line.contains('\0') && line.isValidUtf8();
}

} // namespace

bool mayBeRemembered(const QByteArray &line)
{
    const auto words = splitWords(line);
    return words && std::ranges::none_of(*words, mentionsSecret);
}

ExitStatus Shell::run()
{
    m_output.setReports(Output::Reports::Everything);
    if (commandline::isInteractive())
        runOnTerminal();
    else
        runFromPipe();
    printDifferences(m_output, m_look, m_look.lookAtNextMount());
    m_output.setReports(Output::Reports::Failures);
    return m_worst;
}

QString Shell::usableHistoryFile()
{
    const QString file = m_device.state().clientFile(QStringLiteral("history"));
    const auto refusal = handset_state::checkFile(QFile::encodeName(file).toStdString());
    if (!refusal)
        return file;
    m_output.problem(
        QStringLiteral("the lines are not kept: %1").arg(QString::fromStdString(refusal.text())));
    return {};
}

void Shell::runOnTerminal()
{
    LineEditor editor(usableHistoryFile(), [this](const UnfinishedLine &line) {
        return complete(line, m_device.ownersView());
    });
    while (const auto line = editor.readLine()) {
        if (!isSkipped(*line) && mayBeRemembered(*line))
            editor.remember(*line);
        if (!runLine(*line))
            return;
    }
    m_output.line({}); // the end of input leaves the cursor after the prompt
}

void Shell::runFromPipe()
{
    for (std::string line; std::getline(std::cin, line);)
        if (!runLine(QByteArray::fromStdString(line)))
            return;
}

bool Shell::runLine(const QByteArray &line)
{
    if (isSkipped(line))
        return true;
    ExitStatus status = ExitStatus::WrongUsage;
    if (!isText(line))
        m_output.problem(QStringLiteral("the line holds a NUL byte or is not UTF-8"));
    else if (const auto words = splitWords(line))
        status = runWords(*words);
    else
        m_output.problem(QStringLiteral("a quote is not closed"));
    m_worst = worse(m_worst, status);
    return !m_leave && !(m_failFast && status != ExitStatus::Success);
}

ExitStatus Shell::runWords(const QStringList &words)
{
    ExitStatus status = ExitStatus::Success;
    const auto invocation = commandline::interpret(shellProgram(), words, m_output, status);
    if (!invocation)
        return status;
    Context context{.device = &m_device,
                    .recording = m_recording,
                    .output = m_output,
                    .invocation = *invocation,
                    .secondLook = &m_look,
                    .inShell = true};
    status = endSessionRecording(context, runAndKeep(context));
    m_leave = context.leaveShell;
    context.recording = m_recording;
    recordLooks(context);
    return status;
}

} // namespace client::cli
