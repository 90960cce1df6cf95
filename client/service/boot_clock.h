// The clocks of a device, and a timer on the one that nobody sets.
#pragma once

#include "file_descriptor.h"
#include "schedule.h"

#include <QSocketNotifier>
#include <chrono>
#include <functional>
#include <optional>

namespace client {

/// What the clocks of this device show.
Moment currentMoment();

/// Calls when a time since boot has come; at once after a sleep of the device that it came in.
/// It wakes no device.
class BootTimer {
public:
    explicit BootTimer(std::function<void()> expired);

    /// Replaces the time that was set; none: no call.
    void set(std::optional<std::chrono::milliseconds> sinceBoot);

private:
    handset_state::FileDescriptor m_file;
    QSocketNotifier m_notifier;
    std::function<void()> m_expired;
};

} // namespace client
