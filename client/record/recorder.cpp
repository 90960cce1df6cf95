#include "recorder.h"

#include "message_scan.h"
#include "record_fields.h"
#include "secret_leaf.h"
#include "text_or_base64.h"
#include "tnds_reader.h"
#include "tnds_secrets.h"
#include "user_interaction.h"

#include <QDateTime>
#include <QJsonArray>
#include <QRandomGenerator>
#include <algorithm>
#include <cstring>
#include <utility>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Item;
using syncml::Message;

namespace {

constexpr int formatNumber = 1;

/// A word of a command line, without the password of an address.
QString withoutUserInfo(const QString &word)
{
    const QUrl url(word);
    return url.userInfo().isEmpty() ? word : url.toString(QUrl::RemoveUserInfo);
}

} // namespace

QString freshRunId()
{
    constexpr int digits = 16;
    return QStringLiteral("%1").arg(QRandomGenerator::system()->generate64(), digits, 16,
                                    QChar(u'0'));
}

/// The words of a command line. What is masked in them is known as a secret from now on.
QJsonArray Recorder::shownArguments(const QStringList &arguments)
{
    const QString mask = QString::fromLatin1(secretMask);
    QJsonArray words;
    bool followsSecret = false;
    for (const QString &word : arguments) {
        const bool isSecret = mentionsSecret(word);
        const qsizetype equals = word.indexOf(u'=');
        const bool isValue = followsSecret && !word.startsWith(QStringLiteral("--"));
        const qsizetype shownSize = isSecret && equals >= 0 ? equals + 1
                                    : isValue               ? 0
                                                            : word.size();
        const QString hidden = word.sliced(shownSize);
        m_secrecy.known.add(hidden.toUtf8());
        words += hidden.isEmpty() ? withoutUserInfo(word) : word.first(shownSize) + mask;
        // The value of a leaf stands after its address.
        followsSecret = followsSecret || (isSecret && equals < 0);
    }
    return words;
}

Recorder::Recorder(const RunDescription &run, std::vector<EventWriter::Sink> sinks)
    : m_writer(std::move(sinks))
{
    m_secrecy.showsSecrets = run.showsSecrets;
    m_writer.write(
        0, "run",
        {{QStringLiteral("format"), formatNumber},
         {QStringLiteral("run"), run.id},
         {QStringLiteral("time"), run.begin.toString(Qt::ISODateWithMs)},
         {QStringLiteral("program"), QStringLiteral("dmclient")},
         {QStringLiteral("version"), QStringLiteral(KUB_VERSION)},
         {QStringLiteral("qt"), QString::fromLatin1(qVersion())},
         {QStringLiteral("plugin"), run.plugin},
         {QStringLiteral("backend"), run.backend},
         {QStringLiteral("state"), run.stateDirectory},
         {QStringLiteral("arguments"), run.showsSecrets ? QJsonArray::fromStringList(run.arguments)
                                                        : shownArguments(run.arguments)},
         {QStringLiteral("showsSecrets"), run.showsSecrets}});
}

void Recorder::end(const SessionEnd *session, int exitStatus)
{
    static constexpr std::pair<SessionEnd::Kind, const char *> kinds[] = {
        {SessionEnd::Kind::Completed, "completed"},
        {SessionEnd::Kind::AbortedByServer, "aborted-by-server"},
        {SessionEnd::Kind::AbortedHere, "aborted"},
        {SessionEnd::Kind::Failed, "failed"},
    };
    QJsonObject fields{{QStringLiteral("kind"), QJsonValue::Null},
                       {QStringLiteral("messages"), session ? session->messages : m_messages},
                       {QStringLiteral("commands"), session ? session->commands : m_answered},
                       {QStringLiteral("refused"), session ? session->refused : m_refused},
                       {QStringLiteral("differences"), m_differences},
                       {QStringLiteral("status"), exitStatus}};
    if (session) {
        const auto *const row =
            std::ranges::find(kinds, session->kind, [](const auto &entry) { return entry.first; });
        fields[u"kind"] = QString::fromLatin1(row->second);
        if (!session->reason.isEmpty())
            fields[u"reason"] = shown(session->reason);
    }
    m_writer.write("end", fields);
}

