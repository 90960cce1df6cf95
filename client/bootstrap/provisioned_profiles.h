// Access points and proxies of a provisioning document as profiles of the device.
#pragma once

#include "provisioning_plan.h"

namespace client::bootstrap {

/// Adds the profiles of all NAPDEF characteristics to the plan, with the proxies of PXLOGICAL.
/// @return why the document cannot be applied
support::Expected<void, QString> planProfiles(const ProvisioningDocument &document,
                                              const UriLimits &limits, ProvisioningPlan &plan);

} // namespace client::bootstrap
