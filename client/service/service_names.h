// What the service is called on the bus.
#pragma once

namespace client {

inline constexpr char serviceName[] = "org.kub.DmClient1";
inline constexpr char managerPath[] = "/org/kub/DmClient1";
inline constexpr char managerInterface[] = "org.kub.DmClient1";

} // namespace client
