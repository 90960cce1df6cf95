// Which values of a message may be secrets.
#pragma once

#include "message.h"

namespace client {

/// How much of an item's data may be secret.
enum class Secrecy {
    None,
    Fields, ///< it is a serialised tree, with leaves that may hold secrets among others
    Whole
};

/// Whole for the value of a secret leaf (see isSecretLeaf), and for a value without an address.
Secrecy secrecyOf(const syncml::Command &command, const syncml::Item &item);

/// Whether any of the item's data may be secret.
inline bool mayHoldSecret(const syncml::Command &command, const syncml::Item &item)
{
    return secrecyOf(command, item) != Secrecy::None;
}

} // namespace client
