#include "session_result.h"

#include <QJsonValue>
#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

struct CauseRow {
    SessionCause cause;
    const char *word;
};

constexpr CauseRow causes[] = {
    {SessionCause::User, "user"},
    {SessionCause::Schedule, "schedule"},
    {SessionCause::Notification, "notification"},
    {SessionCause::Bootstrap, "bootstrap"},
    {SessionCause::Operation, "operation"},
};

struct ConclusionRow {
    SessionConclusion conclusion;
    const char *word;
    SessionOutcome outcome;
    bool isOfTheSession; ///< whether the session's own process says it
};

// What somebody wanted to end, here or at the server, is not tried again before its time.
constexpr ConclusionRow conclusions[] = {
    {SessionConclusion::Completed, "completed", SessionOutcome::Held, true},
    {SessionConclusion::AbortedByServer, "aborted-by-server", SessionOutcome::Held, true},
    {SessionConclusion::Aborted, "aborted", SessionOutcome::Held, true},
    {SessionConclusion::Failed, "failed", SessionOutcome::Failed, true},
    {SessionConclusion::Busy, "busy", SessionOutcome::Busy, false},
    {SessionConclusion::TimedOut, "timed-out", SessionOutcome::Failed, false},
    {SessionConclusion::Crashed, "crashed", SessionOutcome::Failed, false},
};

const ConclusionRow &rowOf(SessionConclusion conclusion)
{
    return *std::ranges::find(conclusions, conclusion, &ConclusionRow::conclusion);
}

/// The row of a word; null when no row has it.
template <class Row, std::size_t Count>
const Row *rowOfWord(const Row (&rows)[Count], const QString &word)
{
    const auto *const row = std::ranges::find_if(
        rows, [&word](const Row &one) { return word == QLatin1String(one.word); });
    return row == std::end(rows) ? nullptr : row;
}

struct NumberRow {
    const char *key;
    int SessionResult::*member;
};

constexpr NumberRow numbers[] = {
    {"messages", &SessionResult::messages},
    {"commands", &SessionResult::commands},
    {"refused", &SessionResult::refused},
    {"differences", &SessionResult::differences},
};

// A text that came from a server, of which a line is enough.
constexpr qsizetype longestReason = 1024;

const QString accountKey = QStringLiteral("account");
const QString causeKey = QStringLiteral("cause");
const QString beganKey = QStringLiteral("began");
const QString endedKey = QStringLiteral("ended");
const QString sessionKey = QStringLiteral("session");
const QString reasonKey = QStringLiteral("reason");

bool readNumbers(const QJsonObject &object, SessionResult &result)
{
    return std::ranges::all_of(numbers, [&](const NumberRow &number) {
        const QJsonValue value = object[QLatin1String(number.key)];
        result.*number.member = value.toInt(-1);
        return result.*number.member >= 0;
    });
}

std::optional<std::chrono::milliseconds> readTime(const QJsonValue &value)
{
    constexpr qint64 none = std::numeric_limits<qint64>::min();
    const qint64 time = value.toInteger(none);
    return time == none ? std::nullopt : std::optional(std::chrono::milliseconds(time));
}

} // namespace

QString wordOf(SessionCause cause)
{
    return QString::fromLatin1(std::ranges::find(causes, cause, &CauseRow::cause)->word);
}

QString wordOf(SessionConclusion conclusion)
{
    return QString::fromLatin1(rowOf(conclusion).word);
}

SessionOutcome outcomeOf(SessionConclusion conclusion)
{
    return rowOf(conclusion).outcome;
}

bool readSummary(const QJsonObject &summary, SessionResult &result)
{
    const auto *const row = rowOfWord(conclusions, summary[sessionKey].toString());
    SessionResult read = result;
    if (!row || !row->isOfTheSession || !readNumbers(summary, read))
        return false;
    read.conclusion = row->conclusion;
    read.reason = summary[reasonKey].toString().left(longestReason);
    result = read;
    return true;
}

QJsonObject toJson(const SessionResult &result)
{
    QJsonObject object{
        {accountKey, result.account},
        {causeKey, wordOf(result.cause)},
        {beganKey, static_cast<qint64>(result.began.count())},
        {endedKey, static_cast<qint64>(result.ended.count())},
        {sessionKey, wordOf(result.conclusion)},
        {reasonKey, result.reason},
    };
    for (const NumberRow &number : numbers)
        object[QLatin1String(number.key)] = result.*number.member;
    return object;
}

Expected<SessionResult, QString> sessionResultFromJson(const QJsonObject &object)
{
    SessionResult result;
    const auto *const cause = rowOfWord(causes, object[causeKey].toString());
    const auto *const conclusion = rowOfWord(conclusions, object[sessionKey].toString());
    const auto began = readTime(object[beganKey]);
    const auto ended = readTime(object[endedKey]);
    result.account = object[accountKey].toString();
    result.reason = object[reasonKey].toString();
    if (result.account.isEmpty() || !cause || !conclusion || !began || !ended ||
        result.reason.size() > longestReason || !readNumbers(object, result))
        return Unexpected(QStringLiteral("is not the result of a session"));
    result.cause = cause->cause;
    result.conclusion = conclusion->conclusion;
    result.began = *began;
    result.ended = *ended;
    return result;
}

QVariantMap toVariantMap(const SessionResult &result)
{
    QVariantMap map{
        {accountKey, result.account},
        {causeKey, wordOf(result.cause)},
        {beganKey, static_cast<quint64>(std::max<qint64>(0, result.began.count()))},
        {endedKey, static_cast<quint64>(std::max<qint64>(0, result.ended.count()))},
        {sessionKey, wordOf(result.conclusion)},
        {reasonKey, result.reason},
    };
    for (const NumberRow &number : numbers)
        map[QString::fromLatin1(number.key)] = static_cast<quint32>(result.*number.member);
    return map;
}

} // namespace client
