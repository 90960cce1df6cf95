#include "provisioning_plan.h"

#include "characteristic_reader.h"
#include "provisioned_account.h"
#include "provisioned_profiles.h"
#include "secret_leaf.h"

#include <QJsonArray>
#include <algorithm>

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;

namespace {

constexpr char dmApplication[] = "w7";

bool isPlannedElsewhere(const Characteristic &characteristic)
{
    return characteristic.type == QStringLiteral("NAPDEF") ||
           characteristic.type == QStringLiteral("PXLOGICAL");
}

/// Whether two accounts could be taken for each other.
Expected<void, QString> checkDistinct(const std::vector<PlannedAccount> &accounts,
                                      const PlannedAccount &added)
{
    for (const PlannedAccount &other : accounts)
        if (other.name == added.name || other.account.serverId == added.account.serverId)
            return Unexpected(QStringLiteral("two accounts of the message have the name \"%1\" or "
                                             "the Server Identifier \"%2\"")
                                  .arg(added.name, QString::fromUtf8(added.account.serverId)));
    return {};
}

Expected<void, QString> planAccounts(const ProvisioningDocument &document, ProvisioningPlan &plan)
{
    for (const Characteristic &characteristic : document.characteristics) {
        if (isPlannedElsewhere(characteristic))
            continue;
        if (characteristic.type != QStringLiteral("APPLICATION") ||
            valueOf(characteristic, "APPID") != QLatin1String(dmApplication)) {
            plan.ignored.push_back({labelOf(characteristic, {"APPID", "NAME"}),
                                    QStringLiteral("nothing on this device keeps it")});
            continue;
        }
        auto account = planAccount(characteristic, plan.ignored);
        if (!account)
            return Unexpected(account.error());
        if (auto distinct = checkDistinct(plan.accounts, *account); !distinct)
            return distinct;
        plan.accounts.push_back(*std::move(account));
    }
    return {};
}

/// The servers of the message get what the protocol gives them: whoever brought a profile may
/// change it and take it away.
AccessControlList listFor(const std::vector<PlannedAccount> &accounts)
{
    AccessControlList acl;
    for (const PlannedAccount &account : accounts)
        for (const Right right : {Right::Delete, Right::Get, Right::Replace})
            acl.grant(right, account.account.serverId);
    return acl;
}

} // namespace

Expected<ProvisioningPlan, QString> planOf(const ProvisioningDocument &document,
                                           const UriLimits &limits)
{
    ProvisioningPlan plan;
    for (const auto &planned : {planProfiles(document, limits, plan), planAccounts(document, plan)})
        if (!planned)
            return Unexpected(planned.error());
    plan.acl = listFor(plan.accounts);
    return plan;
}

std::optional<AccessControlList> aclOf(const PlannedNode &node, const PlannedProfile &profile,
                                       const ProvisioningPlan &plan)
{
    if (node.acl || &node != &profile.nodes.front() || plan.acl.isEmpty())
        return node.acl;
    return plan.acl;
}

// ---- For people and programs ---------------------------------------------------------------------

namespace {

QString shownValue(const PlannedNode &node, Secrets secrets)
{
    return secrets == Secrets::Masked && isMasked(node.uri.name(), node.value)
               ? QString::fromLatin1(secretMask)
               : QString::fromUtf8(node.value);
}

QString describeRights(const NodeUri &node, bool isTop, const AccessControlList &acl)
{
    const QString rights = QString::fromUtf8(acl.toText());
    return isTop ? QStringLiteral("  rights: %1").arg(rights)
                 : QStringLiteral("  rights of %1: %2").arg(node.toDisplay(), rights);
}

/// The fields of an account that have a value, as they are to be shown.
std::vector<std::pair<QString, QString>> shownFields(const Account &account, Secrets secrets)
{
    std::vector<std::pair<QString, QString>> fields;
    for (const AccountField &field : accountFields()) {
        const QString value = field.get(account);
        if (!value.isEmpty())
            fields.emplace_back(QString::fromLatin1(field.name),
                                field.isSecret && secrets == Secrets::Masked
                                    ? QString::fromLatin1(secretMask)
                                    : value);
    }
    return fields;
}

} // namespace

QStringList describe(const ProvisioningPlan &plan, Secrets secrets)
{
    QStringList lines;
    for (const PlannedProfile &profile : plan.profiles) {
        lines += QStringLiteral("profile %1").arg(QString::fromUtf8(profile.name));
        for (const PlannedNode &node : profile.nodes)
            if (node.format != QStringLiteral("node"))
                lines += QStringLiteral("  %1 = %2")
                             .arg(node.uri.toDisplay(), shownValue(node, secrets));
        for (const PlannedNode &node : profile.nodes)
            if (const auto acl = aclOf(node, profile, plan))
                lines += describeRights(node.uri, node.uri == profile.nodes.front().uri, *acl);
    }
    for (const PlannedAccount &planned : plan.accounts) {
        lines += QStringLiteral("account %1").arg(planned.name);
        for (const auto &[field, value] : shownFields(planned.account, secrets))
            lines += QStringLiteral("  %1 = %2").arg(field, value);
        for (const GivenList &list : planned.lists)
            lines += describeRights(list.node, list.node.isRoot(), list.acl);
        if (sendsPasswordsInClear(planned.account))
            lines += QStringLiteral("  its passwords go over the network as they are");
        if (planned.wantsSession)
            lines += QStringLiteral("  its server asks for a session at once");
    }
    for (const IgnoredPart &part : plan.ignored)
        lines += QStringLiteral("ignored: %1: %2").arg(part.what, part.why);
    return lines;
}

QJsonObject toJson(const ProvisioningPlan &plan, Secrets secrets)
{
    QJsonArray profiles;
    for (const PlannedProfile &profile : plan.profiles) {
        QJsonArray nodes;
        for (const PlannedNode &node : profile.nodes) {
            QJsonObject object{{QStringLiteral("uri"), QString::fromLatin1(node.uri.toUri())},
                               {QStringLiteral("format"), node.format}};
            if (node.format != QStringLiteral("node"))
                object[u"value"] = shownValue(node, secrets);
            if (node.acl)
                object[u"acl"] = QString::fromUtf8(node.acl->toText());
            nodes += object;
        }
        const auto acl = aclOf(profile.nodes.front(), profile, plan);
        profiles += QJsonObject{
            {QStringLiteral("name"), QString::fromUtf8(profile.name)},
            {QStringLiteral("acl"), QString::fromUtf8(acl.value_or(AccessControlList()).toText())},
            {QStringLiteral("nodes"), nodes}};
    }
    QJsonArray accounts;
    for (const PlannedAccount &planned : plan.accounts) {
        QJsonObject object{{QStringLiteral("name"), planned.name},
                           {QStringLiteral("wantsSession"), planned.wantsSession}};
        for (const auto &[field, value] : shownFields(planned.account, secrets))
            object[field] = value;
        QJsonObject lists;
        for (const GivenList &list : planned.lists)
            lists[QString::fromLatin1(list.node.toUri())] = QString::fromUtf8(list.acl.toText());
        if (!lists.isEmpty())
            object[u"acl"] = lists;
        accounts += object;
    }
    QJsonArray ignored;
    for (const IgnoredPart &part : plan.ignored)
        ignored +=
            QJsonObject{{QStringLiteral("what"), part.what}, {QStringLiteral("why"), part.why}};
    return {{QStringLiteral("profiles"), profiles},
            {QStringLiteral("accounts"), accounts},
            {QStringLiteral("ignored"), ignored}};
}

} // namespace client::bootstrap
