// What is refused before the XML reader sees it, because the reader would spend far more on it than
// its length.
#pragma once

#include "syncml/codec_result.h"

#include <QByteArrayView>
#include <optional>

namespace syncml {

/// The first reason in `xml`, with its place, to keep it from the reader: a document type with
/// declarations of its own, which the reader works through before it tells of them, or a tag with
/// more attributes than `limits` allow, which it compares each with each.
std::optional<DecodeError> guardXml(QByteArrayView xml, const Limits &limits);

} // namespace syncml
