// A second opinion on the profiles when they are NetworkManager's connections.
#pragma once

#include "napi.h"

#include <map>
#include <string>

/// @return true when the profile service of this run keeps its profiles in NetworkManager.
bool isNetworkManagerBackend();

/// Expects that nmcli shows the same connections of type gsm, with the same packet data.
void expectNmcliShows(const std::map<std::string, NAP_PROFILE_S> &profilesByName);
