#include "session_child.h"

#include "json_object.h"

#include <QJsonDocument>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <utility>

namespace client {

namespace {

/// A summary is shorter by far; a line with a value may be longer, and is not needed.
constexpr qsizetype longestLine = 64 * 1024;
constexpr qsizetype longestProblem = 1024;

} // namespace

void SessionChild::Lines::add(const QByteArray &bytes,
                              const std::function<void(const QByteArray &)> &line)
{
    for (qsizetype begin = 0; begin < bytes.size();) {
        const qsizetype end = bytes.indexOf('\n', begin);
        const qsizetype length = (end < 0 ? bytes.size() : end) - begin;
        if (m_rest.size() + length > longestLine)
            m_isTooLong = true;
        if (m_isTooLong)
            m_rest.clear();
        else
            m_rest.append(bytes.constData() + begin, length);
        if (end < 0)
            return;
        if (!std::exchange(m_isTooLong, false))
            line(std::exchange(m_rest, {}));
        begin = end + 1;
    }
}

SessionChild::SessionChild(Limits limits, Ended ended, Asked asked)
    : m_limits(limits), m_ended(std::move(ended)), m_asked(std::move(asked))
{
    m_process.setChildProcessModifier([] {
        // Signals that the service waits for in its own way are the child's as usual, and it does
        // not outlive the service.
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    });
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                     [this] { readOutput(); });
    QObject::connect(&m_process, &QProcess::readyReadStandardError, &m_process,
                     [this] { readProblems(); });
    QObject::connect(&m_process, &QProcess::finished, &m_process, [this] { finish(); });
    QObject::connect(&m_process, &QProcess::errorOccurred, &m_process,
                     [this](QProcess::ProcessError error) {
                         if (error != QProcess::FailedToStart)
                             return;
                         m_end.fault = QStringLiteral("cannot run %1: %2")
                                           .arg(m_process.program(), m_process.errorString());
                         // Whoever started it hears of its end after the start.
                         QTimer::singleShot(0, &m_process, [this] { finish(); });
                     });
    m_timer.setSingleShot(true);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
        if (m_end.hasTimedOut || m_end.wasCancelled || !m_end.fault.isEmpty()) {
            m_process.kill();
            return;
        }
        m_end.hasTimedOut = true;
        stop(QStringLiteral("the process did not end by itself"));
    });
}

SessionChild::~SessionChild()
{
    m_process.disconnect();
    if (!isRunning())
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(static_cast<int>(m_limits.timeToEnd.count()))) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

void SessionChild::start(const QString &program, const QStringList &arguments)
{
    m_output = {};
    m_problems = {};
    m_printed = 0;
    m_end = {};
    m_timer.start(m_limits.time);
    m_process.start(program, arguments);
}

void SessionChild::answer(const QJsonObject &answer)
{
    if (isRunning())
        m_process.write(QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n');
}

void SessionChild::cancel()
{
    m_end.wasCancelled = true;
    stop({});
}

/// Asks the process to end; the timer sees to it that it does.
void SessionChild::stop(const QString &fault)
{
    if (m_end.fault.isEmpty())
        m_end.fault = fault;
    m_process.terminate();
    m_timer.start(m_limits.timeToEnd);
}

void SessionChild::count(qsizetype bytes)
{
    const bool wasTooMuch = m_printed > m_limits.output;
    m_printed += bytes;
    if (!wasTooMuch && m_printed > m_limits.output)
        stop(QStringLiteral("the process printed more than %1 bytes").arg(m_limits.output));
}

void SessionChild::readOutput()
{
    const QByteArray bytes = m_process.readAllStandardOutput();
    m_output.add(bytes, [this](const QByteArray &line) { readLine(line); });
    count(bytes.size());
}

void SessionChild::readLine(const QByteArray &line)
{
    if (!line.contains("\"session\"") && !line.contains("\"bootstrap\"") &&
        !line.contains("\"question\""))
        return;
    auto object = support::parseJsonObject(line);
    if (!object)
        return;
    if (object->contains(u"question"))
        m_asked(*object);
    else if (object->contains(u"session") || object->contains(u"bootstrap"))
        m_end.summary = *std::move(object);
}

void SessionChild::readProblems()
{
    const QByteArray bytes = m_process.readAllStandardError();
    m_problems.add(
        bytes, [this](const QByteArray &line) { m_end.lastProblem = line.left(longestProblem); });
    count(bytes.size());
}

void SessionChild::finish()
{
    m_timer.stop();
    readOutput();
    readProblems();
    if (!m_problems.rest().isEmpty())
        m_end.lastProblem = m_problems.rest().left(longestProblem);
    if (m_process.exitStatus() == QProcess::CrashExit && m_end.fault.isEmpty())
        m_end.fault = QStringLiteral("the session's process was ended by signal SIG%1")
                          .arg(QString::fromLatin1(::sigabbrev_np(m_process.exitCode())));
    m_end.exitStatus = m_process.exitCode();
    m_ended(std::exchange(m_end, {}));
}

} // namespace client
