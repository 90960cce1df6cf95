#include "raw_record.h"

#include <QByteArrayView>
#include <algorithm>

#include "record_fields.h"
#include "secret_mask.h"

using ByteKind = profile_record::FieldKind;
using profile_record::RecordField;

namespace {

constexpr qsizetype bytesOfALine = 8;

QString hexNumber(std::size_t offset)
{
    return QStringLiteral("0x%1").arg(offset, 3, 16, QChar(u'0'));
}

/// The characters of a line of text; a dot for each byte that is not one of ASCII.
QString charactersOf(QByteArrayView bytes)
{
    QString text;
    for (const char byte : bytes)
        text += QLatin1Char(byte >= ' ' && byte <= '~' ? byte : '.');
    return text;
}

QString meaningOf(const RecordField &field, const NAP_PROFILE_S &record, QByteArrayView bytes)
{
    switch (field.kind) {
    case ByteKind::Reserved:
        return {};
    case ByteKind::Number:
    case ByteKind::Ipv4:
        return QString::fromStdString(textOf(field, record));
    case ByteKind::Text:
    case ByteKind::Secret:
        return charactersOf(bytes);
    }
    return {};
}

QString hexOf(QByteArrayView bytes)
{
    return QString::fromLatin1(bytes.toByteArray().toHex(' '));
}

QString line(const QString &place, const QString &field, const QString &bytes,
             const QString &meaning)
{
    QString text = QStringLiteral("%1  %2  %3  %4")
                       .arg(place, field, bytes.leftJustified(3 * bytesOfALine - 1), meaning);
    while (text.endsWith(u' '))
        text.chop(1);
    return text + u'\n';
}

QString linesOf(const RecordField &field, const NAP_PROFILE_S &record, Secrets secrets)
{
    const std::string_view all = bytesOf(field, record);
    const QByteArrayView bytes(all.data(), static_cast<qsizetype>(all.size()));
    // What comes after the last byte that is not 0 is told by an asterisk.
    const auto used = static_cast<qsizetype>(all.find_last_not_of('\0') + 1);
    const QString title =
        QStringLiteral("%1  %2")
            .arg(bytes.size(), 4)
            .arg(QLatin1StringView(field.name.data(), static_cast<qsizetype>(field.name.size())),
                 -16);
    // Also when the password ends at once: the bytes after it may be left of a longer one.
    if (field.kind == ByteKind::Secret && secrets == Secrets::Masked && used > 0)
        return line(hexNumber(field.offset), title, QStringLiteral("masked"),
                    QString::fromLatin1(support::secretMask));
    QString text;
    qsizetype at = 0;
    for (; at == 0 || at < used; at += bytesOfALine) {
        const QByteArrayView part =
            bytes.sliced(at).first(std::min(bytesOfALine, bytes.size() - at));
        text += line(hexNumber(field.offset + static_cast<std::size_t>(at)),
                     at == 0 ? title : QString(title.size(), u' '), hexOf(part),
                     meaningOf(field, record, part));
    }
    return at < bytes.size() ? text + QStringLiteral("*\n") : text;
}

} // namespace

QString rawRecord(const NAP_PROFILE_S &record, Secrets secrets)
{
    QString text =
        QStringLiteral("PLACE  SIZE  FIELD             BYTES                    VALUE\n");
    for (const RecordField &field : profile_record::recordFields)
        text += linesOf(field, record, secrets);
    return text;
}
