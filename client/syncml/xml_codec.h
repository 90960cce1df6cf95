// DM messages as XML.
#pragma once

#include "codec_result.h"

#include <QByteArrayView>
#include <memory>

namespace syncml {

class ElementSink;
class ElementSource;

/// Reads one message.
///
/// Taken: UTF-8, which may call itself US-ASCII, with or without a byte order mark; children in any
/// order; any prefix and any namespace; Meta with and without
/// MetInf; Data as escaped text, as CDATA, or as XML standing there unescaped, which is kept as its
/// markup (comments dropped, declarations that it needs from outside added).
/// Skipped: elements that are unknown, or unused in DM, inside a known one.
/// Refused: a document type declaration with an internal subset, references to entities other than
/// the five predefined ones, text between elements, an element twice where one can be.
DecodeResult decodeXml(const QByteArray &bytes, const Limits &limits = {});

/// The elements of any document, with what is refused in a message refused.
std::unique_ptr<ElementSource> makeXmlSource(const QByteArray &bytes, const Limits &limits);

/// Writes `message` as UTF-8, with the children in the order of the DTD.
///
/// Fails when `message` is not complete, has a command of kind Unknown or Unsupported, or has a
/// text or Data that XML cannot carry (see `fitsXml`).
EncodeResult encodeXml(const Message &message, XmlLayout layout = XmlLayout::OneLine);

/// What a message of one line is written into.
std::unique_ptr<ElementSink> makeXmlSink();

/// True when XML can carry `bytes` as text: UTF-8 without the control characters that XML does not
/// know. Other bytes travel as base64, with the Format saying so.
bool fitsXml(QByteArrayView bytes);

} // namespace syncml