// ---- What may be shown ---------------------------------------------------------------------------

QString Recorder::shown(const QString &text) const
{
    return m_secrecy.showsSecrets ? text : m_secrecy.known.masked(text);
}

QJsonValue Recorder::reasonOf(const QString &reason) const
{
    return reason.isEmpty() ? QJsonValue() : QJsonValue(shown(reason));
}

QString Recorder::shownUrl(const QUrl &url) const
{
    return shown(url.toString(QUrl::FullyEncoded | QUrl::RemoveUserInfo));
}

QJsonArray Recorder::shownHeaders(const HttpHeaders &headers) const
{
    static constexpr const char *credentials[] = {"authorization", "proxy-authorization", "cookie",
                                                  "set-cookie", "x-syncml-hmac"};
    QJsonArray array;
    for (const auto &header : headers) {
        const bool isCredential = std::ranges::any_of(credentials, [&header](const char *secret) {
            return header.first.compare(secret, Qt::CaseInsensitive) == 0;
        });
        const bool isMasked = isCredential && !m_secrecy.showsSecrets;
        array += QJsonArray{QString::fromLatin1(header.first),
                            isMasked ? QString::fromLatin1(secretMask)
                                     : shown(QString::fromUtf8(header.second))};
    }
    return array;
}

void Recorder::addValue(QJsonObject &fields, const QByteArray &value, bool mayBeSecret) const
{
    const bool isMasked = mayBeSecret && !value.isEmpty() && !m_secrecy.showsSecrets;
    addText(fields, QStringLiteral("value"), isMasked ? QByteArray(secretMask) : value);
}

void Recorder::addOwner(QJsonObject &fields) const
{
    if (m_mount)
        fields[u"mount"] = m_mount->number;
    else if (!m_running.empty())
        fields[u"command"] = m_running.back();
}

// ---- Mounts, and what happens beneath ------------------------------------------------------------

void Recorder::mountBegins(const QByteArray &root)
{
    QJsonObject fields{{QStringLiteral("mount"), ++m_mounts},
                       {QStringLiteral("root"), QString::fromUtf8(root)}};
    if (!m_running.empty())
        fields[u"command"] = m_running.back();
    m_writer.write("mount", fields);
    m_mount = Mount{m_mounts, m_writer.now()};
}

void Recorder::mountEnded(int nodes, const QString &fault)
{
    m_writer.write("mounted", {{QStringLiteral("mount"), m_mount->number},
                               {QStringLiteral("us"), m_writer.now() - m_mount->began},
                               {QStringLiteral("nodes"), nodes},
                               {QStringLiteral("messages"), m_mount->messages},
                               {QStringLiteral("fault"), reasonOf(fault)}});
    m_mount.reset();
}

namespace {

/// "(file.cpp:123)" at the beginning of a message, and the rest of it.
std::pair<QString, QString> splitPlace(const QString &message)
{
    const qsizetype end = message.indexOf(u')');
    if (!message.startsWith(u'(') || end < 0 || !message.first(end).contains(u':'))
        return {QString(), message};
    return {message.sliced(1, end - 1), message.sliced(end + 1).trimmed()};
}

} // namespace

void Recorder::pluginMessage(std::string_view message)
{
    m_pluginLine += message;
    if (!m_pluginLine.ends_with('\n'))
        return;
    m_pluginLine.pop_back();
    const auto line = QString::fromStdString(std::exchange(m_pluginLine, std::string()));
    if (m_mount)
        ++m_mount->messages;
    m_writer.write("plugin-message", shownPluginLine(line));
}

