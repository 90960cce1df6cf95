#include "boot_clock.h"

#include <QFile>
#include <algorithm>
#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace client {

namespace {

std::chrono::milliseconds readClock(clockid_t clock)
{
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

QByteArray readBootId()
{
    QFile file(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

} // namespace

Moment currentMoment()
{
    static const QByteArray boot = readBootId();
    return {readClock(CLOCK_BOOTTIME), boot, readClock(CLOCK_REALTIME)};
}

BootTimer::BootTimer(std::function<void()> expired)
    : m_file(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      m_notifier(m_file.get(), QSocketNotifier::Read), m_expired(std::move(expired))
{
    QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier, [this] {
        quint64 expirations = 0;
        if (::read(m_file.get(), &expirations, sizeof expirations) > 0)
            m_expired();
    });
}

void BootTimer::set(std::optional<std::chrono::milliseconds> sinceBoot)
{
    itimerspec setting{};
    if (sinceBoot) {
        // A time of zero would switch it off.
        const auto time = std::max(*sinceBoot, std::chrono::milliseconds(1));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
        setting.it_value.tv_sec = seconds.count();
        setting.it_value.tv_nsec = std::chrono::nanoseconds(time - seconds).count();
    }
    ::timerfd_settime(m_file.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

} // namespace client
