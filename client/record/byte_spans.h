// Places in a document.
#pragma once

#include <QByteArray>
#include <vector>

namespace client {

/// Bytes of a document, from the first to the one after the last.
struct ByteSpan {
    qsizetype begin = 0;
    qsizetype end = 0;

    bool operator==(const ByteSpan &) const = default;
};

using ByteSpans = std::vector<ByteSpan>;

/// Puts an asterisk in the place of each byte of the spans.
void overwrite(QByteArray &document, const ByteSpans &spans);

} // namespace client
