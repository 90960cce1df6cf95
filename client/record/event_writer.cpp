#include "event_writer.h"

#include <QJsonDocument>
#include <utility>

namespace client {

qint64 EventWriter::now() const
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                 m_begin)
        .count();
}

void EventWriter::write(qint64 time, const char *event, const QJsonObject &fields)
{
    QByteArray line = R"({"t":)" + QByteArray::number(time) + R"(,"event":")" + event + '"';
    if (!fields.isEmpty())
        line += ',' + QJsonDocument(fields).toJson(QJsonDocument::Compact).sliced(1);
    else
        line += '}';
    line += '\n';
    if (m_firstLine.isEmpty())
        m_firstLine = line;
    std::erase_if(m_sinks, [&](const Sink &sink) { return !writeTo(sink, line); });
}

void EventWriter::addSink(Sink sink)
{
    if (writeTo(sink, m_firstLine))
        m_sinks.push_back(std::move(sink));
}

/// @return whether the sink is told more
bool EventWriter::writeTo(const Sink &sink, const QByteArray &line)
{
    const auto written = sink(line);
    if (!written && !m_lossReason)
        m_lossReason = written.error();
    return bool(written);
}

} // namespace client
