#include "plugin_watch.h"

#include <algorithm>

namespace client {

namespace {

/// Whether the call only asked whether there is such a profile, and there is not.
bool isNoToAQuestion(const call_observer::ProfileCall &call)
{
    static constexpr std::string_view questions[] = {
        "NAPI_GetProfileIDByName", "NAPI_GetProfileNameByID", "NAPI_IsProfileValid"};
    return call.status == NAPI_ERROR_NOT_FOUND &&
           std::ranges::find(questions, call.function) != std::end(questions);
}

} // namespace

void PluginWatch::setLog(PluginLog *log)
{
    m_log = log;
    if (!m_log)
        return;
    m_log->setListener([this](std::string_view message) { pluginMessage(message); },
                       [this](std::string_view trace) { pluginTrace(trace); });
    // The plug-in is loaded, and with it the log opened, when a command first needs it.
    if (m_isCommandRunning)
        m_log->beginCommand(m_command, m_address);
    if (!m_mountedRoot.isEmpty())
        m_log->beginMount(QString::fromUtf8(m_mountedRoot));
}

// ---- Commands ------------------------------------------------------------------------------------

void PluginWatch::begin(const QString &name, const QString &address)
{
    m_reasons.clear();
    m_isCommandRunning = true;
    m_command = name;
    m_address = address;
    if (m_log)
        m_log->beginCommand(name, address);
}

void PluginWatch::end(Outcome &outcome)
{
    m_isCommandRunning = false;
    // What was done may have gone another way than it was asked for: a node that was deleted was
    // not there, an entry of a mapping file could not be removed. Messages of the other kind come
    // with every command that succeeds.
    const QString said =
        m_reasons.text(outcome ? CommandReasons::Kind::Trouble : CommandReasons::Kind::All);
    if (said.isEmpty())
        return;
    const bool saysMore = !outcome.reason.isEmpty() && !isRefusalWithoutReason(outcome);
    outcome.reason = saysMore ? outcome.reason + QStringLiteral(": ") + said : said;
}

void PluginWatch::secretIsWritten(const QByteArray &secret)
{
    if (m_observer)
        m_observer->secretIsWritten(secret);
}

// ---- Mounts --------------------------------------------------------------------------------------

void PluginWatch::beginMount(const QByteArray &root)
{
    m_mountedRoot = root;
    m_lastMessagesOfMount.clear();
    if (m_log)
        m_log->beginMount(QString::fromUtf8(root));
    if (m_observer)
        m_observer->mountBegins(root);
}

QString PluginWatch::troubleOfMount() const
{
    CommandReasons reasons;
    for (const std::string &message : m_lastMessagesOfMount)
        reasons.addMessage(message);
    return reasons.text(CommandReasons::Kind::Trouble);
}

void PluginWatch::endMount(int nodes, const QString &fault)
{
    m_mountedRoot.clear();
    if (m_log)
        m_log->endMount();
    if (m_observer)
        m_observer->mountEnded(nodes, fault);
}

// ---- From below ----------------------------------------------------------------------------------

void PluginWatch::pluginMessage(std::string_view message)
{
    if (m_observer)
        m_observer->pluginMessage(message);
    if (m_mountedRoot.isEmpty()) {
        if (m_isCommandRunning)
            m_reasons.addMessage(message);
        return;
    }
    constexpr std::size_t mostMessages = 8;
    if (m_lastMessagesOfMount.size() == mostMessages)
        m_lastMessagesOfMount.pop_front();
    m_lastMessagesOfMount.emplace_back(message);
}

void PluginWatch::pluginTrace(std::string_view trace)
{
    if (m_observer)
        m_observer->pluginTrace(trace);
}

bool PluginWatch::observe(const call_observer::ProfileCall &call) noexcept
{
    if (m_observer)
        m_observer->profileCall(call);
    if (call.reason.empty() || isNoToAQuestion(call))
        return false;
    return takeFailure(
        call.function,
        QString::fromUtf8(call.reason.data(), static_cast<qsizetype>(call.reason.size())));
}

bool PluginWatch::observe(const call_observer::SettingCall &call) noexcept
{
    if (m_observer && !m_isPaused)
        m_observer->settingCall(call);
    return !call.reason.isEmpty() && takeFailure(call.function, call.reason);
}

/// @return whether somebody is told
bool PluginWatch::takeFailure(const char *function, const QString &reason)
{
    if (!m_isCommandRunning || !m_mountedRoot.isEmpty())
        return false;
    m_reasons.addFailure(function, reason);
    return m_areReasonsShown;
}

} // namespace client
