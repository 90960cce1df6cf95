// Everything that is said beneath the tree of a device, and whom it concerns.
#pragma once

#include "command_reasons.h"
#include "command_watch.h"
#include "device_observer.h"
#include "plugin_log.h"

#include <deque>
#include <string>
#include <string_view>

namespace client {

/// Hears of commands and mounts from above, and of messages and calls from below; so it knows which
/// command, or which mount, a message belongs to. It puts the reasons of a command after its
/// status, and heads the messages in the log.
class PluginWatch final : public CommandWatch,
                          public call_observer::ProfileCallObserver,
                          public call_observer::SettingCallObserver {
public:
    /// Neither is owned; null takes it away.
    void setLog(PluginLog *log);
    void setObserver(DeviceObserver *observer) { m_observer = observer; }
    /// Whether somebody sees the reasons of commands; if not, the libraries write theirs to
    /// standard error.
    void setReasonsShown(bool areShown) { m_areReasonsShown = areShown; }

    void begin(const QString &name, const QString &address) override;
    void end(Outcome &outcome) override;
    void secretIsWritten(const QByteArray &secret) override;

    /// Whether the calls that are observed are the client's own, and not the plug-in's.
    void setPaused(bool isPaused) { m_isPaused = isPaused; }

    /// A mount may be in the middle of a command; what is said then is not about the command.
    void beginMount(const QByteArray &root);
    /// What the plug-in has said of trouble in the mount that runs; may be empty.
    QString troubleOfMount() const;
    void endMount(int nodes, const QString &fault);

    void pluginMessage(std::string_view message);
    void pluginTrace(std::string_view trace);
    bool isObserved() const { return m_observer; }
    bool wantsRecords() const override { return isObserved(); }
    bool observe(const call_observer::ProfileCall &call) noexcept override;
    bool observe(const call_observer::SettingCall &call) noexcept override;

private:
    bool takeFailure(const char *function, const QString &reason);

    PluginLog *m_log = nullptr;
    DeviceObserver *m_observer = nullptr;
    bool m_areReasonsShown = true;
    bool m_isPaused = false;
    bool m_isCommandRunning = false;
    QString m_command; ///< name and address of the last one
    QString m_address;
    QByteArray m_mountedRoot; ///< of the mount that runs; empty between mounts
    CommandReasons m_reasons;
    std::deque<std::string> m_lastMessagesOfMount; ///< of which one may say why it failed
};

} // namespace client
