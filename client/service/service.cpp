#include "service.h"

#include "journal.h"
#include "late_operations.h"
#include "notification_message.h"
#include "state_directory.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QRandomGenerator>
#include <algorithm>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

constexpr std::size_t mostResults = 50;

/// A device whose clock begins at 1970 with every start comes along by what was kept.
constexpr auto savingInterval = std::chrono::hours(1);

/// A server that asks for the next operation whenever it hears of the last one would keep a device
/// busy for ever.
constexpr int mostOperationsInARow = 5;

/// dmclient's exit status when what it works with cannot be used (see exit_status.h).
constexpr int unusable = 3;

void complain(const Expected<void, QString> &done)
{
    if (!done)
        writeJournal(JournalPriority::Error, done.error());
}

std::map<QString, Polling> pollingOf(const AccountStore &accounts)
{
    std::map<QString, Polling> polling;
    for (const auto &[name, account] : accounts.accounts())
        polling.emplace(name, account.polling);
    return polling;
}

} // namespace

// ---- Beginning and end of the service ------------------------------------------------------------

Expected<std::unique_ptr<Service>, QString> Service::open(Options options)
{
    auto state = ServiceState::open(options.stateDirectory);
    if (!state)
        return Unexpected(state.error());
    return std::unique_ptr<Service>(new Service(std::move(options), *std::move(state)));
}

Service::Service(Options options, std::unique_ptr<ServiceState> state)
    : m_options(std::move(options)), m_state(std::move(state)),
      m_accounts(AccountStore::load(m_state->accountsFile())),
      m_schedule([] { return QRandomGenerator::global()->generateDouble(); }),
      m_child(
          m_options.limits, [this](const SessionChild::End &end) { ended(end); },
          [this](const QJsonObject &question) { asked(question); }),
      m_timer([this] { beginWhatIsDue(); })
{
    const Moment now = currentMoment();
    m_schedule.setAccounts(pollingOf(m_accounts), now.sinceBoot);
    const auto schedule = m_state->readSchedule();
    if (!schedule)
        complain(Unexpected(schedule.error()));
    else if (*schedule)
        if (const auto restored = m_schedule.restore(**schedule, now); !restored)
            writeJournal(JournalPriority::Error,
                         QStringLiteral("%1: %2; every account begins with its first delay")
                             .arg(m_state->scheduleFile(), restored.error()));
    if (auto results = m_state->readResults())
        m_results = *std::move(results);
    else
        complain(Unexpected(results.error()));
    if (!m_accounts.damage().isEmpty())
        writeJournal(JournalPriority::Error, m_accounts.damage());

    // Files are replaced, so that it is the folder that changes.
    m_accountsWatch.addPath(QFileInfo(m_state->accountsFile()).path());
    QObject::connect(&m_accountsWatch, &QFileSystemWatcher::directoryChanged, &m_accountsWatch,
                     [this] { loadAccounts(); });
    m_saving.setInterval(savingInterval);
    m_saving.setTimerType(Qt::VeryCoarseTimer);
    QObject::connect(&m_saving, &QTimer::timeout, &m_saving, [this] { saveSchedule(); });
    m_saving.start();
    m_bootstrapDelay.setInterval(m_options.busyDelay);
    m_bootstrapDelay.setSingleShot(true);
    QObject::connect(&m_bootstrapDelay, &QTimer::timeout, &m_bootstrapDelay,
                     [this] { beginWhatIsDue(); });
    saveSchedule();
}

Service::~Service()
{
    saveSchedule();
}

void Service::stop(std::function<void()> stopped)
{
    m_waiting.clear();
    m_bootstraps.clear();
    m_timer.set(std::nullopt);
    if (!m_running && !m_applying) {
        stopped();
        return;
    }
    m_stopped = std::move(stopped);
    m_child.cancel();
}

// ---- Accounts ------------------------------------------------------------------------------------

