#include "xml_text.h"

#include "utf8.h"

#include <algorithm>

namespace syncml {
namespace {

/// Of a character that is one UTF-16 unit. Those of two units are all characters of XML.
constexpr bool isXmlCharacter(char16_t unit)
{
    if (unit < 0x20)
        return unit == u'\t' || unit == u'\n' || unit == u'\r';
    return unit <= 0xFFFD;
}

constexpr bool isBlank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

} // namespace

bool isXmlText(QStringView text)
{
    for (qsizetype index = 0; index < text.size(); ++index) {
        const QChar unit = text[index];
        if (!unit.isSurrogate()) {
            if (!isXmlCharacter(unit.unicode()))
                return false;
            continue;
        }
        ++index;
        if (!unit.isHighSurrogate() || index == text.size() || !text[index].isLowSurrogate())
            return false;
    }
    return true;
}

bool isXmlLine(QStringView text)
{
    return isXmlText(text) && std::ranges::none_of(text, [](QChar character) {
               return character.category() == QChar::Other_Control;
           });
}

std::optional<QString> xmlTextFromUtf8(QByteArrayView bytes)
{
    std::optional<QString> text = support::fromUtf8(bytes);
    return text && isXmlText(*text) ? text : std::nullopt;
}

QByteArrayView withoutOuterBlanks(QByteArrayView text)
{
    while (!text.isEmpty() && isBlank(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && isBlank(text.back()))
        text.chop(1);
    return text;
}

} // namespace syncml
