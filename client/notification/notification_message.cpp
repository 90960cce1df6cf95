#include "notification_message.h"

#include "byte_reader.h"
#include "wsp_push.h"

#include <utility>

namespace client::notification {

using support::Expected;
using support::Unexpected;

namespace {

constexpr quint32 digestSize = 16;

// The version, in tenths, fills the first ten of the forty bits; user interaction mode and
// initiator follow. The rest is for later versions.
constexpr quint32 bitFieldSize = 5;
constexpr int versionShift = 30;
constexpr int uiModeShift = 28;
constexpr quint64 uiModeMask = 0x3;
constexpr int initiatorShift = 27;
constexpr quint64 initiatorMask = 0x1;
constexpr quint64 onlyVersion = 11;

constexpr quint32 sessionIdSize = 2;

quint64 bigEndian(QByteArrayView bytes)
{
    quint64 number = 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<quint8>(byte);
    return number;
}

Unexpected<QString> refusal(qsizetype place, const QString &text)
{
    return Unexpected(QStringLiteral("byte %1 of the notification: %2").arg(place).arg(text));
}

} // namespace

Expected<Package0, QString> readPackage0(const QByteArray &bytes)
{
    if (bytes.size() > Package0::largest)
        return Unexpected(
            QStringLiteral("the notification has more than %1 bytes").arg(Package0::largest));
    syncml::ByteReader reader(bytes);
    QByteArrayView digest;
    QByteArrayView bitField;
    QByteArrayView sessionId;
    quint8 idSize = 0;
    QByteArrayView serverId;
    const bool isWhole = reader.take(digestSize, digest) && reader.take(bitFieldSize, bitField) &&
                         reader.take(sessionIdSize, sessionId) && reader.readByte(idSize) &&
                         reader.take(idSize, serverId);
    if (!isWhole)
        return refusal(reader.place(), reader.fault());
    const quint64 bits = bigEndian(bitField);
    if (const quint64 version = bits >> versionShift; version != onlyVersion)
        return refusal(
            digestSize,
            QStringLiteral("version %1.%2 instead of 1.1").arg(version / 10).arg(version % 10));
    Package0 package;
    package.digest = digest.toByteArray();
    package.trigger = bytes.sliced(digestSize);
    package.uiMode = static_cast<UiMode>(bits >> uiModeShift & uiModeMask);
    package.initiator = static_cast<Initiator>(bits >> initiatorShift & initiatorMask);
    package.sessionId = static_cast<quint16>(bigEndian(sessionId));
    package.serverId = serverId.toByteArray();
    package.vendorBody = reader.rest().toByteArray();
    if (package.sessionId == 0)
        return refusal(digestSize + bitFieldSize,
                       QStringLiteral("0 is not the identifier of a session"));
    if (package.serverId.isEmpty())
        return refusal(digestSize + bitFieldSize + sessionIdSize,
                       QStringLiteral("it names no server"));
    return package;
}

// ---- In a push -----------------------------------------------------------------------------------

namespace {

// The application that such a push is for, as a number and as a URI.
constexpr char applicationNumber[] = "7";
constexpr char applicationUri[] = "x-wap-application:syncml.dm";

bool isForDmClient(const push::WspPush &push)
{
    return push.application && (*push.application == applicationNumber ||
                                push.application->toLower() == applicationUri);
}

} // namespace

bool isNotificationPush(const QByteArray &bytes)
{
    const auto push = push::readWspPush(bytes);
    return push && push->mediaType == push::push_type::notification;
}

Expected<Package0, QString> readNotificationPush(const QByteArray &bytes)
{
    const auto push = push::readWspPush(bytes);
    if (!push)
        return Unexpected(push.error());
    if (push->mediaType != push::push_type::notification)
        return Unexpected(QStringLiteral("a push of the media type %1 is not a notification")
                              .arg(QString::fromLatin1(push->mediaType)));
    if (!isForDmClient(*push))
        return Unexpected(QStringLiteral("the push is for %1 and not for the application %2")
                              .arg(push->application
                                       ? QString::fromLatin1(*push->application)
                                       : QStringLiteral("no application that it names"),
                                   QString::fromLatin1(applicationUri)));
    return readPackage0(push->body);
}

Expected<Package0, QString> readNotification(const QByteArray &bytes)
{
    auto pushed = readNotificationPush(bytes);
    if (pushed || isNotificationPush(bytes))
        return pushed;
    // A digest may begin as a push does.
    auto alone = readPackage0(bytes);
    return alone || !push::looksLikePush(bytes) ? alone : pushed;
}

// ---- Texts ---------------------------------------------------------------------------------------

QString sessionIdText(quint16 sessionId)
{
    return QString::number(sessionId, 16).toUpper();
}

QString describe(UiMode mode)
{
    constexpr const char *words[] = {"not specified", "background", "informative", "interactive"};
    return QString::fromLatin1(words[static_cast<int>(mode)]);
}

QString describe(Initiator initiator)
{
    return initiator == Initiator::Server ? QStringLiteral("server") : QStringLiteral("user");
}

} // namespace client::notification
