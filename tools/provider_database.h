// The operators' database of the package mobile-broadband-provider-info, format 2.0.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// An access point of a GSM network. Texts are as in the database, without blanks at the ends.
struct AccessPoint {
    QString apn;
    QString name;  ///< may be empty
    QString usage; ///< "internet", "mms", "wap" ..., empty when the database does not say
    QString userName;
    QString password;
    QStringList dnsServers;
    QString mmsProxy; ///< HOST or HOST:PORT

    /// @return the name, or the APN when it has none.
    QString displayName() const { return name.isEmpty() ? apn : name; }
};

struct Provider {
    QString country;   ///< two lower-case letters, ISO 3166-1
    QStringList names; ///< in several languages; the first is the usual one
    QList<AccessPoint> accessPoints;

    QString displayName() const { return names.isEmpty() ? QString() : names.first(); }
};

/// @return the providers with at least one GSM access point, in the order of the database, or what
///         is wrong and where
support::Expected<QList<Provider>, QString> parseProviderDatabase(const QByteArray &xml);
