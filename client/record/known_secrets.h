// Secrets that have been seen, wherever they turn up again.
#pragma once

#include "byte_spans.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <set>

namespace client {

/// Finds secrets in texts that nobody can tell apart by their place: messages of libraries,
/// reasons, messages that cannot be read.
class KnownSecrets {
public:
    /// Learns a secret; an empty one is none.
    void add(const QByteArray &secret);

    bool isEmpty() const { return m_forms.empty(); }
    /// Where secrets stand in the text, whether as they are, as base64, as hexadecimal digits, or
    /// escaped for XML or for a URI. One of less than four bytes is found as a word of its own
    /// only.
    ByteSpans placesIn(QByteArrayView text) const;
    /// The text with an asterisk in the place of each byte of a secret.
    QByteArray masked(QByteArray text) const;
    QString masked(const QString &text) const;

private:
    std::set<QByteArray> m_forms;
};

} // namespace client
