// What a message's header says about its versions, and the Status that answers it.
#pragma once

#include "dm_status.h"
#include "message.h"

namespace client {

/// DTD and protocol version that this client speaks.
inline constexpr char dtdVersion[] = "1.2";
inline constexpr char protocolVersion[] = "DM/1.2";

/// 200 for a header of those versions; 505 or 513 for another one.
DmStatus statusOfHeader(const syncml::SyncHdr &header);

/// The Status that answers a message's header. CmdID and MsgRef are left open.
syncml::Command headerStatus(const syncml::SyncHdr &header, DmStatus status);

} // namespace client
