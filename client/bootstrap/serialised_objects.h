// Objects of a serialised tree for the Inbox: DM accounts, access points and proxies. Each has a
// characteristic of a provisioning document that says the same, so the rules for what becomes of
// them are the same.
#pragma once

#include "provisioning_document.h"
#include "tnds_reader.h"

namespace client::bootstrap {

/// An object is a Node directly beneath the Inbox, and what it is its Management Object id says:
/// that of a DM account, or of a connection. Without one that is known here its Path does: where
/// this device has accounts, access points or proxies. An access point and a proxy have the nodes
/// that profiles have on this device.
///
/// Values that begin with "./Inbox/" lead to another object. What stands for nothing is there with
/// the empty name, which nobody asks for; it is shown as its path in the object.
/// @return why the tree makes no sense: a value that is not text, or a list that is malformed
support::Expected<ProvisioningDocument, QString>
documentOfObjects(const std::vector<TndsNode> &nodes);

} // namespace client::bootstrap
