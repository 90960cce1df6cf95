#include "notification_proof.h"

namespace client::notification {

QByteArray zeroNonceAsText()
{
    return "0x00000000";
}

QByteArray zeroNonceAsOctets()
{
    return QByteArray(4, '\0');
}

std::optional<QByteArray> nonceOctets(Nonce nonce, const Account &account)
{
    switch (nonce) {
    case Nonce::ZeroText:
        return zeroNonceAsText();
    case Nonce::ZeroOctets:
        return zeroNonceAsOctets();
    case Nonce::Agreed:
        break;
    }
    return account.toClient.nonce;
}

QByteArray digestOf(const QByteArray &trigger, const Account &account, const QByteArray &nonce)
{
    // It is the proof of a message by HMAC, but with the server's identifier for its user name, and
    // not in base64.
    const Identity server{account.serverId, account.toClient.identity.secret};
    return QByteArray::fromBase64(hmacProof(server, nonce, trigger));
}

std::optional<Nonce> proofOf(const Package0 &package, const Account &account)
{
    if (package.serverId != account.serverId || account.toClient.identity.secret.isEmpty())
        return std::nullopt;
    for (const Nonce nonce : {Nonce::Agreed, Nonce::ZeroText, Nonce::ZeroOctets}) {
        const auto octets = nonceOctets(nonce, account);
        if (octets && sameProof(digestOf(package.trigger, account, *octets), package.digest))
            return nonce;
    }
    return std::nullopt;
}

} // namespace client::notification
