// What a session tells those who watch it.
#pragma once

#include "codec.h"
#include "dm_status.h"
#include "transport.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace client {

/// A command of the server, or of one item of it, that has been answered.
struct AnsweredCommand {
    QString name; ///< "Get"; for an alert with its code: "Alert 1100"
    QString uri;  ///< node that it was about; empty when it names none
    DmStatus status = DmStatus::Ok;
    QString reason; ///< one sentence without its full stop; empty when the status says everything
    QString msgId;  ///< of the server's message
    QString cmdId;
    QString format; ///< Meta Format of the value; empty when nobody gave one
    /// What an Add or a Replace carries, or what answers a Get of one leaf, property or list of
    /// names.
    std::optional<QByteArray> value;
    bool mayBeSecret = false; ///< the value
};

/// Hears of everything in the order in which it happens. Texts come from the server as they are.
class SessionObserver {
public:
    virtual ~SessionObserver() = default;

    virtual void messageSent(const TransportRequest &, const syncml::Message &) {}
    /// @param decoded  null for an empty body
    virtual void messageReceived(const TransportResponse &, const syncml::DecodeResult *) {}
    /// An item of a command is about to be run; one without an address stands for a whole command,
    /// such as an Atomic, whose items follow then.
    virtual void itemBegins(const syncml::Command &, const syncml::Item &) {}
    virtual void itemEnded(const syncml::Command &, const syncml::Item &) {}
    virtual void commandAnswered(const AnsweredCommand &) {}
    /// Something about the session that a person should know: one sentence without its full stop.
    virtual void note(const QString &) {}
};

} // namespace client
