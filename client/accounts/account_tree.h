// The DM accounts as nodes.
#pragma once

#include "access_control.h"
#include "accounts.h"
#include "dmnative/dmt_tree.h"

namespace client {

/// Where the tree is mounted.
inline constexpr char accountTreeRoot[] = "./DMAcc";

/// Tree of one node an account, each with the leaves of the standard DM account object:
///
///   <account>         Get and Replace for the account's own server
///     AppID           "w7"
///     ServerID
///     Name
///     AAuthPref       BASIC, DIGEST or HMAC
///     AppAddr/1/Addr
///     AppAddr/1/AddrType
///     AppAuth/1       what the client proves itself with (AAuthLevel CLCRED)
///     AppAuth/2       what the server proves itself with (SRVCRED)
///       AAuthLevel, AAuthType, AAuthName, AAuthSecret, AAuthData
///     Ext/Polling     when the device begins sessions by itself, in seconds
///       Interval, FirstDelay, RetryDelay, LongestRetryDelay
///
/// AAuthSecret and AAuthData (the nonce) can be replaced and not be read (405). No account is
/// added, renamed or deleted here: people say who manages a device. A side that proves nothing has
/// no node beneath AppAuth.
///
/// A replaced value is written to the store at once and used from the next session on. One that the
/// account cannot have is refused with 415, one that is too long with 413, and one by which a
/// server would weaken the account (see isWeaker) or keep the device busy (see isSparing) with 405;
/// 510 when the store cannot be written.
///
/// @param store  has to outlive the tree
/// @param user   who makes the changes: the owner of the device may do that
JemSmartPtr<DmtTree> makeAccountTree(AccountStore &store, const Principal &user);

} // namespace client
