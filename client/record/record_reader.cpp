#include "record_reader.h"

#include "private_storage.h"
#include "record_file.h"

#include <QJsonDocument>
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

Expected<RecordReader, QString> RecordReader::open(const QString &path)
{
    auto file = std::make_unique<QFile>(path);
    // Not to wait for a pipe that nobody writes to.
    const int opened =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (opened < 0)
        return Unexpected(QStringLiteral("cannot read %1: %2").arg(path, qt_error_string()));
    file->open(opened, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    return begin(path, std::move(file));
}

Expected<RecordReader, QString> RecordReader::openInState(const QString &path)
{
    handset_state::Refusal refusal;
    const handset_state::FileDescriptor opened =
        handset_state::openFile(QFile::encodeName(path).toStdString(), O_RDONLY, refusal);
    if (refusal)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    auto file = std::make_unique<QFile>(path);
    file->open(::dup(opened.get()), QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    return begin(path, std::move(file));
}

Expected<RecordReader, QString> RecordReader::begin(const QString &path,
                                                    std::unique_ptr<QFile> file)
{
    RecordReader reader(path, std::move(file));
    if (reader.m_file->isSequential())
        return Unexpected(QStringLiteral("%1: it is not a regular file").arg(reader.m_path));
    if (reader.bytes() > RecordFile::mostBytes)
        return Unexpected(QStringLiteral("%1: it is larger than %2 bytes")
                              .arg(reader.m_path)
                              .arg(RecordFile::mostBytes));
    const auto first = reader.read();
    if (!first)
        return Unexpected(first.error());
    if (!*first || (**first)[u"event"] != QStringLiteral("run"))
        return reader.problem(QStringLiteral("a record begins with a run"));
    reader.m_run = **first;
    constexpr int knownFormat = 1;
    if (reader.m_run[u"format"].toInt() != knownFormat)
        return reader.problem(
            QStringLiteral("the record has a format other than %1").arg(knownFormat));
    return reader;
}

Expected<std::optional<QJsonObject>, QString> RecordReader::next()
{
    if (std::exchange(m_isAtBegin, false))
        return std::optional(m_run);
    return read();
}

namespace {

bool isEvent(const QJsonObject &object)
{
    return object[u"event"].isString() && object[u"t"].isDouble();
}

} // namespace

Expected<std::optional<QJsonObject>, QString> RecordReader::read()
{
    m_line = m_file->readLine(mostLineBytes + 1);
    if (!m_line.endsWith('\n')) {
        if (!m_file->atEnd()) {
            ++m_lineNumber;
            return problem(QStringLiteral("it is longer than %1 bytes").arg(mostLineBytes));
        }
        m_line.clear();
        return std::optional<QJsonObject>();
    }
    ++m_lineNumber;
    QJsonParseError fault;
    const QJsonDocument document = QJsonDocument::fromJson(m_line, &fault);
    if (fault.error != QJsonParseError::NoError)
        return problem(QStringLiteral("byte %1: %2").arg(fault.offset).arg(fault.errorString()));
    if (!isEvent(document.object()))
        return problem(QStringLiteral("it is not an event with its time"));
    return std::optional(document.object());
}

QJsonObject RecordReader::lastEvent()
{
    constexpr qint64 mostEndBytes = 64 * 1024;
    const qint64 place = m_file->pos();
    m_file->seek(std::max(bytes() - mostEndBytes, qint64(0)));
    QByteArray tail = m_file->read(mostEndBytes);
    m_file->seek(place);
    tail.truncate(tail.lastIndexOf('\n'));
    return QJsonDocument::fromJson(tail.sliced(tail.lastIndexOf('\n') + 1)).object();
}

Unexpected<QString> RecordReader::problem(const QString &reason) const
{
    return Unexpected(QStringLiteral("%1: line %2: %3").arg(m_path).arg(m_lineNumber).arg(reason));
}

} // namespace client
