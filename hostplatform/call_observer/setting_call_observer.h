// What the host's settings files tell of their calls to whoever listens.
#pragma once

#include "setup_set_manager.h"

#include <QString>

namespace call_observer {

/// One call of the settings class that has ended. A null text stands for what the call does not
/// have, and for an entry that is absent.
struct SettingCall {
    const char *function; ///< the member's name, or "open" for the constructor
    QString file;         ///< its path
    QString group = {};
    QString key = {};
    QString before = {}; ///< of setSettingInfo and removeEntry: the entry as it was
    QString after = {};  ///< of setSettingInfo and getSettingInfo: the entry as it is
    bool result = true;  ///< what the call returned; of "open" whether all of the file was read
    QString reason = {}; ///< of a failure to read or to write: a sentence for a person
};

/// Listens to the calls of the settings class of this process. Called on the thread of the caller,
/// after the call has let go of what it shares with others.
class __attribute__((visibility("default"))) SettingCallObserver {
public:
    /// @return whether the reason of a failure reaches a person. If not, the class writes it to
    ///         standard error as it does when nobody listens.
    virtual bool observe(const SettingCall &call) noexcept = 0;

protected:
    ~SettingCallObserver() = default;
};

/// Has the calls from now on told to the observer instead of an earlier one; to nobody with null.
/// No call may be running. Exported by the host's settings library under this name; the one of a
/// handset does not have it.
using SetSettingCallObserver = void(SettingCallObserver *observer);
inline constexpr char setSettingCallObserverSymbol[] = "kub_appbase_set_call_observer";

} // namespace call_observer
