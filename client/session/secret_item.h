// Which values of a message may be secrets.
#pragma once

#include "message.h"

namespace client {

/// Whether the item's data may hold the value of a secret leaf: that of one (see isSecretLeaf), a
/// value without an address, or a serialised tree.
bool mayHoldSecret(const syncml::Command &command, const syncml::Item &item);

} // namespace client
