// When there is a line about what is refused.
#pragma once

#include <QtGlobal>
#include <chrono>
#include <optional>

namespace client {

/// Counts what is refused, and says when it is time for a line about it: anybody can send as much
/// as they like.
class RefusalCount {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds quiet = std::chrono::minutes(1);

    /// One more. @return how many there were since the last line, when there is to be one now
    std::optional<quint64> add(Clock::time_point now);

private:
    quint64 m_untold = 0;
    std::optional<Clock::time_point> m_lastLine;
};

} // namespace client
