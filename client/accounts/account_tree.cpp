#include "account_tree.h"

#include "device_tree.h"
#include "node_value.h"

#include <QString>
#include <utility>

namespace client {

namespace {

// ---- Leaves --------------------------------------------------------------------------------------

/// Which credentials a leaf belongs to; the leaves of the account itself do not care.
using Side = Credentials Account::*;
constexpr Side clientSide = &Account::toServer;
constexpr Side serverSide = &Account::toClient;

struct LeafRow {
    const char *path; ///< beneath the node of the account, or of one side's credentials
    DmtData::Type type;
    qsizetype largestBytes; ///< 413 beyond
    /// Null for a leaf that cannot be read.
    QByteArray (*get)(const Account &, Side);
    /// False when the account cannot have the value. Null for a leaf that cannot be replaced.
    bool (*set)(Account &, Side, const QByteArray &);
};

bool setField(Account &account, const char *field, const QByteArray &value)
{
    return bool(accountField(QString::fromLatin1(field))->set(account, QString::fromUtf8(value)));
}

bool setAuthType(Credentials &side, const QByteArray &value)
{
    const auto named = authTypeOfAccountName(QString::fromUtf8(value));
    if (named)
        side.type = *named;
    return named.has_value();
}

/// A side that proves itself cannot lose its name or its secret.
bool setIdentity(Account &account, Side side, const char *clientField, const char *serverField,
                 const QByteArray &value)
{
    return !value.isEmpty() &&
           setField(account, side == clientSide ? clientField : serverField, value);
}

constexpr LeafRow accountLeaves[] = {
    {"AppID", DmtData::String, 0, [](const Account &, Side) { return QByteArrayLiteral("w7"); },
     nullptr},
    {"ServerID", DmtData::String, 0, [](const Account &a, Side) { return a.serverId; }, nullptr},
    {"Name", DmtData::String, longestAccountText, [](const Account &a, Side) { return a.title; },
     [](Account &a, Side, const QByteArray &value) { return setField(a, "title", value); }},
    {"AAuthPref", DmtData::String, longestAccountText,
     [](const Account &a, Side) { return accountName(a.toServer.type).toLatin1(); },
     [](Account &a, Side, const QByteArray &value) { return setAuthType(a.toServer, value); }},
    {"AppAddr/1/Addr", DmtData::String, longestServerAddress,
     [](const Account &a, Side) { return a.address.toEncoded(); },
     [](Account &a, Side, const QByteArray &value) { return setField(a, "address", value); }},
    {"AppAddr/1/AddrType", DmtData::String, 0,
     [](const Account &, Side) { return QByteArrayLiteral("URI"); }, nullptr},
};

constexpr LeafRow credentialLeaves[] = {
    {"AAuthLevel", DmtData::String, 0,
     [](const Account &, Side side) {
         return QByteArray(side == clientSide ? "CLCRED" : "SRVCRED");
     },
     nullptr},
    {"AAuthType", DmtData::String, longestAccountText,
     [](const Account &a, Side side) { return accountName((a.*side).type).toLatin1(); },
     [](Account &a, Side side, const QByteArray &value) { return setAuthType(a.*side, value); }},
    {"AAuthName", DmtData::String, longestAccountText,
     [](const Account &a, Side side) { return (a.*side).identity.name; },
     [](Account &a, Side side, const QByteArray &value) {
         return setIdentity(a, side, "client-name", "server-name", value);
     }},
    {"AAuthSecret", DmtData::String, longestAccountText, nullptr,
     [](Account &a, Side side, const QByteArray &value) {
         return setIdentity(a, side, "client-secret", "server-secret", value);
     }},
    {"AAuthData", DmtData::Bin, largestNonce, nullptr,
     [](Account &a, Side side, const QByteArray &value) {
         (a.*side).nonce = value;
         return true;
     }},
};

constexpr qsizetype longestNumber = 11; // digits and a sign

/// How often the device begins sessions by itself, in seconds.
constexpr LeafRow pollingLeaves[] = {
    {"Interval", DmtData::Int, longestNumber,
     [](const Account &a, Side) { return QByteArray::number(qint64(a.polling.interval.count())); },
     [](Account &a, Side, const QByteArray &value) {
         return setField(a, "polling-interval", value);
     }},
    {"FirstDelay", DmtData::Int, longestNumber,
     [](const Account &a, Side) {
         return QByteArray::number(qint64(a.polling.firstDelay.count()));
     },
     [](Account &a, Side, const QByteArray &value) {
         return setField(a, "polling-first-delay", value);
     }},
    {"RetryDelay", DmtData::Int, longestNumber,
     [](const Account &a, Side) {
         return QByteArray::number(qint64(a.polling.retryDelay.count()));
     },
     [](Account &a, Side, const QByteArray &value) {
         return setField(a, "polling-retry-delay", value);
     }},
    {"LongestRetryDelay", DmtData::Int, longestNumber,
     [](const Account &a, Side) {
         return QByteArray::number(qint64(a.polling.longestRetryDelay.count()));
     },
     [](Account &a, Side, const QByteArray &value) {
         return setField(a, "polling-longest-retry-delay", value);
     }},
};

/// Whether a server may make that change of its account.
bool mayServerChange(const Account &account, const Account &changed)
{
    return !isWeaker(changed, account) &&
           (changed.polling == account.polling || isSparing(changed.polling));
}

DmtData toData(const LeafRow &row, const QByteArray &text)
{
    return row.type == DmtData::Int ? DmtData(text.toInt()) : DmtData(text.constData());
}

// ---- Nodes ---------------------------------------------------------------------------------------

class AccountLeaf final : public DmtPluginNode {
public:
    AccountLeaf(AccountStore &store, bool isOwners, QString account, Side side, const LeafRow &row)
        : m_store(store), m_isOwners(isOwners), m_account(std::move(account)), m_side(side),
          m_row(row)
    {
    }

