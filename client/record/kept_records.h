// The records of sessions that a state directory keeps.
#pragma once

#include "event_writer.h"
#include "record_reader.h"
#include "recorder.h"

#include <QString>
#include <QStringList>

namespace client {

/// A folder of records, one file each: "20261122T185628-9f3a0c1b2d4e5f60.jsonl", the time in UTC
/// and the run. The oldest go when there are too many.
class KeptRecords {
public:
    static constexpr int mostRecords = 20;
    static constexpr qint64 mostBytes = 50 * 1024 * 1024; ///< of all together, and so of each

    /// @param folder  made when the first record begins
    explicit KeptRecords(QString folder) : m_folder(std::move(folder)) {}

    /// Begins a record; older ones make room for it.
    /// @return the error is a sentence that names the folder or the file and the reason
    support::Expected<EventWriter::Sink, QString> begin(const RunDescription &run) const;
    /// Has the oldest records go until the rest keeps to the limits, if the folder can be used.
    void prune() const { prune(mostRecords); }

    /// The names, the oldest first. Other files in the folder are left alone.
    /// @return the error is a sentence that says why the folder cannot be used
    support::Expected<QStringList, QString> names() const;
    QString path(const QString &name) const { return m_folder + u'/' + name; }
    /// Opens the record that a person means.
    /// @param word  the name of a kept record, with its ending or without, else a file
    /// @return the error is a sentence that names the file and the reason, or where there is none
    support::Expected<RecordReader, QString> open(const QString &word) const;
    /// The name of the last one that has begun.
    /// @return the error is a sentence
    support::Expected<QString, QString> newest() const;
    /// @param word  the name, with its ending or without
    /// @return the error is a sentence that names the file and the reason
    support::Expected<void, QString> remove(const QString &word) const;

private:
    void prune(int most) const;

    QString m_folder;
};

} // namespace client
