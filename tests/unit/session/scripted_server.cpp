#include "scripted_server.h"

#include "dtd_check.h"

#include <gtest/gtest.h>

namespace client {

using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;

// ---- The server ----------------------------------------------------------------------------------

void ScriptedServer::says(const Message &message)
{
    const int msgId = ++m_said;
    replies([this, message, msgId](const TransportRequest &request) {
        TransportResponse response;
        response.body = encoded(message, msgId);
        response.url = answersFrom.isEmpty() ? request.url : answersFrom;
        return response;
    });
}

QByteArray ScriptedServer::encoded(const Message &message, int msgId) const
{
    const QByteArray xml =
        "<SyncML xmlns='SYNCML:SYNCML1.2'><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
        "<SessionID>5</SessionID><MsgID>" +
        QByteArray::number(msgId) +
        "</MsgID><Target><LocURI>urn:test:1</LocURI></Target>"
        "<Source><LocURI>http://dm.example/</LocURI></Source>" +
        message.header + "</SyncHdr><SyncBody>" + message.commands +
        (message.isFinal ? "<Final/>" : "") + "</SyncBody></SyncML>";
    if (m_encoding == Encoding::Xml)
        return xml;
    const syncml::DecodeResult decoded = syncml::decode(xml);
    if (!decoded) {
        ADD_FAILURE() << decoded.error().toString().toStdString();
        return {};
    }
    const syncml::EncodeResult result = syncml::encode(*decoded, m_encoding);
    if (!result)
        ADD_FAILURE() << result.error().text.toStdString();
    return *result;
}

TransportResult ScriptedServer::exchange(const TransportRequest &request)
{
    const syncml::DecodeResult decoded = syncml::decode(request.body);
    if (!decoded) {
        ADD_FAILURE() << decoded.error().toString().toStdString();
        return support::Unexpected(TransportError{QStringLiteral("bad message")});
    }
    const auto &message = *decoded;
    // WBXML carries the same structs; their order is checked on the XML that they make.
    const syncml::EncodeResult asXml = syncml::encode(message, Encoding::Xml);
    const QByteArray xml = request.body.startsWith('<') ? request.body
                           : asXml                      ? *asXml
                                                        : QByteArray();
    if (!xml.isEmpty()) {
        EXPECT_EQ(dtd_check::firstFault(xml), "");
    }
    requests.push_back(request);
    messages.push_back(message);
    if (requests.size() <= m_replies.size())
        return m_replies[requests.size() - 1](request);
    return TransportResponse{{}, {}, {}, request.url};
}

// ---- XML -----------------------------------------------------------------------------------------

QByteArray statusFor(const char *command, int code, const QByteArray &chal, int msgRef)
{
    return "<Status><CmdID>1</CmdID><MsgRef>" + QByteArray::number(msgRef) +
           "</MsgRef><CmdRef>0</CmdRef><Cmd>" + command + "</Cmd>" + chal + "<Data>" +
           QByteArray::number(code) + "</Data></Status>";
}

QByteArray chal(AuthType type, const QByteArray &nonce)
{
    const QByteArray nextNonce =
        type == AuthType::Basic ? QByteArray() : "<NextNonce>" + nonce.toBase64() + "</NextNonce>";
    return "<Chal><Meta><Format>b64</Format><Type>" + wireName(type).toLatin1() + "</Type>" +
           nextNonce + "</Meta></Chal>";
}

QByteArray accepted()
{
    return statusFor("SyncHdr", 212);
}

QByteArray get(const char *cmdId, const std::vector<QByteArray> &uris)
{
    QByteArray xml = "<Get><CmdID>" + QByteArray(cmdId) + "</CmdID>";
    for (const QByteArray &uri : uris)
        xml += "<Item><Target><LocURI>" + uri + "</LocURI></Target></Item>";
    return xml + "</Get>";
}

QByteArray replace(const char *cmdId, const QByteArray &uri, const QByteArray &data,
                   const QByteArray &itemEnd, const QByteArray &meta)
{
    return "<Replace><CmdID>" + QByteArray(cmdId) + "</CmdID><Item><Target><LocURI>" + uri +
           "</LocURI></Target>" + meta + "<Data>" + data + "</Data>" + itemEnd +
           "</Item></Replace>";
}

QByteArray alert(const char *cmdId, const char *code, const std::vector<QByteArray> &items)
{
    QByteArray xml = "<Alert><CmdID>" + QByteArray(cmdId) + "</CmdID><Data>" + code + "</Data>";
    for (const QByteArray &item : items)
        xml += "<Item><Data>" + item + "</Data></Item>";
    return xml + "</Alert>";
}

// ---- Lines ---------------------------------------------------------------------------------------

namespace {

std::string text(const std::optional<QString> &optional)
{
    return optional.value_or(QString()).toStdString();
}

std::string text(const std::optional<QByteArray> &optional)
{
    return optional.value_or(QByteArray()).toStdString();
}

std::string itemLine(const syncml::Item &item)
{
    const auto &location = item.source ? item.source : item.target;
    std::string line = location ? location->locUri.toStdString() : "";
    if (item.meta && item.meta->size)
        line += " of " + text(item.meta->size);
    return line + " = " + text(item.data) + (item.moreData ? " ..." : "");
}

} // namespace

std::vector<std::string> lines(const syncml::Message &message)
{
    std::vector<std::string> all;
    for (const Command &command : message.commands) {
        switch (command.kind) {
        case CommandKind::Status: {
            std::string line = "Status " + text(command.cmdRef) + ' ' + text(command.cmd) + ' ' +
                               text(command.data);
            for (const syncml::Item &item : command.items)
                line += " [" + text(item.data) + ']';
            all.push_back(line);
            break;
        }
        case CommandKind::Results:
            for (const syncml::Item &item : command.items)
                all.push_back("Results " + text(command.cmdRef) + ' ' + itemLine(item));
            break;
        case CommandKind::Alert:
            all.push_back("Alert " + text(command.data));
            for (const syncml::Item &item : command.items)
                all.back() += " " + itemLine(item);
            break;
        default:
            all.push_back(syncml::commandName(command).toStdString() + ' ' +
                          std::to_string(command.items.size()) + " items");
        }
    }
    if (message.final)
        all.push_back("Final");
    return all;
}

} // namespace client