void Recorder::pluginTrace(std::string_view trace)
{
    constexpr int traceLevel = 8;
    if (trace.ends_with('\n'))
        trace.remove_suffix(1);
    QJsonObject fields =
        shownPluginLine(QString::fromUtf8(trace.data(), static_cast<qsizetype>(trace.size())));
    fields[u"level"] = traceLevel;
    m_writer.write("plugin-message", fields);
}

QJsonObject Recorder::shownPluginLine(const QString &line) const
{
    const auto [place, text] = splitPlace(line);
    QJsonObject fields{{QStringLiteral("text"), shown(text)}};
    if (!place.isEmpty())
        fields[u"place"] = place;
    addOwner(fields);
    return fields;
}

namespace {

using profile_record::FieldKind;
using profile_record::RecordField;

QString fieldText(const RecordField &field, const NAP_PROFILE_S *record, bool showsSecrets)
{
    if (!record)
        return QString();
    const std::string text = profile_record::textOf(field, *record);
    if (field.kind == FieldKind::Secret && !showsSecrets)
        return text.empty() ? QString() : QString::fromLatin1(secretMask);
    return QString::fromStdString(text);
}

/// The fields in which two records differ; a record that is not there has none of the other's.
QJsonArray changesBetween(const NAP_PROFILE_S &before, const NAP_PROFILE_S &after,
                          bool showsSecrets)
{
    QJsonArray changes;
    for (const RecordField &field : profile_record::recordFields) {
        if (bytesOf(field, before) == bytesOf(field, after))
            continue;
        changes += QJsonObject{
            {QStringLiteral("field"),
             QString::fromLatin1(field.name.data(), static_cast<qsizetype>(field.name.size()))},
            {QStringLiteral("offset"), static_cast<int>(field.offset)},
            {QStringLiteral("size"), static_cast<int>(field.size)},
            {QStringLiteral("before"), fieldText(field, &before, showsSecrets)},
            {QStringLiteral("after"), fieldText(field, &after, showsSecrets)}};
    }
    return changes;
}

QString recordText(const NAP_PROFILE_S &record, bool showsSecrets)
{
    NAP_PROFILE_S shown = record;
    if (!showsSecrets)
        profile_record::overwriteSecrets(shown);
    return base64(QByteArrayView(reinterpret_cast<const char *>(&shown), sizeof shown));
}

QString textFrom(std::string_view bytes)
{
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

} // namespace

void Recorder::learnSecretsOf(const NAP_PROFILE_S &record)
{
    for (const RecordField &field : profile_record::recordFields)
        if (field.kind == FieldKind::Secret)
            m_secrecy.known.add(QByteArray::fromStdString(profile_record::textOf(field, record)));
}

void Recorder::profileCall(const call_observer::ProfileCall &call)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(call.duration);
    QJsonObject fields{{QStringLiteral("call"), ++m_calls},
                       {QStringLiteral("function"), QString::fromLatin1(call.function)},
                       {QStringLiteral("result"), call.status},
                       {QStringLiteral("us"), static_cast<qint64>(us.count())}};
    addOwner(fields);
    for (const NAP_PROFILE_S *const record : {call.before, call.after})
        if (record)
            learnSecretsOf(*record);
    if (!call.profile.empty())
        fields[u"profile"] = textFrom(call.profile);
    if (call.id)
        fields[u"id"] = static_cast<qint64>(*call.id);
    if (call.count)
        fields[u"count"] = static_cast<qint64>(*call.count);
    fields[u"reason"] = reasonOf(textFrom(call.reason));
    if (call.before)
        fields[u"before"] = recordText(*call.before, m_secrecy.showsSecrets);
    if (call.after)
        fields[u"after"] = recordText(*call.after, m_secrecy.showsSecrets);
    if (call.before && call.after)
        fields[u"changes"] = changesBetween(*call.before, *call.after, m_secrecy.showsSecrets);
    m_writer.write("profile-call", fields);
}

