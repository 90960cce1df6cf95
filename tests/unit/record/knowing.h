// Known secrets as a test names them.
#pragma once

#include "known_secrets.h"

namespace client {

inline KnownSecrets knowing(const QByteArray &secret)
{
    KnownSecrets secrets;
    secrets.add(secret);
    return secrets;
}

} // namespace client
