// Notifications with known proofs, and others.
#pragma once

#include "accounts.h"

#include <QByteArray>

/// The server com.mgmtsrv.manage asks for session 1234 by the nonce "nonce2", in the background,
/// for its user. Its trigger is the example of the standard.
extern const QByteArray knownNotification;
client::Account accountOfKnown();

/// The server com.example.dm asks for session A by the nonce 00 to 0F, interactively, for itself,
/// with two bytes of a vendor.
extern const QByteArray otherNotification;
client::Account accountOfOther();

/// The digest that is right for the trigger, and the trigger.
QByteArray proved(const QByteArray &trigger, const client::Account &account,
                  const QByteArray &nonce);

/// A push of that package, as the standard's example has its header.
QByteArray pushOf(const QByteArray &package);
