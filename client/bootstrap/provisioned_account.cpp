#include "provisioned_account.h"

#include "account_tree.h"
#include "characteristic_reader.h"
#include "node_description.h"

#include <algorithm>
#include <iterator>

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;

namespace {

struct SideRow {
    const char *level;
    const char *prefix; ///< of the account's fields
    const char *path;   ///< beneath the account's node
};

constexpr SideRow sides[] = {
    {"APPSRV", "client-", "AppAuth/1"},
    {"CLIENT", "server-", "AppAuth/2"},
};

struct PartRow {
    const char *parm;
    const char *field;
};

constexpr PartRow credentialParts[] = {
    {"AAUTHNAME", "name"},
    {"AAUTHSECRET", "secret"},
    {"AAUTHDATA", "nonce"},
};

class AccountPlanner {
public:
    AccountPlanner(const Characteristic &application, std::vector<IgnoredPart> &ignored)
        : m_application(application),
          m_reader(application, labelOf(application, {"NAME", "PROVIDER-ID"}), ignored),
          m_ignored(ignored)
    {
    }

    Expected<PlannedAccount, QString> plan()
    {
        m_reader.text("APPID");
        if (!set("server-id", m_reader.text("PROVIDER-ID")) ||
            !set("title", m_reader.text("NAME")) || !readAddress() || !readCredentials())
            return Unexpected(m_fault);
        const bool wantsSession = m_reader.flag("INIT");
        for (const char *const name : {"TO-PROXY", "TO-NAPID"})
            if (m_reader.flag(name))
                m_reader.ignore(
                    QString::fromLatin1(name),
                    QStringLiteral("a session uses the connection that the device has"));
        keepLists(m_application, ".");
        auto planned = nameAndCheck(m_account, m_reader.label());
        if (planned) {
            planned->wantsSession = wantsSession;
            planned->lists = std::move(m_lists);
        }
        return planned;
    }

private:
    /// Gives a field a value, if there is one.
    bool set(const char *field, const std::optional<QString> &value)
    {
        if (!value)
            return true;
        const auto done = accountField(QString::fromLatin1(field))->set(m_account, *value);
        return done || fail(QStringLiteral("%1 %2").arg(QString::fromLatin1(field), done.error()));
    }

    // ---- Where the server is

    bool readAddress()
    {
        std::optional<QString> address;
        std::optional<std::pair<QString, QString>> port; // what it is called, and what it says
        for (const Characteristic *const part : m_reader.parts("APPADDR")) {
            CharacteristicReader place(*part, m_reader.labelOfPart(*part), m_ignored);
            if (address) {
                place.ignoreWhole(QStringLiteral("an account has one address"));
                continue;
            }
            keepLists(*part, "AppAddr/1");
            address = place.text("ADDR");
            place.flag("ADDRTYPE");
            for (const Characteristic *const portPart : place.parts("PORT")) {
                CharacteristicReader reader(*portPart, place.labelOfPart(*portPart), m_ignored);
                if (const auto number = reader.text("PORTNBR"); number && !port)
                    port = {reader.shownName(QStringLiteral("PORTNBR")), *number};
            }
        }
        if (!address)
            address = m_reader.text("ADDR");
        return set("address", address) && (!address || !port || setPort(port->first, port->second));
    }

    bool setPort(const QString &name, const QString &text)
    {
        constexpr int largestPort = 0xFFFF;
        bool isNumber = false;
        const int port = text.toInt(&isNumber);
        if (!isNumber || port < 1 || port > largestPort)
            return fail(QStringLiteral("%1 is not a port").arg(name));
        QUrl &address = m_account.address;
        const int usualPort = address.scheme() == u"https" ? 443 : 80;
        if (address.port(port) != port)
            return fail(QStringLiteral("%1 is another port than that of the address").arg(name));
        if (port != usualPort)
            address.setPort(port);
        return true;
    }

    // ---- What both sides prove themselves with

