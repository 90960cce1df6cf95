// The profile service in memory.
#pragma once

#include "napi.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace doubles {

using NameSlot = std::array<char, NAPI_NAME_SIZE>;

/// What the NAPI_ calls answer from. Tests fill and read the members directly.
struct ProfileServiceDouble {
    struct Profile {
        unsigned int id = 0;
        std::string name;
        NAP_PROFILE_S record{};
    };

    /// In listed order. IDs need not be in order.
    std::vector<Profile> profiles;
    unsigned int nextId = 1;
    int maxProfiles = 127;

    /// What the call without a buffer says instead of the number of profiles: a service to which
    /// profiles are added, or from which they vanish, between the two calls.
    std::optional<unsigned int> announcedCount;
    /// Slots that are listed as they are instead of the profiles' names.
    std::optional<std::vector<NameSlot>> listedSlots;
    /// What NAPI_GetProfileNameByID writes instead of the profile's name.
    std::optional<NameSlot> nameOfEveryId;
    /// Records that were handed to NAPI_CreateProfile and NAPI_ModifyProfile, the latest last.
    std::vector<NAP_PROFILE_S> created;
    std::vector<NAP_PROFILE_S> modified;

    /// Stores a profile under the next ID, or the given one.
    Profile &Store(const std::string &name, const NAP_PROFILE_S &record,
                   std::optional<unsigned int> id = {});
    /// Null when there is none.
    Profile *Find(const std::string &name);
    Profile *Find(unsigned int id);
};

/// The current test's service; HandsetDoubles owns it.
ProfileServiceDouble &ProfileService();

} // namespace doubles
