#include "plan_application.h"

#include "account_tree.h"
#include "undo_log.h"

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;

// ---- Before --------------------------------------------------------------------------------------

namespace {

Outcome alreadyThere(const QString &reason)
{
    return {DmStatus::AlreadyExists, reason};
}

Outcome checkAccount(const PlannedAccount &planned, const AccountStore &accounts,
                     const SameHost &areSameHost)
{
    const QByteArray &serverId = planned.account.serverId;
    const auto isThere = [](const QString &name) {
        return alreadyThere(
            QStringLiteral("there is an account of that server already: %1").arg(name));
    };
    for (const auto &[name, account] : accounts.accounts()) {
        if (account.serverId == serverId)
            return isThere(name);
        if (areSameHost(account.address, planned.account.address))
            return alreadyThere(QStringLiteral("%1 is on the host of the account %2")
                                    .arg(planned.account.address.toString(), name));
    }
    for (const auto &[name, account] : accounts.damagedAccounts())
        if (account.serverId == serverId)
            return isThere(name);
    if (accounts.find(planned.name) || accounts.damagedAccounts().contains(planned.name))
        return alreadyThere(QStringLiteral("there is an account %1 already").arg(planned.name));
    return {};
}

Outcome checkProfile(const PlannedProfile &profile, const TreeView &tree)
{
    for (const NodeUri &root : profileRoots()) {
        const NodeUri node = root.child(profile.name);
        const Result<TreeNode> found = tree.find(node);
        if (found)
            return alreadyThere(
                QStringLiteral("there is a profile %1 already").arg(node.toDisplay()));
        if (found.error().status != DmStatus::NotFound)
            return {found.error().status, describe(found.error())};
    }
    return {};
}

} // namespace

Outcome checkAgainst(const ProvisioningPlan &plan, DmDevice &device, const SameHost &areSameHost)
{
    if (const QString damage = device.reasonAgainstServers(); !damage.isEmpty())
        return {DmStatus::DataStoreFailure, damage};
    for (const PlannedAccount &account : plan.accounts)
        if (Outcome checked = checkAccount(account, device.accounts(), areSameHost); !checked)
            return checked;
    for (const PlannedProfile &profile : plan.profiles)
        if (Outcome checked = checkProfile(profile, device.ownersView()); !checked)
            return checked;
    return {};
}

// ---- The change ----------------------------------------------------------------------------------

namespace {

class Application {
public:
    Application(const ProvisioningPlan &plan, DmDevice &device, const Principal &principal)
        : m_plan(plan), m_device(device), m_tree(device.tree(), principal),
          m_ownersTree(device.ownersView()), m_undo(device.tree())
    {
    }

    Expected<void, ApplicationFault> run()
    {
        for (const PlannedProfile &profile : m_plan.profiles)
            if (const Outcome added = addProfile(profile); !added)
                return takeBack(added);
        for (const PlannedAccount &planned : m_plan.accounts)
            if (const Outcome added = addAccount(planned); !added)
                return takeBack(added);
        return {};
    }

private:
    Outcome addProfile(const PlannedProfile &profile)
    {
        for (const PlannedNode &node : profile.nodes) {
            const bool isInterior = node.format == QStringLiteral("node");
            const auto object = m_device.tree().objectOf(node.uri);
            if (object == node.uri) {
                m_undo.note(node.uri);
                m_objects.push_back(node.uri);
            }
            TreeView::NewValue value{node.format, {}, {}};
            if (!isInterior)
                value.data = node.value;
            if (Outcome done = watched(QStringLiteral("Add"), node.uri,
                                       [&] { return m_tree.add(node.uri, value); });
                !done)
                return done;
        }
        for (const PlannedNode &node : profile.nodes)
            if (const auto acl = aclOf(node, profile, m_plan))
                if (Outcome given = giveList(m_tree, node.uri, *acl); !given)
                    return given;
        return {};
    }

    Outcome addAccount(const PlannedAccount &planned)
    {
        if (const auto kept = m_device.putAccount(planned.name, planned.account); !kept)
            return {DmStatus::DataStoreFailure, kept.error()};
        m_accounts += planned.name;
        const NodeUri node = nodeAt(accountTreeRoot).child(planned.name.toUtf8());
        for (const GivenList &list : planned.lists)
            if (Outcome given = giveList(m_ownersTree, node.beneath(list.node), list.acl); !given)
                return given;
        return {};
    }

    Outcome giveList(TreeView &tree, const NodeUri &node, const AccessControlList &acl)
    {
        return watched(QStringLiteral("Replace"), node,
                       [&] { return tree.replaceProperty(node, Property::Acl, acl.toText()); });
    }

    /// Runs an operation. @return how it failed, with what was said meanwhile
    template <class Operation>
    Outcome watched(const QString &name, const NodeUri &node, Operation operation)
    {
        CommandWatch *const watch = m_device.tree().commandWatch();
        if (watch)
            watch->begin(name, QString::fromLatin1(node.toUri()));
        Outcome outcome = operation();
        if (watch)
            watch->end(outcome);
        if (!outcome)
            outcome.reason =
                QStringLiteral("%1 %2: %3").arg(name, node.toDisplay(), describe(outcome));
        return outcome;
    }

    Expected<void, ApplicationFault> takeBack(const Outcome &outcome)
    {
        ApplicationFault fault{outcome.status, outcome.reason, {}};
        for (const QString &name : m_accounts)
            if (const auto removed = m_device.removeAccount(name); !removed)
                fault.left +=
                    QStringLiteral("the account %1 is left: %2").arg(name, removed.error());
        const std::vector<bool> isBack = m_undo.rollBack();
        for (std::size_t i = 0; i < m_objects.size(); ++i)
            if (!isBack[i])
                fault.left += QStringLiteral("%1 is left").arg(m_objects[i].toDisplay());
        return Unexpected(fault);
    }

    const ProvisioningPlan &m_plan;
    DmDevice &m_device;
    TreeView m_tree;
    TreeView m_ownersTree;
    UndoLog m_undo;
    std::vector<NodeUri> m_objects; ///< of the notes of the undo log
    QStringList m_accounts;         ///< that were added
};

} // namespace

Expected<void, ApplicationFault> apply(const ProvisioningPlan &plan, DmDevice &device,
                                       const Principal &principal)
{
    return Application(plan, device, principal).run();
}

} // namespace client::bootstrap