void Recorder::settingCall(const call_observer::SettingCall &call)
{
    QJsonObject fields{{QStringLiteral("call"), ++m_calls},
                       {QStringLiteral("function"), QString::fromLatin1(call.function)},
                       {QStringLiteral("file"), call.file.section(u'/', -1)},
                       {QStringLiteral("result"), call.result}};
    addOwner(fields);
    const std::pair<const char *, const QString *> texts[] = {{"group", &call.group},
                                                              {"key", &call.key},
                                                              {"before", &call.before},
                                                              {"after", &call.after},
                                                              {"reason", &call.reason}};
    for (const auto &[name, text] : texts)
        if (!text->isNull())
            fields[QLatin1String(name)] = shown(*text);
    m_writer.write("setting-call", fields);
}

void Recorder::storedSeen(const QString &uri, const StoredNode &stored)
{
    QJsonObject fields{{QStringLiteral("uri"), shown(uri)},
                       {QStringLiteral("reason"), reasonOf(stored.fault)}};
    if (stored.profile) {
        learnSecretsOf(stored.profile->record);
        fields[u"profile"] = QString::fromUtf8(stored.profile->name);
        fields[u"id"] = static_cast<qint64>(stored.profile->id);
        fields[u"record"] = recordText(stored.profile->record, m_secrecy.showsSecrets);
    }
    QJsonArray files;
    for (const StoredMapping &mapping : stored.mappings) {
        QJsonArray entries;
        for (const StoredMapping::Entry &entry : mapping.entries)
            entries += QJsonObject{{QStringLiteral("group"), entry.group},
                                   {QStringLiteral("key"), shown(entry.key)},
                                   {QStringLiteral("value"), shown(entry.value)}};
        files += QJsonObject{{QStringLiteral("file"), mapping.file},
                             {QStringLiteral("entries"), entries},
                             {QStringLiteral("reason"), reasonOf(mapping.fault)}};
    }
    fields[u"files"] = files;
    m_writer.write("stored", fields);
}

// ---- The way to the server -----------------------------------------------------------------------

void Recorder::requestSent(const HttpRequest &request)
{
    m_writer.write("request", {{QStringLiteral("exchange"), m_exchanges},
                               {QStringLiteral("attempt"), ++m_attempt},
                               {QStringLiteral("message"), m_messages},
                               {QStringLiteral("method"), QString::fromLatin1(request.method)},
                               {QStringLiteral("url"), shownUrl(request.url)},
                               {QStringLiteral("headers"), shownHeaders(request.headers)},
                               {QStringLiteral("size"), request.size}});
    m_requestSentAt = m_writer.now();
}

namespace {

QJsonObject tlsToJson(const TlsConnection &tls)
{
    QJsonObject object;
    const std::pair<const char *, QString> texts[] = {
        {"version", tls.version},
        {"cipher", tls.cipher},
        {"subject", tls.subject},
        {"issuer", tls.issuer},
        {"sha256", QString::fromLatin1(tls.sha256)},
        {"until", tls.until.toUTC().toString(Qt::ISODate)}};
    for (const auto &[name, text] : texts)
        if (!text.isEmpty())
            object[QLatin1String(name)] = text;
    return object;
}

} // namespace

void Recorder::requestAnswered(const HttpAnswer &answer)
{
    QJsonObject fields{{QStringLiteral("exchange"), m_exchanges},
                       {QStringLiteral("attempt"), m_attempt},
                       {QStringLiteral("us"), m_writer.now() - m_requestSentAt},
                       {QStringLiteral("headers"), shownHeaders(answer.headers)},
                       {QStringLiteral("size"), answer.size},
                       {QStringLiteral("failure"), reasonOf(answer.failure)}};
    if (answer.status != 0)
        fields[u"status"] = answer.status;
    if (answer.tls)
        fields[u"tls"] = tlsToJson(*answer.tls);
    m_writer.write("response", fields);
}

