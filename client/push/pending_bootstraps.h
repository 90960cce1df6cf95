// Bootstrap messages that came by air and wait for somebody to answer for them.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <chrono>
#include <optional>
#include <vector>

namespace client::push {

/// Whether the bytes are a push with a bootstrap message in it, whatever that looks like.
bool isBootstrapPush(const QByteArray &bytes);

struct PendingBootstrap {
    QString id = {};                       ///< 16 hexadecimal digits, of the document and its proof
    std::chrono::milliseconds received{0}; ///< since 1970
    QByteArray message = {};               ///< the push
    QByteArray imsi = {};                  ///< of the SIM card that it came to; empty: not known
    int pinTries = 0;                      ///< wrong ones, over all processes
    /// Its application was begun and has not succeeded. The service leaves it to its owner then,
    /// so that nothing is applied twice.
    bool isSetAside = false;

    bool operator==(const PendingBootstrap &) const = default;
};

/// A folder with a file for each message, which is left behind empty when the message has been
/// dealt with: a modem announces what it has at each start. The service adds files, whoever has
/// the lock of the state directory changes them.
class PendingBootstraps {
public:
    /// That wait. A further one is refused: who sends many must not push out the operator's.
    static constexpr std::size_t most = 16;
    /// Of those that have been dealt with; the oldest are forgotten.
    static constexpr std::size_t mostRemembered = 64;

    /// @param stateDirectory  in which there is the client's folder
    explicit PendingBootstraps(const QString &stateDirectory);

    enum class Added {
        New,
        Known, ///< it waits, or was dealt with
        NoRoom,
        NoProof, ///< it has no SEC and MAC, without which nothing is taken from the air
    };
    struct Addition {
        Added added = Added::New;
        QString id;
    };
    /// Keeps a message, and has it on the disk when it returns.
    /// @param message  a push
    /// @param imsi     empty when it is not known; one that is too long counts as unknown
    /// @return why it cannot be kept, a sentence that names the file
    support::Expected<Addition, QString> add(const QByteArray &message, const QByteArray &imsi,
                                             std::chrono::milliseconds received) const;

    struct Listing {
        std::vector<PendingBootstrap> pending; ///< the oldest first
        QStringList damage;                    ///< of files that are no messages, a sentence each
    };
    Listing list() const;
    /// @return why there is none of that name
    support::Expected<PendingBootstrap, QString> find(const QString &id) const;
    /// Keeps what has changed of a message.
    support::Expected<void, QString> change(const PendingBootstrap &pending) const;
    /// Forgets the message, but not that it came.
    support::Expected<void, QString> finish(const QString &id) const;

private:
    struct Entry;

    QString fileOf(const QString &id) const;
    support::Expected<std::optional<Entry>, QString> read(const QString &id) const;
    support::Expected<void, QString> write(const QString &id, const Entry &entry) const;
    QStringList ids() const;

    QString m_folder;
};

} // namespace client::push
