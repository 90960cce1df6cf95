#include "refusal_count.h"

#include <utility>

namespace client {

std::optional<quint64> RefusalCount::add(Clock::time_point now)
{
    ++m_untold;
    if (m_lastLine && now - *m_lastLine < quiet)
        return std::nullopt;
    m_lastLine = now;
    return std::exchange(m_untold, 0);
}

} // namespace client
