#include "client_prover.h"

namespace client {

using namespace syncml;
using support::Expected;
using support::Unexpected;

ClientProver::ClientProver(const Credentials &credentials,
                           const std::optional<QByteArray> &firstNonce)
    : m_identity(credentials.identity), m_type(credentials.type),
      m_nonce(firstNonce ? firstNonce : credentials.nonce), m_keptNonce(credentials.nonce)
{
}

void ClientProver::prove(SyncHdr &header)
{
    if (hasNonce(m_type))
        header.source.locName = QString::fromUtf8(m_identity.name);
    m_hasProved =
        !m_isAcceptedForSession && m_type != AuthType::None && (!hasNonce(m_type) || m_nonce);
    if (m_hasProved && m_type != AuthType::Hmac)
        header.cred = makeCred(m_type, m_identity, m_nonce.value_or(QByteArray()));
    if (hasProvedByHmac())
        m_hmacNonces.insert(*m_nonce);
}

std::optional<QByteArray> ClientProver::hmacHeader(const QByteArray &body) const
{
    if (!hasProvedByHmac())
        return std::nullopt;
    return formatHmacHeader({m_identity.name, hmacProof(m_identity, *m_nonce, body)});
}

namespace {

/// A nonce is kept for the next session, so it has to be one that can be read again.
Expected<void, QString> checkNonce(const Command &headerStatus)
{
    const auto challenge = headerStatus.chal ? readChal(*headerStatus.chal) : std::nullopt;
    const qsizetype size = challenge && challenge->nonce ? challenge->nonce->size() : 0;
    if (size > largestNonce)
        return Unexpected(QStringLiteral("the server's nonce has %1 bytes, which is more than %2")
                              .arg(size)
                              .arg(largestNonce));
    return {};
}

} // namespace

Expected<ClientProver::Verdict, QString> ClientProver::read(const syncml::Message &message,
                                                            ServerTrust trust)
{
    const bool hadHmac = hasProvedByHmac();
    m_hasNewNonce = false;
    Verdict verdict = Verdict::Accepted;
    for (const Command &command : message.commands) {
        if (command.kind != CommandKind::Status || command.cmd != u"SyncHdr")
            continue;
        const auto one = readStatus(command, trust);
        if (!one)
            return one;
        if (*one == Verdict::Challenged)
            verdict = *one;
    }
    if (hadHmac && !m_hasNewNonce)
        return Unexpected(QStringLiteral("the server gives no nonce for the next HMAC proof"));
    return verdict;
}

Expected<ClientProver::Verdict, QString> ClientProver::readStatus(const Command &headerStatus,
                                                                  ServerTrust trust)
{
    if (const auto nonce = checkNonce(headerStatus); !nonce)
        return Unexpected(nonce.error());
    const QByteArray text = headerStatus.data.value_or(QByteArray());
    const auto status = parseStatus(text);
    if (!status)
        return Unexpected(
            QStringLiteral("the server's status of the header, \"%1\", is not a status")
                .arg(QString::fromUtf8(text.left(80))));
    if (isChallenge(*status))
        return takeChallenge(headerStatus, trust);
    const bool isUnproved = trust == ServerTrust::Unproved;
    if (isRefusal(*status)) {
        if (isUnproved)
            return Verdict::Accepted;
        return Unexpected(
            QStringLiteral("the server refuses the session with %1").arg(describe(*status)));
    }
    if (status == DmStatus::Authenticated && hasProvedByHmac())
        return Unexpected(
            QStringLiteral("the server takes one HMAC proof for the whole session (212), which "
                           "would leave the next messages without"));
    if (!isUnproved)
        m_failures = 0;
    if (status == DmStatus::Authenticated)
        m_isAcceptedForSession = true;
    if (headerStatus.chal)
        if (const auto next = readChal(*headerStatus.chal); next && isOfUse(*next, m_type))
            takeNonce(*next->nonce, !isUnproved);
    return Verdict::Accepted;
}

Expected<ClientProver::Verdict, QString> ClientProver::takeChallenge(const Command &headerStatus,
                                                                     ServerTrust trust)
{
    // One for a stale nonce, one for the fresh one of the challenge.
    constexpr int mostFailures = 2;

    m_isAcceptedForSession = false;
    if (m_hasProved)
        ++m_failures;
    if (!headerStatus.chal)
        return Unexpected(
            QStringLiteral("the server refuses the client and does not say what it asks for"));
    const auto challenge = readChal(*headerStatus.chal);
    if (!challenge)
        return Unexpected(QStringLiteral("the server asks for credentials of the unknown type %1")
                              .arg(headerStatus.chal->meta.type.value_or(QString())));
    if (const auto may = mayProveBy(challenge->type); !may)
        return Unexpected(may.error());
    // The same name and password would be refused again.
    const bool isRepetition = m_hasProved && m_type == AuthType::Basic && challenge->type == m_type;
    if (isRepetition || m_failures >= mostFailures)
        return Unexpected(QStringLiteral("the server does not accept the client's credentials"));
    if (challenge->type == AuthType::Hmac && !isOfUse(*challenge, AuthType::Hmac))
        return Unexpected(QStringLiteral("the server asks for an HMAC proof without a new nonce"));
    m_type = challenge->type;
    takeNonce(challenge->nonce.value_or(m_nonce.value_or(QByteArray())),
              trust == ServerTrust::Proved);
    return Verdict::Challenged;
}

bool ClientProver::isOfUse(const Challenge &next, AuthType type) const
{
    const bool hasText = next.type == type && next.nonce && !next.nonce->isEmpty();
    return hasText && (type != AuthType::Hmac || !m_hmacNonces.contains(*next.nonce));
}

void ClientProver::takeNonce(const QByteArray &nonce, bool keep)
{
    m_nonce = nonce;
    m_hasNewNonce = true;
    // A server that wants MD5 without a nonce gets it; the account keeps one that is worth more.
    if (keep && !nonce.isEmpty())
        m_keptNonce = nonce;
}

Expected<void, QString> ClientProver::mayProveBy(AuthType type) const
{
    if (m_type == AuthType::None)
        return Unexpected(
            QStringLiteral("the server asks for credentials (%1) and there are none to give")
                .arg(wireName(type)));
    // Whoever stands between the two could ask for the password itself in the server's name.
    if (type == AuthType::Basic && m_type != AuthType::Basic)
        return Unexpected(
            QStringLiteral("the server asks for the password itself (%1), which the account "
                           "gives away as a digest only")
                .arg(wireName(type)));
    if (type < m_type)
        return Unexpected(
            QStringLiteral("the server asks for a weaker proof (%1) than it should get (%2)")
                .arg(wireName(type), wireName(m_type)));
    return {};
}

} // namespace client
