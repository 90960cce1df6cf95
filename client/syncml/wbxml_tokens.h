// What every WBXML document is made of, whatever its code pages hold.
#pragma once

#include <QtGlobal>

namespace syncml::wbxml {

/// Tokens that mean the same in every code page.
enum GlobalToken : quint8 {
    SwitchPage = 0x00,
    End = 0x01,
    Entity = 0x02,
    InlineString = 0x03,
    Literal = 0x04,
    TableString = 0x83,
    Opaque = 0xC3,
};

// The bits of a tag.
constexpr quint8 contentBit = 0x40;
constexpr quint8 attributesBit = 0x80;
constexpr quint8 tagMask = 0x3F;
constexpr quint8 firstTag = 0x05; // lower codes are global tokens, with any bits

constexpr quint8 majorVersionMask = 0xF0; // of the version byte

// Public ids that every document can have.
constexpr quint32 idInStringTable = 0x00;
constexpr quint32 idUnknown = 0x01;

// Character sets, by their IANA numbers.
constexpr quint32 charsetUnknown = 0;
constexpr quint32 charsetAscii = 3;
constexpr quint32 charsetUtf8 = 106;

} // namespace syncml::wbxml
