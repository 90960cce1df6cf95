// The tokens of a provisioning document in WBXML.
#pragma once

#include <QByteArrayView>
#include <optional>

namespace client::bootstrap {

/// Code pages, of tags and of attributes alike.
inline constexpr quint8 pageCount = 2;

/// How an attribute begins: its name, and the first part of its value.
struct AttributeStart {
    const char *name;
    const char *value;
};

std::optional<AttributeStart> attributeStart(quint8 page, quint8 token);

/// The part of a value that a token stands for; null when it stands for none.
const char *attributeValue(quint8 page, quint8 token);

} // namespace client::bootstrap
