// The file that a record is written to.
#pragma once

#include "event_writer.h"
#include "file_descriptor.h"

#include <memory>

namespace client {

/// A file of lines that only its owner can read. It stays open as long as somebody writes to it.
class RecordFile {
public:
    /// Largest record that is written and read: beyond it, a record ends with what it has.
    static constexpr qint64 mostBytes = 256 * 1024 * 1024;

    /// Begins a new file of somebody's choice; one that is there is replaced.
    /// @return the error is a sentence that names the file and the reason
    static support::Expected<EventWriter::Sink, QString> create(const QString &path);
    /// Begins a new file in a folder of the state.
    /// @param mostBytes  largest size of the file
    static support::Expected<EventWriter::Sink, QString> createInState(const QString &path,
                                                                       qint64 mostBytes);

private:
    RecordFile(QString path, handset_state::FileDescriptor file, qint64 limit)
        : m_path(std::move(path)), m_file(std::move(file)), m_limit(limit)
    {
    }

    static EventWriter::Sink sinkOf(std::shared_ptr<RecordFile> file);
    support::Expected<void, QString> write(const QByteArray &line);
    QString problem(int error) const;

    QString m_path;
    handset_state::FileDescriptor m_file;
    qint64 m_limit;
    qint64 m_size = 0;
};

} // namespace client
