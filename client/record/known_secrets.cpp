#include "known_secrets.h"

#include <algorithm>
#include <cctype>

namespace client {

namespace {

constexpr qsizetype shortestAnywhere = 4;

QByteArray escapedForXml(const QByteArray &text)
{
    return QString::fromUtf8(text).toHtmlEscaped().toUtf8();
}

bool isWordByte(QByteArrayView text, qsizetype at)
{
    return at >= 0 && at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])) != 0;
}

} // namespace

void KnownSecrets::add(const QByteArray &secret)
{
    if (secret.isEmpty())
        return;
    // Base64 of a longer text has the same digits but for those at its ends.
    constexpr QByteArrayView before[] = {"", "\1", "\1\1"};
    for (qsizetype shift = 0; shift < 3; ++shift) {
        QByteArray digits = (before[shift].toByteArray() + secret).toBase64();
        const qsizetype firstOwn = (shift * 8 + 5) / 6;
        const qsizetype lastOwn = (shift + secret.size()) * 8 / 6;
        m_forms.insert(digits.mid(firstOwn, lastOwn - firstOwn));
    }
    for (const QByteArray &form : {secret, secret.toHex(), secret.toHex().toUpper(),
                                   escapedForXml(secret), secret.toPercentEncoding()})
        m_forms.insert(form);
    m_forms.erase(QByteArray());
}

ByteSpans KnownSecrets::placesIn(QByteArrayView text) const
{
    ByteSpans places;
    for (const QByteArray &form : m_forms) {
        for (qsizetype at = text.indexOf(form); at >= 0; at = text.indexOf(form, at + 1)) {
            const bool isWord = !isWordByte(text, at - 1) && !isWordByte(text, at + form.size());
            if (form.size() >= shortestAnywhere || isWord)
                places.push_back({at, at + form.size()});
        }
    }
    return places;
}

QByteArray KnownSecrets::masked(QByteArray text) const
{
    overwrite(text, placesIn(text));
    return text;
}

QString KnownSecrets::masked(const QString &text) const
{
    if (m_forms.empty())
        return text;
    const QByteArray bytes = text.toUtf8();
    const QByteArray hidden = masked(bytes);
    return hidden == bytes ? text : QString::fromUtf8(hidden);
}

} // namespace client
