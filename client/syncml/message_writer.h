// A message to elements.
#pragma once

#include "codec_result.h"

namespace syncml {

class ElementSink;

/// Writes `message` into `sink` in the order of the DTD. Gives the reason when it cannot be; what
/// the sink holds is of no use then.
support::Expected<void, EncodeError> writeMessage(const Message &message, ElementSink &sink);

// Bytes that a part of a message adds to a sink.
support::Expected<qsizetype, EncodeError> sizeOf(const Command &command, ElementSink &sink);
support::Expected<qsizetype, EncodeError> sizeOf(const Item &item, ElementSink &sink);
/// Of a TargetRef, or of a SourceRef, which is as long.
support::Expected<qsizetype, EncodeError> sizeOfReference(const QString &uri, ElementSink &sink);

} // namespace syncml
