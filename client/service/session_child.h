// One session, or one bootstrap message, in a process of its own.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <chrono>
#include <functional>
#include <optional>

namespace client {

/// Runs `dmclient session --json --questions`, or `bootstrap`, and watches it: whatever it prints,
/// however long it takes and however it ends, the process that watches goes on.
class SessionChild {
public:
    struct Limits {
        /// For the whole session, which gives up by itself before.
        std::chrono::milliseconds time = std::chrono::minutes(35);
        /// To end in good order when it is asked to.
        std::chrono::milliseconds timeToEnd = std::chrono::seconds(10);
        /// What it may print, in bytes.
        qint64 output = qint64(256) * 1024 * 1024;
    };
    /// How a process ended.
    struct End {
        /// Its last object with the key "session" or "bootstrap"; none when there was none.
        std::optional<QJsonObject> summary;
        QString fault; ///< why it was ended, or how it crashed; empty when it ended by itself
        bool hasTimedOut = false;
        bool wasCancelled = false;
        int exitStatus = 0;     ///< as of main(); only when it ended by itself
        QByteArray lastProblem; ///< the last line that it wrote on standard error
    };
    /// Called once for each process that was started, when it has ended.
    using Ended = std::function<void(const End &)>;

    /// Called with each line of the process that has the key "question".
    using Asked = std::function<void(const QJsonObject &question)>;

    SessionChild(Limits limits, Ended ended, Asked asked);
    /// Ends the process, without a call.
    ~SessionChild();

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    /// There must be none yet.
    void start(const QString &program, const QStringList &arguments);
    /// A line for the process; none when there is no process any more.
    void answer(const QJsonObject &answer);
    /// Asks the process to end in good order, and when it does not, kills it.
    void cancel();

private:
    /// Lines of one of its outputs, of which only an ordinary one is looked at.
    class Lines {
    public:
        void add(const QByteArray &bytes, const std::function<void(const QByteArray &)> &line);
        /// What comes after the last line break.
        const QByteArray &rest() const { return m_rest; }

    private:
        QByteArray m_rest;
        bool m_isTooLong = false;
    };

    void readOutput();
    void readLine(const QByteArray &line);
    void readProblems();
    void count(qsizetype bytes);
    void stop(const QString &fault);
    void finish();

    const Limits m_limits;
    const Ended m_ended;
    const Asked m_asked;
    QProcess m_process;
    QTimer m_timer;
    Lines m_output;
    Lines m_problems;
    qint64 m_printed = 0;
    End m_end;
};

} // namespace client
