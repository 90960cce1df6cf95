// The directory that holds the state of one simulated handset.
#pragma once

#include "expected.h"
#include "file_descriptor.h"

#include <QString>
#include <memory>

namespace client {

/// The client's part of a state directory, locked for this process while the object lives. Two
/// clients at once would each rebuild the mapping files under the other's feet.
class StateDirectory {
public:
    /// Where the state lives when nobody says otherwise, as the libraries beneath a plug-in see it.
    static QString defaultPath();

    /// Creates what is missing (readable by its owner only), refuses what others own or can write
    /// to, takes the lock, and sets KUB_STATE_DIR so that the libraries beneath a plug-in use the
    /// same directory. Call it before any of them is loaded.
    /// @param path  a relative one is beneath the working directory
    /// @return never null; the error is a sentence that names the path and the reason
    static support::Expected<std::unique_ptr<StateDirectory>, QString> open(const QString &path);

    /// Whether a client has the lock of a state directory at this moment.
    static bool isInUse(const QString &path);

    /// Absolute.
    QString path() const;
    /// Path of a file of the client in this directory.
    QString clientFile(const QString &name) const;

    /// Makes a folder for what is needed as long as this process lives, mode 0700. What a process
    /// leaves of it when it is killed is removed when the state directory is opened next.
    support::Expected<QString, QString> makeScratchFolder() const;
    /// Removes such a folder with everything in it, and nothing that is not one.
    static void removeScratchFolder(const QString &folder);

    /// The device's identifier, a URN: read from the file device-id, which is written at first use.
    support::Expected<QByteArray, QString> deviceId() const;

private:
    StateDirectory(QString clientPath, handset_state::FileDescriptor lockFile);

    QString m_clientPath;
    handset_state::FileDescriptor m_lockFile;
};

} // namespace client
