// Reading a record.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QFile>
#include <QJsonObject>
#include <QString>
#include <memory>
#include <optional>

namespace client {

/// Reads the events of a record one after the other, and never more at once than one line.
///
/// A record is somebody else's file: it may be of any size and hold anything. Refused, with the
/// line and the reason, are one that does not begin with a run of this format, a line that is not a
/// JSON object with an event and a time, and what is larger than anything that is written. A last
/// line that is not whole, as a killed run may leave, is left out.
class RecordReader {
public:
    /// A message of the largest size, as base64 and as JSON with every character escaped.
    static constexpr qint64 mostLineBytes = 40 * 1024 * 1024;

    /// Opens a file of somebody's choice.
    /// @return the error is a sentence that names the file, the line and the reason
    static support::Expected<RecordReader, QString> open(const QString &path);
    /// Opens a file in a folder of the state: one that is not this user's, or a link, is refused.
    static support::Expected<RecordReader, QString> openInState(const QString &path);

    /// The first event.
    const QJsonObject &run() const { return m_run; }

    /// The next event, the run at first; none after the last one. The error is a sentence that
    /// names the file, the line and the reason.
    support::Expected<std::optional<QJsonObject>, QString> next();
    /// The line of the last event, as it stands in the file.
    const QByteArray &line() const { return m_line; }
    /// Its number, from 1.
    int lineNumber() const { return m_lineNumber; }

    /// The event of the last whole line, wherever the reading is; of a run that came to its end it
    /// is "end". Empty when it cannot be read.
    QJsonObject lastEvent();
    qint64 bytes() const { return m_file->size(); }

private:
    RecordReader(QString path, std::unique_ptr<QFile> file)
        : m_path(std::move(path)), m_file(std::move(file))
    {
    }
    static support::Expected<RecordReader, QString> begin(const QString &path,
                                                          std::unique_ptr<QFile> file);

    support::Expected<std::optional<QJsonObject>, QString> read();
    support::Unexpected<QString> problem(const QString &reason) const;

    QString m_path;
    std::unique_ptr<QFile> m_file;
    QJsonObject m_run;
    bool m_isAtBegin = true; ///< the run was read and not handed out
    QByteArray m_line;
    int m_lineNumber = 0;
};

} // namespace client
