// The alerts that a server and the client send each other, by their codes.
#pragma once

#include "message.h"

namespace client {

namespace alert_code {
inline constexpr char clientInitiated[] = "1201";
inline constexpr char nextMessage[] = "1222";
inline constexpr char sessionAbort[] = "1223";
inline constexpr char noEndOfData[] = "1225";
} // namespace alert_code

/// Whether the command is an alert of that code.
bool isAlert(const syncml::Command &command, const char *code);

/// Whether the command is an alert by which a server talks to the user (1100 to 1104).
bool isUserAlert(const syncml::Command &command);

/// Whether one of the message's commands is an alert of that code.
bool hasAlert(const syncml::Message &message, const char *code);

/// Whether the message does nothing but ask for the client's next one.
bool isRequestForMore(const syncml::Message &message);

} // namespace client
