#include "xml_text.h"

#include "utf8.h"

#include <algorithm>
#include <bit>

namespace syncml {
namespace {

constexpr unsigned firstPrintable = 0x20;
constexpr unsigned firstBeyondAscii = 0x80;

/// Of a character before the first printable one.
constexpr bool isXmlControl(unsigned unit)
{
    return unit == '\t' || unit == '\n' || unit == '\r';
}

/// What the units of a text have, of UTF-8 or of UTF-16.
struct Units {
    bool areXml = true; ///< as far as those of ASCII can say
    bool areAscii = true;
};

template <class Unit, class Text>
Units unitsOf(Text text)
{
    // Without a way out in between, the compiler takes many at once.
    bool areXml = true;
    unsigned all = 0;
    for (const auto &each : text) {
        const unsigned unit = std::bit_cast<Unit>(each);
        areXml &= unit >= firstPrintable || isXmlControl(unit);
        all |= unit;
    }
    return {areXml, all < firstBeyondAscii};
}

/// Of a character that is one UTF-16 unit. Those of two units are all characters of XML.
constexpr bool isXmlCharacter(char16_t unit)
{
    return unit >= firstPrintable ? unit <= 0xFFFD : isXmlControl(unit);
}

constexpr bool isBlank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

} // namespace

bool isXmlText(QStringView text)
{
    const Units units = unitsOf<char16_t>(text);
    if (units.areAscii || !units.areXml)
        return units.areXml;
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

bool isXmlText(QByteArrayView utf8)
{
    const Units units = unitsOf<unsigned char>(utf8);
    if (units.areAscii || !units.areXml)
        return units.areXml;
    // Two characters beyond ASCII are none of XML: U+FFFE and U+FFFF.
    return utf8.isValidUtf8() && !utf8.contains("\xEF\xBF\xBE") && !utf8.contains("\xEF\xBF\xBF");
}

bool isXmlLine(QStringView text)
{
    return isXmlText(text) && std::ranges::none_of(text, [](QChar character) {
               return character.category() == QChar::Other_Control;
           });
}

std::optional<QString> xmlTextFromUtf8(QByteArrayView bytes)
{
    const Units units = unitsOf<unsigned char>(bytes);
    if (units.areXml && units.areAscii)
        return QString::fromLatin1(bytes);
    if (!isXmlText(bytes))
        return std::nullopt;
    return support::fromUtf8(bytes);
}

std::optional<std::string_view> xmlTextToUtf8(QStringView text, std::string &buffer)
{
    const auto size = static_cast<std::size_t>(text.size());
    if (buffer.size() < size)
        buffer.resize(size);
    // Most texts are printable ASCII, and become UTF-8 while that is found out.
    unsigned all = 0;
    bool arePrintable = true;
    char *to = buffer.data();
    for (const QChar character : text) {
        const unsigned unit = character.unicode();
        all |= unit;
        arePrintable &= unit >= firstPrintable;
        *to++ = static_cast<char>(unit);
    }
    if (all < firstBeyondAscii && (arePrintable || isXmlText(text)))
        return std::string_view(buffer.data(), size);
    if (!isXmlText(text))
        return std::nullopt;
    const QByteArray converted = text.toUtf8();
    buffer.assign(converted.data(), static_cast<std::size_t>(converted.size()));
    return buffer;
}

QByteArrayView withoutOuterBlanks(QByteArrayView text)
{
    const char *begin = text.data();
    const char *end = begin + text.size();
    while (begin != end && isBlank(*begin))
        ++begin;
    while (begin != end && isBlank(end[-1]))
        --end;
    return {begin, end};
}

} // namespace syncml
