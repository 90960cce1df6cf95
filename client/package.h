// Answering one package of a DM server.
#pragma once

#include "management_tree.h"
#include "syncml/codec.h"

#include <optional>

namespace client {

/// What the client has to say about one message of a server.
struct PackageAnswer {
    /// None when the server said nothing that needs an answer: the session is over then.
    std::optional<syncml::Message> message;
    /// Whether every status in it is a success.
    bool allSucceeded = true;
};

/// Runs the commands of a message in their order and builds the client's next message: the status
/// of the header, then each command's status followed by its results. Data that the encoding cannot
/// carry as text goes as base64. A header of another protocol version is answered with 505 or 513,
/// and none of its commands is run.
PackageAnswer answerPackage(const syncml::Message &request, ManagementTree &tree,
                            syncml::Encoding encoding);

} // namespace client
