#include "journal.h"

#include "datagram.h"
#include "foreign_text.h"

#include <cstdio>
#include <string>

namespace client {

namespace {

constexpr char journalSocket[] = "/run/systemd/journal/socket";

QByteArray harmless(const QString &text)
{
    return QByteArray::fromStdString(foreign_text::printable(text.toStdString()));
}

/// The value has no line break, which would begin another field.
void addField(QByteArray &entry, const char *name, const QByteArray &value)
{
    entry += name;
    entry += '=' + value + '\n';
}

} // namespace

QByteArray journalEntry(JournalPriority priority, const QString &message,
                        std::initializer_list<JournalField> fields)
{
    QByteArray entry;
    addField(entry, "MESSAGE", harmless(message));
    addField(entry, "PRIORITY", QByteArray::number(static_cast<int>(priority)));
    addField(entry, "SYSLOG_IDENTIFIER", "dmclientd");
    for (const auto &[name, value] : fields)
        addField(entry, name, harmless(value));
    return entry;
}

void writeJournal(JournalPriority priority, const QString &message,
                  std::initializer_list<JournalField> fields)
{
    if (sendDatagram(journalSocket, journalEntry(priority, message, fields)))
        return;
    std::fprintf(stderr, "dmclientd: %s\n", harmless(message).constData());
}

} // namespace client
