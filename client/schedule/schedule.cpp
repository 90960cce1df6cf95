#include "schedule.h"

#include <QJsonValue>
#include <algorithm>
#include <cmath>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;
using namespace std::chrono_literals;

namespace {

using Time = Schedule::Time;

/// A wait is that part of itself longer or shorter at most.
constexpr double spreadPart = 0.1;

// What is due when a connection appears begins that long after it.
constexpr Time shortestSettling = 5s;
constexpr Time longestSettling = 30s;

constexpr Time busyDelay = 30s;

/// More doublings than any longest delay has.
constexpr int mostFailures = 40;

Time scaled(Time wait, double factor)
{
    return Time(std::llround(static_cast<double>(wait.count()) * factor));
}

} // namespace

Schedule::Schedule(RandomFraction random) : m_random(std::move(random)) {}

Time Schedule::spread(Time wait) const
{
    return scaled(wait, 1 - spreadPart + 2 * spreadPart * m_random());
}

Time Schedule::retryDelay(const Entry &entry) const
{
    Time delay = entry.polling.retryDelay;
    const Time longest = entry.polling.longestRetryDelay;
    for (int failure = 1; failure < entry.failures && delay < longest; ++failure)
        delay *= 2;
    return std::min(delay, longest);
}

Time Schedule::longestWait(const Entry &entry)
{
    const Polling &polling = entry.polling;
    return scaled(std::max<Time>({polling.interval, polling.firstDelay, polling.longestRetryDelay,
                                  busyDelay, longestSettling}),
                  1 + spreadPart);
}

// ---- What happens --------------------------------------------------------------------------------

void Schedule::setAccounts(const std::map<QString, Polling> &accounts, Time now)
{
    Entries entries;
    for (const auto &[name, polling] : accounts) {
        if (polling.interval.count() == 0)
            continue;
        const auto known = m_entries.find(name);
        Entry entry = known == m_entries.end() ? Entry{polling, now + spread(polling.firstDelay)}
                                               : known->second;
        if (entry.polling.interval != polling.interval && entry.failures == 0)
            entry.due = now + spread(polling.interval);
        entry.polling = polling;
        entry.due = std::min(entry.due, now + longestWait(entry));
        entries.emplace(name, std::move(entry));
    }
    m_entries = std::move(entries);
}

void Schedule::setOnline(bool isOnline, Time now)
{
    if (isOnline == std::exchange(m_isOnline, isOnline) || !isOnline)
        return;
    for (auto &[name, entry] : m_entries)
        if (entry.due <= now)
            entry.due =
                now + shortestSettling + scaled(longestSettling - shortestSettling, m_random());
}

void Schedule::sessionBegan()
{
    m_isSessionRunning = true;
}

void Schedule::sessionEnded(const QString &account, SessionOutcome outcome, Time now)
{
    m_isSessionRunning = false;
    const auto found = m_entries.find(account);
    if (found == m_entries.end())
        return;
    Entry &entry = found->second;
    if (outcome == SessionOutcome::Busy) {
        entry.due = now + spread(busyDelay);
        return;
    }
    entry.failures =
        outcome == SessionOutcome::Failed ? std::min(entry.failures + 1, mostFailures) : 0;
    entry.due = now + spread(entry.failures == 0 ? entry.polling.interval : retryDelay(entry));
}

// ---- Questions -----------------------------------------------------------------------------------

const Schedule::Entries::value_type *Schedule::next() const
{
    if (!m_isOnline || m_isSessionRunning)
        return nullptr;
    const auto first = std::ranges::min_element(
        m_entries, {}, [](const Entries::value_type &entry) { return entry.second.due; });
    return first == m_entries.end() ? nullptr : &*first;
}

std::optional<QString> Schedule::due(Time now) const
{
    const auto *const entry = next();
    return entry && entry->second.due <= now ? std::optional(entry->first) : std::nullopt;
}

std::optional<Time> Schedule::nextDue() const
{
    const auto *const entry = next();
    return entry ? std::optional(entry->second.due) : std::nullopt;
}

