// DM messages as WBXML.
#pragma once

#include "codec_result.h"

#include <memory>

namespace syncml {

class ElementSink;
class ElementSource;

/// Reads one message.
///
/// Taken: WBXML 1.x in UTF-8; the public id of SyncML 1.0 to 1.2 as number or as text, or none;
/// texts as inline strings, string-table references, opaque data and character entities, in any
/// number of pieces. Data is the bytes sent: a whole WBXML document inside it is left alone.
/// Skipped: known elements that are unused in DM.
/// Refused: tags and code pages other than SyncML's and MetInf's, attributes, literal tags,
/// extensions, processing instructions, elements inside a text, bytes after the end.
DecodeResult decodeWbxml(const QByteArray &bytes, const Limits &limits = {});

/// The elements of a serialised tree or a device description: as a message, but with the public ids
/// and the code page of these.
std::unique_ptr<ElementSource> makeWbxmlTreeSource(const QByteArray &bytes, const Limits &limits);

/// Writes `message` as WBXML 1.2 without a string table, with the children in the order of the DTD;
/// every Data is opaque, every other text an inline string (a NextNonce that is not text is
/// opaque).
///
/// Fails when `message` is not complete, has a command of kind Unknown or Unsupported, or has a
/// text other than Data that XML could not carry.
EncodeResult encodeWbxml(const Message &message);

/// What a message is written into, on the code page of commands.
std::unique_ptr<ElementSink> makeWbxmlSink();

} // namespace syncml