void Recorder::waits(std::chrono::milliseconds time, const QString &reason)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(time);
    m_writer.write("wait", {{QStringLiteral("exchange"), m_exchanges},
                            {QStringLiteral("us"), static_cast<qint64>(us.count())},
                            {QStringLiteral("reason"), shown(reason)}});
}

// ---- Messages ------------------------------------------------------------------------------------

void Recorder::messageSent(const TransportRequest &request, const Message &message)
{
    ++m_exchanges;
    m_attempt = 0;
    QJsonObject fields{{QStringLiteral("exchange"), m_exchanges}};
    if (request.hmac)
        fields[u"hmac"] = true;
    writeMessage("sent", request.body, &message, {}, fields);
}

void Recorder::messageReceived(const TransportResponse &response,
                               const syncml::DecodeResult *decoded)
{
    QJsonObject fields{{QStringLiteral("exchange"), m_exchanges}};
    if (response.hmac)
        fields[u"hmac"] = true;
    const Message *const message = decoded && *decoded ? &**decoded : nullptr;
    writeMessage("received", response.body, message,
                 decoded && !*decoded ? decoded->error().toString() : QString(), fields);
}

void Recorder::packageReceived(const QByteArray &bytes, const syncml::DecodeResult &decoded)
{
    writeMessage("received", bytes, decoded ? &*decoded : nullptr,
                 decoded ? QString() : decoded.error().toString(), {});
}

void Recorder::packageSent(const QByteArray &bytes, const Message &message)
{
    writeMessage("sent", bytes, &message, {}, {});
}

void Recorder::writeMessage(const char *direction, const QByteArray &bytes, const Message *message,
                            const QString &fault, QJsonObject fields)
{
    if (message) {
        rememberSecretQuestions(message->header.msgId, message->commands);
        learnSecretsOf(message->commands);
    }
    const auto encoding = syncml::recogniseEncoding(bytes);
    const QString encodingName = encoding == syncml::Encoding::Xml     ? QStringLiteral("xml")
                                 : encoding == syncml::Encoding::Wbxml ? QStringLiteral("wbxml")
                                                                       : QString();
    fields[u"message"] = ++m_messages;
    fields[u"direction"] = QString::fromLatin1(direction);
    fields[u"encoding"] = encoding ? QJsonValue(encodingName) : QJsonValue();
    fields[u"size"] = bytes.size();
    if (message)
        fields[u"msgId"] = message->header.msgId;
    fields[u"decoded"] = message ? QJsonValue(messageToJson(*message, m_secrecy)) : QJsonValue();
    fields[u"fault"] = reasonOf(fault);
    addBytes(fields, bytes, message);
    if (std::strcmp(direction, "received") == 0)
        m_receivedMessage = m_messages;
    m_writer.write("message", fields);
}

void Recorder::addBytes(QJsonObject &fields, const QByteArray &bytes, const Message *message)
{
    std::optional<QByteArray> shown = bytes;
    const auto encoding = syncml::recogniseEncoding(bytes);
    if (message) {
        shown = shownBytes(bytes, *message, m_secrecy);
    } else if (!m_secrecy.showsSecrets) {
        if (encoding)
            overwrite(*shown, possiblySecretSpans(bytes, *encoding));
        shown = m_secrecy.known.masked(*shown);
    }
    fields[u"bytes"] = shown ? QJsonValue(base64(*shown)) : QJsonValue();
}

void Recorder::learnSecretsOf(const Command &command, const Item &item)
{
    const QByteArray data = item.data.value_or(QByteArray());
    const Secrecy kind = secrecyOf(command, item, m_secrecy);
    if (kind == Secrecy::Whole)
        m_secrecy.known.add(data);
    if (kind == Secrecy::None)
        return;
    for (const ByteSpan &value : secretValues(data).value_or(ByteSpans()))
        m_secrecy.known.add(data.sliced(value.begin, value.end - value.begin));
    if (const auto nodes = readTnds(data))
        for (const QByteArray &secret : secretsOf(*nodes))
            m_secrecy.known.add(secret);
}

