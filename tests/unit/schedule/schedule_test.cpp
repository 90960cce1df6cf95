// When sessions begin by themselves, in simulated time.

#include "schedule.h"

#include <QJsonDocument>
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>
#include <random>
#include <vector>

namespace client {

void PrintTo(const Polling &polling, std::ostream *out)
{
    *out << "interval " << polling.interval.count() << " s";
}

namespace {

using namespace std::chrono_literals;
using Time = Schedule::Time;

const QString account = QStringLiteral("Operator");
const QString otherAccount = QStringLiteral("Other");

/// In the middle of every range: no wait is longer or shorter than it is set.
double noJitter()
{
    return 0.5;
}

Polling every(std::chrono::seconds interval)
{
    Polling polling;
    polling.interval = interval;
    return polling;
}

// ---- What happens, and when the next session begins ----------------------------------------------

enum class Event { Online, Offline, Held, Failed, Busy, Changed };

struct Step {
    std::chrono::seconds at;
    Event event;
    std::chrono::milliseconds nextDue; ///< afterwards; negative for none
};

struct Story {
    const char *name;
    Polling polling;
    std::vector<Step> steps;
};

void PrintTo(const Story &story, std::ostream *out)
{
    *out << story.name;
}

constexpr auto never = -1ms;

void apply(Schedule &schedule, const Story &story, const Step &step)
{
    switch (step.event) {
    case Event::Online:
    case Event::Offline:
        schedule.setOnline(step.event == Event::Online, step.at);
        return;
    case Event::Held:
        schedule.sessionBegan();
        schedule.sessionEnded(account, SessionOutcome::Held, step.at);
        return;
    case Event::Failed:
        schedule.sessionBegan();
        schedule.sessionEnded(account, SessionOutcome::Failed, step.at);
        return;
    case Event::Busy:
        schedule.sessionBegan();
        schedule.sessionEnded(account, SessionOutcome::Busy, step.at);
        return;
    case Event::Changed:
        Polling changed = story.polling;
        changed.interval *= 2;
        schedule.setAccounts({{account, changed}}, step.at);
        return;
    }
}

class ScheduleStory : public testing::TestWithParam<Story> {};

TEST_P(ScheduleStory, HasTheNextSessionBeginWhenItIsDue)
{
    const Story &story = GetParam();
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, story.polling}}, 0s);
    for (const Step &step : story.steps) {
        apply(schedule, story, step);
        const auto due = schedule.nextDue();
        ASSERT_EQ(due.value_or(never), step.nextDue) << "after " << step.at.count() << " s";
        if (!due)
            continue;
        EXPECT_EQ(schedule.due(*due), account);
        EXPECT_EQ(schedule.due(*due - 1ms), std::nullopt);
    }
}

constexpr Polling hourly{3600s, 60s, 60s, 600s};

const Story stories[] = {
    {"the first session after the first delay", hourly, {{0s, Event::Online, 60s}}},
    {"none as long as there is no connection",
     hourly,
     {{10s, Event::Offline, never}, {20s, Event::Online, 60s}, {30s, Event::Offline, never}}},
    {"what became due meanwhile, when the connection has settled",
     hourly,
     {{100s, Event::Online, 100s + 17500ms}, {105s, Event::Online, 100s + 17500ms}}},
    {"an interval after the end of the last one",
     hourly,
     {{0s, Event::Online, 60s}, {70s, Event::Held, 3670s}, {4000s, Event::Held, 7600s}}},
    {"sooner after a failure, and then later and later",
     hourly,
     {{0s, Event::Online, 60s},
      {60s, Event::Failed, 120s},
      {120s, Event::Failed, 240s},
      {240s, Event::Failed, 480s},
      {480s, Event::Failed, 960s},
      {960s, Event::Failed, 1560s},
      {1560s, Event::Failed, 2160s}}},
    {"as if nothing had failed after one that was held",
     hourly,
     {{0s, Event::Online, 60s},
      {60s, Event::Failed, 120s},
      {120s, Event::Failed, 240s},
      {240s, Event::Held, 3840s},
      {3840s, Event::Failed, 3900s}}},
    {"soon when the device was busy, which is not a failure",
     hourly,
     {{0s, Event::Online, 60s},
      {60s, Event::Busy, 90s},
      {90s, Event::Busy, 120s},
      {120s, Event::Failed, 180s}}},
    {"never longer after a failure than the longest delay, also when that is the shorter one",
     {3600s, 60s, 600s, 30s},
     {{0s, Event::Online, 60s}, {60s, Event::Failed, 90s}}},
    {"a new interval from its setting on",
     hourly,
     {{0s, Event::Online, 60s}, {70s, Event::Held, 3670s}, {100s, Event::Changed, 7300s}}},
    {"a new interval does not shorten what waits for a failing server",
     hourly,
     {{0s, Event::Online, 60s}, {60s, Event::Failed, 120s}, {70s, Event::Changed, 120s}}},
    {"none by itself without an interval", Polling(), {{0s, Event::Online, never}}},
};
INSTANTIATE_TEST_SUITE_P(, ScheduleStory, testing::ValuesIn(stories));

