// The server's proof to the client.
#pragma once

#include "credentials.h"
#include "dm_status.h"
#include "message.h"
#include "transport.h"

#include <optional>

namespace client {

/// What is known of the server when its message is read.
enum class ServerTrust {
    Unproved, ///< it should have proved who it is, and has not
    NotAsked, ///< the account does not ask for a proof
    Proved,
};

/// Has the server prove who it is.
class ServerVerifier {
public:
    /// @param firstNonce  of the first proof, in place of the one that is kept
    explicit ServerVerifier(const Credentials &credentials,
                            const std::optional<QByteArray> &firstNonce = std::nullopt);

    /// Whether the account wants the server to prove itself at all.
    bool isAsked() const { return m_credentials.type != AuthType::None; }
    /// Checks one message.
    /// @return 200 accepted (or nothing is asked of the server), 212 accepted for the whole
    /// session,
    ///         401 the proof is wrong, 407 there is none
    DmStatus check(const TransportResponse &response, const syncml::SyncHdr &header);
    /// What the last check has shown.
    ServerTrust trust() const;
    /// Whether an answer without a message may end the session: not as long as the server has yet
    /// to prove itself, which by HMAC it has to do with each answer. As the first answer of a
    /// session it may not: its proof could be that of another session's end.
    bool acceptsEmpty(const TransportResponse &response) const;
    /// Has to be called with each answer, also with one that is not taken: when it holds a proof,
    /// no nonce is kept until a challenge goes out again. Whoever has heard the proof could repeat
    /// it in the next session, by MD5 with commands of their own.
    void spendNonce(const TransportResponse &response, const syncml::SyncHdr &header);
    /// What goes into the Status of that message's header, so that the server can prove itself the
    /// next time; none when nothing has to be proved.
    const support::Boxed<syncml::Chal> &challenge() const { return m_challenge; }
    /// Has to be called before that Status is sent: from then on the server may know the next
    /// nonce.
    void challengeGoesOut();

    /// Messages in a row that were not accepted.
    int failures() const { return m_failures; }
    const std::optional<QByteArray> &keptNonce() const { return m_keptNonce; }

private:
    bool hasProof(const TransportResponse &response, const syncml::SyncHdr &header) const;
    bool isProved(const TransportResponse &response, const syncml::SyncHdr &header) const;

    const Credentials m_credentials;
    std::optional<QByteArray> m_nonce; ///< of the next proof
    std::optional<QByteArray> m_keptNonce;
    support::Boxed<syncml::Chal> m_challenge;
    bool m_isAcceptedForSession = false;
    bool m_isProved = false; ///< by the last message
    bool m_hasProvedAMessage = false;
    int m_failures = 0;
};

} // namespace client
