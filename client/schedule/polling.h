// How often a device begins sessions by itself: what the owner or a server sets for an account.
#pragma once

#include <chrono>

namespace client {

/// When sessions with the server of an account begin without being asked for.
struct Polling {
    std::chrono::seconds interval{0};    ///< from the end of a session on; 0: none begins by itself
    std::chrono::seconds firstDelay{60}; ///< until the first one of an account
    std::chrono::seconds retryDelay{60}; ///< after a failure; each further one doubles it
    std::chrono::seconds longestRetryDelay{3600};

    bool operator==(const Polling &) const = default;
};

/// Limits of each time.
constexpr std::chrono::seconds longestPollingTime = std::chrono::hours(24 * 366);
/// Of an interval and a delay after failures, whoever sets it.
constexpr std::chrono::seconds shortestPollingTime{10};

/// Whether a server may have its account polled so: with the times that a server cannot make a
/// device busy with.
constexpr bool isSparing(const Polling &polling)
{
    constexpr std::chrono::minutes shortestInterval{15};
    constexpr std::chrono::minutes shortestRetryDelay{1};
    return (polling.interval.count() == 0 || polling.interval >= shortestInterval) &&
           polling.retryDelay >= shortestRetryDelay &&
           polling.longestRetryDelay >= shortestRetryDelay;
}

} // namespace client
