#include "session_report.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace client::cli {

using commandline::Colour;
using commandline::printable;

namespace {

struct EndRow {
    SessionEnd::Kind kind;
    const char *words;
    const char *word;
};

constexpr EndRow endRows[] = {
    {SessionEnd::Kind::Completed, "Session completed", "completed"},
    {SessionEnd::Kind::AbortedByServer, "Session aborted", "aborted-by-server"},
    {SessionEnd::Kind::AbortedHere, "Session aborted", "aborted"},
    {SessionEnd::Kind::Failed, "Session failed", "failed"},
};

const EndRow &rowOf(SessionEnd::Kind kind)
{
    for (const EndRow &row : endRows)
        if (row.kind == kind)
            return row;
    Q_UNREACHABLE();
}

QString counted(int number, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(number).arg(QString::fromLatin1(number == 1 ? one : many));
}

} // namespace

// ---- For people ----------------------------------------------------------------------------------

void ReadableSessionReport::commandAnswered(const AnsweredCommand &command)
{
    const QString about = command.uri.isEmpty() ? command.name : command.name + u' ' + command.uri;
    const Outcome outcome{command.status, command.reason};
    const QString text = printable(QStringLiteral("%1: %2").arg(about, describe(outcome)));
    m_output.line(isRefusal(command.status) ? m_output.painter().paint(Colour::Problem, text)
                                            : text);
}

void ReadableSessionReport::note(const QString &text)
{
    m_output.line(
        m_output.painter().paint(Colour::Faint, printable(QStringLiteral("Note: ") + text)));
}

void ReadableSessionReport::ended(const SessionEnd &end)
{
    QString text = QString::fromLatin1(rowOf(end.kind).words);
    if (!end.reason.isEmpty())
        text += QStringLiteral(": ") + end.reason;
    text += QStringLiteral(" (%1, %2, %3 refused)")
                .arg(counted(end.messages, "message", "messages"),
                     counted(end.commands, "command", "commands"))
                .arg(end.refused);
    const bool isGood = end.kind == SessionEnd::Kind::Completed;
    const QString harmless = printable(text);
    m_output.line(isGood ? harmless : m_output.painter().paint(Colour::Problem, harmless));
}

// ---- For programs --------------------------------------------------------------------------------

namespace {

void printObject(Output &output, const QJsonObject &object)
{
    output.json(QJsonDocument(object), QJsonDocument::Compact);
}

} // namespace

void JsonSessionReport::commandAnswered(const AnsweredCommand &command)
{
    printObject(m_output, {{QStringLiteral("command"), command.name},
                           {QStringLiteral("uri"), command.uri},
                           {QStringLiteral("status"), static_cast<int>(command.status)},
                           {QStringLiteral("meaning"), meaning(command.status)},
                           {QStringLiteral("reason"), command.reason}});
}

void JsonSessionReport::note(const QString &text)
{
    printObject(m_output, {{QStringLiteral("note"), text}});
}

void JsonSessionReport::ended(const SessionEnd &end)
{
    printObject(m_output, {{QStringLiteral("session"), QString::fromLatin1(rowOf(end.kind).word)},
                           {QStringLiteral("reason"), end.reason},
                           {QStringLiteral("messages"), end.messages},
                           {QStringLiteral("commands"), end.commands},
                           {QStringLiteral("refused"), end.refused}});
}

} // namespace client::cli
