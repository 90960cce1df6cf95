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

struct AuthTypeRow {
    AuthType type;
    const char *wireName;
    const char *accountName;
};

constexpr AuthTypeRow authTypes[] = {
    {AuthType::Basic, "syncml:auth-basic", "BASIC"},
    {AuthType::Md5, "syncml:auth-md5", "DIGEST"},
    {AuthType::Hmac, "syncml:auth-MAC", "HMAC"},
};

QString nameIn(const char *AuthTypeRow::*column, AuthType type)
{
    const auto *const row =
        std::ranges::find(authTypes, type, [](const AuthTypeRow &entry) { return entry.type; });
    return row == std::end(authTypes) ? QString() : QString::fromLatin1(row->*column);
}

std::optional<AuthType> typeNamed(const char *AuthTypeRow::*column, const QString &name)
{
    for (const AuthTypeRow &row : authTypes)
        if (name.compare(QLatin1String(row.*column), Qt::CaseInsensitive) == 0)
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

// ---- The three proofs ----------------------------------------------------------------------------

namespace {

QByteArray digest(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toBase64();
}

QByteArray passwordDigest(const Identity &identity)
{
    return digest(identity.name + ':' + identity.secret);
}

} // namespace

QByteArray basicProof(const Identity &identity)
{
    return (identity.name + ':' + identity.secret).toBase64();
}

QByteArray md5Proof(const Identity &identity, const QByteArray &nonce)
{
    return digest(passwordDigest(identity) + ':' + nonce);
}

QByteArray hmacProof(const Identity &identity, const QByteArray &nonce, const QByteArray &body)
{
    return digest(passwordDigest(identity) + ':' + nonce + ':' + digest(body));
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

/// One `name=value` after another, separated by commas.
class ParameterReader {
public:
    explicit ParameterReader(const QByteArray &text) : m_text(text) {}

    struct Parameter {
        QByteArray name;
        QByteArray value;
    };

    bool atEnd()
    {
        skipBlanks();
        return m_position == m_text.size();
    }

    /// None when what comes is malformed.
    std::optional<Parameter> next()
    {
        skipBlanks();
        const qsizetype equals = m_text.indexOf('=', m_position);
        if (equals < 0)
            return std::nullopt;
        Parameter parameter;
        parameter.name = m_text.sliced(m_position, equals - m_position).trimmed().toLower();
        m_position = equals + 1;
        skipBlanks();
        const bool isQuoted = m_position < m_text.size() && m_text[m_position] == '"';
        if (isQuoted ? !readQuoted(parameter.value) : !readBare(parameter.value))
            return std::nullopt;
        skipBlanks();
        if (m_position == m_text.size())
            return parameter;
        if (m_text[m_position] != ',')
            return std::nullopt;
        ++m_position;
        return parameter;
    }

private:
    void skipBlanks()
    {
        while (m_position < m_text.size() &&
               (m_text[m_position] == ' ' || m_text[m_position] == '\t'))
            ++m_position;
    }

    bool readQuoted(QByteArray &value)
    {
        for (++m_position; m_position < m_text.size(); ++m_position) {
            char character = m_text[m_position];
            if (character == '"') {
                ++m_position;
                return true;
            }
            if (character == '\\' && ++m_position < m_text.size())
                character = m_text[m_position];
            value += character;
        }
        return false;
    }

    bool readBare(QByteArray &value)
    {
        const qsizetype comma = m_text.indexOf(',', m_position);
        const qsizetype end = comma < 0 ? m_text.size() : comma;
        value = m_text.sliced(m_position, end - m_position).trimmed();
        m_position = end;
        return true;
    }

    QByteArray m_text;
    qsizetype m_position = 0;
};

} // namespace

std::optional<HmacHeader> parseHmacHeader(const QByteArray &value)
{
    HmacHeader header;
    ParameterReader reader(value);
    while (!reader.atEnd()) {
        const auto parameter = reader.next();
        if (!parameter)
            return std::nullopt;
        if (parameter->name == "algorithm" && parameter->value.toUpper() != "MD5")
            return std::nullopt;
        if (parameter->name == "username")
            header.userName = parameter->value;
        if (parameter->name == "mac")
            header.mac = parameter->value;
    }
    if (header.userName.isEmpty() || header.mac.isEmpty())
        return std::nullopt;
    return header;
}

} // namespace client
