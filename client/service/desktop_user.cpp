#include "desktop_user.h"

#include "desktop_notification.h"
#include "foreign_text.h"

#include <QDBusPendingReply>
#include <QSocketNotifier>
#include <QTimer>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

/// As a notification may show it: one that takes markup would take that of a server.
QString shownText(const QString &text, bool takesMarkup)
{
    const QString harmless =
        QString::fromStdString(foreign_text::printableLines(text.toStdString()));
    return takesMarkup ? harmless.toHtmlEscaped() : harmless;
}

} // namespace

Expected<std::unique_ptr<UserInteraction>, QString> DesktopUser::open(int interruptFile)
{
    const auto capabilities = DesktopNotification::capabilities();
    if (!capabilities)
        return Unexpected(capabilities.error());
    if (!capabilities->contains(QStringLiteral("actions")))
        return Unexpected(QStringLiteral("the notifications of this desktop have no buttons"));
    const bool takesMarkup = capabilities->contains(QStringLiteral("body-markup"));
    return std::unique_ptr<UserInteraction>(new DesktopUser(takesMarkup, interruptFile));
}

UserInteraction::Response DesktopUser::show(const QString &text, const InteractionOptions &options)
{
    if (text.size() > longestText)
        return Response::CannotShow;
    DesktopNotification notification;
    return notification.put(shownText(text, m_takesMarkup), {}, options.minimumTime)
               ? Response::Given
               : Response::CannotShow;
}

UserInteraction::Response DesktopUser::confirm(const QString &text,
                                               const InteractionOptions &options)
{
    int pressed = 0;
    const Response response =
        put(text, {QStringLiteral("Yes"), QStringLiteral("No")}, options, pressed);
    return response == Response::Given && pressed == 2 ? Response::Refused : response;
}

UserInteraction::Response DesktopUser::ask(const QString &, const InteractionOptions &, QString &)
{
    return Response::CannotShow;
}

UserInteraction::Response DesktopUser::choose(const QString &text,
                                              const std::vector<QString> &choices, Choice kind,
                                              const InteractionOptions &options,
                                              std::vector<int> &chosen)
{
    if (kind == Choice::Multiple || choices.empty() || choices.size() > mostChoices)
        return Response::CannotShow;
    int pressed = 0;
    const Response response = put(text, choices, options, pressed);
    if (response == Response::Given)
        chosen = {pressed};
    return response;
}

/// Waits for a button, whose number from 1 it stores.
UserInteraction::Response DesktopUser::put(const QString &text, const std::vector<QString> &buttons,
                                           const InteractionOptions &options, int &pressed) const
{
    qsizetype size = text.size();
    QStringList labels;
    for (const QString &button : buttons) {
        size += button.size();
        labels << QString::fromStdString(foreign_text::printable(button.toStdString()));
    }
    if (size > longestText)
        return Response::CannotShow;

    DesktopNotification notification;
    QSocketNotifier interrupt(m_interruptFile, QSocketNotifier::Read);
    QObject::connect(&interrupt, &QSocketNotifier::activated, &interrupt,
                     [&notification] { notification.end(DesktopNotification::End::TakenBack); });
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &limit,
                     [&notification] { notification.end(DesktopNotification::End::Expired); });
    if (options.maximumTime)
        limit.start(*options.maximumTime);
    if (!notification.put(shownText(text, m_takesMarkup), labels, std::nullopt))
        return Response::CannotShow;
    switch (notification.wait()) {
    case DesktopNotification::End::Pressed:
        pressed = notification.pressed();
        return Response::Given;
    case DesktopNotification::End::Dismissed:
    case DesktopNotification::End::TakenBack:
        return Response::Cancelled;
    case DesktopNotification::End::Expired:
        return Response::TimedOut;
    case DesktopNotification::End::Gone:
        break;
    }
    return Response::CannotShow;
}

} // namespace client
