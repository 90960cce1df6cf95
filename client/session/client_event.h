// What the client has to tell a server from itself.
#pragma once

#include "alerts.h"
#include "expected.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace client {

/// Something that the client reports in its first package.
struct ClientEvent {
    AlertCode code = AlertCode::ClientEvent; ///< or GenericAlert
    QString type; ///< of a generic alert as "Content-Type: ..." or "Reversed-Domain-Name: ..."
    QByteArray data;
    QString format = QStringLiteral("chr");
    // Of a generic alert only:
    std::optional<QString> mark = {};       ///< how important it is
    std::optional<QString> source = {};     ///< URI of the node that it is about
    std::optional<QString> correlator = {}; ///< of the server's command that it answers
    /// Told again in a session whose server had not proved itself when it answered.
    bool isToldUntilTaken = false;
};

/// Reads "TYPE=TEXT". TYPE ends at the first equals sign.
/// @return what is wrong with another text
support::Expected<ClientEvent, QString> parseClientEvent(const QString &text);

/// Reads "[FIELD=VALUE ...] TYPE=TEXT", as in "mark=critical source=./DevInfo
/// Reversed-Domain-Name: org.example.event=1". The fields are mark, source, format and correlator;
/// their values have no blanks. TEXT fits the format.
/// @return what is wrong with another text
support::Expected<ClientEvent, QString> parseGenericAlert(const QString &text);

} // namespace client
