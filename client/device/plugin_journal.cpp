#include "plugin_journal.h"

#include "foreign_text.h"

#include <unistd.h>

namespace client {

namespace {

/// The message with the line breaks in it, which come from names, escaped: \n and \r.
std::string inOneLine(std::string_view message)
{
    std::string line;
    for (std::size_t index = 0; index < message.size(); ++index) {
        const bool isEnd = index + 1 == message.size();
        if (message[index] == '\n' && !isEnd)
            line += "\\n";
        else if (message[index] == '\r')
            line += "\\r";
        else
            line += message[index];
    }
    return line;
}

} // namespace

// ---- Counting ------------------------------------------------------------------------------------

void CountedLines::add(std::string_view line)
{
    const auto [place, isNew] = m_places.try_emplace(std::string(line), m_lines.size());
    if (isNew)
        m_lines.push_back({place->first});
    else
        ++m_lines[place->second].count;
}

std::vector<std::string> CountedLines::take()
{
    std::vector<std::string> texts;
    for (Line &line : m_lines) {
        if (line.count > 1) {
            const bool hasEnd = line.text.ends_with('\n');
            line.text.insert(line.text.size() - (hasEnd ? 1 : 0),
                             " (" + std::to_string(line.count) + " times)");
        }
        texts.push_back(std::move(line.text));
    }
    m_lines.clear();
    m_places.clear();
    return texts;
}

// ---- Headings ------------------------------------------------------------------------------------

void PluginJournal::beginCommand(const QString &name, const QString &address)
{
    m_command = {address.isEmpty() ? name : name + u' ' + address, m_clock()};
}

void PluginJournal::beginMount(const QString &root)
{
    endMount();
    m_isMounting = true;
    m_mount = {QStringLiteral("mount ") + root, m_clock()};
}

void PluginJournal::endMount()
{
    writeMount();
    m_isMounting = false;
}

void PluginJournal::add(std::string_view message)
{
    const std::string line = inOneLine(message);
    if (!m_isMounting)
        return writeUnder(m_command, line);
    m_linesOfMount.add(line);
    if (m_linesOfMount.size() >= mostLinesOfMount)
        writeMount();
}

void PluginJournal::writeMount()
{
    for (const std::string &line : m_linesOfMount.take()) {
        writeUnder(m_mount, line);
        m_command.isWritten = false; // what comes of the command again is not the mount's
    }
}

void PluginJournal::writeUnder(Heading &heading, std::string_view line)
{
    if (!heading.isWritten && !heading.text.isEmpty())
        m_write(heading.time.toString(Qt::ISODateWithMs).toStdString() + ' ' +
                std::to_string(::getpid()) + ' ' +
                foreign_text::printable(heading.text.toStdString()) + '\n');
    heading.isWritten = true;
    m_write(line);
}

} // namespace client
