// How the two ends of a DM session prove who they are: credentials, challenges and nonces.
//
// The digests are MD5, because the protocol has no other: they keep a password off the wire, and
// nothing more. TLS protects a session; these authenticate its ends to each other.
#pragma once

#include "message.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace client {

/// From the weakest to the strongest.
enum class AuthType { None, Basic, Md5, Hmac };

/// Whether a proof of that type depends on a nonce.
constexpr bool hasNonce(AuthType type)
{
    return type == AuthType::Md5 || type == AuthType::Hmac;
}

/// The type's name in Meta Type of credentials and challenges: "syncml:auth-md5"; empty for None.
QString wireName(AuthType type);
/// The type of that name, compared without regard to case; nothing for an unknown name.
std::optional<AuthType> authTypeOfWireName(const QString &name);

/// The type's name in a DM account's AAuthType: "BASIC", "DIGEST" or "HMAC"; empty for None.
QString accountName(AuthType type);
std::optional<AuthType> authTypeOfAccountName(const QString &name);

/// The type's name for people: "none", "basic", "md5" or "hmac".
QString authWord(AuthType type);
/// The names of all types.
QStringList authWords();
std::optional<AuthType> authTypeOfWord(const QString &word);

/// Name and secret of one side.
struct Identity {
    QByteArray name;   ///< UTF-8
    QByteArray secret; ///< UTF-8

    bool operator==(const Identity &) const = default;
};

/// What one side of an account proves itself with.
struct Credentials {
    AuthType type = AuthType::None;
    Identity identity;
    /// Octets for the next proof, kept across sessions; none as long as the two ends never agreed
    /// on one.
    std::optional<QByteArray> nonce;

    bool operator==(const Credentials &) const = default;
};

// ---- The three proofs ---------------------------------------------------------------------------

/// base64(name:secret)
QByteArray basicProof(const Identity &identity);
/// base64(MD5(base64(MD5(name:secret)):nonce)). The nonce is the octets themselves, not their
/// base64.
QByteArray md5Proof(const Identity &identity, const QByteArray &nonce);
/// base64(MD5(base64(MD5(name:secret)):nonce:base64(MD5(body)))). The body is the message as it is
/// transferred.
QByteArray hmacProof(const Identity &identity, const QByteArray &nonce, const QByteArray &body);

/// Compares two proofs in a time that does not depend on where they differ.
bool sameProof(const QByteArray &one, const QByteArray &other);

/// Largest nonce that is taken from a server or a person, and kept, in octets.
constexpr qsizetype largestNonce = 256;

/// 16 random octets.
QByteArray freshNonce();

// ---- In messages ---------------------------------------------------------------------------------

/// Cred for a header. Must not be called for None, nor for Hmac, which has none.
syncml::Cred makeCred(AuthType type, const Identity &identity, const QByteArray &nonce);

/// True when a header's Cred holds a proof of that type. White space in the base64 is ignored.
bool credMatches(const syncml::Cred &cred, AuthType type, const Identity &identity,
                 const QByteArray &nonce);

/// What a challenge asks for.
struct Challenge {
    AuthType type = AuthType::None;
    std::optional<QByteArray> nonce; ///< its octets; none when the challenge has no nonce

    bool operator==(const Challenge &) const = default;
};

/// @param nonce  octets; goes out as base64. Basic has none.
syncml::Chal makeChal(AuthType type, const QByteArray &nonce);

/// Reads a challenge. A NextNonce is base64, also where Format does not say so; one that is not
/// base64 is taken as its octets.
/// @return none for a type that this client does not know
std::optional<Challenge> readChal(const syncml::Chal &chal);

// ---- HTTP header of HMAC -------------------------------------------------------------------------

/// Name of the HTTP header that carries an HMAC proof.
inline constexpr char hmacHeaderName[] = "x-syncml-hmac";

struct HmacHeader {
    QByteArray userName;
    QByteArray mac; ///< base64

    bool operator==(const HmacHeader &) const = default;
};

/// `algorithm=MD5, username="Robert Jordan", mac=...`
QByteArray formatHmacHeader(const HmacHeader &header);

/// Reads the header's value: parameters in any order, values quoted or bare.
/// @return none when it is malformed, lacks the name or the mac, or has an algorithm but MD5
std::optional<HmacHeader> parseHmacHeader(const QByteArray &value);

} // namespace client
