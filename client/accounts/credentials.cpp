#include "credentials.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace client {

// ---- Names ---------------------------------------------------------------------------------------

namespace {

/// The names of a type; null where it has none.
struct AuthTypeRow {
    AuthType type;
    const char *wireName;
    const char *accountName;
    const char *word;
};

constexpr AuthTypeRow authTypes[] = {
    {AuthType::None, nullptr, nullptr, "none"},
    {AuthType::Basic, "syncml:auth-basic", "BASIC", "basic"},
    {AuthType::Md5, "syncml:auth-md5", "DIGEST", "md5"},
    {AuthType::Hmac, "syncml:auth-MAC", "HMAC", "hmac"},
};

QString nameIn(const char *AuthTypeRow::*column, AuthType type)
{
    return QString::fromLatin1(std::ranges::find(authTypes, type, &AuthTypeRow::type)->*column);
}

std::optional<AuthType> typeNamed(const char *AuthTypeRow::*column, const QString &name)
{
    for (const AuthTypeRow &row : authTypes)
        if (row.*column && name.compare(QLatin1String(row.*column), Qt::CaseInsensitive) == 0)
            return row.type;
    return std::nullopt;
}

constexpr char base64Format[] = "b64";

} // namespace

QString wireName(AuthType type)
{
    return nameIn(&AuthTypeRow::wireName, type);
}

std::optional<AuthType> authTypeOfWireName(const QString &name)
{
    return typeNamed(&AuthTypeRow::wireName, name);
}

QString accountName(AuthType type)
{
    return nameIn(&AuthTypeRow::accountName, type);
}

std::optional<AuthType> authTypeOfAccountName(const QString &name)
{
    return typeNamed(&AuthTypeRow::accountName, name);
}

QString authWord(AuthType type)
{
    return nameIn(&AuthTypeRow::word, type);
}

QStringList authWords()
{
    QStringList words;
    for (const AuthTypeRow &row : authTypes)
        words += QString::fromLatin1(row.word);
    return words;
}

std::optional<AuthType> authTypeOfWord(const QString &word)
{
    return typeNamed(&AuthTypeRow::word, word);
}

// ---- The three proofs ----------------------------------------------------------------------------

namespace {

QByteArray digest(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toBase64();
}

QByteArray nameAndSecret(const Identity &identity)
{
    return identity.name + ':' + identity.secret;
}

} // namespace

QByteArray basicProof(const Identity &identity)
{
    return nameAndSecret(identity).toBase64();
}

QByteArray md5Proof(const Identity &identity, const QByteArray &nonce)
{
    return digest(digest(nameAndSecret(identity)) + ':' + nonce);
}

QByteArray hmacProof(const Identity &identity, const QByteArray &nonce, const QByteArray &body)
{
    return md5Proof(identity, nonce + ':' + digest(body));
}

bool sameProof(const QByteArray &one, const QByteArray &other)
{
    if (one.size() != other.size())
        return false;
    unsigned difference = 0;
    for (qsizetype i = 0; i < one.size(); ++i)
        difference |= static_cast<unsigned char>(one[i]) ^ static_cast<unsigned char>(other[i]);
    return difference == 0;
}

QByteArray freshNonce()
{
    std::array<quint32, 4> words;
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return QByteArray(reinterpret_cast<const char *>(words.data()), sizeof(words));
}

// ---- In messages ---------------------------------------------------------------------------------

namespace {

QByteArray proof(AuthType type, const Identity &identity, const QByteArray &nonce)
{
    return type == AuthType::Basic ? basicProof(identity) : md5Proof(identity, nonce);
}

QByteArray withoutWhiteSpace(QByteArray text)
{
    text.removeIf([](char character) {
        return character == ' ' || character == '\t' || character == '\r' || character == '\n';
    });
    return text;
}

} // namespace

syncml::Cred makeCred(AuthType type, const Identity &identity, const QByteArray &nonce)
{
    syncml::Cred cred;
    cred.meta.emplace();
    cred.meta->format = QString::fromLatin1(base64Format);
    cred.meta->type = wireName(type);
    cred.data = proof(type, identity, nonce);
    return cred;
}

bool credMatches(const syncml::Cred &cred, AuthType type, const Identity &identity,
                 const QByteArray &nonce)
{
    if (type != AuthType::Basic && type != AuthType::Md5)
        return false;
    const QString given = cred.meta ? cred.meta->type.value_or(QString()) : QString();
    return authTypeOfWireName(given) == type &&
           sameProof(withoutWhiteSpace(cred.data), proof(type, identity, nonce));
}

syncml::Chal makeChal(AuthType type, const QByteArray &nonce)
{
    syncml::Chal chal;
    chal.meta.type = wireName(type);
    chal.meta.format = QString::fromLatin1(base64Format);
    if (type != AuthType::Basic)
        chal.meta.nextNonce = nonce.toBase64();
    return chal;
}

std::optional<Challenge> readChal(const syncml::Chal &chal)
{
    const auto type = authTypeOfWireName(chal.meta.type.value_or(QString()));
    if (!type)
        return std::nullopt;
    Challenge challenge;
    challenge.type = *type;
    if (chal.meta.nextNonce) {
        const QByteArray text = withoutWhiteSpace(*chal.meta.nextNonce);
        const auto decoded =
            QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
        challenge.nonce = decoded ? *decoded : *chal.meta.nextNonce;
    }
    return challenge;
}

// ---- HTTP header of HMAC -------------------------------------------------------------------------

QByteArray formatHmacHeader(const HmacHeader &header)
{
    QByteArray quoted = header.userName;
    quoted.replace('\\', "\\\\").replace('"', "\\\"");
    return "algorithm=MD5, username=\"" + quoted + "\", mac=" + header.mac;
}

namespace {

/// Takes a value, quoted or bare, from the beginning of the text, with the comma after it.
/// @return none when it is malformed
std::optional<QByteArray> takeValue(QByteArrayView &text)
{
    const bool isQuoted = text.startsWith('"');
    QByteArray quoted;
    if (isQuoted) {
        qsizetype end = 1;
        for (; end < text.size() && text[end] != '"'; ++end) {
            if (text[end] == '\\' && end + 1 < text.size())
                ++end;
            quoted += text[end];
        }
        if (end == text.size())
            return std::nullopt;
        text = text.sliced(end + 1);
    }
    const qsizetype comma = text.indexOf(',');
    const QByteArrayView bare = text.first(comma < 0 ? text.size() : comma).trimmed();
    text = comma < 0 ? QByteArrayView() : text.sliced(comma + 1);
    if (isQuoted && !bare.isEmpty())
        return std::nullopt;
    return isQuoted ? quoted : bare.toByteArray();
}

} // namespace

std::optional<HmacHeader> parseHmacHeader(const QByteArray &value)
{
    HmacHeader header;
    QByteArrayView left = value;
    while (!left.trimmed().isEmpty()) {
        const qsizetype equals = left.indexOf('=');
        if (equals < 0)
            return std::nullopt;
        const QByteArray name = left.first(equals).trimmed().toByteArray().toLower();
        left = left.sliced(equals + 1).trimmed();
        const auto parameter = takeValue(left);
        if (!parameter || (name == "algorithm" && parameter->toUpper() != "MD5"))
            return std::nullopt;
        if (name == "username")
            header.userName = *parameter;
        if (name == "mac")
            header.mac = *parameter;
    }
    if (header.userName.isEmpty() || header.mac.isEmpty())
        return std::nullopt;
    return header;
}

} // namespace client