    int GetValue(DmtData &value) override
    {
        if (!m_row.get)
            return DMT_NOT_ALLOWED;
        const Account *const stored = m_store.find(m_account);
        if (!stored)
            return DMT_NOT_FOUND;
        value = toData(m_row, m_row.get(*stored, m_side));
        return DMT_OK;
    }

    int SetValue(const DmtData &value) override
    {
        if (!m_row.set)
            return DMT_NOT_ALLOWED;
        const Account *const stored = m_store.find(m_account);
        if (!stored)
            return DMT_NOT_FOUND;
        Account changed = *stored;
        const QByteArray bytes = valueBytes(value);
        if (bytes.size() > m_row.largestBytes)
            return static_cast<int>(DmStatus::TooLarge);
        if (value.GetType() != m_row.type || !m_row.set(changed, m_side, bytes))
            return DMT_UNSUPPORTED_FORMAT;
        if ((!m_isOwners && !mayServerChange(*stored, changed)) || !checkComplete(changed))
            return DMT_NOT_ALLOWED;
        if (!m_store.put(m_account, changed))
            return static_cast<int>(DmStatus::DataStoreFailure);
        return DMT_OK;
    }

private:
    AccountStore &m_store;
    bool m_isOwners;
    QString m_account;
    Side m_side;
    const LeafRow &m_row;
};

class AccountTree final : public ClientTree {
public:
    AccountTree(AccountStore &store, bool isOwners) : m_store(store), m_isOwners(isOwners) {}

    void fill()
    {
        Init(accountTreeRoot);
        addInterior("");
        for (const auto &[name, account] : m_store.accounts())
            addAccount(name, account);
    }

    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) override
    {
        for (int i = 0; i < values.size(); ++i) {
            const QByteArray child = QByteArray(path) + '/' + values.keys()[i].text();
            JemSmartPtr<DmtNode> leaf;
            if (const int status = GetNode(child.constData(), leaf))
                return status;
            if (const int status = leaf->SetValue(values.values()[i]))
                return status;
        }
        return DMT_OK;
    }

private:
    void addAccount(const QString &name, const Account &account)
    {
        const QByteArray path = name.toUtf8();
        addInterior(path, "Get=" + account.serverId + "&Replace=" + account.serverId);
        addInterior(path + "/AppAddr");
        addInterior(path + "/AppAddr/1");
        for (const LeafRow &row : accountLeaves)
            addRow(path, name, account, clientSide, row);
        addInterior(path + "/AppAuth");
        addCredentials(path + "/AppAuth/1", name, account, clientSide);
        addCredentials(path + "/AppAuth/2", name, account, serverSide);
        addInterior(path + "/Ext");
        addInterior(path + "/Ext/Polling");
        for (const LeafRow &row : pollingLeaves)
            addRow(path + "/Ext/Polling", name, account, clientSide, row);
    }

    void addCredentials(const QByteArray &path, const QString &name, const Account &account,
                        Side side)
    {
        if ((account.*side).type == AuthType::None)
            return;
        addInterior(path);
        for (const LeafRow &row : credentialLeaves)
            addRow(path, name, account, side, row);
    }

    void addRow(const QByteArray &parent, const QString &name, const Account &account, Side side,
                const LeafRow &row)
    {
        addLeaf(parent + '/' + row.path, firstValue(row, account, side),
                new AccountLeaf(m_store, m_isOwners, name, side, row));
    }

    static DmtData firstValue(const LeafRow &row, const Account &account, Side side)
    {
        if (row.get)
            return toData(row, row.get(account, side));
        // Of what cannot be read the node keeps the type only.
        return row.type == DmtData::Bin ? DmtData(DMVector<unsigned char>()) : DmtData("");
    }

    AccountStore &m_store;
    bool m_isOwners;
};

} // namespace

JemSmartPtr<DmtTree> makeAccountTree(AccountStore &store, const Principal &user)
{
    auto *const tree = new AccountTree(store, user.isOwner());
    const JemSmartPtr<DmtTree> holder(tree);
    tree->fill();
    return holder;
}

} // namespace client
