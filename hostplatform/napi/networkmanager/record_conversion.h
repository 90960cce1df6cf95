// A profile's record as a connection of type gsm, and back.
//
// The packet data part is the connection's own: access point name, user name, password and the
// first two IPv4 DNS servers. Everything else of the record, down to the bytes that no field names,
// is kept in the connection's user data under keys that begin with "kub-dm.", which every user can
// read, and secrets beside the connection; docs/networkmanager.md lists them. Neither direction
// looks at settings that the conversion does not know.
#pragma once

#include "connection_settings.h"
#include "profile_store.h"

/// Fills the record from a connection.
/// @return NAPI_ERROR_CORRUPT, with the key, when user data under our keys is not a value of its
/// field.
StoreResult readRecord(const GsmConnection &connection, NAP_PROFILE_S &record);

/// Fills in the secrets of a record that was read from a connection without them.
/// @param connection  with secrets and without settings
/// @return NAPI_ERROR_CORRUPT, with the field, when a kept one does not fit.
StoreResult readSecretFields(const GsmConnection &connection, NAP_PROFILE_S &record);

/// Moves secrets that are found in user data, where earlier versions kept them, to those that are
/// kept beside the connection.
/// @param isTaken  receives whether there were any; the connection is another then
/// @return NAPI_ERROR_CORRUPT, with the key, when one is not a value of its field.
StoreResult takeSecretsFromUserData(GsmConnection &connection, bool &isTaken);

/// Where a change of a record went.
struct ConnectionChange {
    bool settings = false;
    bool secrets = false;
    bool keptSecrets = false;
};

/// Writes into the connection what differs between two records, and nothing else.
/// @param before  the record that readRecord gives for the connection
/// @param change  receives the parts of the connection that are other now
/// @return NAPI_ERROR_VALUE_REFUSED, with the field, for a value that NetworkManager would refuse
///         without saying so or would store as another one; the connection is half changed then.
StoreResult writeRecord(const NAP_PROFILE_S &before, const NAP_PROFILE_S &after,
                        GsmConnection &connection, ConnectionChange &change);

/// @return true when NetworkManager itself keeps the password, not an agent of the user or nobody.
bool isPasswordKept(const ConnectionSettings &settings);

/// @return a connection without a value in it. It does not connect by itself: it has no access
/// point
///         yet, and which connection a device dials is not for the profile service to decide.
GsmConnection newConnection(const QString &id, const QString &uuid);

/// @return the settings in the form in which the daemon takes them without loss. Of a property that
///         it hands out both in an old form and in a richer new one it would read the old one.
ConnectionSettings settingsToSend(ConnectionSettings settings);

/// @return the record's field that is stored in a property, for messages: "gprs.address" for
///         "gsm.apn"; empty for a property that the conversion does not write.
QString fieldOfProperty(const QString &property);
