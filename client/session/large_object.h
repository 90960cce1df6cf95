// Values that come in chunks, because they are larger than a message.
#pragma once

#include "dm_status.h"
#include "message.h"

#include <QByteArray>
#include <optional>

namespace client {

/// Bytes of the largest object, as long as nobody chooses another limit.
inline constexpr qsizetype usualLargestObject = 1024 * 1024;

/// Puts the chunks of one object together. Objects do not overlap: while one is being received,
/// anything but its next chunk ends it.
class LargeObjectReceiver {
public:
    /// @param largestObject  bytes as transferred
    explicit LargeObjectReceiver(qsizetype largestObject) : m_largestObject(largestObject) {}

    bool isReceiving() const { return m_object.has_value(); }

    /// Whether the item is the next chunk of the object that is being received: it belongs to the
    /// same kind of command, and has the same address or none.
    bool continues(const syncml::Command &command, const syncml::Item &item) const;

    /// Takes the first or the next chunk.
    ///
    /// 213: it is stored, and more have to follow. 200: it was the last, and the item holds the
    /// whole value now. 412: the first chunk does not give the size of the object. 413: the object
    /// is larger than the limit. 424: its size is not the one that was given. On a failure what was
    /// received is dropped.
    Outcome take(const syncml::Command &command, syncml::Item &item);

    /// Drops what was received.
    /// @return the item to name in an alert that says so: the object's address
    syncml::Item abandon();

private:
    struct Object {
        syncml::CommandKind command;
        syncml::Item first; ///< the first chunk without its data
        QByteArray data;
        qsizetype size; ///< of the whole object, as the server gave it
    };

    Outcome begin(const syncml::Command &command, const syncml::Item &item);
    Outcome drop(DmStatus status, const QString &reason);

    qsizetype m_largestObject;
    std::optional<Object> m_object;
};

} // namespace client
