#include "line_input.h"

#include <QStringDecoder>
#include <algorithm>
#include <cerrno>
#include <iterator>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace support {

namespace {

/// Turns the echo off while it lives.
class SilentTerminal {
public:
    explicit SilentTerminal(int file) : m_file(file)
    {
        m_isTerminal = ::tcgetattr(file, &m_before) == 0;
        if (!m_isTerminal)
            return;
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(file, TCSADRAIN, &silent);
    }
    ~SilentTerminal()
    {
        if (m_isTerminal)
            ::tcsetattr(m_file, TCSADRAIN, &m_before);
    }
    SilentTerminal(const SilentTerminal &) = delete;
    SilentTerminal &operator=(const SilentTerminal &) = delete;

private:
    int m_file;
    bool m_isTerminal = false;
    termios m_before{};
};

/// Milliseconds until then for poll(); -1 for ever.
int waitingTime(std::optional<std::chrono::steady_clock::time_point> deadline)
{
    if (!deadline)
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24);
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds::zero(), longest).count());
}

} // namespace

void LineInput::flush() const
{
    ::tcflush(m_file, TCIFLUSH);
}

LineInput::Result LineInput::readLine(Echo echo,
                                      std::optional<std::chrono::steady_clock::time_point> deadline,
                                      QByteArray &line) const
{
    std::optional<SilentTerminal> silence;
    if (echo == Echo::Off)
        silence.emplace(m_file);
    line.clear();
    // One byte at a time: what stands behind the line on a pipe is for the next reader.
    for (;;) {
        pollfd waiting[] = {{m_file, POLLIN, 0}, {m_interruptFile, POLLIN, 0}};
        const int ready = ::poll(waiting, std::size(waiting), waitingTime(deadline));
        if (ready == 0)
            return Result::TimedOut;
        if (ready > 0 && waiting[1].revents != 0)
            return Result::Interrupted;
        char byte = 0;
        const ssize_t count = ready < 0 ? -1 : ::read(m_file, &byte, 1);
        if (count < 0 && errno == EINTR)
            return Result::Interrupted;
        if (count <= 0)
            return line.isEmpty() ? Result::EndOfInput : Result::Line;
        if (byte == '\n')
            return Result::Line;
        if (line.size() < longestLine)
            line += byte;
    }
}

// ---- Secrets -------------------------------------------------------------------------------------

namespace {

/// Writes to the person at the terminal, if there is one.
void tell(const QByteArray &text)
{
    if (::isatty(STDIN_FILENO) &&
        ::write(STDERR_FILENO, text.constData(), static_cast<std::size_t>(text.size())) < 0) {
        // Who cannot see the question can still answer it.
    }
}

} // namespace

std::optional<QString> readSecret(const QString &name, QString &error)
{
    QByteArray line;
    tell(name.toUtf8() + ": ");
    const auto result = LineInput(STDIN_FILENO).readLine(LineInput::Echo::Off, std::nullopt, line);
    tell("\n");
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString secret = decoder(line);
    if (result != LineInput::Result::Line)
        error = QStringLiteral("no value for %1").arg(name);
    else if (line.size() >= LineInput::longestLine)
        error = QStringLiteral("the value of %1 is too long").arg(name);
    else if (decoder.hasError())
        error = QStringLiteral("the value of %1 is not UTF-8").arg(name);
    else
        return secret;
    return std::nullopt;
}

} // namespace support
