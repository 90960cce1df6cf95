// The handset that the benchmarks run on: a state directory of their own, filled with profiles.
#pragma once

#include "napi.h"

#include <filesystem>
#include <string>

namespace bench {

/// A new directory under the temporary directory, and the place of the profile store and of the
/// mapping files while it lives. To be made before the first call of a host library.
class TemporaryHandset {
public:
    TemporaryHandset();
    ~TemporaryHandset();
    TemporaryHandset(const TemporaryHandset &) = delete;
    TemporaryHandset &operator=(const TemporaryHandset &) = delete;

private:
    std::filesystem::path m_directory;
};

/// The profiles that the operations work on. They are stored last, so that a look-up that walks the
/// profiles takes its longest way.
inline constexpr char PACKET_PROFILE[] = "Packet data";
inline constexpr char MODEM_PROFILE[] = "Modem";

/// Brings the store to this many profiles, the two above among them. Needs at least two.
void StoreProfiles(int count);

/// Fills the store with a profile for each access point of the operators' database, and the two
/// above. @return the number of profiles; 0 when there is no database.
int StoreOperatorsProfiles(const std::string &databaseFile);

/// A profile with every packet-data setting and both proxies.
NAP_PROFILE_S PacketRecord(int number);

/// Ends the program with a message when a call that has to succeed did not.
void Require(bool succeeded, const std::string &call);

} // namespace bench