    bool readCredentials()
    {
        std::vector<QString> levelsSeen;
        for (const Characteristic *const part : m_reader.parts("APPAUTH")) {
            const QString level = valueOf(*part, "AAUTHLEVEL").value_or(QString());
            CharacteristicReader reader(
                *part, m_reader.label() + QStringLiteral(": ") + labelOf(*part, {"AAUTHLEVEL"}),
                m_ignored);
            reader.text("AAUTHLEVEL");
            const auto *const side = std::ranges::find_if(
                sides, [&level](const SideRow &row) { return level == QLatin1String(row.level); });
            if (side == std::end(sides)) {
                reader.ignoreWhole(QStringLiteral("only APPSRV and CLIENT are used in a session"));
                continue;
            }
            if (std::ranges::find(levelsSeen, level) != levelsSeen.end())
                return fail(QStringLiteral("two APPAUTH have the level %1").arg(level));
            levelsSeen.push_back(level);
            keepLists(*part, side->path);
            if (!readSide(*side, part->shownAs.isEmpty() ? level : part->shownAs, reader))
                return false;
        }
        return true;
    }

    bool readSide(const SideRow &side, const QString &place, CharacteristicReader &reader)
    {
        // One that every server knows, where the message leaves it open.
        const QString type = reader.text("AAUTHTYPE").value_or(QStringLiteral("DIGEST"));
        const auto known = authTypeOfAccountName(type);
        if (!known || *known == AuthType::None)
            return fail(QStringLiteral("%1 of %2 is none of BASIC, DIGEST and HMAC")
                            .arg(reader.shownName(QStringLiteral("AAUTHTYPE")), place));
        const QByteArray prefix(side.prefix);
        if (!set((prefix + "auth").constData(), authWord(*known)))
            return false;
        return std::ranges::all_of(credentialParts, [&](const PartRow &row) {
            return set((prefix + row.field).constData(), reader.text(row.parm));
        });
    }

    /// Keeps the lists of a part, as far as the account's nodes can have them.
    /// @param path  of the part beneath the account's node
    void keepLists(const Characteristic &part, const char *path)
    {
        const NodeUri anyAccount = nodeAt(accountTreeRoot).child("account");
        for (const GivenList &list : part.lists) {
            const NodeUri node = nodeAt(path).beneath(list.node);
            if (descriptionOf(anyAccount.beneath(node)))
                m_lists.push_back({node, list.acl});
        }
    }

    bool fail(const QString &text)
    {
        m_fault = QStringLiteral("%1: %2").arg(m_reader.label(), text);
        return false;
    }

    const Characteristic &m_application;
    CharacteristicReader m_reader;
    std::vector<IgnoredPart> &m_ignored;
    Account m_account;
    std::vector<GivenList> m_lists;
    QString m_fault;
};

/// Whether somebody on the way to the server could be taken for it.
bool isUnproved(const Account &account)
{
    return account.address.scheme() != u"https" && account.toClient.type == AuthType::None;
}

} // namespace

Expected<PlannedAccount, QString> nameAndCheck(const Account &account, const QString &label)
{
    if (const auto complete = checkComplete(account); !complete)
        return Unexpected(QStringLiteral("%1: %2").arg(label, complete.error()));
    if (isUnproved(account))
        return Unexpected(QStringLiteral("%1: over http the server has to prove itself, and the "
                                         "message has nothing that it could do so with")
                              .arg(label));
    for (const QByteArray &name : {account.title, account.serverId})
        if (checkAccountName(QString::fromUtf8(name)))
            return PlannedAccount{QString::fromUtf8(name), account};
    return Unexpected(QStringLiteral("%1: no account can be called by its name or its Server "
                                     "Identifier")
                          .arg(label));
}

Expected<PlannedAccount, QString> planAccount(const Characteristic &application,
                                              std::vector<IgnoredPart> &ignored)
{
    return AccountPlanner(application, ignored).plan();
}

} // namespace client::bootstrap
