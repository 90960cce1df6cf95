// A connection as NetworkManager hands it out and takes it back.
#pragma once

#include <map>
#include <string>

#include <QMap>
#include <QString>
#include <QVariant>
#include <QVariantMap>

/// Settings by name ("gsm", "ipv4"), each with its properties by name. Properties of nested types
/// are QDBusArgument values, which go back to the daemon as they came.
using ConnectionSettings = QMap<QString, QVariantMap>;

/// Secrets that NetworkManager has no place for, by the name of the record's field: the bytes
/// without the zero bytes at the end.
using KeptSecrets = std::map<std::string, std::string>;

/// Everything that is kept of one connection.
struct GsmConnection {
    ConnectionSettings settings; ///< what every user can read
    QVariantMap gsmSecrets;      ///< the secrets of the setting gsm that the daemon itself keeps
    KeptSecrets keptSecrets;     ///< beside the connection, in our own database
};

/// @return the property, invalid when the connection has no such setting or property.
inline QVariant property(const ConnectionSettings &settings, const QString &setting,
                         const QString &name)
{
    return settings.value(setting).value(name);
}
