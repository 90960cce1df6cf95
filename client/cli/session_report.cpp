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

QString uriAfter(const QString &command, const QString &uri)
{
    return uri.isEmpty() ? command : command + u' ' + uri;
}

} // namespace

QString lineOf(const Difference &difference)
{
    return QStringLiteral("%1: %2, but %3")
        .arg(uriAfter(difference.command.name, difference.command.uri),
             describe(difference.command.status), difference.text);
}

namespace {

// ---- For people ----------------------------------------------------------------------------------

class ReadableReport final : public SessionReport {
public:
    explicit ReadableReport(Output &output) : m_output(output) {}

    void commandAnswered(const AnsweredCommand &command) override
    {
        const Outcome outcome{command.status, command.reason};
        print(QStringLiteral("%1: %2").arg(uriAfter(command.name, command.uri), describe(outcome)),
              isRefusal(command.status));
    }

    void differs(const Difference &difference) override
    {
        ++m_differences;
        print(lineOf(difference), true);
    }

    void note(const QString &text) override
    {
        m_output.line(
            m_output.painter().paint(Colour::Faint, printable(QStringLiteral("Note: ") + text)));
    }

    void ended(const SessionEnd &end) override
    {
        const QString reason = end.reason.isEmpty() ? QString() : QStringLiteral(": ") + end.reason;
        const QString differences =
            m_differences == 0 ? QString() : QStringLiteral(", %1 different").arg(m_differences);
        print(QStringLiteral("%1%2 (%3, %4, %5 refused%6)")
                  .arg(QString::fromLatin1(rowOf(end.kind).words), reason,
                       counted(end.messages, "message", "messages"),
                       counted(end.commands, "command", "commands"), QString::number(end.refused),
                       differences),
              end.kind != SessionEnd::Kind::Completed);
    }

private:
    void print(const QString &text, bool isProblem)
    {
        const QString harmless = printable(text);
        m_output.line(isProblem ? m_output.painter().paint(Colour::Problem, harmless) : harmless);
    }

    Output &m_output;
    int m_differences = 0;
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

    void differs(const Difference &difference) override
    {
        ++m_differences;
        const AnsweredCommand &command = difference.command;
        QJsonObject object{{QStringLiteral("note"), difference.text},
                           {QStringLiteral("command"), command.name},
                           {QStringLiteral("uri"), command.uri},
                           {QStringLiteral("status"), static_cast<int>(command.status)},
                           {QStringLiteral("when"), difference.isAtNextMount
                                                        ? QStringLiteral("next mount")
                                                        : QStringLiteral("now")}};
        if (!command.cmdId.isEmpty()) {
            object[u"msgId"] = command.msgId;
            object[u"cmdId"] = command.cmdId;
        }
        if (difference.reads) {
            QJsonObject reads;
            addValue(reads, *difference.reads, false);
            object[u"reads"] = reads.value(u"value");
        }
        print(object);
    }

    void note(const QString &text) override { print({{QStringLiteral("note"), text}}); }

    void ended(const SessionEnd &end) override
    {
        print({{QStringLiteral("session"), QString::fromLatin1(rowOf(end.kind).word)},
               {QStringLiteral("reason"), end.reason},
               {QStringLiteral("messages"), end.messages},
               {QStringLiteral("commands"), end.commands},
               {QStringLiteral("refused"), end.refused},
               {QStringLiteral("differences"), m_differences}});
    }

private:
    void print(const QJsonObject &object)
    {
        m_output.json(QJsonDocument(object), QJsonDocument::Compact);
    }

    Output &m_output;
    int m_differences = 0;
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
