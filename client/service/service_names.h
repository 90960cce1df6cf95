// What the service is called on the bus.
#pragma once

namespace client {

inline constexpr char serviceName[] = "org.kub.DmClient1";
inline constexpr char managerPath[] = "/org/kub/DmClient1";
inline constexpr char managerInterface[] = "org.kub.DmClient1";
inline constexpr char agentInterface[] = "org.kub.DmClient1.Agent";
inline constexpr char agentErrors[] = "org.kub.DmClient1.Agent.Error.";

} // namespace client
