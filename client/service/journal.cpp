#include "journal.h"

#include "datagram.h"
#include "foreign_text.h"

#include <QtEndian>
#include <cstdio>
#include <string>

namespace client {

namespace {

constexpr char journalSocket[] = "/run/systemd/journal/socket";

/// A value with line breaks goes with its length before it.
void addField(QByteArray &entry, const char *name, const QByteArray &value)
{
    entry += name;
    if (value.contains('\n')) {
        const quint64 length = qToLittleEndian(static_cast<quint64>(value.size()));
        entry += '\n';
        entry.append(reinterpret_cast<const char *>(&length), sizeof length);
    } else {
        entry += '=';
    }
    entry += value + '\n';
}

} // namespace

QByteArray journalEntry(JournalPriority priority, const QString &message,
                        std::initializer_list<JournalField> fields)
{
    QByteArray entry;
    addField(entry, "MESSAGE", message.toUtf8());
    addField(entry, "PRIORITY", QByteArray::number(static_cast<int>(priority)));
    addField(entry, "SYSLOG_IDENTIFIER", "dmclientd");
    for (const auto &[name, value] : fields)
        addField(entry, name, value.toUtf8());
    return entry;
}

void writeJournal(JournalPriority priority, const QString &message,
                  std::initializer_list<JournalField> fields)
{
    if (sendDatagram(journalSocket, journalEntry(priority, message, fields)))
        return;
    const std::string line = foreign_text::printable(message.toStdString());
    std::fprintf(stderr, "dmclientd: %s\n", line.c_str());
}

} // namespace client
