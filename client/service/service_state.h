// The files of the service in a state directory.
#pragma once

#include "expected.h"
#include "file_descriptor.h"
#include "private_file.h"
#include "session_result.h"

#include <QJsonObject>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

namespace client {

/// What of the service outlives it. There is one service on a state directory at a time; the
/// directory's own lock is for those who work with the device, such as a session's process.
class ServiceState {
public:
    /// Makes the folders that are missing.
    /// @return never null; the error is a sentence that names what cannot be used and why
    static support::Expected<std::unique_ptr<ServiceState>, QString> open(const QString &path);

    /// Absolute.
    const QString &path() const { return m_path; }
    QString accountsFile() const;
    /// Of operations that end later; the sessions' processes write it.
    QString lateOperationsFile() const;

    // Each says what is wrong with a file, which the next writing replaces: waits begin anew then,
    // and results are of yesterday.
    support::Expected<std::optional<QJsonObject>, QString> readSchedule() const;
    support::Expected<void, QString> writeSchedule(const QJsonObject &schedule) const;
    support::Expected<std::vector<SessionResult>, QString> readResults() const;
    support::Expected<void, QString> writeResults(const std::vector<SessionResult> &results) const;

    /// Where its name in an error says which file it is.
    QString scheduleFile() const { return m_schedule.path(); }

private:
    ServiceState(QString path, handset_state::FileDescriptor lockFile);

    QString m_path;
    handset_state::FileDescriptor m_lockFile;
    support::PrivateFile m_schedule;
    support::PrivateFile m_results;
};

} // namespace client
