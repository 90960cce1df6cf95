// Making a plan true: all of it, or nothing.
#pragma once

#include "dm_device.h"
#include "provisioning_plan.h"

#include <functional>

namespace client::bootstrap {

/// Whether two addresses lead to the same host, however they write it.
using SameHost = std::function<bool(const QUrl &one, const QUrl &other)>;

/// Looks whether anything of the plan is on the device already: a profile of that name, an account
/// of that name or for that server, or one on the same host. Changes nothing.
/// @return the first thing that is in the way: 418 for what is there, 510 when that is not known
Outcome checkAgainst(const ProvisioningPlan &plan, DmDevice &device, const SameHost &areSameHost);

/// Why a plan was not applied.
struct ApplicationFault {
    DmStatus status = DmStatus::CommandFailed;
    QString reason;
    QStringList left; ///< what could not be taken back, a sentence each
};

/// Adds the profiles, gives them their access control lists, and adds the accounts. When something
/// fails, everything that was made is taken back. Whoever calls keeps the properties of the nodes
/// (DmDevice::saveProperties).
/// @param plan       that checkAgainst has found nothing against
/// @param principal  on whose behalf the profiles are added. An account is the device's to add.
support::Expected<void, ApplicationFault> apply(const ProvisioningPlan &plan, DmDevice &device,
                                                const Principal &principal = Principal::owner());

} // namespace client::bootstrap
