// The two proofs of a session: the client's to the server, and the server's to the client.
#pragma once

#include "accounts.h"
#include "authentication.h"
#include "dm_status.h"
#include "message.h"
#include "transport.h"

#include <QString>
#include <optional>
#include <set>

namespace client {

/// What is known of the server when its message is read.
enum class ServerTrust {
    Unproved, ///< it should have proved who it is, and has not
    NotAsked, ///< the account does not ask for a proof
    Proved,
};

/// Proves to the server who the client is, as often as the server wants it proved.
class ClientProver {
public:
    explicit ClientProver(const Credentials &credentials);

    /// Adds what proves the client to the header of the next message. Without a nonce nothing can
    /// be proved by a digest: the server will ask then, and give one.
    void prove(syncml::SyncHdr &header);
    /// The HTTP header for the message that `prove` has seen; none unless HMAC is used.
    std::optional<QByteArray> hmacHeader(const QByteArray &body) const;

    enum class Verdict {
        Accepted,   ///< or not asked for
        Challenged, ///< the first package has to be sent again
        Refused,    ///< there is no way to go on
    };
    /// Reads what a message of the server says about the header of the last message.
    ///
    /// Its nonce is used for the next message. For the next session it is kept when the server has
    /// proved itself, or need not and accepts the client: nobody else may spoil a nonce that works.
    /// A server that should have proved itself, and has not, may ask for a proof and cannot refuse
    /// the session. No challenge is answered with a weaker kind of proof than the account's, or
    /// than the session has seen; and once HMAC is used, each message has to bring a nonce for the
    /// next HMAC proof, one that the session has not used.
    /// @param reason  receives why there is no way to go on
    Verdict read(const syncml::Message &message, ServerTrust trust, QString &reason);

    /// Nonce for the next session.
    const std::optional<QByteArray> &keptNonce() const { return m_keptNonce; }

private:
    Verdict readStatus(const syncml::Command &headerStatus, ServerTrust trust, QString &reason);
    Verdict takeChallenge(const syncml::Command &headerStatus, ServerTrust trust, QString &reason);
    /// Whether a challenge brings a nonce for the next proof of that type.
    bool isOfUse(const Challenge &next, AuthType type) const;
    void takeNonce(const QByteArray &nonce, bool keep);
    bool mayProveBy(AuthType type, QString &reason) const;
    bool hasProvedByHmac() const { return m_hasProved && m_type == AuthType::Hmac; }

    const Identity m_identity;
    AuthType m_type; ///< that of the account, or a stronger one that the server asked for
    std::optional<QByteArray> m_nonce;
    std::optional<QByteArray> m_keptNonce;
    std::set<QByteArray> m_hmacNonces; ///< that this session has used
    bool m_isAcceptedForSession = false;
    bool m_hasProved = false;   ///< in the last message
    bool m_hasNewNonce = false; ///< since then
    int m_failures = 0;         ///< proofs refused since the last one that was accepted
};

/// Has the server prove who it is.
class ServerVerifier {
public:
    explicit ServerVerifier(const Credentials &credentials);

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
    const std::optional<syncml::Chal> &challenge() const { return m_challenge; }
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
    std::optional<syncml::Chal> m_challenge;
    bool m_isAcceptedForSession = false;
    bool m_isProved = false; ///< by the last message
    bool m_hasProvedAMessage = false;
    int m_failures = 0;
};

} // namespace client
