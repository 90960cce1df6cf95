// Names that somebody may have meant.
#pragma once

#include <QStringList>

namespace commandline {

/// How many characters have to be added, taken away, replaced or swapped with their neighbour to
/// make one name from the other.
int editDistance(const QString &one, const QString &other);

/// The first of the nearest names; null when none is near: with one mistake, or one in three
/// characters.
QString nearestName(const QString &typed, const QStringList &names);

} // namespace commandline
