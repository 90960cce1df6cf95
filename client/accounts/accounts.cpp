#include "accounts.h"

#include "access_control.h"
#include "xml_text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <iterator>
#include <utility>

namespace client {

// ---- Fields --------------------------------------------------------------------------------------

namespace {

bool refuse(QString &error, const QString &reason)
{
    error = reason;
    return false;
}

bool fits(const QByteArray &bytes, qsizetype largest, QString &error)
{
    return bytes.size() <= largest ||
           refuse(error, QStringLiteral("has more than %1 bytes").arg(largest));
}

/// A line of text: it goes into HTTP headers and into nodes.
bool setText(QByteArray &field, const QString &text, QString &error)
{
    const QByteArray bytes = text.toUtf8();
    if (!syncml::isXmlLine(text))
        return refuse(error, QStringLiteral("has a control character, or one that is no character "
                                            "of XML"));
    if (!fits(bytes, longestAccountText, error))
        return false;
    field = bytes;
    return true;
}

bool setAddress(Account &account, const QString &text, QString &error)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isHttp = url.scheme() == u"http" || url.scheme() == u"https";
    if (!url.isValid() || !isHttp || url.host().isEmpty())
        return refuse(error, QStringLiteral("is no http or https URL"));
    if (!url.userInfo().isEmpty())
        return refuse(error, QStringLiteral("has a user name in the URL; "
                                            "name and secret have fields of their own"));
    if (!fits(url.toEncoded(), longestServerAddress, error))
        return false;
    account.address = url;
    return true;
}

/// A Server Identifier stands in access control lists, whose grammar it has to fit.
bool setServerId(Account &account, const QString &text, QString &error)
{
    if (!text.isEmpty() && !isServerIdentifier(text))
        return refuse(error, QStringLiteral("has a blank or one of = & * +"));
    return setText(account.serverId, text, error);
}

struct AuthWord {
    AuthType type;
    const char *word;
};

constexpr AuthWord authWords[] = {
    {AuthType::None, "none"},
    {AuthType::Basic, "basic"},
    {AuthType::Md5, "md5"},
    {AuthType::Hmac, "hmac"},
};

QString authWord(AuthType type)
{
    const auto *const row =
        std::ranges::find(authWords, type, [](const AuthWord &entry) { return entry.type; });
    return QString::fromLatin1(row->word);
}

bool setAuthType(AuthType &type, const QString &text, QString &error)
{
    for (const AuthWord &row : authWords) {
        if (text.compare(QLatin1String(row.word), Qt::CaseInsensitive) == 0) {
            type = row.type;
            return true;
        }
    }
    return refuse(error, QStringLiteral("is none of none, basic, md5 and hmac"));
}

bool setUserName(QByteArray &name, const QString &text, QString &error)
{
    // The first colon ends the name in every proof.
    if (text.contains(u':'))
        return refuse(error, QStringLiteral("has a colon"));
    return setText(name, text, error);
}

QString nonceText(const std::optional<QByteArray> &nonce)
{
    return nonce ? QString::fromLatin1(nonce->toBase64()) : QString();
}

bool setNonce(std::optional<QByteArray> &nonce, const QString &text, QString &error)
{
    const auto decoded =
        QByteArray::fromBase64Encoding(text.toUtf8(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return refuse(error, QStringLiteral("is no base64"));
    if (!fits(*decoded, largestNonce, error))
        return false;
    nonce = text.isEmpty() ? std::nullopt : std::optional(*decoded);
    return true;
}

constexpr AccountField fields[] = {
    {"address", "URL of the server, http or https", false,
     [](const Account &a) { return a.address.toString(QUrl::FullyEncoded); }, setAddress},
    {"server-id", "Server Identifier, to which access rights are given", false,
     [](const Account &a) { return QString::fromUtf8(a.serverId); }, setServerId},
    {"title", "what people call the account", false,
     [](const Account &a) { return QString::fromUtf8(a.title); },
     [](Account &a, const QString &text, QString &e) { return setText(a.title, text, e); }},
    {"client-auth", "how the client proves itself: none, basic, md5 or hmac", false,
     [](const Account &a) { return authWord(a.toServer.type); },
     [](Account &a, const QString &text, QString &e) {
         return setAuthType(a.toServer.type, text, e);
     }},
    {"client-name", "the client's user name", false,
     [](const Account &a) { return QString::fromUtf8(a.toServer.identity.name); },
     [](Account &a, const QString &text, QString &e) {
         return setUserName(a.toServer.identity.name, text, e);
     }},
    {"client-secret", "the client's password", true,
     [](const Account &a) { return QString::fromUtf8(a.toServer.identity.secret); },
     [](Account &a, const QString &text, QString &e) {
         return setText(a.toServer.identity.secret, text, e);
     }},
    {"client-nonce", "nonce of the client's next proof, base64; sessions keep it", false,
     [](const Account &a) { return nonceText(a.toServer.nonce); },
     [](Account &a, const QString &text, QString &e) {
         return setNonce(a.toServer.nonce, text, e);
     }},
    {"server-auth", "how the server has to prove itself: none, basic, md5 or hmac", false,
     [](const Account &a) { return authWord(a.toClient.type); },
     [](Account &a, const QString &text, QString &e) {
         return setAuthType(a.toClient.type, text, e);
     }},
    {"server-name", "the server's user name", false,
     [](const Account &a) { return QString::fromUtf8(a.toClient.identity.name); },
     [](Account &a, const QString &text, QString &e) {
         return setUserName(a.toClient.identity.name, text, e);
     }},
    {"server-secret", "the server's password", true,
     [](const Account &a) { return QString::fromUtf8(a.toClient.identity.secret); },
     [](Account &a, const QString &text, QString &e) {
         return setText(a.toClient.identity.secret, text, e);
     }},
    {"server-nonce", "nonce of the server's next proof, base64; sessions keep it", false,
     [](const Account &a) { return nonceText(a.toClient.nonce); },
     [](Account &a, const QString &text, QString &e) {
         return setNonce(a.toClient.nonce, text, e);
     }},
};

} // namespace

std::span<const AccountField> accountFields()
{
    return fields;
}

const AccountField *accountField(const QString &name)
{
    const auto *const row = std::ranges::find_if(
        fields, [&name](const AccountField &field) { return name == QLatin1String(field.name); });
    return row == std::end(fields) ? nullptr : row;
}

bool isComplete(const Account &account, QString &error)
{
    const auto lacks = [](const Credentials &side) {
        return side.type != AuthType::None &&
               (side.identity.name.isEmpty() || side.identity.secret.isEmpty());
    };
    if (account.address.isEmpty())
        return refuse(error, QStringLiteral("the account has no address"));
    if (account.serverId.isEmpty())
        return refuse(error, QStringLiteral("the account has no server-id"));
    if (lacks(account.toServer))
        return refuse(error, QStringLiteral("client-auth needs client-name and client-secret"));
    if (lacks(account.toClient))
        return refuse(error, QStringLiteral("server-auth needs server-name and server-secret"));
    return true;
}

bool isWeaker(const Account &changed, const Account &account)
{
    const auto usesTls = [](const Account &one) { return one.address.scheme() == u"https"; };
    return (usesTls(account) && !usesTls(changed)) ||
           changed.toServer.type < account.toServer.type ||
           changed.toClient.type < account.toClient.type;
}

bool sendsPasswordsInClear(const Account &account)
{
    return account.address.scheme() == u"http" &&
           (account.toServer.type == AuthType::Basic || account.toClient.type == AuthType::Basic);
}

// ---- The file ------------------------------------------------------------------------------------

namespace {

QJsonObject toJson(const Account &account)
{
    QJsonObject object;
    for (const AccountField &field : fields) {
        const QString text = field.get(account);
        if (!text.isEmpty())
            object[QLatin1String(field.name)] = text;
    }
    return object;
}

/// Reads every field that can be read.
/// @return false with what is wrong with the first of the others, and where, in error
bool readAccount(const QString &name, const QJsonObject &object, Account &account, QString &error)
{
    error.clear();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const AccountField *const field = accountField(entry.key());
        QString reason = QStringLiteral("is no field with a text");
        const bool isRead = field && entry.value().isString() &&
                            field->set(account, entry.value().toString(), reason);
        if (!isRead && error.isEmpty())
            error = QStringLiteral("%1 of account %2 %3").arg(entry.key(), name, reason);
    }
    return error.isEmpty();
}

} // namespace

bool canBeAccountName(const QString &name, QString &error)
{
    constexpr qsizetype longestName = 63; // bytes
    QByteArray bytes;
    if (!setText(bytes, name, error)) {
        error = QStringLiteral("the name of the account %1").arg(error);
        return false;
    }
    const bool isReserved = name == u"." || name == u".." || name == u"*";
    if (bytes.isEmpty() || bytes.size() > longestName || isReserved || bytes.contains('/'))
        return refuse(error, QStringLiteral("an account cannot be called \"%1\"").arg(name));
    return true;
}

AccountStore AccountStore::load(const QString &file)
{
    AccountStore store(file);
    QJsonObject accounts;
    if (store.m_file.readObject(accounts, store.m_damage) == support::PrivateFile::Reading::Done)
        store.read(accounts);
    return store;
}

void AccountStore::read(const QJsonObject &accounts)
{
    for (auto entry = accounts.begin(); entry != accounts.end(); ++entry) {
        Account account;
        QString reason = QStringLiteral("account %1 is no object").arg(entry.key());
        const bool isRead = canBeAccountName(entry.key(), reason) && entry.value().isObject() &&
                            readAccount(entry.key(), entry.value().toObject(), account, reason);
        if (isRead)
            m_accounts.emplace(entry.key(), std::move(account));
        else
            m_damagedAccounts.emplace(entry.key(),
                                      DamagedAccount{reason, account.serverId, entry.value()});
    }
}

const Account *AccountStore::find(const QString &name) const
{
    const auto entry = m_accounts.find(name);
    return entry == m_accounts.end() ? nullptr : &entry->second;
}

std::optional<QString> AccountStore::nameOf(const QUrl &address) const
{
    constexpr auto sameForm = QUrl::NormalizePathSegments | QUrl::StripTrailingSlash;
    for (const auto &[name, account] : m_accounts)
        if (account.address.matches(address, sameForm))
            return name;
    return std::nullopt;
}

bool AccountStore::put(const QString &name, const Account &account, QString &error)
{
    if (!canBeAccountName(name, error) || !isComplete(account, error))
        return false;
    if (const auto damaged = m_damagedAccounts.find(name); damaged != m_damagedAccounts.end())
        return refuse(error,
                      QStringLiteral("%1; it can only be removed").arg(damaged->second.reason));
    Accounts changed = m_accounts;
    changed[name] = account;
    if (!write(changed, m_damagedAccounts, error))
        return false;
    m_accounts = std::move(changed);
    return true;
}

bool AccountStore::remove(const QString &name, QString &error)
{
    Accounts changed = m_accounts;
    DamagedAccounts damaged = m_damagedAccounts;
    if (changed.erase(name) + damaged.erase(name) == 0)
        return refuse(error, QStringLiteral("no account %1").arg(name));
    if (!write(changed, damaged, error))
        return false;
    m_accounts = std::move(changed);
    m_damagedAccounts = std::move(damaged);
    return true;
}

bool AccountStore::write(const Accounts &accounts, const DamagedAccounts &damaged,
                         QString &error) const
{
    if (!m_damage.isEmpty())
        return refuse(error,
                      QStringLiteral("nothing is written to a damaged file: %1").arg(m_damage));
    QJsonObject object;
    for (const auto &[name, account] : accounts) {
        const QJsonObject written = toJson(account);
        // Whoever brought the account here, it has to be there the next time.
        Account readBack;
        QString fault;
        if (!readAccount(name, written, readBack, fault))
            return refuse(error, QStringLiteral("cannot write %1: %2").arg(m_file.path(), fault));
        object[name] = written;
    }
    for (const auto &[name, account] : damaged)
        object[name] = account.stored;
    return m_file.replace(QJsonDocument(object).toJson(), error);
}

} // namespace client
