// Which notifications were obeyed.
#pragma once

#include "expected.h"
#include "private_file.h"

#include <QByteArray>
#include <QString>

namespace client::notification {

/// Its name in the client's folder of a state directory.
inline constexpr char memoryFile[] = "notifications.json";

/// A file of what was obeyed, an entry for each nonce and session. An identifier may come again
/// with another nonce. With the nonce of servers that have lost theirs, which is always the same,
/// it may not, as long as it is among the last of its account: nobody can tell such a message from
/// one that was recorded and is sent again.
class NotificationMemory {
public:
    /// Entries of an account that are kept; the oldest go first.
    static constexpr qsizetype mostPerAccount = 256;

    /// @param path  in the client's folder of a state directory
    explicit NotificationMemory(const QString &path) : m_file(path, largestFile) {}

    /// Adds an entry, and has it on the disk when it returns. The file is read anew each time,
    /// since another process may have written it.
    /// @return false when it was there before. Fails when the file cannot be read or written.
    support::Expected<bool, QString> add(const QString &account, const QByteArray &nonce,
                                         quint16 sessionId) const;

private:
    /// In bytes; some hundred accounts.
    static constexpr qsizetype largestFile = 4 * 1024 * 1024;

    support::PrivateFile m_file;
};

} // namespace client::notification
