// The lines of the plug-in's log: whose messages they are, and when that was.
#pragma once

#include <QDateTime>
#include <QString>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace client {

/// Lines of which equal ones are counted.
class CountedLines {
public:
    /// @param line  with its line break, if it has one
    void add(std::string_view line);
    std::size_t size() const { return m_lines.size(); }
    /// The lines in the order in which each came first; "(3 times)" stands at the end of one that
    /// came three times. None is left.
    std::vector<std::string> take();

private:
    struct Line {
        std::string text;
        int count = 1;
    };

    std::vector<Line> m_lines;
    std::unordered_map<std::string, std::size_t> m_places;
};

/// Puts a line with the time, the process and the command before the messages of each command, and
/// of each mount. The messages of a mount, which says the same of many profiles, are written when
/// it has ended, each once.
class PluginJournal {
public:
    /// Different lines of a mount at which they are written before it ends.
    static constexpr std::size_t mostLinesOfMount = 1000;

    using Write = std::function<void(std::string_view line)>;
    using Clock = std::function<QDateTime()>;
    /// @param clock  UTC
    explicit PluginJournal(Write write, Clock clock = &QDateTime::currentDateTimeUtc)
        : m_write(std::move(write)), m_clock(std::move(clock))
    {
    }
    ~PluginJournal() { endMount(); }
    PluginJournal(const PluginJournal &) = delete;
    PluginJournal &operator=(const PluginJournal &) = delete;

    /// What comes now is about that command: "Replace ./A/B". Nothing is written before a message
    /// comes.
    void beginCommand(const QString &name, const QString &address);
    /// What comes now is about a mount, which may be in the middle of a command.
    void beginMount(const QString &root);
    void endMount();
    void add(std::string_view message);

private:
    struct Heading {
        QString text; ///< empty before the first command
        QDateTime time;
        bool isWritten = false;
    };

    void writeUnder(Heading &heading, std::string_view line);
    void writeMount();

    Write m_write;
    Clock m_clock;
    Heading m_command;
    Heading m_mount;
    bool m_isMounting = false;
    CountedLines m_linesOfMount;
};

} // namespace client
