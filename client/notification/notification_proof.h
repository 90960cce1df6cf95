// Whether a notification is from the server that it names.
#pragma once

#include "accounts.h"
#include "notification_message.h"

#include <optional>

namespace client::notification {

/// By which nonce a server has proved itself.
enum class Nonce {
    Agreed,     ///< the one of the account, from the last session
    ZeroText,   ///< the ten characters "0x00000000": the two ends have lost the agreed one
    ZeroOctets, ///< four octets of zero, as which other servers read the same
};

/// The two readings of the nonce 0x00000000.
QByteArray zeroNonceAsText();
QByteArray zeroNonceAsOctets();

/// Octets of the nonce. None for an agreed one that the account does not have.
std::optional<QByteArray> nonceOctets(Nonce nonce, const Account &account);

/// The digest that the account's server has to send.
QByteArray digestOf(const QByteArray &trigger, const Account &account, const QByteArray &nonce);

/// By which nonce the notification is proved; none when it names another server than the account
/// has, when the account has no secret of its server, or when the digest is wrong.
std::optional<Nonce> proofOf(const Package0 &package, const Account &account);

} // namespace client::notification
