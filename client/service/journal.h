// What the service tells the system's journal.
#pragma once

#include <QByteArray>
#include <QString>
#include <initializer_list>
#include <utility>

namespace client {

/// As syslog has them.
enum class JournalPriority { Error = 3, Warning = 4, Notice = 5, Information = 6 };

/// A field of an entry beside its message: a name of capital letters, digits and underscores.
using JournalField = std::pair<const char *, QString>;

/// An entry of the journal with its fields, so that all of an account or of a cause can be looked
/// for. Where there is no journal a line on standard error, with the message alone.
void writeJournal(JournalPriority priority, const QString &message,
                  std::initializer_list<JournalField> fields = {});

/// The entry as it goes to the journal; what in its values would steer a terminal is escaped.
QByteArray journalEntry(JournalPriority priority, const QString &message,
                        std::initializer_list<JournalField> fields);

} // namespace client
