// A DM server that says what a test has written down, in the place of a network.
#pragma once

#include "codec.h"
#include "credentials.h"
#include "transport.h"

#include <QByteArray>
#include <functional>
#include <string>
#include <vector>

namespace client {

/// Answers the client's messages one after another. A message for which nothing was written down is
/// answered with an empty body.
class ScriptedServer final : public Transport {
public:
    using Reply = std::function<TransportResult(const TransportRequest &request)>;

    explicit ScriptedServer(syncml::Encoding encoding) : m_encoding(encoding) {}

    struct Message {
        QByteArray commands; ///< XML of the commands, without Final
        bool isFinal = true;
        QByteArray header = {}; ///< XML of further elements of the header
    };
    /// The next message. It gets the session's id, and MsgIDs from 1.
    void says(const Message &message);
    void says(const QByteArray &commands) { says(Message{commands, true, {}}); }
    /// The next answer, made by hand.
    void replies(Reply reply) { m_replies.push_back(std::move(reply)); }
    /// The bytes of a message in the server's encoding.
    QByteArray encoded(const Message &message, int msgId) const;

    TransportResult exchange(const TransportRequest &request) override;

    /// What the client has sent, each checked against the order of the DTD.
    std::vector<TransportRequest> requests;
    std::vector<syncml::Message> messages;
    /// Where the answers seem to come from; empty: from where the request went.
    QUrl answersFrom;

private:
    syncml::Encoding m_encoding;
    std::vector<Reply> m_replies;
    int m_said = 0;
};

/// `<Status>` for something of the client's message: "SyncHdr", "Alert" ...
QByteArray statusFor(const char *command, int code, const QByteArray &chal = {}, int msgRef = 1);
/// `<Chal>` for a Status.
QByteArray chal(AuthType type, const QByteArray &nonce);
/// The Status that accepts the client's header.
QByteArray accepted();
/// `<Get>` of some nodes.
QByteArray get(const char *cmdId, const std::vector<QByteArray> &uris);
/// `<Replace>` of one leaf.
QByteArray replace(const char *cmdId, const QByteArray &uri, const QByteArray &data,
                   const QByteArray &itemEnd = {}, const QByteArray &meta = {});
QByteArray alert(const char *cmdId, const char *code, const std::vector<QByteArray> &items = {});

/// A message as lines: "Status 0 SyncHdr 200", "Results 3 ./A = x", "Alert 1201",
/// "Replace 5 items", and "Final" at the end.
std::vector<std::string> lines(const syncml::Message &message);

} // namespace client
