// What a device tells of what happens beneath its tree.
#pragma once

#include "profile_call_observer.h"
#include "setting_call_observer.h"

#include <QByteArray>
#include <QString>
#include <string_view>

namespace client {

/// Hears of everything in the order in which it happens. What it is told lives until it returns.
class DeviceObserver {
public:
    virtual ~DeviceObserver() = default;

    virtual void mountBegins(const QByteArray &root) = 0;
    /// @param nodes  of the tree that was mounted
    /// @param fault  why nothing was mounted: a sentence; empty when it was
    virtual void mountEnded(int nodes, const QString &fault) = 0;
    /// One whole message of the plug-in, with its line break.
    virtual void pluginMessage(std::string_view message) = 0;
    /// One whole trace of it, which a library says that was built to tell of each of its steps.
    virtual void pluginTrace(std::string_view trace) = 0;
    /// A node of the tree is about to have this secret as its value.
    virtual void secretIsWritten(const QByteArray &secret) = 0;
    // A call of a library beneath the plug-in that has ended.
    virtual void profileCall(const call_observer::ProfileCall &call) = 0;
    virtual void settingCall(const call_observer::SettingCall &call) = 0;
};

} // namespace client
