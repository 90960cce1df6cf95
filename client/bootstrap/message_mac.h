// The proof of a bootstrap message: that whoever sent it knows the user's PIN, the network's
// identity of the subscriber, or both.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>

namespace client::bootstrap {

/// Which rules a message follows: each has its own names, and its own form of the keys.
enum class Profile { ClientProvisioning, DeviceManagement };

/// What the key of a MAC is made of.
enum class MacKind { Network, Pin, PinAndNetwork };

constexpr bool needsPin(MacKind kind)
{
    return kind != MacKind::Network;
}
constexpr bool needsImsi(MacKind kind)
{
    return kind != MacKind::Pin;
}

/// How often a person may try a PIN before the message is discarded.
inline constexpr int mostPinTries = 3;

/// The kind that the parameter SEC names, by number or by word. The error is a sentence that says
/// why there is none: an unknown one, or USERPINMAC.
support::Expected<MacKind, QString> macKindOf(const QByteArray &security, Profile profile);
/// "USERPIN" and the like.
QString nameOf(MacKind kind, Profile profile);

/// 1 to 32 digits.
bool isPin(const QByteArray &pin);
/// 6 to 15 digits.
bool isImsi(const QByteArray &imsi);

struct MacSecrets {
    QByteArray pin;  ///< digits; unused where the kind needs none
    QByteArray imsi; ///< the same
};

/// Whether it is the message's MAC.
/// @param body  as it was received
/// @param mac   40 hexadecimal digits in any case; anything else is wrong
bool isRightMac(MacKind kind, Profile profile, const MacSecrets &secrets, const QByteArray &body,
                const QByteArray &mac);

} // namespace client::bootstrap