void Service::loadAccounts()
{
    AccountStore accounts = AccountStore::load(m_state->accountsFile());
    if (accounts.accounts() == m_accounts.accounts() && accounts.damage() == m_accounts.damage())
        return;
    if (!accounts.damage().isEmpty())
        writeJournal(JournalPriority::Error, accounts.damage());
    m_accounts = std::move(accounts);
    m_schedule.setAccounts(pollingOf(m_accounts), currentMoment().sinceBoot);
    std::erase_if(m_waiting, [this](const SessionRequest &request) {
        return !m_accounts.find(request.account);
    });
    saveSchedule();
    setTimer();
    m_listener.changed();
}

std::optional<std::chrono::milliseconds> Service::nextSession(const QString &account) const
{
    const auto due = m_schedule.dueOf(account);
    const Moment now = currentMoment();
    return due ? std::optional(now.wallClock + (*due - now.sinceBoot)) : std::nullopt;
}

// ---- What is next --------------------------------------------------------------------------------

Expected<void, QString> Service::requestSession(const SessionRequest &request)
{
    if (m_stopped)
        return Unexpected(QStringLiteral("the service stops"));
    const Account *const account = m_accounts.find(request.account);
    if (!account)
        return Unexpected(m_accounts.damage().isEmpty()
                              ? QStringLiteral("no account %1").arg(request.account)
                              : m_accounts.damage());
    if (auto complete = checkComplete(*account); !complete)
        return complete;
    const auto same = std::ranges::find(m_waiting, request.account, &SessionRequest::account);
    if (same == m_waiting.end())
        m_waiting.push_back(request);
    else if (request.sessionId)
        *same = request;
    m_listener.changed();
    beginWhatIsDue();
    return {};
}

Expected<void, QString> Service::cancelSession(const QString &account)
{
    const bool isRunning = m_running && m_running->account == account;
    const auto waited = std::erase_if(
        m_waiting, [&account](const SessionRequest &one) { return one.account == account; });
    if (!isRunning && waited == 0)
        return Unexpected(QStringLiteral("no session of %1 runs or waits").arg(account));
    if (isRunning)
        m_child.cancel();
    m_listener.changed();
    return {};
}

void Service::setOnline(bool isOnline)
{
    if (m_isOnline == isOnline)
        return;
    m_isOnline = isOnline;
    m_schedule.setOnline(isOnline, currentMoment().sinceBoot);
    if (isOnline && !m_stopped)
        requestLeftResultSessions();
    beginWhatIsDue();
    m_listener.changed();
}

void Service::setTimer()
{
    // What is due while a bootstrap message is applied begins after it.
    m_timer.set(m_stopped || m_applying ? std::nullopt : m_schedule.nextDue());
}

void Service::beginWhatIsDue()
{
    if (!m_running && !m_applying && !m_stopped) {
        const bool canApply = !m_bootstraps.empty() && !m_bootstrapDelay.isActive();
        if (m_waiting.empty() && canApply) {
            const QString id = m_bootstraps.front();
            m_bootstraps.pop_front();
            beginBootstrap(id);
            setTimer();
            return;
        }
        if (m_waiting.empty())
            if (const auto account = m_schedule.due(currentMoment().sinceBoot))
                m_waiting.push_back({*account, SessionCause::Schedule});
        if (!m_waiting.empty()) {
            const SessionRequest next = m_waiting.front();
            m_waiting.pop_front();
            begin(next);
        }
    }
    setTimer();
}

// ---- Operations that have ended ------------------------------------------------------------------

/// Has the server of an account told of what has ended.
void Service::requestResultSession(const QString &account, int operationsBefore)
{
    SessionRequest request{account, SessionCause::Operation};
    request.operationsBefore = operationsBefore;
    complain(requestSession(request));
}

/// The same for what an earlier session has left, such as one that could not reach its server.
void Service::requestLeftResultSessions()
{
    const auto operations = LateOperations::load(m_state->lateOperationsFile());
    if (!operations) {
        complain(Unexpected(operations.error()));
        return;
    }
    std::set<QString> accounts;
    for (const LateOperation &operation : operations->all())
        if (m_accounts.find(operation.account) && accounts.insert(operation.account).second)
            requestResultSession(operation.account, 0);
}

