// The element names of serialised trees and device descriptions in WBXML.
#pragma once

#include <QtGlobal>
#include <string_view>

namespace syncml {

/// Their code page, beside those of messages.
constexpr quint8 treePage = 2;

/// Name of the element with that tag code in that page; empty when there is none.
std::string_view treeElementName(quint8 token);

} // namespace syncml