void Recorder::learnSecretsOf(const std::vector<Command> &commands)
{
    for (const Command &command : commands) {
        for (const Item &item : command.items)
            learnSecretsOf(command, item);
        learnSecretsOf(command.commands);
    }
}

void Recorder::rememberSecretQuestions(const QString &msgId, const std::vector<Command> &commands)
{
    for (const Command &command : commands) {
        if (asksForSecret(command))
            m_secrecy.secretQuestions.emplace(msgId, command.cmdId.value_or(QString()));
        rememberSecretQuestions(msgId, command.commands);
    }
}

// ---- Commands ------------------------------------------------------------------------------------

namespace {

/// What the item says, or the command for all items.
std::optional<QString> metaOf(const Command &command, const Item &item,
                              std::optional<QString> syncml::Meta::*member)
{
    for (const auto &meta : {item.meta, command.meta})
        if (meta && (*meta).*member)
            return (*meta).*member;
    return std::nullopt;
}

} // namespace

void Recorder::itemBegins(const Command &command, const Item &item)
{
    const bool isWhole = command.items.empty() || command.kind == CommandKind::Alert ||
                         command.kind == CommandKind::Atomic;
    OpenItem open{&command, isWhole ? nullptr : &item, ++m_commands};
    open.cmdId = command.cmdId.value_or(QString());
    open.uri = addressOf(item);
    if (item.source && item.target)
        open.fields[u"source"] = item.source->locUri;
    if (const auto format = metaOf(command, item, &syncml::Meta::format))
        open.fields[u"format"] = *format;
    if (const auto type = metaOf(command, item, &syncml::Meta::type))
        open.fields[u"type"] = *type;
    if (item.data)
        addText(open.fields, QStringLiteral("value"), shownData(command, item, m_secrecy));
    if (!isWhole)
        open.fields[u"item"] = static_cast<int>(&item - command.items.data());
    open.began = m_writer.now();
    m_running.push_back(open.number);
    m_open.push_back(std::move(open));
}

void Recorder::itemEnded(const Command &command, const Item &item)
{
    // An Atomic tells once more of the items that it takes back.
    if (m_running.empty())
        return;
    const auto open = std::ranges::find(m_open, m_running.back(), &OpenItem::number);
    if (open == m_open.end() || open->command != &command || (open->item && open->item != &item))
        return;
    open->us = m_writer.now() - open->began;
    m_running.pop_back();
}

/// What is known of the item that was answered. One that was never run begins and ends now.
Recorder::OpenItem Recorder::takeItem(const AnsweredCommand &command)
{
    const auto open = std::ranges::find_if(m_open, [&](const OpenItem &item) {
        return item.cmdId == command.cmdId && item.uri == command.uri;
    });
    if (open != m_open.end()) {
        OpenItem item = std::move(*open);
        m_open.erase(open);
        return item;
    }
    OpenItem item;
    item.number = ++m_commands;
    item.cmdId = command.cmdId;
    item.uri = command.uri;
    item.began = m_writer.now();
    return item;
}

void Recorder::commandAnswered(const AnsweredCommand &command)
{
    OpenItem item = takeItem(command);
    item.fields[u"message"] = m_receivedMessage;
    item.fields[u"cmdId"] = item.cmdId;
    item.fields[u"name"] = command.name;
    if (!command.uri.isEmpty())
        item.fields[u"target"] = command.uri;
    if (!command.format.isEmpty())
        item.fields[u"format"] = command.format;
    // What answers a Get, or belongs to an item that was not run.
    if (command.value && !item.fields.contains(u"value"))
        addValue(item.fields, *command.value, command.mayBeSecret);
    writeOutcome(std::move(item), command.status, command.reason);
}

