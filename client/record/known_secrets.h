// Secrets that have been seen, wherever they turn up again.
#pragma once

#include "byte_spans.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <set>
#include <unordered_set>

namespace client {

/// Finds secrets in texts that nobody can tell apart by their place: messages of libraries,
/// reasons, messages that cannot be read.
class KnownSecrets {
public:
    /// Learns a secret; an empty one is none.
    void add(const QByteArray &secret);

    bool isEmpty() const { return m_forms.empty() && m_shortForms.empty(); }
    /// Where secrets stand in the text, whether as they are, as base64, as hexadecimal digits, or
    /// escaped for XML or for a URI. One of less than four bytes is found as a word of its own
    /// only.
    ByteSpans placesIn(QByteArrayView text) const;
    /// The text with an asterisk in the place of each byte of a secret.
    QByteArray masked(QByteArray text) const;
    QString masked(const QString &text) const;

private:
    struct ByBytes {
        using is_transparent = void;
        bool operator()(QByteArrayView one, QByteArrayView other) const
        {
            return one.compare(other) < 0;
        }
    };

    qsizetype longestFormAt(QByteArrayView text) const;

    // A handset has thousands of forms, and a record thousands of texts, so that most places of a
    // text have to be passed over without a look at the forms.
    std::set<QByteArray, ByBytes> m_forms;
    std::unordered_set<quint32> m_beginnings; ///< the first bytes of each form
    std::set<QByteArray> m_shortForms;        ///< of those that are words of their own only
};

} // namespace client
