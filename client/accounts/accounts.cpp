#include "accounts.h"

#include "node_uri.h"
#include "xml_text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <iterator>
#include <utility>

namespace client {

// ---- Fields --------------------------------------------------------------------------------------

namespace {

using support::Expected;
using support::Unexpected;

Expected<void, QString> checkSize(const QByteArray &bytes, qsizetype largest)
{
    if (bytes.size() > largest)
        return Unexpected(QStringLiteral("has more than %1 bytes").arg(largest));
    return {};
}

/// A line of text: it goes into HTTP headers and into nodes.
Expected<void, QString> setText(QByteArray &field, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    if (!syncml::isXmlLine(text))
        return Unexpected(QStringLiteral("has a control character, or one that is not a character "
                                         "of XML"));
    if (auto size = checkSize(bytes, longestAccountText); !size)
        return size;
    field = bytes;
    return {};
}

Expected<void, QString> setAddress(Account &account, const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isHttp = url.scheme() == u"http" || url.scheme() == u"https";
    if (!url.isValid() || !isHttp || url.host().isEmpty())
        return Unexpected(QStringLiteral("is not an http or https URL"));
    if (!url.userInfo().isEmpty())
        return Unexpected(QStringLiteral("has a user name in the URL; "
                                         "name and secret have fields of their own"));
    if (auto size = checkSize(url.toEncoded(), longestServerAddress); !size)
        return size;
    account.address = url;
    return {};
}

/// Access control lists name a Server Identifier, which has to fit their grammar.
Expected<void, QString> setServerId(Account &account, const QString &text)
{
    if (!text.isEmpty() && !isServerIdentifier(text))
        return Unexpected(QStringLiteral("has a blank or one of = & * +"));
    return setText(account.serverId, text);
}

Expected<void, QString> setAuthType(AuthType &type, const QString &text)
{
    const auto named = authTypeOfWord(text);
    if (!named)
        return Unexpected(QStringLiteral("is none of none, basic, md5 and hmac"));
    type = *named;
    return {};
}

Expected<void, QString> setUserName(QByteArray &name, const QString &text)
{
    // The first colon ends the name in every proof.
    if (text.contains(u':'))
        return Unexpected(QStringLiteral("has a colon"));
    return setText(name, text);
}

QString nonceText(const std::optional<QByteArray> &nonce)
{
    return nonce ? QString::fromLatin1(nonce->toBase64()) : QString();
}

Expected<void, QString> setNonce(std::optional<QByteArray> &nonce, const QString &text)
{
    const auto decoded =
        QByteArray::fromBase64Encoding(text.toUtf8(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return Unexpected(QStringLiteral("is not base64"));
    if (auto size = checkSize(*decoded, largestNonce); !size)
        return size;
    nonce = text.isEmpty() ? std::nullopt : std::optional(*decoded);
    return {};
}

using PollingTime = std::chrono::seconds Polling::*;

/// Nothing for what nobody has set.
QString pollingText(const Account &account, PollingTime time)
{
    const auto seconds = account.polling.*time;
    return seconds == Polling().*time ? QString() : QString::number(seconds.count());
}

/// An empty text takes back what was set.
Expected<void, QString> setPollingTime(Account &account, PollingTime time, const QString &text,
                                       std::chrono::seconds shortest)
{
    bool isNumber = false;
    const std::chrono::seconds seconds(text.toInt(&isNumber));
    const bool isNone = time == &Polling::interval && isNumber && seconds.count() == 0;
    if (!text.isEmpty() && !isNone &&
        (!isNumber || seconds < shortest || seconds > longestPollingTime))
        return Unexpected(QStringLiteral("is not a number of seconds from %1 to %2")
                              .arg(shortest.count())
                              .arg(longestPollingTime.count()));
    account.polling.*time = text.isEmpty() ? Polling().*time : seconds;
    return {};
}

constexpr AccountField fields[] = {
    {"address", "URL of the server, http or https", false,
     [](const Account &a) { return a.address.toString(QUrl::FullyEncoded); }, setAddress},
    {"server-id", "Server Identifier, to which access rights are given", false,
     [](const Account &a) { return QString::fromUtf8(a.serverId); }, setServerId},
    {"title", "what people call the account", false,
     [](const Account &a) { return QString::fromUtf8(a.title); },
     [](Account &a, const QString &text) { return setText(a.title, text); }},
    {"client-auth", "how the client proves itself: none, basic, md5 or hmac", false,
     [](const Account &a) { return authWord(a.toServer.type); },
     [](Account &a, const QString &text) { return setAuthType(a.toServer.type, text); }, authWords},
    {"client-name", "the client's user name", false,
     [](const Account &a) { return QString::fromUtf8(a.toServer.identity.name); },
     [](Account &a, const QString &text) { return setUserName(a.toServer.identity.name, text); }},
    {"client-secret", "the client's password", true,
     [](const Account &a) { return QString::fromUtf8(a.toServer.identity.secret); },
     [](Account &a, const QString &text) { return setText(a.toServer.identity.secret, text); }},
    {"client-nonce", "nonce of the client's next proof, base64; sessions keep it", false,
     [](const Account &a) { return nonceText(a.toServer.nonce); },
     [](Account &a, const QString &text) { return setNonce(a.toServer.nonce, text); }},
    {"server-auth", "how the server has to prove itself: none, basic, md5 or hmac", false,
     [](const Account &a) { return authWord(a.toClient.type); },
     [](Account &a, const QString &text) { return setAuthType(a.toClient.type, text); }, authWords},
    {"server-name", "the server's user name", false,
     [](const Account &a) { return QString::fromUtf8(a.toClient.identity.name); },
     [](Account &a, const QString &text) { return setUserName(a.toClient.identity.name, text); }},
    {"server-secret", "the server's password", true,
     [](const Account &a) { return QString::fromUtf8(a.toClient.identity.secret); },
     [](Account &a, const QString &text) { return setText(a.toClient.identity.secret, text); }},
    {"server-nonce", "nonce of the server's next proof, base64; sessions keep it", false,
     [](const Account &a) { return nonceText(a.toClient.nonce); },
     [](Account &a, const QString &text) { return setNonce(a.toClient.nonce, text); }},
    {"polling-interval",
     "seconds between sessions that begin by themselves; 0, as without it: none", false,
     [](const Account &a) { return pollingText(a, &Polling::interval); },
     [](Account &a, const QString &text) {
         return setPollingTime(a, &Polling::interval, text, shortestPollingTime);
     }},
    {"polling-first-delay", "seconds until the first of them; without it 60", false,
     [](const Account &a) { return pollingText(a, &Polling::firstDelay); },
     [](Account &a, const QString &text) {
         return setPollingTime(a, &Polling::firstDelay, text, std::chrono::seconds(0));
     }},
    {"polling-retry-delay", "seconds after one that failed, doubled each time; without it 60",
     false, [](const Account &a) { return pollingText(a, &Polling::retryDelay); },
     [](Account &a, const QString &text) {
         return setPollingTime(a, &Polling::retryDelay, text, shortestPollingTime);
     }},
    {"polling-longest-retry-delay", "most seconds after one that failed; without it 3600", false,
     [](const Account &a) { return pollingText(a, &Polling::longestRetryDelay); },
     [](Account &a, const QString &text) {
         return setPollingTime(a, &Polling::longestRetryDelay, text, shortestPollingTime);
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

Expected<void, QString> checkAccountName(const QString &name)
{
    constexpr qsizetype longestName = 63; // bytes
    QByteArray bytes;
    if (const auto text = setText(bytes, name); !text)
        return Unexpected(QStringLiteral("the name of the account %1").arg(text.error()));
    if (bytes.size() > longestName || !checkNewName(bytes, {}))
        return Unexpected(QStringLiteral("an account cannot be called \"%1\"").arg(name));
    return {};
}

Expected<void, QString> checkComplete(const Account &account)
{
    const auto lacks = [](const Credentials &side) {
        return side.type != AuthType::None &&
               (side.identity.name.isEmpty() || side.identity.secret.isEmpty());
    };
    if (account.address.isEmpty())
        return Unexpected(QStringLiteral("the account has no address"));
    if (account.serverId.isEmpty())
        return Unexpected(QStringLiteral("the account has no server-id"));
    if (lacks(account.toServer))
        return Unexpected(QStringLiteral("client-auth needs client-name and client-secret"));
    if (lacks(account.toClient))
        return Unexpected(QStringLiteral("server-auth needs server-name and server-secret"));
    return {};
}

Principal principalOf(const Account &account)
{
    return account.serverId.isEmpty() ? Principal::anonymousServer()
                                      : Principal::server(account.serverId);
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
/// @return what is wrong with the first of the others, and where
Expected<void, QString> readFields(const QString &name, const QJsonObject &object, Account &account)
{
    Expected<void, QString> read;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const AccountField *const field = accountField(entry.key());
        const Expected<void, QString> set =
            field && entry.value().isString()
                ? field->set(account, entry.value().toString())
                : Unexpected(QStringLiteral("is not a field with a text"));
        if (!set && read)
            read = Unexpected(
                QStringLiteral("%1 of account %2 %3").arg(entry.key(), name, set.error()));
    }
    return read;
}

Expected<void, QString> readAccount(const QString &name, const QJsonValue &stored, Account &account)
{
    if (auto named = checkAccountName(name); !named)
        return named;
    if (!stored.isObject())
        return Unexpected(QStringLiteral("account %1 is not an object").arg(name));
    return readFields(name, stored.toObject(), account);
}

} // namespace

AccountStore AccountStore::load(const QString &file)
{
    AccountStore store(file);
    if (const auto accounts = store.m_file.readObject(); !accounts)
        store.m_damage = accounts.error();
    else
        store.read(accounts->value_or(QJsonObject()));
    return store;
}

void AccountStore::read(const QJsonObject &accounts)
{
    for (auto entry = accounts.begin(); entry != accounts.end(); ++entry) {
        Account account;
        if (const auto read = readAccount(entry.key(), entry.value(), account); !read)
            m_damagedAccounts.emplace(
                entry.key(), DamagedAccount{read.error(), account.serverId, entry.value()});
        else
            m_accounts.emplace(entry.key(), std::move(account));
    }
}

const Account *AccountStore::find(const QString &name) const
{
    const auto entry = m_accounts.find(name);
    return entry == m_accounts.end() ? nullptr : &entry->second;
}

QByteArray AccountStore::serverIdOf(const QString &name) const
{
    if (const Account *const account = find(name))
        return account->serverId;
    const auto damaged = m_damagedAccounts.find(name);
    return damaged == m_damagedAccounts.end() ? QByteArray() : damaged->second.serverId;
}

std::optional<QString> AccountStore::nameOf(const QUrl &address) const
{
    constexpr auto sameForm = QUrl::NormalizePathSegments | QUrl::StripTrailingSlash;
    for (const auto &[name, account] : m_accounts)
        if (account.address.matches(address, sameForm))
            return name;
    return std::nullopt;
}

Expected<void, QString> AccountStore::put(const QString &name, const Account &account)
{
    if (auto named = checkAccountName(name); !named)
        return named;
    if (auto complete = checkComplete(account); !complete)
        return complete;
    if (const auto damaged = m_damagedAccounts.find(name); damaged != m_damagedAccounts.end())
        return Unexpected(QStringLiteral("%1; it can only be removed").arg(damaged->second.reason));
    Accounts changed = m_accounts;
    changed[name] = account;
    return replace(std::move(changed), m_damagedAccounts);
}

Expected<void, QString> AccountStore::remove(const QString &name)
{
    Accounts changed = m_accounts;
    DamagedAccounts damaged = m_damagedAccounts;
    if (changed.erase(name) + damaged.erase(name) == 0)
        return Unexpected(QStringLiteral("no account %1").arg(name));
    return replace(std::move(changed), std::move(damaged));
}

Expected<void, QString> AccountStore::replace(Accounts accounts, DamagedAccounts damaged)
{
    if (!m_damage.isEmpty())
        return Unexpected(QStringLiteral("nothing is written to a damaged file: %1").arg(m_damage));
    QJsonObject object;
    for (const auto &[name, account] : accounts) {
        const QJsonObject written = toJson(account);
        // Whoever brought the account here, it has to be there the next time.
        Account readBack;
        if (const auto read = readFields(name, written, readBack); !read)
            return Unexpected(
                QStringLiteral("cannot write %1: %2").arg(m_file.path(), read.error()));
        object[name] = written;
    }
    for (const auto &[name, account] : damaged)
        object[name] = account.stored;
    auto written = m_file.replace(QJsonDocument(object).toJson());
    if (written) {
        m_accounts = std::move(accounts);
        m_damagedAccounts = std::move(damaged);
    }
    return written;
}

} // namespace client
