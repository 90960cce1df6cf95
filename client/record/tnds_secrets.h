// Secrets in serialised trees.
#pragma once

#include "byte_spans.h"

#include <QByteArrayView>
#include <optional>

namespace client {

/// Where the values of secret leaves (see isSecretLeaf) stand in a serialised tree, as XML. None
/// when the document cannot be read, so that it may hold secrets anywhere.
std::optional<ByteSpans> secretValues(QByteArrayView document);

} // namespace client
