// The client's proof to the server.
#pragma once

#include "credentials.h"
#include "expected.h"
#include "message.h"
#include "server_verifier.h"

#include <QString>
#include <optional>
#include <set>

namespace client {

/// Proves to the server who the client is, as often as the server wants it proved.
class ClientProver {
public:
    /// @param firstNonce  of the first proof, in place of the one that is kept
    explicit ClientProver(const Credentials &credentials,
                          const std::optional<QByteArray> &firstNonce = std::nullopt);

    /// Adds what proves the client to the header of the next message. Without a nonce nothing can
    /// be proved by a digest: the server will ask then, and give one.
    void prove(syncml::SyncHdr &header);
    /// The HTTP header for the message that `prove` has seen; none unless HMAC is used.
    std::optional<QByteArray> hmacHeader(const QByteArray &body) const;

    enum class Verdict {
        Accepted,   ///< or not asked for
        Challenged, ///< the first package has to be sent again
    };
    /// Reads what a message of the server says about the header of the last message.
    ///
    /// Its nonce is used for the next message. For the next session it is kept when the server has
    /// proved itself, or need not and accepts the client: nobody else may spoil a nonce that works.
    /// A server that should have proved itself, and has not, may ask for a proof and cannot refuse
    /// the session. No challenge is answered with a weaker kind of proof than the account's, or
    /// than the session has seen; and once HMAC is used, each message has to bring a nonce for the
    /// next HMAC proof, one that the session has not used.
    /// @return why there is no way to go on, if that is so
    support::Expected<Verdict, QString> read(const syncml::Message &message, ServerTrust trust);

    /// Nonce for the next session.
    const std::optional<QByteArray> &keptNonce() const { return m_keptNonce; }

private:
    support::Expected<Verdict, QString> readStatus(const syncml::Command &headerStatus,
                                                   ServerTrust trust);
    support::Expected<Verdict, QString> takeChallenge(const syncml::Command &headerStatus,
                                                      ServerTrust trust);
    /// Whether a challenge brings a nonce for the next proof of that type.
    bool isOfUse(const Challenge &next, AuthType type) const;
    void takeNonce(const QByteArray &nonce, bool keep);
    support::Expected<void, QString> mayProveBy(AuthType type) const;
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

} // namespace client
