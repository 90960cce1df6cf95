// Holding documents of the DM DDF against the content model of their DTD.
#pragma once

#include <QByteArray>
#include <string>
#include <vector>

namespace client {

/// What is wrong with a MgmtTree document, a line each with the path of the element: children in
/// another order or number than the DTD has, text where it has none, elements that it does not
/// know.
std::vector<std::string> faultsOfDescription(const QByteArray &document);

} // namespace client
