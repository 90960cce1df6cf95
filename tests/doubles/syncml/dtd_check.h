// Checks of XML documents as XML, without the codecs: is the order that of the DTD, are two trees
// the same.
#pragma once

#include <QByteArray>
#include <string>

namespace dtd_check {

/// What is wrong with the first element of `xml` that breaks the content models of the SyncML 1.2
/// and MetInf DTDs, or whose namespace is not the one of its DTD; empty when nothing is.
std::string firstFault(const QByteArray &xml);

/// The tree of `xml`: a line per element with its depth and name, and each text in quotes. Leaves
/// out comments, prefixes, namespaces and white space between elements.
std::string tree(const QByteArray &xml);

} // namespace dtd_check
