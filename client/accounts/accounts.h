// DM accounts: which servers may manage this device, where they are, and what both ends prove
// themselves with.
#pragma once

#include "access_control.h"
#include "credentials.h"
#include "expected.h"
#include "polling.h"
#include "private_file.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QUrl>
#include <map>
#include <optional>
#include <span>

namespace client {

/// One DM account.
struct Account {
    QUrl address;         ///< http or https, where a session begins
    QByteArray serverId;  ///< Server Identifier: what access rights are given to; empty: nobody's
    QByteArray title;     ///< for people
    Credentials toServer; ///< what the client proves itself with
    Credentials toClient; ///< what the server proves itself with; None: nothing is asked of it
    Polling polling = {}; ///< when sessions with it begin by themselves

    bool operator==(const Account &) const = default;
};

/// Limits of what an account holds, in bytes of UTF-8; far above what anybody needs. A nonce has
/// one of its own.
constexpr qsizetype longestAccountText = 1024;
constexpr qsizetype longestServerAddress = 2048;

/// One field of an account as people and files name it.
struct AccountField {
    const char *name;
    const char *help;
    bool isSecret;
    QString (*get)(const Account &account);
    /// Gives the field a value. The error is the rest of a sentence that begins with the field's
    /// name.
    support::Expected<void, QString> (*set)(Account &account, const QString &text);
    /// All values that it can have; null when there are too many to say.
    QStringList (*values)() = nullptr;
};

/// All fields, in the order in which they are shown.
std::span<const AccountField> accountFields();
/// Null when there is none of that name.
const AccountField *accountField(const QString &name);

/// Whether an account can be used: it has an address and a Server Identifier, and every side that
/// proves itself has a name and a secret.
/// @return what is missing
support::Expected<void, QString> checkComplete(const Account &account);

/// On whose behalf the commands of a session with that account run: its server's, or a server's
/// that no list names when it has no Server Identifier.
Principal principalOf(const Account &account);

/// Whether an account can be called that: by a name that a node can have, 1 to 63 bytes, neither
/// "." nor "..", nor "*", without slashes and control characters.
support::Expected<void, QString> checkAccountName(const QString &name);
/// Whether the changed account would give away what the account keeps: it leaves https, or one of
/// its sides proves itself by a weaker kind.
bool isWeaker(const Account &changed, const Account &account);
/// Whether the passwords of the account go over the network as they are.
bool sendsPasswordsInClear(const Account &account);

/// The accounts of one device in a file that only its owner can read.
class AccountStore {
public:
    using Accounts = std::map<QString, Account>;

    /// Reads a file; a missing one holds no accounts.
    static AccountStore load(const QString &file);

    /// Why the file cannot be read at all, and where; empty when it can. Such a file is never
    /// written.
    const QString &damage() const { return m_damage; }
    /// An account that cannot be read. It stays in the file as it is until it is removed.
    struct DamagedAccount {
        QString reason;      ///< what is wrong, and where
        QByteArray serverId; ///< as far as it could be read
        QJsonValue stored;
    };
    using DamagedAccounts = std::map<QString, DamagedAccount>;
    const DamagedAccounts &damagedAccounts() const { return m_damagedAccounts; }

    /// By name: the name of the account's node.
    const Accounts &accounts() const { return m_accounts; }
    /// Null when there is none of that name.
    const Account *find(const QString &name) const;
    /// Server Identifier of the account of that name, damaged or not; empty when there is none.
    QByteArray serverIdOf(const QString &name) const;
    /// Name of the account whose sessions begin at that address; none when there is none.
    std::optional<QString> nameOf(const QUrl &address) const;

    /// Each of these writes the file, in one step. On failure the file and the store are as before.
    /// put: adds a complete account, or replaces the one of that name.
    support::Expected<void, QString> put(const QString &name, const Account &account);
    support::Expected<void, QString> remove(const QString &name);

private:
    /// In bytes; some thousand accounts.
    static constexpr qsizetype largestFile = 1024 * 1024;

    explicit AccountStore(const QString &file) : m_file(file, largestFile) {}

    void read(const QJsonObject &accounts);
    /// Writes the file, and holds what it says now.
    support::Expected<void, QString> replace(Accounts accounts, DamagedAccounts damaged);

    support::PrivateFile m_file;
    Accounts m_accounts;
    DamagedAccounts m_damagedAccounts;
    QString m_damage;
};

} // namespace client
