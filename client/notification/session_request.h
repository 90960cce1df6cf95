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

/// What a notification leads to: a session of the first account whose server it is from. It is
/// remembered, so that it leads to none a second time.
support::Expected<SessionRequest, Refusal>
requestOf(const Package0 &package, const AccountStore &accounts, const NotificationMemory &memory);

} // namespace client::notification
