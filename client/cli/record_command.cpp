// dmclient record: the records of sessions that are kept.

#include "commands.h"
#include "parser.h"
#include "record_text.h"
#include "recording.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

namespace client::cli {

using commandline::printable;

namespace {

// ---- list ----------------------------------------------------------------------------------------

QJsonObject summaryOf(const QString &name, RecordReader &reader)
{
    const QJsonObject &run = reader.run();
    const QJsonObject last = reader.lastEvent();
    QJsonObject summary{{QStringLiteral("name"), name},
                        {QStringLiteral("time"), run[u"time"]},
                        {QStringLiteral("run"), run[u"run"]},
                        {QStringLiteral("arguments"), run[u"arguments"]},
                        {QStringLiteral("bytes"), reader.bytes()}};
    if (last[u"event"] == QStringLiteral("end"))
        for (const char *const field :
             {"kind", "reason", "messages", "commands", "refused", "status"})
            if (last.contains(QLatin1String(field)))
                summary[QLatin1String(field)] = last[QLatin1String(field)];
    return summary;
}

QString summaryLine(const QJsonObject &summary)
{
    QStringList words;
    for (const QJsonValue &word : summary[u"arguments"].toArray())
        words += word.toString();
    const auto time = QDateTime::fromString(summary[u"time"].toString(), Qt::ISODateWithMs);
    const QString end = !summary.contains(u"status")
                            ? QStringLiteral("did not come to its end")
                            : QStringLiteral("%1 (%2 messages, %3 commands, %4 refused)")
                                  .arg(summary[u"kind"].toString(QStringLiteral("ended")))
                                  .arg(summary[u"messages"].toInt())
                                  .arg(summary[u"commands"].toInt())
                                  .arg(summary[u"refused"].toInt());
    return printable(QStringLiteral("%1  %2  %3: %4, %5")
                         .arg(summary[u"name"].toString().section(u'.', 0, 0),
                              time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")),
                              words.join(u' '), end,
                              QLocale::c().formattedDataSize(summary[u"bytes"].toInteger())));
}

ExitStatus listRecords(Context &context)
{
    const KeptRecords records = keptRecords(*context.device);
    ExitStatus worst = ExitStatus::Success;
    QJsonArray summaries;
    const auto names = records.names();
    if (!names)
        return problem(context, names.error(), ExitStatus::Unusable);
    for (const QString &name : *names) {
        auto reader = RecordReader::openInState(records.path(name));
        if (reader)
            summaries += summaryOf(name, *reader);
        else
            worst = worse(worst, problem(context, reader.error(), ExitStatus::Unusable));
    }
    if (context.invocation.has("json"))
        context.output.json(QJsonDocument(summaries), QJsonDocument::Indented);
    else
        for (const QJsonValue &summary : summaries)
            context.output.line(summaryLine(summary.toObject()));
    return worst;
}

// ---- show ----------------------------------------------------------------------------------------

ExitStatus showRecord(Context &context)
{
    const KeptRecords records = keptRecords(*context.device);
    const auto name = context.invocation.arguments.size() > 1
                          ? support::Expected<QString, QString>(context.invocation.arguments[1])
                          : records.newest();
    if (!name)
        return problem(context, name.error(), ExitStatus::Unusable);
    auto reader = records.open(*name);
    if (!reader)
        return problem(context, reader.error(), ExitStatus::Unusable);
    const bool asJson = context.invocation.has("json");
    for (;;) {
        const auto event = reader->next();
        if (!event)
            return problem(context, event.error(), ExitStatus::Unusable);
        if (!*event)
            return ExitStatus::Success;
        if (asJson)
            context.output.json(reader->line());
        else
            for (const QString &line : eventLines(**event))
                context.output.line(printable(line));
    }
}

// ---- remove --------------------------------------------------------------------------------------

ExitStatus removeRecords(Context &context)
{
    const KeptRecords records = keptRecords(*context.device);
    const bool all = context.invocation.has("all");
    support::Expected<QStringList, QString> names = context.invocation.arguments.mid(1);
    if (all != names->isEmpty())
        return wrongUsage(context, QStringLiteral("remove wants names, or --all"));
    if (all)
        names = records.names();
    if (!names)
        return problem(context, names.error(), ExitStatus::Unusable);
    ExitStatus worst = ExitStatus::Success;
    for (const QString &name : *names)
        if (const auto removed = records.remove(name); !removed)
            worst = worse(worst, problem(context, removed.error(), ExitStatus::Failed));
    return worst;
}

struct RecordAction {
    const char *name;
    int maxArguments; ///< the action's name included
    ExitStatus (*run)(Context &);
    bool prints;
};

constexpr RecordAction recordActions[] = {{"list", 1, listRecords, true},
                                          {"show", 2, showRecord, true},
                                          {"remove", commandline::anyNumber, removeRecords, false}};

} // namespace

QStringList recordWords()
{
    QStringList words;
    for (const RecordAction &row : recordActions)
        words += QString::fromLatin1(row.name);
    return words;
}

ExitStatus runRecord(Context &context)
{
    const Invocation &invocation = context.invocation;
    for (const RecordAction &row : recordActions) {
        if (invocation.arguments[0] != QLatin1String(row.name))
            continue;
        const bool hasTooMany = row.maxArguments != commandline::anyNumber &&
                                invocation.arguments.size() > row.maxArguments;
        const bool hasWrongOption =
            (invocation.has("json") && !row.prints) || (invocation.has("all") && row.prints);
        if (!hasTooMany && !hasWrongOption)
            return row.run(context);
    }
    return context.output.problem(
        commandline::wrongArguments(*invocation.command,
                                    QStringLiteral("these arguments do not go together")),
        ExitStatus::WrongUsage);
}

} // namespace client::cli
