// A connection as NetworkManager hands it out and takes it back.
#pragma once

#include <QMap>
#include <QString>
#include <QVariant>
#include <QVariantMap>

/// Settings by name ("gsm", "ipv4"), each with its properties by name. Properties of nested types
/// are QDBusArgument values, which go back to the daemon as they came.
using ConnectionSettings = QMap<QString, QVariantMap>;

/// Everything that NetworkManager keeps of one connection.
struct GsmConnection {
    ConnectionSettings settings; ///< never holds a secret
    QVariantMap gsmSecrets;      ///< the secrets of the setting gsm that the daemon itself keeps
};

/// @return the property, invalid when the connection has no such setting or property.
inline QVariant property(const ConnectionSettings &settings, const QString &setting,
                         const QString &name)
{
    return settings.value(setting).value(name);
}
