#include "record_file.h"

#include "private_storage.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace client {

using handset_state::FileDescriptor;
using support::Expected;
using support::Unexpected;

Expected<EventWriter::Sink, QString> RecordFile::create(const QString &path)
{
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    const QByteArray name = QFile::encodeName(path);
    FileDescriptor file(
        ::open(name.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, ownerOnly));
    struct stat status = {};
    // A file that is there keeps its permissions unless they are changed before the first byte; a
    // device is everybody's.
    const bool isReady = file && ::fstat(file.get(), &status) == 0 &&
                         (!S_ISREG(status.st_mode) || ::fchmod(file.get(), ownerOnly) == 0);
    const auto opened =
        std::shared_ptr<RecordFile>(new RecordFile(path, std::move(file), mostBytes));
    if (!isReady)
        return Unexpected(opened->problem(errno));
    return sinkOf(opened);
}

Expected<EventWriter::Sink, QString> RecordFile::createInState(const QString &path,
                                                               qint64 mostBytes)
{
    handset_state::Refusal refusal;
    FileDescriptor file = handset_state::openFile(QFile::encodeName(path).toStdString(),
                                                  O_WRONLY | O_CREAT | O_EXCL, refusal);
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    return sinkOf(std::shared_ptr<RecordFile>(new RecordFile(path, std::move(file), mostBytes)));
}

EventWriter::Sink RecordFile::sinkOf(std::shared_ptr<RecordFile> file)
{
    return [file = std::move(file)](const QByteArray &line) { return file->write(line); };
}

/// One call of the system for each line, so that a process which is killed leaves whole ones.
Expected<void, QString> RecordFile::write(const QByteArray &line)
{
    if (line.size() > m_limit - m_size)
        return Unexpected(
            QStringLiteral("%1 would become larger than %2 bytes").arg(m_path).arg(m_limit));
    const ssize_t written =
        ::write(m_file.get(), line.constData(), static_cast<std::size_t>(line.size()));
    if (written == line.size()) {
        m_size += written;
        return {};
    }
    const int error = written < 0 ? errno : ENOSPC;
    // What went out of a line on a disk that became full; of a pipe nothing can be taken back.
    if (written > 0 && ::ftruncate(m_file.get(), m_size) != 0)
        return Unexpected(problem(errno));
    return Unexpected(problem(error));
}

QString RecordFile::problem(int error) const
{
    return QStringLiteral("cannot write %1: %2")
        .arg(m_path, QString::fromLocal8Bit(std::strerror(error)));
}

} // namespace client
