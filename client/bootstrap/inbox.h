// What a server adds to the Inbox in a session.
#pragma once

#include "plan_application.h"
#include "tnds_reader.h"

namespace client::bootstrap {

/// Puts serialised objects where this device has them, all or none. What they become, and what is
/// refused, is as with a bootstrap message, but for a server that hears how it ended: an object
/// that this device has no place for is refused (406), and so is one that it has no right to add.
/// For an account the list of ./DMAcc itself has to give it Add, which only the device's owner
/// does; what that node inherits does not count.
/// @return the status for the command; with 200 the reason says what of the objects was left out
Outcome addToInbox(const std::vector<TndsNode> &nodes, DmDevice &device, const Principal &principal,
                   const SameHost &areSameHost);

} // namespace client::bootstrap
