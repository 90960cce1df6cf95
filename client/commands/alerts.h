// The alerts that a server and the client send each other, by their codes.
#pragma once

#include "message.h"

namespace client {

/// Numbered as the DM protocol numbers them.
enum class AlertCode : int {
    Display = 1100,
    Confirmation = 1101,
    TextInput = 1102,
    SingleChoice = 1103,
    MultipleChoice = 1104,
    ServerInitiated = 1200, ///< in answer to a notification
    ClientInitiated = 1201,
    NextMessage = 1222,
    SessionAbort = 1223,
    ClientEvent = 1224,
    NoEndOfData = 1225,
    GenericAlert = 1226,
};

/// An alert of that code without items.
syncml::Command makeAlert(AlertCode code);

/// Whether the command is an alert of that code.
bool isAlert(const syncml::Command &command, AlertCode code);

/// Whether the command is an alert by which a server talks to the user (1100 to 1104).
bool isUserAlert(const syncml::Command &command);

/// Whether one of the message's commands is an alert of that code.
bool hasAlert(const syncml::Message &message, AlertCode code);

/// Whether the message does nothing but ask for the client's next one.
bool isRequestForMore(const syncml::Message &message);

} // namespace client
