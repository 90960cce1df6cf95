// Answering one package of a DM server.
#pragma once

#include "codec.h"
#include "management_tree.h"
#include "session_observer.h"

#include <optional>
#include <vector>

namespace client {

/// What the client has to say about one message of a server.
struct PackageAnswer {
    /// None when the server said nothing that needs an answer, refuses the client, or aborts the
    /// session: it is over then.
    std::optional<syncml::Message> message;
    bool isAbortedByServer = false;
    /// How the server refuses the header of the client's last message; none when it does not.
    std::optional<QString> refusal;
    /// Whether every status in it is a success.
    bool allSucceeded = true;
};

/// Runs the commands of a message in their order, as a session does that has nobody to talk to, and
/// builds the client's next message: the status of the header, then each command's status followed
/// by its results, and a request for the rest of a package that is not final. Data that the
/// encoding cannot carry as text goes as base64. A header of another protocol version is answered
/// with 505 or 513, and none of its commands is run; nor is any when the server aborts the session,
/// or refuses the client's header as in a session without credentials.
/// @param principal  on whose behalf the commands run
/// @param observers  are told how each command went
PackageAnswer answerPackage(const syncml::Message &request, ManagementTree &tree,
                            syncml::Encoding encoding,
                            const Principal &principal = Principal::owner(),
                            const std::vector<SessionObserver *> &observers = {});

} // namespace client
