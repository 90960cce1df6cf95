// Messages that together hold every element of DM, for the tests of both codecs.
#pragma once

#include "message.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace syncml {

// So that a failed comparison shows the message and not its bytes in memory.
void PrintTo(const Message &message, std::ostream *out);

} // namespace syncml

namespace samples {

struct Sample {
    std::string name;
    syncml::Message message;
};

void PrintTo(const Sample &sample, std::ostream *out);

/// A header with nothing optional in it, as a server's first message to a device has it.
syncml::SyncHdr plainHeader();

/// A message of `command` alone, under a plain header, with Final.
syncml::Message messageOf(const syncml::Command &command);

/// A Replace of one item with that value.
syncml::Message messageWithData(const QByteArray &data);

/// Every element of DM in some message, each kind of command in all its shapes. All texts are such
/// that both encodings can carry them.
std::vector<Sample> allSamples();

} // namespace samples
