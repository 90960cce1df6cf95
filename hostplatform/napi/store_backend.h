// Which store the profile service works on.
#pragma once

#include "profile_store.h"

#include <memory>

/// Opens the store that the environment variable KUB_NAPI_BACKEND names: "sqlite", which it also is
/// when the variable is empty or not set, or "networkmanager".
/// @return NAPI_ERROR_UNAVAILABLE for another name, else what opening the store gives.
StoreResult openChosenStore(std::unique_ptr<ProfileStore> &store);
