#include "xml_guard.h"

#include <algorithm>

namespace {

/// Markup whose content is not looked at.
struct Opaque {
    QByteArrayView start;
    QByteArrayView end;
};

constexpr Opaque opaqueMarkup[] = {
    {QByteArrayView("<!--"), QByteArrayView("-->")},
    {QByteArrayView("<![CDATA["), QByteArrayView("]]>")},
    {QByteArrayView("<?"), QByteArrayView("?>")},
};

/// What one tag or declaration, begun with `<`, has outside and inside quotes.
struct Tag {
    qsizetype size = 0;
    qsizetype quotedValues = 0;
    bool hasBracket = false;
};

Tag scanTag(QByteArrayView xml)
{
    Tag tag;
    char quote = '\0';
    for (const char byte : xml) {
        ++tag.size;
        if (quote != '\0') {
            if (byte == quote)
                quote = '\0';
        } else if (byte == '"' || byte == '\'') {
            quote = byte;
            ++tag.quotedValues;
        } else if (byte == '[') {
            tag.hasBracket = true;
        } else if (byte == '>') {
            break;
        }
    }
    return tag;
}

XmlRefusal refusalAfter(QByteArrayView before, const QString &text)
{
    return {text, std::ranges::count(before, '\n') + 1};
}

} // namespace

std::optional<XmlRefusal> guardXml(QByteArrayView xml, qsizetype mostAttributes)
{
    qsizetype at = 0;
    while ((at = xml.indexOf('<', at)) >= 0) {
        const QByteArrayView rest = xml.sliced(at);
        const auto *const opaque = std::ranges::find_if(
            opaqueMarkup, [rest](const Opaque &markup) { return rest.startsWith(markup.start); });
        if (opaque != std::end(opaqueMarkup)) {
            const qsizetype end = rest.indexOf(opaque->end, opaque->start.size());
            if (end < 0)
                return std::nullopt; // the reader will tell that it breaks off
            at += end + opaque->end.size();
            continue;
        }
        const Tag tag = scanTag(rest);
        if (rest.startsWith("<!DOCTYPE") && tag.hasBracket)
            return refusalAfter(xml.first(at),
                                QStringLiteral("the document type has declarations of its own"));
        if (tag.quotedValues > mostAttributes)
            return refusalAfter(xml.first(at),
                                QStringLiteral("more than %1 attributes").arg(mostAttributes));
        at += tag.size;
    }
    return std::nullopt;
}