// ---- A session -----------------------------------------------------------------------------------

namespace {

/// What the session's process has to know of the notification that asked for it.
QStringList notifiedOptions(const SessionRequest &request)
{
    if (!request.sessionId)
        return {};
    QStringList options{QStringLiteral("--notified"),
                        notification::sessionIdText(*request.sessionId)};
    if (request.nonce != notification::Nonce::Agreed)
        options += {QStringLiteral("--zero-nonce"), request.nonce == notification::Nonce::ZeroText
                                                        ? QStringLiteral("text")
                                                        : QStringLiteral("octets")};
    return options;
}

/// The operations that have begun; none when the file cannot be read, of which the session tells.
std::set<int> resultsOf(const ServiceState &state, const QString &account)
{
    const auto operations = LateOperations::load(state.lateOperationsFile());
    return operations ? operations->begunOf(account) : std::set<int>();
}

} // namespace

void Service::begin(const SessionRequest &request)
{
    m_running = request;
    m_runningResult.account = request.account;
    m_runningResult.cause = request.cause;
    m_runningResult.began = currentMoment().wallClock;
    m_knownResults = resultsOf(*m_state, request.account);
    m_schedule.sessionBegan();
    writeJournal(
        JournalPriority::Information,
        QStringLiteral("session with %1 begins, asked for by %2")
            .arg(request.account, wordOf(request.cause)),
        {{"DMCLIENT_ACCOUNT", request.account}, {"DMCLIENT_CAUSE", wordOf(request.cause)}});
    QStringList arguments{QStringLiteral("--state"), m_state->path()};
    arguments += m_options.deviceArguments;
    arguments += {QStringLiteral("session"), QStringLiteral("--json"),
                  QStringLiteral("--questions"), QStringLiteral("--here")};
    arguments += notifiedOptions(request);
    arguments += {QStringLiteral("--"), request.account};
    m_child.start(m_options.sessionProgram, arguments);
    m_listener.changed();
}

/// What became of the session, as far as it can be told.
void Service::conclude(const SessionChild::End &end, SessionResult &result) const
{
    const bool isSummed = end.summary && readSummary(*end.summary, result);
    if (end.wasCancelled && (!isSummed || !end.fault.isEmpty())) {
        result.conclusion = SessionConclusion::Aborted;
    } else if (!end.fault.isEmpty()) {
        result.conclusion =
            end.hasTimedOut ? SessionConclusion::TimedOut : SessionConclusion::Crashed;
        result.reason = end.fault;
    } else if (!isSummed) {
        const bool isBusy = end.exitStatus == unusable && StateDirectory::isInUse(m_state->path());
        result.conclusion = isBusy ? SessionConclusion::Busy : SessionConclusion::Failed;
        result.reason =
            end.lastProblem.isEmpty()
                ? QStringLiteral("the session's process ended with status %1").arg(end.exitStatus)
                : QString::fromUtf8(end.lastProblem);
    }
}

void Service::asked(const QJsonObject &question)
{
    if (m_listener.asked)
        m_listener.asked(m_running ? m_running->account : QString(), question);
    else
        answerQuestion({{QStringLiteral("id"), question[u"id"]},
                        {QStringLiteral("response"), QStringLiteral("nobody")}});
}

void Service::ended(const SessionChild::End &end)
{
    if (m_applying) {
        bootstrapEnded(end);
        return;
    }
    SessionResult result = std::exchange(m_runningResult, {});
    conclude(end, result);
    const Moment now = currentMoment();
    result.ended = now.wallClock;
    m_schedule.sessionEnded(result.account, outcomeOf(result.conclusion), now.sinceBoot);
    const SessionRequest request = *std::exchange(m_running, std::nullopt);
    const auto results = resultsOf(*m_state, request.account);
    saveSchedule();
    keep(std::move(result));
    m_listener.changed();
    m_listener.sessionEnded(m_results.back());
    // Who has ended a session here wants no other one at once.
    const bool hasNewResult = !end.wasCancelled && !std::ranges::includes(m_knownResults, results);
    const int before = request.cause == SessionCause::Operation ? request.operationsBefore + 1 : 0;
    if (hasNewResult && before < mostOperationsInARow && !m_stopped &&
        m_accounts.find(request.account))
        requestResultSession(request.account, before);
    goOn();
}

