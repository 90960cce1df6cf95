#include "known_secrets.h"

#include <QByteArrayList>
#include <algorithm>
#include <cctype>
#include <cstring>

namespace client {

namespace {

constexpr qsizetype shortestAnywhere = sizeof(quint32);

/// The first bytes of a text that has as many.
quint32 beginningOf(QByteArrayView text)
{
    quint32 bytes = 0;
    std::memcpy(&bytes, text.data(), sizeof bytes);
    return bytes;
}

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
    QByteArrayList forms{secret, secret.toHex(), secret.toHex().toUpper(), escapedForXml(secret),
                         secret.toPercentEncoding()};
    // Base64 of a longer text has the same digits but for those at its ends.
    constexpr QByteArrayView before[] = {"", "\1", "\1\1"};
    for (qsizetype shift = 0; shift < 3; ++shift) {
        QByteArray digits = (before[shift].toByteArray() + secret).toBase64();
        const qsizetype firstOwn = (shift * 8 + 5) / 6;
        const qsizetype lastOwn = (shift + secret.size()) * 8 / 6;
        forms += digits.mid(firstOwn, lastOwn - firstOwn);
    }
    for (const QByteArray &form : forms) {
        if (form.size() >= shortestAnywhere) {
            m_forms.insert(form);
            m_beginnings.insert(beginningOf(form));
        } else if (!form.isEmpty()) {
            m_shortForms.insert(form);
        }
    }
}

/// How many bytes at the beginning of the text are a secret; none is 0.
qsizetype KnownSecrets::longestFormAt(QByteArrayView text) const
{
    if (!m_beginnings.contains(beginningOf(text)))
        return 0;
    // Of the forms that the text begins with, the longest is the last one that is not behind the
    // text. One there that differs leaves only shorter ones, up to where it does.
    while (text.size() >= shortestAnywhere) {
        auto form = m_forms.upper_bound(text);
        if (form == m_forms.begin())
            return 0;
        --form;
        const auto alike = std::ranges::mismatch(*form, text);
        if (alike.in1 == form->end())
            return form->size();
        text = text.first(alike.in2 - text.begin());
    }
    return 0;
}

ByteSpans KnownSecrets::placesIn(QByteArrayView text) const
{
    ByteSpans places;
    for (qsizetype at = 0; !m_forms.empty() && at + shortestAnywhere <= text.size(); ++at)
        if (const qsizetype size = longestFormAt(text.sliced(at)); size > 0)
            places.push_back({at, at + size});
    for (const QByteArray &form : m_shortForms)
        for (qsizetype at = text.indexOf(form); at >= 0; at = text.indexOf(form, at + 1))
            if (!isWordByte(text, at - 1) && !isWordByte(text, at + form.size()))
                places.push_back({at, at + form.size()});
    return places;
}

QByteArray KnownSecrets::masked(QByteArray text) const
{
    overwrite(text, placesIn(text));
    return text;
}

QString KnownSecrets::masked(const QString &text) const
{
    if (isEmpty())
        return text;
    const QByteArray bytes = text.toUtf8();
    const QByteArray hidden = masked(bytes);
    return hidden == bytes ? text : QString::fromUtf8(hidden);
}

} // namespace client
