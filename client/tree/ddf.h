// The device description: what a DM server can be told about the management tree before a session.
#pragma once

#include <QByteArray>

namespace client {

/// Version and namespace of descriptions and of serialised trees, which share their elements.
inline constexpr char descriptionVersion[] = "1.2";
inline constexpr char descriptionNamespace[] = "syncml:dmddf1.2";

/// The description of all described trees as an XML document of the DM DDF 1.2, UTF-8.
QByteArray deviceDescriptionDocument();

} // namespace client