std::optional<Time> Schedule::dueOf(const QString &account) const
{
    const auto entry = m_entries.find(account);
    return entry == m_entries.end() ? std::nullopt : std::optional(entry->second.due);
}

int Schedule::failuresOf(const QString &account) const
{
    const auto entry = m_entries.find(account);
    return entry == m_entries.end() ? 0 : entry->second.failures;
}

// ---- Over a restart ------------------------------------------------------------------------------

namespace {

const QString bootKey = QStringLiteral("boot");
const QString sinceBootKey = QStringLiteral("sinceBoot");
const QString wallClockKey = QStringLiteral("wallClock");
const QString accountsKey = QStringLiteral("accounts");
const QString waitKey = QStringLiteral("wait");
const QString failuresKey = QStringLiteral("failures");

/// Far beyond every wait, and what two of them make is still a time.
constexpr Time largestStored = std::chrono::hours(24 * 366 * 1000);

Expected<Time, QString> storedTime(const QJsonObject &object, const QString &key, Time smallest,
                                   Time largest)
{
    const QJsonValue value = object[key];
    const double number = value.toDouble();
    if (!value.isDouble() || std::floor(number) != number ||
        number < static_cast<double>(smallest.count()) ||
        number > static_cast<double>(largest.count()))
        return Unexpected(QStringLiteral("%1 is not a whole number from %2 to %3")
                              .arg(key)
                              .arg(smallest.count())
                              .arg(largest.count()));
    return Time(static_cast<Time::rep>(number));
}

/// How long before now the waits were stored; nothing when the clock was set back since.
Expected<Time, QString> timeSince(const QJsonObject &stored, const Moment &now)
{
    const auto sinceBoot = storedTime(stored, sinceBootKey, Time(0), largestStored);
    if (!sinceBoot)
        return sinceBoot;
    const auto wallClock = storedTime(stored, wallClockKey, -largestStored, largestStored);
    if (!wallClock)
        return wallClock;
    if (!stored[bootKey].isString())
        return Unexpected(QStringLiteral("%1 is not a text").arg(bootKey));
    const bool isSameBoot = !now.boot.isEmpty() && stored[bootKey].toString().toUtf8() == now.boot;
    return std::max(Time(0), isSameBoot ? now.sinceBoot - *sinceBoot : now.wallClock - *wallClock);
}

} // namespace

QJsonObject Schedule::toJson(const Moment &now) const
{
    QJsonObject accounts;
    for (const auto &[name, entry] : m_entries)
        accounts[name] = QJsonObject{
            {waitKey, static_cast<qint64>((entry.due - now.sinceBoot).count())},
            {failuresKey, entry.failures},
        };
    return {{bootKey, QString::fromUtf8(now.boot)},
            {sinceBootKey, static_cast<qint64>(now.sinceBoot.count())},
            {wallClockKey, static_cast<qint64>(now.wallClock.count())},
            {accountsKey, accounts}};
}

Expected<void, QString> Schedule::restore(const QJsonObject &stored, const Moment &now)
{
    const auto elapsed = timeSince(stored, now);
    if (!elapsed)
        return Unexpected(elapsed.error());
    if (!stored[accountsKey].isObject())
        return Unexpected(QStringLiteral("%1 is not an object").arg(accountsKey));
    const QJsonObject accounts = stored[accountsKey].toObject();
    Entries entries = m_entries;
    for (auto account = accounts.begin(); account != accounts.end(); ++account) {
        const QJsonObject object = account.value().toObject();
        const auto wait = storedTime(object, waitKey, -largestStored, largestStored);
        const auto failures = storedTime(object, failuresKey, Time(0), Time(mostFailures));
        if (!wait || !failures)
            return Unexpected(QStringLiteral("account %1: %2")
                                  .arg(account.key(), wait ? failures.error() : wait.error()));
        const auto entry = entries.find(account.key());
        if (entry == entries.end())
            continue;
        Entry &known = entry->second;
        known.failures = static_cast<int>(failures->count());
        known.due = now.sinceBoot + std::min(*wait - *elapsed, longestWait(known));
    }
    m_entries = std::move(entries);
    return {};
}

} // namespace client
