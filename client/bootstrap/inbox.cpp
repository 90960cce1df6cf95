#include "inbox.h"

#include "account_tree.h"
#include "serialised_objects.h"

namespace client::bootstrap {

namespace {

/// Whether the owner lets the server add accounts.
Outcome mayAddAccounts(DmDevice &device, const Principal &principal)
{
    const NodeUri accounts = nodeAt(accountTreeRoot);
    const TreeView tree = device.ownersView();
    const Result<TreeNode> node = tree.find(accounts);
    if (!node)
        return node.outcome();
    const Result<QByteArray> list = tree.property(*node, Property::Acl);
    if (!list)
        return list.outcome();
    const auto acl = AccessControlList::parse(*list);
    if (acl && acl->permits(Right::Add, principal))
        return {};
    return {DmStatus::PermissionDenied, QStringLiteral("the list of %1 does not give Add to %2")
                                            .arg(accounts.toDisplay(), principal.toDisplay())};
}

QString describe(const std::vector<IgnoredPart> &ignored)
{
    QStringList lines;
    for (const IgnoredPart &part : ignored)
        lines += QStringLiteral("%1: %2").arg(part.what, part.why);
    return lines.isEmpty() ? QString()
                           : QStringLiteral("left out: ") + lines.join(QStringLiteral("; "));
}

} // namespace

Outcome addToInbox(const std::vector<TndsNode> &nodes, DmDevice &device, const Principal &principal,
                   const SameHost &areSameHost)
{
    const auto document = documentOfObjects(nodes);
    if (!document)
        return {DmStatus::UnsupportedFormat, document.error()};
    for (const Characteristic &object : document->characteristics)
        if (object.type.isEmpty())
            return {DmStatus::FeatureNotSupported,
                    QStringLiteral("this device has no place for %1").arg(object.shownAs)};
    auto plan = planOf(*document, device.tree().uriLimits());
    if (!plan)
        return {DmStatus::NotAllowed, plan.error()};
    // Who adds a node has the rights of its creator.
    plan->acl = {};
    if (plan->isEmpty())
        return {DmStatus::FeatureNotSupported, describe(plan->ignored)};
    if (!plan->accounts.empty())
        if (Outcome allowed = mayAddAccounts(device, principal); !allowed)
            return allowed;
    if (Outcome checked = checkAgainst(*plan, device, areSameHost); !checked)
        return checked;
    const auto applied = apply(*plan, device, principal);
    if (applied)
        return {DmStatus::Ok, describe(plan->ignored)};
    QString reason = applied.error().reason;
    if (!applied.error().left.isEmpty())
        reason += QStringLiteral("; but ") + applied.error().left.join(QStringLiteral("; "));
    return {applied.error().status, reason};
}

} // namespace client::bootstrap
