#include "server_verifier.h"

namespace client {

using namespace syncml;

ServerVerifier::ServerVerifier(const Credentials &credentials,
                               const std::optional<QByteArray> &firstNonce)
    : m_credentials(credentials), m_nonce(firstNonce ? firstNonce : credentials.nonce),
      m_keptNonce(credentials.nonce)
{
}

DmStatus ServerVerifier::check(const TransportResponse &response, const SyncHdr &header)
{
    m_challenge.reset();
    if (!isAsked())
        return DmStatus::Ok;
    if (m_isAcceptedForSession)
        return DmStatus::Authenticated;
    m_isProved = isProved(response, header);
    m_hasProvedAMessage = m_hasProvedAMessage || m_isProved;
    m_failures = m_isProved ? 0 : m_failures + 1;
    if (!m_isProved || m_credentials.type != AuthType::Basic) {
        m_nonce = freshNonce();
        m_challenge = makeChal(m_credentials.type, *m_nonce);
    }
    if (!m_isProved)
        return hasProof(response, header) ? DmStatus::InvalidCredentials
                                          : DmStatus::MissingCredentials;
    if (m_credentials.type == AuthType::Hmac)
        return DmStatus::Ok;
    m_isAcceptedForSession = true;
    return DmStatus::Authenticated;
}

ServerTrust ServerVerifier::trust() const
{
    if (!isAsked())
        return ServerTrust::NotAsked;
    return m_isProved ? ServerTrust::Proved : ServerTrust::Unproved;
}

bool ServerVerifier::acceptsEmpty(const TransportResponse &response) const
{
    if (!isAsked() || m_isAcceptedForSession)
        return true;
    // A message names its session, and nothing in an empty answer does.
    return m_hasProvedAMessage && isProved(response, SyncHdr());
}

void ServerVerifier::spendNonce(const TransportResponse &response, const SyncHdr &header)
{
    if (hasNonce(m_credentials.type) && isProved(response, header))
        m_keptNonce.reset();
}

void ServerVerifier::challengeGoesOut()
{
    // A nonce for somebody who proved nothing must not take the place of one that is agreed upon.
    if (m_challenge && m_isProved)
        m_keptNonce = m_nonce;
}

bool ServerVerifier::hasProof(const TransportResponse &response, const SyncHdr &header) const
{
    return m_credentials.type == AuthType::Hmac ? response.hmac.has_value()
                                                : header.cred.has_value();
}

bool ServerVerifier::isProved(const TransportResponse &response, const SyncHdr &header) const
{
    if (!hasProof(response, header))
        return false;
    const Identity &identity = m_credentials.identity;
    if (m_credentials.type == AuthType::Basic)
        return credMatches(*header.cred, AuthType::Basic, identity, QByteArray());
    if (!m_nonce)
        return false;
    if (m_credentials.type == AuthType::Md5)
        return credMatches(*header.cred, AuthType::Md5, identity, *m_nonce);
    const auto given = parseHmacHeader(*response.hmac);
    return given && given->userName == identity.name &&
           sameProof(given->mac, hmacProof(identity, *m_nonce, response.body));
}

} // namespace client
