// Writing the lines of a record.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace client {

/// Gives each event its time and hands it on as one line of JSON, its line break included.
class EventWriter {
public:
    /// Takes one line. The error is a sentence that names what cannot be written and why; nothing
    /// of the line is kept then.
    using Sink = std::function<support::Expected<void, QString>(const QByteArray &line)>;

    /// The time of the record begins here.
    explicit EventWriter(std::vector<Sink> sinks) : m_sinks(std::move(sinks)) {}

    /// Has the first line and those from now on written there as well.
    void addSink(Sink sink);

    /// Microseconds since the beginning.
    qint64 now() const;

    /// A sink that fails is told nothing more.
    /// @param fields  of the event, but for "t" and "event", which are the first of the line
    void write(const char *event, const QJsonObject &fields) { write(now(), event, fields); }
    /// The same of something that was at another time.
    void write(qint64 time, const char *event, const QJsonObject &fields);

    /// Why something of the record is missing; none when it is whole. The first reason.
    const std::optional<QString> &lossReason() const { return m_lossReason; }

private:
    bool writeTo(const Sink &sink, const QByteArray &line);

    QByteArray m_firstLine;
    std::vector<Sink> m_sinks;
    std::optional<QString> m_lossReason;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

} // namespace client
