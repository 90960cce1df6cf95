// The handset of a page: dmclient's shell in a process of its own.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>
#include <functional>
#include <memory>

namespace client {

/// Runs `dmclient shell` on one state directory and hands on what it prints and records. A process
/// of its own, since mounting again and going back to a snapshot need one that begins again: what
/// the libraries beneath a plug-in hold open is theirs until their process ends.
class HandsetProcess {
public:
    struct Options {
        QString program;       ///< file of dmclient
        QStringList arguments; ///< that choose the handset, such as --state DIR
        QString stateDirectory;
        /// Keeps others out of the state directory for as long as what it returns is held, or says
        /// why it cannot.
        std::function<support::Expected<std::shared_ptr<void>, QString>()> lockState;
    };
    struct Listener {
        std::function<void(const QByteArray &line)> recorded; ///< a line of the record, whole
        std::function<void(const QByteArray &line)> printed;  ///< on either output
        /// The process has ended, which it was not asked to.
        std::function<void(const QString &reason)> failed;
    };

    HandsetProcess(Options options, Listener listener);
    ~HandsetProcess();

    /// @param showSecrets  whether the record and what is printed has them
    /// @return why it cannot run
    support::Expected<void, QString> start(bool showSecrets);
    /// Ends the process in good order, and when it does not end, otherwise. What it has printed and
    /// recorded is handed on before.
    void stop();
    /// Gives the shell a line, without its end.
    void send(const QByteArray &line);

    /// A file in a folder that only this user can enter and that goes with this object.
    /// @return its path, or why it cannot be written
    support::Expected<QString, QString> keepFile(const QString &name,
                                                 const QByteArray &bytes) const;

    /// Keeps the state as it is while the process does not run.
    /// @return the snapshot's number from 0, or why the state cannot be kept
    support::Expected<int, QString> takeSnapshot();
    /// Puts the state back as a snapshot has it, while the process does not run.
    support::Expected<void, QString> goBackTo(int snapshot);
    int snapshots() const { return m_snapshots; }

private:
    void readOutput();
    void readRecord();

    const Options m_options;
    const Listener m_listener;
    QTemporaryDir m_scratch;
    QProcess m_process;
    QTimer m_recordTimer;
    QFile m_record;
    QByteArray m_output; ///< after its last whole line
    int m_runs = 0;
    int m_snapshots = 0;
    bool m_isStopping = false;
};

} // namespace client