void Service::goOn()
{
    if (m_stopped)
        m_stopped();
    else
        beginWhatIsDue();
}

void Service::keep(SessionResult result)
{
    const bool isGood = result.conclusion == SessionConclusion::Completed;
    const QString reason =
        result.reason.isEmpty() ? QString() : QStringLiteral(": ") + result.reason;
    writeJournal(isGood ? JournalPriority::Information : JournalPriority::Warning,
                 QStringLiteral("session with %1 %2%3 (%4 messages, %5 commands, %6 refused)")
                     .arg(result.account, wordOf(result.conclusion), reason)
                     .arg(result.messages)
                     .arg(result.commands)
                     .arg(result.refused),
                 {{"DMCLIENT_ACCOUNT", result.account},
                  {"DMCLIENT_CAUSE", wordOf(result.cause)},
                  {"DMCLIENT_SESSION", wordOf(result.conclusion)}});
    if (m_results.size() >= mostResults)
        m_results.erase(m_results.begin());
    m_results.push_back(std::move(result));
    complain(m_state->writeResults(m_results));
}

// ---- Bootstrap messages --------------------------------------------------------------------------

void Service::applyBootstrap(const QString &id)
{
    if (m_stopped || m_applying == id || std::ranges::find(m_bootstraps, id) != m_bootstraps.end())
        return;
    m_bootstraps.push_back(id);
    beginWhatIsDue();
}

void Service::beginBootstrap(const QString &id)
{
    m_applying = id;
    QStringList arguments{QStringLiteral("--state"), m_state->path()};
    arguments += m_options.deviceArguments;
    arguments +=
        {QStringLiteral("bootstrap"),   QStringLiteral("--pending"), QStringLiteral("--json"),
         QStringLiteral("--questions"), QStringLiteral("--"),        id};
    m_child.start(m_options.sessionProgram, arguments);
}

void Service::bootstrapEnded(const SessionChild::End &end)
{
    const QString id = *std::exchange(m_applying, std::nullopt);
    const QJsonObject summary = end.summary.value_or(QJsonObject());
    const QString outcome = summary[u"bootstrap"].toString();
    const QString problem = end.fault.isEmpty() ? QString::fromUtf8(end.lastProblem) : end.fault;
    const QString reason = summary[u"reason"].toString(problem).left(1024);
    m_listener.bootstrapEnded();
    if (outcome == u"applied") {
        writeJournal(JournalPriority::Notice,
                     QStringLiteral("the bootstrap message %1 is applied").arg(id));
        // The folder's own news may come later.
        loadAccounts();
        for (const QJsonValue &account : summary[u"accounts"].toArray())
            complain(requestSession({account.toString(), SessionCause::Bootstrap}));
    } else if (outcome == u"discarded") {
        if (const auto count = m_discarded.add(RefusalCount::Clock::now()))
            writeJournal(JournalPriority::Warning,
                         QStringLiteral("%1 bootstrap messages are discarded, the last because: %2")
                             .arg(*count)
                             .arg(reason));
    } else if (outcome.isEmpty() && end.exitStatus == unusable &&
               StateDirectory::isInUse(m_state->path())) {
        m_bootstraps.push_front(id);
        m_bootstrapDelay.start();
    } else {
        // Who did not answer is not asked about the next one either.
        if (outcome == u"unanswered")
            m_bootstraps.clear();
        writeJournal(JournalPriority::Notice,
                     QStringLiteral("the bootstrap message %1 waits: %2").arg(id, reason));
    }
    goOn();
}

// ---- Files ---------------------------------------------------------------------------------------

void Service::saveSchedule()
{
    complain(m_state->writeSchedule(m_schedule.toJson(currentMoment())));
}

} // namespace client
