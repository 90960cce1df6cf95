// Texts of a message: UTF-8 outside, QString inside, and only characters that XML knows, so that
// every message that was read from one encoding can be written in the other.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <optional>
#include <string>
#include <string_view>

namespace syncml {

/// True when every character of `text` is one of XML 1.0, and no surrogate stands alone.
bool isXmlText(QStringView text);

/// The same of UTF-8; false for bytes that are not.
bool isXmlText(QByteArrayView utf8);

/// True for an XML text of one line: no control character, so no line break and no tabulator.
bool isXmlLine(QStringView text);

/// `bytes` as text, a leading byte order mark included. Nothing when they are not UTF-8, or hold a
/// character that XML does not know.
std::optional<QString> xmlTextFromUtf8(QByteArrayView bytes);

/// The text as UTF-8, in the buffer, which grows as it needs to. None when a character of it is not
/// one of XML.
std::optional<std::string_view> xmlTextToUtf8(QStringView text, std::string &buffer);

/// `text` without the white space of XML (blank, tab, line feed, carriage return) at both ends.
QByteArrayView withoutOuterBlanks(QByteArrayView text);

} // namespace syncml
