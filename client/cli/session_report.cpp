#include "session_report.h"

#include "json_value.h"

#include <QDateTime>
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

// ---- For people ----------------------------------------------------------------------------------

class ReadableReport final : public SessionReport {
public:
    explicit ReadableReport(Output &output) : m_output(output) {}

    void commandAnswered(const AnsweredCommand &command) override
    {
        const QString uri = command.uri.isEmpty() ? QString() : u' ' + command.uri;
        const Outcome outcome{command.status, command.reason};
        print(QStringLiteral("%1%2: %3").arg(command.name, uri, describe(outcome)),
              isRefusal(command.status));
    }

    void note(const QString &text) override
    {
        m_output.line(
            m_output.painter().paint(Colour::Faint, printable(QStringLiteral("Note: ") + text)));
    }

    void ended(const SessionEnd &end) override
    {
        const QString reason = end.reason.isEmpty() ? QString() : QStringLiteral(": ") + end.reason;
        print(QStringLiteral("%1%2 (%3, %4, %5 refused)")
                  .arg(QString::fromLatin1(rowOf(end.kind).words), reason,
                       counted(end.messages, "message", "messages"),
                       counted(end.commands, "command", "commands"), QString::number(end.refused)),
              end.kind != SessionEnd::Kind::Completed);
    }

private:
    void print(const QString &text, bool isProblem)
    {
        const QString harmless = printable(text);
        m_output.line(isProblem ? m_output.painter().paint(Colour::Problem, harmless) : harmless);
    }

    Output &m_output;
};

// ---- For programs --------------------------------------------------------------------------------

class JsonReport final : public SessionReport {
public:
    explicit JsonReport(Output &output) : m_output(output) {}

    void commandAnswered(const AnsweredCommand &command) override
    {
        QJsonObject object{
            {QStringLiteral("command"), command.name},
            {QStringLiteral("uri"), command.uri},
            {QStringLiteral("status"), static_cast<int>(command.status)},
            {QStringLiteral("meaning"), meaning(command.status)},
            {QStringLiteral("reason"), command.reason},
            {QStringLiteral("msgId"), command.msgId},
            {QStringLiteral("cmdId"), command.cmdId},
            {QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}};
        if (!command.format.isEmpty())
            object[u"format"] = command.format;
        if (command.value)
            addValue(object, *command.value, command.mayBeSecret && !command.value->isEmpty());
        print(object);
    }

    void note(const QString &text) override { print({{QStringLiteral("note"), text}}); }

    void ended(const SessionEnd &end) override
    {
        print({{QStringLiteral("session"), QString::fromLatin1(rowOf(end.kind).word)},
               {QStringLiteral("reason"), end.reason},
               {QStringLiteral("messages"), end.messages},
               {QStringLiteral("commands"), end.commands},
               {QStringLiteral("refused"), end.refused}});
    }

private:
    void print(const QJsonObject &object)
    {
        m_output.json(QJsonDocument(object), QJsonDocument::Compact);
    }

    Output &m_output;
};

} // namespace

std::unique_ptr<SessionReport> readableReport(Output &output)
{
    return std::make_unique<ReadableReport>(output);
}

std::unique_ptr<SessionReport> jsonReport(Output &output)
{
    return std::make_unique<JsonReport>(output);
}

} // namespace client::cli
