// What the host's profile service tells of its calls to whoever listens.
#pragma once

#include "napi.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace call_observer {

/// One call of the profile service that has ended. What it points to lives until the observer
/// returns.
struct ProfileCall {
    const char *function;          ///< as platform/napi.h has it, such as "NAPI_ReadProfile"
    std::string_view profile = {}; ///< the name that was asked for or, by ID, was found; at most 64
                                   ///< bytes of any kind; empty when the call has none
    std::optional<std::uint32_t> id = {};    ///< asked for or found
    std::optional<std::uint32_t> count = {}; ///< of profiles, that were counted or listed; the
                                             ///< maximum
    int status = NAPI_OK;                    ///< NAPI_STATUS: how the call ended
    std::string_view reason = {};           ///< of a failure: a sentence for a person, in any bytes
    std::chrono::nanoseconds duration = {}; ///< without what only the observer caused
    const NAP_PROFILE_S *before = nullptr;  ///< as it was stored: of Modify and Delete
    const NAP_PROFILE_S *after = nullptr;   ///< of Read what was read, of Modify and Create what
                                            ///< was stored
};

/// Listens to the calls of the profile service of this process. Called on the thread of the caller,
/// after the service has let go of its store, so that it may call the service itself; it is told
/// of that call as well.
class __attribute__((visibility("default"))) ProfileCallObserver {
public:
    /// Whether the records before a change are wanted, and the IDs of profiles that are asked for
    /// by name: they are read from the store for that.
    virtual bool wantsRecords() const = 0;
    /// @return whether the reason of a failure reaches a person. If not, the service writes it to
    ///         standard error as it does when nobody listens.
    virtual bool observe(const ProfileCall &call) noexcept = 0;

protected:
    ~ProfileCallObserver() = default;
};

/// Has the calls from now on told to the observer instead of an earlier one; to nobody with null.
/// No call may be running. Exported by the host's profile service under this name; the one of a
/// handset does not have it.
using SetProfileCallObserver = void(ProfileCallObserver *observer);
inline constexpr char setProfileCallObserverSymbol[] = "kub_napi_set_call_observer";

} // namespace call_observer
