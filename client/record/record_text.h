// A record for people.
#pragma once

#include <QJsonObject>
#include <QStringList>

namespace client {

/// The lines that tell a person of an event; none for one that is not known. Texts in them are
/// those of the record, so whoever shows them has to make them harmless.
QStringList eventLines(const QJsonObject &event);

} // namespace client
