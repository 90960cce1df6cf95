// Node values between the engine's typed form and the texts of a message or a command line.
#pragma once

#include "dm_status.h"
#include "dmnative/dmt_data.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace client {

/// Name of a value type as the Format property gives it: "chr", "int", "bool", "bin", "node",
/// "null".
QString formatName(signed char type);

/// The value type that a Meta Format asks for, in any case; "b64" and "bin" are both Bin. None for
/// a format that no node of this client can have (xml, date, time, float) and for unknown words.
std::optional<DmtData::Type> typeOfFormat(const QString &format);

/// The words that typeOfFormat knows.
std::vector<QString> settableFormats();

/// 415
Outcome unsupportedFormat(const QString &reason);

/// Reads a leaf's value from text. Fails with 415 when the text is not a value of that type: an int
/// is a decimal 32-bit number, a bool is "true" or "false" (white space around either is ignored),
/// a chr is UTF-8 without NUL, bin is base64.
/// @param data  none is the empty value, which only chr and null have
Result<DmtData> parseValue(DmtData::Type type, const std::optional<QByteArray> &data);

/// The value as text: as parseValue reads it. Empty for a value of type Null.
QByteArray valueText(const DmtData &value);
/// The octets of a Bin; the text of any other value.
QByteArray valueBytes(const DmtData &value);

} // namespace client
