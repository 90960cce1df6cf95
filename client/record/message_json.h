// A message in a record.
#pragma once

#include "codec.h"
#include "known_secrets.h"
#include "secret_item.h"
#include "trace.h"

#include <QJsonObject>

namespace client {

/// What of a message may be shown.
struct MessageSecrecy {
    bool showsSecrets = false;
    /// The alerts whose answers are secret.
    AlertIds secretQuestions = {};
    /// Secrets to mask also where the protocol has no place for any.
    KnownSecrets known = {};
};

/// How much of the item's data is secret.
Secrecy secrecyOf(const syncml::Command &command, const syncml::Item &item,
                  const MessageSecrecy &secrecy);

/// The data of an item, with the mask in the place of what is secret in it.
QByteArray shownData(const syncml::Command &command, const syncml::Item &item,
                     const MessageSecrecy &secrecy);

/// The message as a record's "decoded" has it.
QJsonObject messageToJson(const syncml::Message &message, const MessageSecrecy &secrecy);

/// The bytes of a message with its secrets overwritten: it decodes to the same but for them.
/// @return none when that cannot be done
std::optional<QByteArray> shownBytes(const QByteArray &bytes, const syncml::Message &message,
                                     const MessageSecrecy &secrecy);

} // namespace client