// ---- Several accounts ----------------------------------------------------------------------------

TEST(ScheduleTest, NothingIsDueWhileASessionRuns)
{
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, every(60s)}, {otherAccount, every(90s)}}, 0s);
    schedule.setOnline(true, 0s);
    schedule.sessionBegan();
    EXPECT_EQ(schedule.due(1h), std::nullopt);
    EXPECT_EQ(schedule.nextDue(), std::nullopt);
    schedule.sessionEnded(account, SessionOutcome::Held, 1h);
    EXPECT_EQ(schedule.due(1h), otherAccount);
}

TEST(ScheduleTest, TheOneThatHasWaitedLongestIsFirst)
{
    Schedule schedule(noJitter);
    Polling patient = every(900s);
    patient.firstDelay = 30s;
    schedule.setAccounts({{account, every(60s)}, {otherAccount, patient}}, 0s);
    schedule.setOnline(true, 0s);
    EXPECT_EQ(schedule.due(1h), otherAccount);
}

TEST(ScheduleTest, AnAccountThatIsGoneIsDueNoMoreAndBeginsAnewWhenItIsBack)
{
    Schedule schedule(noJitter);
    schedule.setOnline(true, 0s);
    schedule.setAccounts({{account, every(900s)}}, 0s);
    schedule.sessionEnded(account, SessionOutcome::Failed, 60s);
    schedule.setAccounts({}, 70s);
    EXPECT_EQ(schedule.nextDue(), std::nullopt);
    schedule.sessionEnded(account, SessionOutcome::Failed, 80s); // one that ran meanwhile
    schedule.setAccounts({{account, every(900s)}}, 100s);
    EXPECT_EQ(schedule.nextDue(), 160s);
    EXPECT_EQ(schedule.failuresOf(account), 0);
}

// ---- Over a restart ------------------------------------------------------------------------------

constexpr Time wallClockOf2026 = std::chrono::hours(24 * 365 * 56);

/// A schedule of one account that was told of a session's end and kept, 1000 s after the start of
/// the device; the next is due at 4600 s.
QJsonObject kept()
{
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, every(3600s)}}, 0s);
    schedule.sessionEnded(account, SessionOutcome::Held, 1000s);
    return schedule.toJson({1000s, "first", wallClockOf2026});
}

Schedule restored(const QJsonObject &stored, const Moment &now)
{
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, every(3600s)}}, now.sinceBoot);
    schedule.setOnline(true, now.sinceBoot);
    const auto result = schedule.restore(stored, now);
    EXPECT_TRUE(result) << result.error().toStdString();
    return schedule;
}

struct Restart {
    const char *name;
    Moment at;
    Time due;
};

void PrintTo(const Restart &restart, std::ostream *out)
{
    *out << restart.name;
}

class ScheduleRestart : public testing::TestWithParam<Restart> {};

TEST_P(ScheduleRestart, KeepsTheWait)
{
    EXPECT_EQ(restored(kept(), GetParam().at).dueOf(account), GetParam().due);
}

const Restart restarts[] = {
    {"of the service", {2000s, "first", wallClockOf2026 + 1000s}, 4600s},
    {"of the service, after the clock was set forward",
     {2000s, "first", 2 * wallClockOf2026},
     4600s},
    {"of the service, after the clock was set back", {2000s, "first", 0s}, 4600s},
    {"of the device", {20s, "second", wallClockOf2026 + 1000s}, 2620s},
    {"of the device that was off for long: due at once, not many times",
     {20s, "second", wallClockOf2026 + 10h},
     20s + 3600s - 10h},
    {"of the device whose clock was set back: the whole wait once more",
     {20s, "second", 0s},
     3620s},
};
INSTANTIATE_TEST_SUITE_P(, ScheduleRestart, testing::ValuesIn(restarts));

TEST(ScheduleTest, AClockThatWasSetFarForwardHasEachAccountPolledOnce)
{
    const Moment now{20s, "second", 3 * wallClockOf2026};
    Schedule schedule = restored(kept(), now);
    ASSERT_EQ(schedule.due(now.sinceBoot), account);
    schedule.sessionEnded(account, SessionOutcome::Held, now.sinceBoot);
    EXPECT_EQ(schedule.nextDue(), now.sinceBoot + 3600s);
    EXPECT_EQ(restored(schedule.toJson(now), now).nextDue(), now.sinceBoot + 3600s);
}

