// Alerts by which a server talks to the user.
#pragma once

#include "dm_status.h"
#include "expected.h"
#include "message.h"

#include <QString>
#include <chrono>
#include <optional>
#include <vector>

namespace client {

/// How a server wants the user to be asked: the options in the first item of such an alert.
struct InteractionOptions {
    /// How long a text has to be shown at least; none when the server does not say.
    std::optional<std::chrono::seconds> minimumTime;
    /// How long the user may take at most; none: as long as it takes.
    std::optional<std::chrono::seconds> maximumTime;
    QString defaultResponse;          ///< empty when there is none
    std::optional<int> maximumLength; ///< characters of a typed text
    /// What may be typed: any text, digits, a date, a time of day, a telephone number, an address.
    enum class Input { Text, Number, Date, Time, Telephone, IpAddress } input = Input::Text;
    bool isSecret = false; ///< what is typed must not be shown

    bool operator==(const InteractionOptions &) const = default;
};

/// Reads the options string: `MINDT=10&MAXDT=20&DR=1&MAXLEN=8&IT=N&ET=P`, with URL-encoded values.
/// Unknown options, and values that an option cannot have, are skipped.
InteractionOptions parseInteractionOptions(const QByteArray &text);

/// Whether an alert asks the user for a text that must not be shown.
bool asksForSecret(const syncml::Command &alert);

/// Somebody to talk to. Texts come from the server as they are: whoever shows them has to make them
/// harmless.
class UserInteraction {
public:
    enum class Response {
        Given,
        Refused,
        Cancelled,
        TimedOut,
        CannotShow,
        NobodyThere,
    };

    virtual ~UserInteraction() = default;

    /// Shows a text. Given, CannotShow or NobodyThere.
    virtual Response show(const QString &text, const InteractionOptions &options) = 0;
    /// Asks for yes (Given) or no (Refused).
    virtual Response confirm(const QString &text, const InteractionOptions &options) = 0;
    /// Asks for a text; stores it when it is Given.
    virtual Response ask(const QString &text, const InteractionOptions &options,
                         QString &typed) = 0;
    enum class Choice { Single, Multiple };
    /// Asks for one or several of the choices; stores their numbers, from 1, when Given.
    virtual Response choose(const QString &text, const std::vector<QString> &choices, Choice kind,
                            const InteractionOptions &options, std::vector<int> &chosen) = 0;
};

/// Whether a server takes a text that was typed: its length and its form. Whoever is asked for
/// one checks it, so that the person can try again.
/// @return the error is a sentence for the person
support::Expected<void, QString> checkTyped(const QString &typed,
                                            const InteractionOptions &options);

/// Whether numbers are a choice that a server takes: from 1, none twice, of a single choice one.
/// @param count  of the choices
/// @return the error is a sentence for the person
support::Expected<void, QString> checkChosen(const std::vector<int> &chosen, std::size_t count,
                                             UserInteraction::Choice kind);

/// Answers an alert by which a server talks to the user: 200 with what the user gave, 304 for no,
/// 214 when the user cancelled, 408 when time was up, 412 when the alert lacks items, 416 when it
/// cannot be shown, 406 when there is nobody to talk to.
/// @param user      null when there is nobody
/// @param mostTime  that the user gets even when the server allows more or does not limit it; none:
///                  as long as the server allows
/// @param items     receives what goes into the Status
DmStatus answerUserAlert(const syncml::Command &alert, UserInteraction *user,
                         std::optional<std::chrono::seconds> mostTime,
                         std::vector<syncml::Item> &items);

} // namespace client
