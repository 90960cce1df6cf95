// What a bootstrap message would make of this device, before anything is made.
#pragma once

#include "access_control.h"
#include "accounts.h"
#include "node_uri.h"
#include "provisioning_document.h"

#include <QJsonObject>
#include <QStringList>
#include <vector>

namespace client::bootstrap {

/// A node that is to be added.
struct PlannedNode {
    NodeUri uri;
    QString format; ///< as a server gives it: "node", "chr" or "int"
    QByteArray value = {};
    /// As the message gives it; none: the node inherits.
    std::optional<AccessControlList> acl = {};
};

/// A profile with its nodes under one root or both.
struct PlannedProfile {
    QByteArray name;
    std::vector<PlannedNode> nodes; ///< in the order in which they are added
};

struct PlannedAccount {
    QString name;
    Account account;
    bool wantsSession = false;         ///< as soon as it is there
    std::vector<GivenList> lists = {}; ///< of its node, and of those beneath it
};

/// A part of the message of which nothing is made.
struct IgnoredPart {
    QString what;
    QString why;
};

struct ProvisioningPlan {
    std::vector<PlannedProfile> profiles;
    std::vector<PlannedAccount> accounts;
    /// What a profile gets as its access control list for which the message has none: rights for
    /// the servers of the accounts. Empty without accounts: then they have the list of every other
    /// profile.
    AccessControlList acl;
    std::vector<IgnoredPart> ignored;

    bool isEmpty() const { return profiles.empty() && accounts.empty(); }
};

/// The plan of a provisioning document. NAPDEF characteristics become profiles, the proxies of
/// PXLOGICAL go into the profiles that they lead to, and APPLICATION w7 becomes an account.
/// @param limits  of the tree's addresses
/// @return why the message cannot be applied: an account that no session could use, or names that
///         are there twice
support::Expected<ProvisioningPlan, QString> planOf(const ProvisioningDocument &document,
                                                    const UriLimits &limits);

/// The list that the node is given: its own, or on the profile's first node, whose list goes for
/// all of them, that of the plan. None: the node inherits.
std::optional<AccessControlList> aclOf(const PlannedNode &node, const PlannedProfile &profile,
                                       const ProvisioningPlan &plan);

enum class Secrets { Masked, Shown };

/// The plan in words, a line each. Texts of the message in it are as they are.
QStringList describe(const ProvisioningPlan &plan, Secrets secrets);
/// The same as "profiles", "accounts" and "ignored".
QJsonObject toJson(const ProvisioningPlan &plan, Secrets secrets);

} // namespace client::bootstrap
