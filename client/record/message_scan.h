// Where in the bytes of a message its secrets stand.
#pragma once

#include "byte_spans.h"
#include "codec.h"
#include "known_secrets.h"
#include "trace.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <optional>

namespace client {

/// Where the secrets of a message stand: data of credentials, values of secret leaves, those in
/// serialised trees, what the user has answered to some alerts, and data in places that no message
/// has it.
/// @param secretQuestions  the alerts whose answers are secret
/// @return none when a secret stands there in a way that cannot be overwritten
std::optional<ByteSpans> secretSpans(const QByteArray &message, syncml::Encoding encoding,
                                     const AlertIds &secretQuestions);

/// Where in a message that can be read known secrets stand outside what is made of it: in comments,
/// declarations and instructions, in tags, in elements that say nothing to the client, in the
/// string table. All data is left out, which secretSpans() looks after.
/// @param shown  the texts that the message has for whoever reads it; where one of them is the
///               whole content of an element, it stays
ByteSpans unreadSecretSpans(const QByteArray &message, syncml::Encoding encoding,
                            const KnownSecrets &known, const QSet<QString> &shown);

/// Where a message that cannot be read may have secrets, as far as it can be followed: all data,
/// all nonces, and of WBXML everything after the place where it cannot be followed any further.
ByteSpans possiblySecretSpans(const QByteArray &message, syncml::Encoding encoding);

} // namespace client
