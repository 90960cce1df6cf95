// Access points and proxies of a provisioning document as profiles of the device.
#pragma once

#include "provisioning_plan.h"

namespace client::bootstrap {

/// What profiles are beneath: their access points, and their proxies.
inline constexpr char accessPointRoot[] = "./DevDetail/Ext/Conf/Conn/Profiles";
inline constexpr char proxyRoot[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";

/// Adds the profiles of all NAPDEF characteristics to the plan, with the proxies of PXLOGICAL.
/// @return why the document cannot be applied
support::Expected<void, QString> planProfiles(const ProvisioningDocument &document,
                                              const UriLimits &limits, ProvisioningPlan &plan);

} // namespace client::bootstrap
