// The message by which a DM server asks for a session: a package 0, alone or in a WAP push.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>

namespace client::notification {

/// Numbered as the message has them.
enum class UiMode : quint8 {
    NotSpecified = 0,
    Background = 1,
    Informative = 2, ///< the user is told
    Interactive = 3, ///< the user is asked before the session
};

enum class Initiator : quint8 { User = 0, Server = 1 };

/// What a package 0 says. Nothing of it is proved.
struct Package0 {
    /// Largest one that is read, in bytes: the fixed fields, the longest identifier, and room for
    /// what a vendor adds.
    static constexpr qsizetype largest = 2048;

    QByteArray digest;  ///< 16 octets
    QByteArray trigger; ///< everything after the digest, which is what it is of
    UiMode uiMode = UiMode::NotSpecified;
    Initiator initiator = Initiator::User;
    quint16 sessionId = 0; ///< never 0
    QByteArray serverId;   ///< as the sender says, 1 to 255 bytes
    QByteArray vendorBody; ///< means nothing to this client

    bool operator==(const Package0 &) const = default;
};

/// Reads a package 0. The error is a sentence that says what is wrong, and where.
support::Expected<Package0, QString> readPackage0(const QByteArray &bytes);

/// Whether the message is a push with a notification in it, whatever that looks like. Others are
/// somebody else's.
bool isNotificationPush(const QByteArray &bytes);
/// Reads the package 0 of a push. The push has to say by media type and application that it is for
/// a DM client.
support::Expected<Package0, QString> readNotificationPush(const QByteArray &bytes);

/// Reads a package 0, alone or in a push.
support::Expected<Package0, QString> readNotification(const QByteArray &bytes);

/// The session's identifier as messages have it: "4D2".
QString sessionIdText(quint16 sessionId);
/// "background" and the like.
QString describe(UiMode mode);
QString describe(Initiator initiator);

} // namespace client::notification
