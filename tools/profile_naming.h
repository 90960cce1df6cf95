// Names for profiles that are made from an operators' database.
#pragma once

#include <QByteArray>
#include <QStringList>

/// @return the text as UTF-8 with the suffix after it; the text is cut at the end of a character
/// so that both together are at most 63 bytes.
QByteArray cutProfileName(const QString &text, const QByteArray &suffix);

/// @return the names to try for an access point, the best first: the provider's name when it has
/// only one access point or only one is taken, then the provider's name with the access point's
/// after it. An access point whose name begins with the provider's goes by its own name. All runs
/// of white space are one blank each, and a slash is a hyphen.
QStringList profileNameCandidates(const QString &provider, const QString &accessPoint,
                                  bool isOnlyOne);
