// A bootstrap message of the DM profile: one DM message that adds serialised objects to the Inbox.
#pragma once

#include "expected.h"
#include "tnds_reader.h"

namespace client::bootstrap {

/// Whether the bytes begin as a DM message does.
bool looksLikeDmMessage(const QByteArray &bytes);

/// The serialised objects of a message, in their order. All that it has in its body are Adds to
/// the Inbox, by themselves or in a Sequence or an Atomic, of trees in XML or WBXML; anything else
/// is refused, since a message is applied as a whole.
/// @return what is wrong, and where
support::Expected<std::vector<TndsNode>, QString> readDmMessage(const QByteArray &bytes);

} // namespace client::bootstrap
