#include "handset_process.h"

#include "private_file.h"
#include "private_storage.h"

#include <QDir>
#include <QDirIterator>
#include <algorithm>
#include <chrono>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;
using namespace std::chrono_literals;

namespace {

constexpr auto recordInterval = 40ms;
constexpr auto timeToEnd = 10s;
constexpr qsizetype longestPrintedLine = 64 * 1024;

/// What of a state directory a snapshot has. Accounts are not among it: going back to nonces that
/// were used would let in who has recorded the proofs with them.
bool belongsToSnapshot(const QString &path)
{
    const auto others = {u"client/accounts.json", u"client/lock", u"client/history"};
    return std::ranges::none_of(
               others, [&path](const char16_t *name) { return path == QStringView(name); }) &&
           !path.startsWith(u"client/plugin.log") && !path.startsWith(u"client/records/");
}

/// The files of a snapshot in a folder, by their paths beneath it, sorted.
QStringList snapshotFiles(const QString &folder)
{
    QStringList files;
    QDirIterator entry(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                       QDirIterator::Subdirectories);
    while (entry.hasNext())
        if (const QString path = QDir(folder).relativeFilePath(entry.next());
            belongsToSnapshot(path))
            files += path;
    files.sort();
    return files;
}

QString cannot(const char *what, const QFileDevice &file)
{
    return QStringLiteral("cannot %1 %2: %3")
        .arg(QString::fromLatin1(what), file.fileName(), file.errorString());
}

/// Puts a copy of a file in the place of another, whole or not at all.
Expected<void, QString> copyFile(const QString &from, const QString &to)
{
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly))
        return Unexpected(cannot("read", source));
    const QByteArray bytes = source.readAll();
    if (source.error() != QFileDevice::NoError)
        return Unexpected(cannot("read", source));
    return support::replacePrivately(to, bytes);
}

Expected<void, QString> copyState(const QString &from, const QString &to)
{
    for (const QString &path : snapshotFiles(from)) {
        const QString folder = QFileInfo(to + u'/' + path).path();
        if (const auto refusal = handset_state::makeFolder(QFile::encodeName(folder).toStdString()))
            return Unexpected(QString::fromStdString(refusal.text()));
        if (auto copied = copyFile(from + u'/' + path, to + u'/' + path); !copied)
            return copied;
    }
    return {};
}

} // namespace

HandsetProcess::HandsetProcess(Options options, Listener listener)
    : m_options(std::move(options)), m_listener(std::move(listener))
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&m_process, &QProcess::readyRead, &m_process, [this] { readOutput(); });
    QObject::connect(&m_process, &QProcess::finished, &m_process, [this] {
        readOutput();
        readRecord();
        if (!m_isStopping)
            m_listener.failed(QStringLiteral("the handset's process has ended"));
    });
    m_recordTimer.setInterval(recordInterval);
    QObject::connect(&m_recordTimer, &QTimer::timeout, &m_recordTimer, [this] { readRecord(); });
}

HandsetProcess::~HandsetProcess()
{
    stop();
}

Expected<void, QString> HandsetProcess::start(bool showSecrets)
{
    if (!m_scratch.isValid())
        return Unexpected(m_scratch.errorString());
    const QString record = m_scratch.filePath(QStringLiteral("record-%1.jsonl").arg(m_runs++));
    m_record.close();
    m_record.setFileName(record);
    m_output.clear();
    QStringList arguments = m_options.arguments;
    arguments << QStringLiteral("--record") << record;
    if (showSecrets)
        arguments << QStringLiteral("--show-secrets");
    m_process.start(m_options.program, arguments << QStringLiteral("shell"));
    if (!m_process.waitForStarted())
        return Unexpected(
            QStringLiteral("cannot run %1: %2").arg(m_options.program, m_process.errorString()));
    m_recordTimer.start();
    return {};
}

void HandsetProcess::stop()
{
    m_isStopping = true;
    if (m_process.state() != QProcess::NotRunning) {
        m_process.closeWriteChannel(); // the end of its input is the end of the shell
        if (!m_process.waitForFinished(std::chrono::milliseconds(timeToEnd).count())) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    m_recordTimer.stop();
    m_isStopping = false;
}

void HandsetProcess::send(const QByteArray &line)
{
    m_process.write(line + '\n');
}

Expected<QString, QString> HandsetProcess::keepFile(const QString &name,
                                                    const QByteArray &bytes) const
{
    QFile file(m_scratch.filePath(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(bytes) != bytes.size() || !file.flush())
        return Unexpected(cannot("write", file));
    return file.fileName();
}

void HandsetProcess::readOutput()
{
    m_output += m_process.readAll();
    for (qsizetype end = m_output.indexOf('\n'); end >= 0; end = m_output.indexOf('\n')) {
        m_listener.printed(m_output.left(std::min(end, longestPrintedLine)));
        m_output.remove(0, end + 1);
    }
    if (m_output.size() > longestPrintedLine)
        m_listener.printed(std::exchange(m_output, {}));
}

void HandsetProcess::readRecord()
{
    if (!m_record.isOpen() && !m_record.open(QIODevice::ReadOnly))
        return; // not begun yet
    // Lines are written whole, so a part of one is as good as none until its end has come.
    for (qint64 begin = m_record.pos();; begin = m_record.pos()) {
        const QByteArray line = m_record.readLine();
        if (!line.endsWith('\n')) {
            m_record.seek(begin);
            return;
        }
        m_listener.recorded(line.chopped(1));
    }
}

Expected<int, QString> HandsetProcess::takeSnapshot()
{
    const auto lock = m_options.lockState();
    if (!lock)
        return Unexpected(lock.error());
    const QString folder = m_scratch.filePath(QStringLiteral("snapshot-%1").arg(m_snapshots));
    if (const auto refusal = handset_state::makeFolder(QFile::encodeName(folder).toStdString()))
        return Unexpected(QString::fromStdString(refusal.text()));
    if (const auto copied = copyState(m_options.stateDirectory, folder); !copied)
        return Unexpected(copied.error());
    return m_snapshots++;
}

Expected<void, QString> HandsetProcess::goBackTo(int snapshot)
{
    const auto lock = m_options.lockState();
    if (!lock)
        return Unexpected(lock.error());
    const QString folder = m_scratch.filePath(QStringLiteral("snapshot-%1").arg(snapshot));
    const QStringList kept = snapshotFiles(folder);
    for (const QString &path : snapshotFiles(m_options.stateDirectory))
        if (!kept.contains(path))
            QFile::remove(m_options.stateDirectory + u'/' + path);
    return copyState(folder, m_options.stateDirectory);
}

} // namespace client