TEST(ScheduleTest, ADeviceWhoseClockBeginsAt1970EveryTimePollsWhenItHasBeenOnForAnInterval)
{
    QJsonObject stored = kept();
    Time wasOn = 0s;
    for (int start = 0;; ++start) {
        const QByteArray boot = QByteArray::number(start);
        Schedule schedule = restored(stored, {10s, boot, 10s});
        if (schedule.due(600s))
            break;
        wasOn += 590s;
        ASSERT_LE(wasOn, 3600s);
        stored = schedule.toJson({600s, boot, 600s});
    }
    EXPECT_GE(wasOn + 600s, 3600s);
}

TEST(ScheduleTest, FailuresAreKept)
{
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, hourly}}, 0s);
    for (int failure = 0; failure < 3; ++failure)
        schedule.sessionEnded(account, SessionOutcome::Failed, 0s);
    const Moment now{0s, "first", 0s};
    Schedule after = restored(schedule.toJson(now), now);
    EXPECT_EQ(after.failuresOf(account), 3);
}

struct Damage {
    const char *name;
    const char *stored;
    const char *reason;
};

void PrintTo(const Damage &damage, std::ostream *out)
{
    *out << damage.name;
}

class ScheduleDamage : public testing::TestWithParam<Damage> {};

TEST_P(ScheduleDamage, IsNamedAndLeavesTheWaitsAsTheyWere)
{
    Schedule schedule(noJitter);
    schedule.setAccounts({{account, hourly}}, 0s);
    const auto stored = QJsonDocument::fromJson(GetParam().stored);
    ASSERT_TRUE(stored.isObject());
    const auto result = schedule.restore(stored.object(), {10s, "first", 0s});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().toStdString(), GetParam().reason);
    EXPECT_EQ(schedule.dueOf(account), 60s);
}

const Damage damages[] = {
    {"nothing", "{}", "sinceBoot is not a whole number from 0 to 31622400000000"},
    {"a time that is a text", R"({"sinceBoot": "1"})",
     "sinceBoot is not a whole number from 0 to 31622400000000"},
    {"a time beyond all", R"({"sinceBoot": 1, "wallClock": 1e300})",
     "wallClock is not a whole number from -31622400000000 to 31622400000000"},
    {"no boot", R"({"sinceBoot": 1, "wallClock": 1})", "boot is not a text"},
    {"no accounts", R"({"sinceBoot": 1, "wallClock": 1, "boot": "", "accounts": []})",
     "accounts is not an object"},
    {"a wait with a part of a millisecond",
     R"({"sinceBoot": 1, "wallClock": 1, "boot": "", "accounts": {"A": {"wait": 0.5, "failures": 0}}})",
     "account A: wait is not a whole number from -31622400000000 to 31622400000000"},
    {"failures below none, after an account that is right",
     R"({"sinceBoot": 1, "wallClock": 1, "boot": "", "accounts":
         {"Operator": {"wait": 5, "failures": 0}, "Z": {"wait": 5, "failures": -1}}})",
     "account Z: failures is not a whole number from 0 to 40"},
};
INSTANTIATE_TEST_SUITE_P(, ScheduleDamage, testing::ValuesIn(damages));

TEST(ScheduleTest, AStoredWaitIsNeverLongerThanItsAccountCanHave)
{
    const char stored[] = R"({"sinceBoot": 0, "wallClock": 0, "boot": "x", "accounts":
        {"Operator": {"wait": 31622400000000, "failures": 0}, "Nobody": {"wait": 1, "failures": 1}}})";
    const Schedule schedule =
        restored(QJsonDocument::fromJson(stored).object(), {0s, "first", -wallClockOf2026});
    EXPECT_EQ(schedule.dueOf(account), 3960s);
    EXPECT_EQ(schedule.dueOf(QStringLiteral("Nobody")), std::nullopt);
}

// ---- Whatever happens ----------------------------------------------------------------------------

/// A device that lives through random events, and what has to hold of it all the time.
class RandomLife {
public:
    explicit RandomLife(unsigned seed) : m_generator(seed), m_schedule(fraction())
    {
        for (const QString &name : {account, otherAccount, QStringLiteral("Third")})
            m_accounts[name] = randomPolling();
        m_schedule.setAccounts(m_accounts, m_now);
        for (const auto &[name, polling] : m_accounts)
            m_ended[name] = {m_now, polling.firstDelay};
    }

    void step()
    {
        switch (below(8)) {
        case 0:
            m_isOnline = !m_isOnline;
            m_schedule.setOnline(m_isOnline, m_now);
            break;
        case 1:
            restartService();
            break;
        case 2:
            m_wallClock += Time(below(2) ? 1000h : -1000h); // somebody sets it
            break;
        default:
            if (m_running)
                endSession();
            else
                waitForSession();
        }
        check();
    }

