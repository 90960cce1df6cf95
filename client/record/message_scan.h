// Where in the bytes of a message its secrets stand.
#pragma once

#include "byte_spans.h"
#include "codec.h"
#include "trace.h"

#include <QByteArray>
#include <optional>

namespace client {

/// Where the secrets of a message stand: data of credentials, values of secret leaves, those in
/// serialised trees, what the user has answered to some alerts, and data in places that no message
/// has it.
/// @param secretQuestions  the alerts whose answers are secret
/// @return none when a secret stands there in a way that cannot be overwritten
std::optional<ByteSpans> secretSpans(const QByteArray &message, syncml::Encoding encoding,
                                     const AlertIds &secretQuestions);

/// Where a message that cannot be read may have secrets, as far as it can be followed: all data,
/// all nonces, and of WBXML everything after the place where it cannot be followed any further.
ByteSpans possiblySecretSpans(const QByteArray &message, syncml::Encoding encoding);

} // namespace client
