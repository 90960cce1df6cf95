#include "account_tree.h"

#include "node_value.h"

#include <QString>
#include <utility>

namespace client {

namespace {

constexpr int dataStoreFailure = 510;

// ---- Leaves --------------------------------------------------------------------------------------

/// Whose credentials a leaf belongs to; the leaves of the account itself do not care.
enum class Side { Client, Server };

const Credentials &credentials(const Account &account, Side side)
{
    return side == Side::Client ? account.toServer : account.toClient;
}

Credentials &credentials(Account &account, Side side)
{
    return side == Side::Client ? account.toServer : account.toClient;
}

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
           setField(account, side == Side::Client ? clientField : serverField, value);
}

constexpr LeafRow accountLeaves[] = {
    {"AppID", DmtData::String, 0, [](const Account &, Side) { return QByteArrayLiteral("w7"); },
     nullptr},
    {"ServerID", DmtData::String, 0, [](const Account &account, Side) { return account.serverId; },
     nullptr},
    {"Name", DmtData::String, longestAccountText,
     [](const Account &account, Side) { return account.title; },
     [](Account &account, Side, const QByteArray &value) {
         return setField(account, "title", value);
     }},
    {"AAuthPref", DmtData::String, longestAccountText,
     [](const Account &account, Side) { return accountName(account.toServer.type).toLatin1(); },
     [](Account &account, Side, const QByteArray &value) {
         return setAuthType(account.toServer, value);
     }},
    {"AppAddr/1/Addr", DmtData::String, longestServerAddress,
     [](const Account &account, Side) { return account.address.toEncoded(); },
     [](Account &account, Side, const QByteArray &value) {
         return setField(account, "address", value);
     }},
    {"AppAddr/1/AddrType", DmtData::String, 0,
     [](const Account &, Side) { return QByteArrayLiteral("URI"); }, nullptr},
};

constexpr LeafRow credentialLeaves[] = {
    {"AAuthLevel", DmtData::String, 0,
     [](const Account &, Side side) {
         return QByteArray(side == Side::Client ? "CLCRED" : "SRVCRED");
     },
     nullptr},
    {"AAuthType", DmtData::String, longestAccountText,
     [](const Account &account, Side side) {
         return accountName(credentials(account, side).type).toLatin1();
     },
     [](Account &account, Side side, const QByteArray &value) {
         return setAuthType(credentials(account, side), value);
     }},
    {"AAuthName", DmtData::String, longestAccountText,
     [](const Account &account, Side side) { return credentials(account, side).identity.name; },
     [](Account &account, Side side, const QByteArray &value) {
         return setIdentity(account, side, "client-name", "server-name", value);
     }},
    {"AAuthSecret", DmtData::String, longestAccountText, nullptr,
     [](Account &account, Side side, const QByteArray &value) {
         return setIdentity(account, side, "client-secret", "server-secret", value);
     }},
    {"AAuthData", DmtData::Bin, largestNonce, nullptr,
     [](Account &account, Side side, const QByteArray &value) {
         credentials(account, side).nonce = value;
         return true;
     }},
};

DmtData toData(const QByteArray &bytes)
{
    return DmtData(bytes.constData());
}

QByteArray bytesOf(const DmtData &value)
{
    DMVector<unsigned char> bytes;
    if (value.GetBinary(bytes) == DMT_OK)
        return QByteArray(reinterpret_cast<const char *>(bytes.begin()), bytes.size());
    return valueText(value);
}

// ---- Nodes ---------------------------------------------------------------------------------------

class AccountInterior final : public DmtPluginNode {
public:
    void setOwnAcl(const QByteArray &text) { m_acl.text = DMString(text.constData()); }
};

class AccountLeaf final : public DmtPluginNode {
public:
    AccountLeaf(AccountStore &store, bool mayWeaken, QString account, Side side, const LeafRow &row)
        : m_store(store), m_mayWeaken(mayWeaken), m_account(std::move(account)), m_side(side),
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
        value = toData(m_row.get(*stored, m_side));
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
        const QByteArray bytes = bytesOf(value);
        if (bytes.size() > m_row.largestBytes)
            return static_cast<int>(DmStatus::TooLarge);
        if (value.GetType() != m_row.type || !m_row.set(changed, m_side, bytes))
            return DMT_UNSUPPORTED_FORMAT;
        if ((!m_mayWeaken && isWeaker(changed, *stored)) || !checkComplete(changed))
            return DMT_NOT_ALLOWED;
        if (!m_store.put(m_account, changed))
            return dataStoreFailure;
        return DMT_OK;
    }

private:
    AccountStore &m_store;
    bool m_mayWeaken;
    QString m_account;
    Side m_side;
    const LeafRow &m_row;
};

class AccountTree final : public DmtPluginTree {
public:
    AccountTree(AccountStore &store, bool mayWeaken) : m_store(store), m_mayWeaken(mayWeaken) {}

    void fill()
    {
        Init(accountTreeRoot);
        addInterior(QByteArray());
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
            addLeaf(path, name, account, Side::Client, row);
        addInterior(path + "/AppAuth");
        addCredentials(path + "/AppAuth/1", name, account, Side::Client);
        addCredentials(path + "/AppAuth/2", name, account, Side::Server);
    }

    void addCredentials(const QByteArray &path, const QString &name, const Account &account,
                        Side side)
    {
        if (credentials(account, side).type == AuthType::None)
            return;
        addInterior(path);
        for (const LeafRow &row : credentialLeaves)
            addLeaf(path, name, account, side, row);
    }

    void addInterior(const QByteArray &path, const QByteArray &acl = QByteArray())
    {
        auto *const node = new AccountInterior;
        const JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path.constData());
        node->setOwnAcl(acl);
        SetNode(path.constData(), holder);
    }

    void addLeaf(const QByteArray &parent, const QString &name, const Account &account, Side side,
                 const LeafRow &row)
    {
        auto *const node = new AccountLeaf(m_store, m_mayWeaken, name, side, row);
        const JemSmartPtr<DmtNode> holder(node);
        const QByteArray path = parent + '/' + row.path;
        node->Init(JemSmartPtr<DmtPluginTree>(this), path.constData(),
                   firstValue(row, account, side), 0);
        SetNode(path.constData(), holder);
    }

    static DmtData firstValue(const LeafRow &row, const Account &account, Side side)
    {
        if (row.get)
            return toData(row.get(account, side));
        // Of what cannot be read the node keeps the type only.
        return row.type == DmtData::Bin ? DmtData(DMVector<unsigned char>()) : DmtData("");
    }

    AccountStore &m_store;
    bool m_mayWeaken;
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
