// Lines that a person types.
#pragma once

#include <QByteArray>
#include <chrono>
#include <optional>

namespace support {

/// Reads lines from a terminal, a pipe or a file.
class LineInput {
public:
    static constexpr qsizetype longestLine = 64 * 1024;

    enum class Echo { On, Off };
    enum class Result { Line, EndOfInput, TimedOut, Interrupted };

    /// @param interruptFile  ends a wait as Interrupted when it can be read; -1 for none
    explicit LineInput(int fileDescriptor, int interruptFile = -1)
        : m_file(fileDescriptor), m_interruptFile(interruptFile)
    {
    }

    /// Forgets what was typed before anything was asked. Does nothing on a file or a pipe.
    void flush() const;
    /// Waits for a line.
    /// @param deadline  none: as long as it takes
    /// @param line      receives the line without its line break, cut after longestLine bytes
    Result readLine(Echo echo, std::optional<std::chrono::steady_clock::time_point> deadline,
                    QByteArray &line) const;

private:
    int m_file;
    int m_interruptFile;
};

} // namespace support
