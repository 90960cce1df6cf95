// How the host's profile service gives a profile another name.
#pragma once

extern "C" {

/// Renames a profile, which keeps its numeric ID and its record. One transaction, as every call of
/// the service is (platform/napi.h), whose results it has. A handset's service has no such call.
/// @return NAPI_ERROR_NOT_FOUND for an unknown name, NAPI_ERROR_EXISTS for a new name that is
///         taken, by the profile itself too.
int kub_napi_rename_profile(const char *name, const char *newName);
}