void Recorder::writeOutcome(OpenItem item, DmStatus status, const QString &reason)
{
    item.fields[u"command"] = item.number;
    item.fields[u"status"] = static_cast<int>(status);
    item.fields[u"meaning"] = meaning(status);
    item.fields[u"reason"] = reasonOf(reason);
    item.fields[u"began"] = item.began;
    item.fields[u"us"] = item.us;
    ++m_answered;
    m_refused += isRefusal(status);
    m_writer.write("command", item.fields);
}

void Recorder::typedCommandBegins()
{
    m_typedBegan = m_writer.now();
    m_running = {++m_commands};
}

void Recorder::typedCommandEnded(const TypedCommand &command)
{
    if (m_running.empty())
        typedCommandBegins();
    OpenItem item;
    item.number = m_running.back();
    item.began = m_typedBegan;
    item.us = m_writer.now() - m_typedBegan;
    item.fields[u"name"] = command.name;
    item.fields[u"target"] = command.target;
    if (!command.source.isEmpty())
        item.fields[u"source"] = command.source;
    if (!command.format.isEmpty())
        item.fields[u"format"] = command.format;
    if (command.value)
        addValue(item.fields, *command.value, isSecretUri(command.target));
    writeOutcome(std::move(item), command.outcome.status, command.outcome.reason);
    m_running.clear();
}

// ---- The second look -----------------------------------------------------------------------------

QJsonObject Recorder::shownNode(const SeenNode &node) const
{
    QJsonObject fields;
    if (node.value && node.format != formatName(DmtData::Node))
        addValue(fields, *node.value, isSecretLeaf(node.uri.name()));
    fields[u"uri"] = QString::fromLatin1(node.uri.toUri());
    fields[u"format"] = node.format;
    if (node.status != DmStatus::Ok)
        fields[u"status"] = static_cast<int>(node.status);
    return fields;
}

void Recorder::writeTree(QJsonObject fields, const TreeDifference &difference)
{
    QJsonArray appeared;
    QJsonArray changed;
    QJsonArray went;
    for (const SeenNode &node : difference.appeared)
        appeared += shownNode(node);
    for (const ChangedNode &node : difference.changed)
        changed += shownNode(node.after);
    for (const NodeUri &uri : difference.went)
        went += QString::fromLatin1(uri.toUri());
    for (const auto &[name, nodes] :
         {std::pair("appeared", appeared), std::pair("changed", changed), std::pair("went", went)})
        if (!nodes.isEmpty())
            fields[QLatin1String(name)] = nodes;
    m_writer.write("tree", fields);
}

void Recorder::treeSeen(const Picture &tree)
{
    // Without a mount the tree is what the first command has found.
    writeTree({{m_mounts > 0 ? QStringLiteral("mount") : QStringLiteral("command"),
                std::max(m_mounts, 1)}},
              difference({}, tree));
}

void Recorder::commandSeen(int command, const TreeDifference &difference)
{
    if (command > 0) // of this record
        writeTree({{QStringLiteral("command"), command}}, difference);
}

void Recorder::nextMountSeen(const TreeDifference &difference)
{
    writeTree({{QStringLiteral("next"), true}}, difference);
}

void Recorder::differenceNoted(int command, const DifferenceNote &note)
{
    if (command == 0) // of an earlier line of a shell
        return;
    ++m_differences;
    QJsonObject fields{{QStringLiteral("command"), command},
                       {QStringLiteral("note"), shown(note.text)},
                       {QStringLiteral("when"),
                        note.isAtNextMount ? QStringLiteral("next mount") : QStringLiteral("now")}};
    if (note.reads)
        fields[u"reads"] = shown(QString::fromUtf8(*note.reads));
    m_writer.write("read-back", fields);
}

void Recorder::note(const QString &text)
{
    m_writer.write("note", {{QStringLiteral("text"), shown(text)}});
}

} // namespace client
