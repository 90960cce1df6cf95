// DM messages in whichever encoding they come: start here.
#pragma once

#include "codec_result.h"

#include <memory>

namespace syncml {

class ElementSource;

enum class Encoding { Xml, Wbxml };

/// The encoding that `bytes` begin like, or nothing when they begin like neither.
std::optional<Encoding> recogniseEncoding(const QByteArray &bytes);

/// Reads one message in the encoding that its bytes show; 415 when they show none. An empty message
/// is an error too (400): a peer that ends a session with an empty body is the caller's to notice.
DecodeResult decode(const QByteArray &bytes, const Limits &limits = {});

/// The elements of a serialised tree in the encoding that its bytes show; null when they show none.
std::unique_ptr<ElementSource> makeTreeSource(const QByteArray &bytes, const Limits &limits);

/// @param layout  of XML; only people have a use for another than the usual one
EncodeResult encode(const Message &message, Encoding encoding,
                    XmlLayout layout = XmlLayout::OneLine);

// Bytes that a part has in a message of one line, where WBXML stands on the code page of commands.
// The errors are those of `encode`.
support::Expected<qsizetype, EncodeError> sizeInMessage(const Command &command, Encoding encoding);
support::Expected<qsizetype, EncodeError> sizeInMessage(const Item &item, Encoding encoding);
/// Of an address as a TargetRef or a SourceRef.
support::Expected<qsizetype, EncodeError> referenceSizeInMessage(const QString &uri,
                                                                 Encoding encoding);

/// Makes the data of the command's items such that the encoding carries them: data that is not text
/// goes into XML as base64, and its Format says so.
void fitEncoding(Command &command, Encoding encoding);

} // namespace syncml
