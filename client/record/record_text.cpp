#include "record_text.h"

#include <QJsonArray>
#include <algorithm>
#include <iterator>

namespace client {

namespace {

QString text(const QJsonObject &event, const char *field)
{
    return event[QLatin1String(field)].toVariant().toString();
}

/// "12.345 ms"
QString duration(const QJsonObject &event)
{
    constexpr int decimals = 3;
    return QStringLiteral("%1 ms").arg(event[u"us"].toDouble() / 1000, 0, 'f', decimals);
}

QString afterColon(const QString &reason)
{
    return reason.isEmpty() ? QString() : QStringLiteral(": ") + reason;
}

QString shownOrNothing(const QJsonObject &object, const char *field)
{
    const QJsonValue value = object[QLatin1String(field)];
    return value.isString() ? QStringLiteral("\"%1\"").arg(value.toString())
                            : QStringLiteral("nothing");
}

// ---- Events --------------------------------------------------------------------------------------

QStringList run(const QJsonObject &event)
{
    QStringList words;
    for (const QJsonValue &word : event[u"arguments"].toArray())
        words += word.toString();
    return {QStringLiteral("%1 %2 at %3: %4")
                .arg(text(event, "program"), text(event, "version"), text(event, "time"),
                     words.join(u' ')),
            QStringLiteral("    plug-in %1, profiles in %2, state in %3, Qt %4")
                .arg(text(event, "plugin"), text(event, "backend"), text(event, "state"),
                     text(event, "qt"))};
}

QStringList mount(const QJsonObject &event)
{
    return {QStringLiteral("mount %1: %2").arg(text(event, "mount"), text(event, "root"))};
}

QStringList mounted(const QJsonObject &event)
{
    const QString fault = text(event, "fault");
    if (!fault.isEmpty())
        return {QStringLiteral("mount %1 failed: %2").arg(text(event, "mount"), fault)};
    return {QStringLiteral("mount %1 done: %2 nodes, %3 messages of the plug-in, %4")
                .arg(text(event, "mount"), text(event, "nodes"), text(event, "messages"),
                     duration(event))};
}

QStringList request(const QJsonObject &event)
{
    QStringList lines{QStringLiteral("%1 %2: %3 bytes, attempt %4 of exchange %5")
                          .arg(text(event, "method"), text(event, "url"), text(event, "size"),
                               text(event, "attempt"), text(event, "exchange"))};
    for (const QJsonValue &header : event[u"headers"].toArray())
        lines += QStringLiteral("    %1: %2").arg(header[0].toString(), header[1].toString());
    return lines;
}

QStringList response(const QJsonObject &event)
{
    const QString status =
        event.contains(u"status")
            ? QStringLiteral("HTTP %1, %2 bytes").arg(text(event, "status"), text(event, "size"))
            : QStringLiteral("no answer");
    QStringList lines{QStringLiteral("%1 after %2%3")
                          .arg(status, duration(event), afterColon(text(event, "failure")))};
    for (const QJsonValue &header : event[u"headers"].toArray())
        lines += QStringLiteral("    %1: %2").arg(header[0].toString(), header[1].toString());
    const QJsonObject tls = event[u"tls"].toObject();
    if (!tls.isEmpty())
        lines += QStringLiteral("    %1, %2, certificate of %3 by %4 until %5")
                     .arg(text(tls, "version"), text(tls, "cipher"), text(tls, "subject"),
                          text(tls, "issuer"), text(tls, "until"));
    return lines;
}

QStringList wait(const QJsonObject &event)
{
    return {QStringLiteral("wait %1 before the next attempt%2")
                .arg(duration(event), afterColon(text(event, "reason")))};
}

QStringList message(const QJsonObject &event)
{
    const bool isSent = event[u"direction"] == QStringLiteral("sent");
    const QString encoding = event[u"encoding"].toString().toUpper();
    const qsizetype commands = event[u"decoded"][u"commands"].toArray().size();
    return {QStringLiteral("%1 message %2%3: %4 bytes%5, %6 elements in its body%7")
                .arg(isSent ? QStringLiteral("==>") : QStringLiteral("<=="), text(event, "message"),
                     event.contains(u"msgId")
                         ? QStringLiteral(" (MsgID %1)").arg(text(event, "msgId"))
                         : QString(),
                     text(event, "size"),
                     encoding.isEmpty() ? QString() : QStringLiteral(" of ") + encoding,
                     QString::number(commands), afterColon(text(event, "fault")))};
}

QStringList command(const QJsonObject &event)
{
    QString line = QStringLiteral("%1. %2 %3")
                       .arg(text(event, "command"), text(event, "name"), text(event, "target"));
    if (event.contains(u"source"))
        line += QStringLiteral(" (%1)").arg(text(event, "source"));
    if (event.contains(u"value"))
        line += QStringLiteral(" = %1").arg(shownOrNothing(event, "value"));
    return {QStringLiteral("%1: %2 %3%4, %5")
                .arg(line, text(event, "status"), text(event, "meaning"),
                     afterColon(text(event, "reason")), duration(event))};
}

QStringList profileCall(const QJsonObject &event)
{
    QStringList lines{QStringLiteral("    %1 %2: %3%4")
                          .arg(text(event, "function"), text(event, "profile"),
                               text(event, "result"), afterColon(text(event, "reason")))};
    for (const QJsonValue &value : event[u"changes"].toArray()) {
        const QJsonObject change = value.toObject();
        lines += QStringLiteral("        %1 (byte %2, size %3): %4 becomes %5")
                     .arg(text(change, "field"), text(change, "offset"), text(change, "size"),
                          shownOrNothing(change, "before"), shownOrNothing(change, "after"));
    }
    return lines;
}

QStringList settingCall(const QJsonObject &event)
{
    QString line = QStringLiteral("    %1 %2").arg(text(event, "function"), text(event, "file"));
    if (event.contains(u"key"))
        line += QStringLiteral(" [%1] %2").arg(text(event, "group"), text(event, "key"));
    if (event.contains(u"before") || event[u"function"] == QStringLiteral("setSettingInfo"))
        line += QStringLiteral(": %1 becomes %2")
                    .arg(shownOrNothing(event, "before"), shownOrNothing(event, "after"));
    else if (event[u"function"] == QStringLiteral("getSettingInfo"))
        line += QStringLiteral(": %1").arg(shownOrNothing(event, "after"));
    return {line + afterColon(text(event, "reason"))};
}

QStringList pluginMessage(const QJsonObject &event)
{
    const bool isTrace = event.contains(u"level");
    return {
        (isTrace ? QStringLiteral("    trace: %1 (%2)") : QStringLiteral("    plug-in: %1 (%2)"))
            .arg(text(event, "text"), text(event, "place"))};
}

QStringList tree(const QJsonObject &event)
{
    QStringList lines{event.contains(u"next") ? QStringLiteral("the next mount will change")
                                              : QStringLiteral("    the tree changes")};
    struct Row {
        const char *list;
        char16_t sign;
    };
    static constexpr Row rows[] = {{"appeared", u'+'}, {"changed", u'~'}, {"went", u'-'}};
    for (const Row &row : rows) {
        for (const QJsonValue &node : event[QLatin1String(row.list)].toArray()) {
            const QJsonObject object = node.toObject();
            const QString uri = node.isString() ? node.toString() : text(object, "uri");
            lines += QStringLiteral("        %1 %2%3")
                         .arg(QChar(row.sign))
                         .arg(uri, object.contains(u"value")
                                       ? QStringLiteral(" = ") + shownOrNothing(object, "value")
                                       : QString());
        }
    }
    return lines;
}

QStringList readBack(const QJsonObject &event)
{
    return {QStringLiteral("    command %1, %2: %3")
                .arg(text(event, "command"), text(event, "when"), text(event, "note"))};
}

QStringList note(const QJsonObject &event)
{
    return {QStringLiteral("note: ") + text(event, "text")};
}

QStringList end(const QJsonObject &event)
{
    return {QStringLiteral("end: %1%2, %3 messages, %4 commands, %5 refused, exit status %6")
                .arg(event[u"kind"].toString(QStringLiteral("no session")),
                     afterColon(text(event, "reason")), text(event, "messages"),
                     text(event, "commands"), text(event, "refused"), text(event, "status"))};
}

struct EventRow {
    const char *name;
    QStringList (*lines)(const QJsonObject &event);
};

constexpr EventRow eventRows[] = {
    {"run", run},
    {"mount", mount},
    {"mounted", mounted},
    {"request", request},
    {"response", response},
    {"wait", wait},
    {"message", message},
    {"command", command},
    {"profile-call", profileCall},
    {"setting-call", settingCall},
    {"plugin-message", pluginMessage},
    {"tree", tree},
    {"read-back", readBack},
    {"note", note},
    {"end", end},
};

} // namespace

QStringList eventLines(const QJsonObject &event)
{
    const QString name = event[u"event"].toString();
    const auto *const row = std::ranges::find_if(eventRows, [&name](const EventRow &candidate) {
        return name == QLatin1String(candidate.name);
    });
    if (row == std::end(eventRows))
        return {};
    QStringList lines = row->lines(event);
    constexpr int width = 11;
    constexpr int decimals = 6;
    lines.first().prepend(
        QStringLiteral("%1 ").arg(event[u"t"].toDouble() / 1e6, width, 'f', decimals));
    for (qsizetype i = 1; i < lines.size(); ++i)
        lines[i].prepend(QString(width + 1, u' '));
    return lines;
}

} // namespace client
