// The session that a notification asks for.
#pragma once

#include "accounts.h"
#include "notification_memory.h"
#include "notification_message.h"
#include "notification_proof.h"

namespace client::notification {

struct SessionRequest {
    QString account;
    quint16 sessionId = 0;
    UiMode uiMode = UiMode::NotSpecified;
    Initiator initiator = Initiator::User;
    /// By which the server was proved. One of zeros is what the session begins with, too.
    Nonce nonce = Nonce::Agreed;
};

/// Why nothing is done.
struct Refusal {
    enum class Kind {
        UnknownServer,
        WrongDigest,
        Repeated,
        NotRemembered, ///< that it was obeyed cannot be kept, so that it could come again
    };
    Kind kind = Kind::UnknownServer;
    QString reason; ///< a sentence without its full stop, with what the sender wrote in it
};

/// What a notification asks for: a session of the first account whose server it is from.
support::Expected<SessionRequest, Refusal> requestOf(const Package0 &package,
                                                     const AccountStore &accounts);

/// Remembers that the request is obeyed. Call it before anything is done, and do nothing when it
/// fails, so that no notification leads to a second session.
/// @param account  that of the request
support::Expected<void, Refusal> remember(const SessionRequest &request, const Account &account,
                                          const NotificationMemory &memory);

} // namespace client::notification
