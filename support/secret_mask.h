// What people see in place of a secret.
#pragma once

namespace support {

inline constexpr char secretMask[] = "********";

} // namespace support
