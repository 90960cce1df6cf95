// An APPLICATION w7 of a provisioning document as an account.
#pragma once

#include "provisioning_plan.h"

namespace client::bootstrap {

/// @param ignored  receives what nothing is made of
/// @return why no session could be had with it, or why it would not be safe
support::Expected<PlannedAccount, QString> planAccount(const Characteristic &application,
                                                       std::vector<IgnoredPart> &ignored);

/// Completes an account of a message: gives it a name, and looks whether it can be used.
support::Expected<PlannedAccount, QString> nameAndCheck(const Account &account,
                                                        const QString &label);

} // namespace client::bootstrap