    int sessions() const { return m_sessions; }

private:
    struct End {
        Time at;
        Time wait; ///< without jitter
    };

    Schedule::RandomFraction fraction()
    {
        return [this] { return std::uniform_real_distribution<double>(0, 1)(m_generator); };
    }
    int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(m_generator); }

    Polling randomPolling()
    {
        return {std::chrono::seconds(10 + below(5000)), std::chrono::seconds(below(500)),
                std::chrono::seconds(10 + below(100)), std::chrono::seconds(10 + below(2000))};
    }

    void pass(Time time)
    {
        m_now += time;
        m_wallClock += time;
    }

    /// Another process, on what the one before has kept, goes on in the same way.
    void restartService()
    {
        if (m_running)
            return; // it ends with its session
        const QJsonDocument stored(m_schedule.toJson(moment()));
        Schedule next(fraction());
        next.setAccounts(m_accounts, m_now);
        const auto result =
            next.restore(QJsonDocument::fromJson(stored.toJson()).object(), moment());
        ASSERT_TRUE(result) << result.error().toStdString();
        for (const auto &[name, polling] : m_accounts) {
            ASSERT_EQ(next.dueOf(name), m_schedule.dueOf(name));
            ASSERT_EQ(next.failuresOf(name), m_schedule.failuresOf(name));
        }
        next.setOnline(m_isOnline, m_now);
        m_schedule = std::move(next);
    }

    void waitForSession()
    {
        const auto next = m_schedule.nextDue();
        ASSERT_EQ(next.has_value(), m_isOnline);
        const Time wait = next ? std::max(Time(0), *next - m_now) : Time(1min);
        const bool isPatient = below(3) > 0;
        pass(isPatient ? wait : wait / 2);
        const auto due = m_schedule.due(m_now);
        ASSERT_EQ(due.has_value(), next && *next <= m_now);
        if (!due)
            return;
        const End &last = m_ended[*due];
        EXPECT_GE(m_now - last.at, last.wait * 9 / 10 - 1ms) << "too early";
        m_running = *due;
        m_schedule.sessionBegan();
        ++m_sessions;
    }

    void endSession()
    {
        pass(Time(below(100'000)));
        const Polling &polling = m_accounts[*m_running];
        const bool hasFailed = below(2) == 0;
        int &failures = m_failures[*m_running];
        failures = hasFailed ? failures + 1 : 0;
        Time wait = hasFailed ? polling.retryDelay : polling.interval;
        for (int failure = 1; failure < failures; ++failure)
            wait = std::min<Time>(2 * wait, polling.longestRetryDelay);
        if (hasFailed)
            wait = std::min<Time>(wait, polling.longestRetryDelay);
        m_schedule.sessionEnded(*m_running,
                                hasFailed ? SessionOutcome::Failed : SessionOutcome::Held, m_now);
        m_ended[*m_running] = {m_now, wait};
        m_running.reset();
    }

    Moment moment() const { return {m_now, "this", m_wallClock}; }

    void check()
    {
        ASSERT_TRUE(!m_running || !m_schedule.due(m_now + 1000h)) << "a second session at a time";
        for (const auto &[name, polling] : m_accounts) {
            const auto due = m_schedule.dueOf(name);
            ASSERT_TRUE(due) << "never again";
            const End &last = m_ended[name];
            // Somewhat more when a connection had to settle.
            ASSERT_LE(*due, std::max(last.at + last.wait * 11 / 10 + 1ms, m_now + 30s)) << "late";
        }
    }

    std::mt19937 m_generator;
    std::map<QString, Polling> m_accounts;
    Schedule m_schedule;
    std::map<QString, End> m_ended;
    std::map<QString, int> m_failures;
    std::optional<QString> m_running;
    Time m_now{12345};
    Time m_wallClock = wallClockOf2026;
    bool m_isOnline = false;
    int m_sessions = 0;
};

TEST(ScheduleProperty, OneSessionAtATimeAndNoWaitOutOfItsBounds)
{
    for (unsigned seed = 1; seed <= 200 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        RandomLife life(seed);
        for (int step = 0; step < 500 && !testing::Test::HasFailure(); ++step)
            life.step();
        EXPECT_GT(life.sessions(), 20);
    }
}

// ---- What a server may set -----------------------------------------------------------------------

TEST(PollingTest, AServerCannotKeepADeviceBusy)
{
    EXPECT_TRUE(isSparing(Polling()));
    EXPECT_TRUE(isSparing({900s, 0s, 60s, 60s}));
    EXPECT_FALSE(isSparing({899s, 60s, 60s, 60s}));
    EXPECT_FALSE(isSparing({900s, 60s, 59s, 60s}));
    EXPECT_FALSE(isSparing({900s, 60s, 60s, 59s}));
}

} // namespace

} // namespace client
