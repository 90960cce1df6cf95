// How the host's profile service hands out a copy of all profiles.
#pragma once

#include <cstddef>

namespace profile_copy {

/// Writes all profiles as they are stored at this moment into a store of their own. Nothing else
/// changes. Whatever happens, no call of the profile service ends otherwise for it.
/// @param folder  state directory that the new store is for, of this user alone; it has none yet
/// @param reason  receives why it could not be done, a terminated sentence of at most size bytes
/// @return a NAPI_STATUS; NAPI_ERROR_UNAVAILABLE of a store whose profiles are not in a file
using CopyProfiles = int(const char *folder, char *reason, std::size_t size);

/// The name under which the host's profile service exports it; the one of a handset does not.
inline constexpr char copyProfilesSymbol[] = "kub_napi_copy_profiles";

} // namespace profile_copy
