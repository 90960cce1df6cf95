#include "bootstrap_message.h"

#include "dm_message.h"
#include "serialised_objects.h"
#include "wsp_push.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace client::bootstrap {

using push::looksLikePush;
using push::readWspPush;
using push::WspPush;
using support::Expected;
using support::Unexpected;

namespace push_type = push::push_type;

namespace {

constexpr std::pair<const char *, Profile> profilesByType[] = {
    {push_type::connectivityWbxml, Profile::ClientProvisioning},
    {push_type::connectivityXml, Profile::ClientProvisioning},
    {push_type::dmWbxml, Profile::DeviceManagement},
    {push_type::dmXml, Profile::DeviceManagement},
};

Expected<BootstrapMessage, QString> messageOf(const WspPush &push)
{
    const auto *const row = std::ranges::find_if(
        profilesByType, [&push](const auto &one) { return push.mediaType == one.first; });
    if (row == std::end(profilesByType))
        return Unexpected(QStringLiteral("a push of the media type %1 is not a bootstrap message")
                              .arg(QString::fromLatin1(push.mediaType)));
    BootstrapMessage message{row->second, push.body, std::nullopt};
    if (push.security) {
        const auto kind = macKindOf(*push.security, message.profile);
        if (!kind)
            return Unexpected(kind.error());
        if (!push.mac)
            return Unexpected(QStringLiteral("the push has a SEC and no MAC"));
        message.proof = {*kind, *push.mac};
    } else if (push.mac) {
        return Unexpected(QStringLiteral("the push has a MAC and no SEC that says what it is of"));
    }
    return message;
}

Expected<ProvisioningDocument, QString> documentOfDmMessage(const QByteArray &bytes)
{
    const auto nodes = readDmMessage(bytes);
    return nodes ? documentOfObjects(*nodes) : Unexpected(nodes.error());
}

} // namespace

bool BootstrapMessage::isProvedBy(const MacSecrets &secrets) const
{
    return isRightMac(proof->kind, profile, secrets, document, proof->mac);
}

Expected<BootstrapMessage, QString> readBootstrapMessage(const QByteArray &bytes)
{
    if (bytes.size() > largestBootstrapMessage)
        return Unexpected(
            QStringLiteral("the message has more than %1 bytes").arg(largestBootstrapMessage));
    if (!looksLikePush(bytes)) {
        if (!recogniseDocument(bytes))
            return Unexpected(
                QStringLiteral("the message is neither a WAP push, nor XML or WBXML"));
        const Profile profile =
            looksLikeDmMessage(bytes) ? Profile::DeviceManagement : Profile::ClientProvisioning;
        return BootstrapMessage{profile, bytes, std::nullopt};
    }
    const auto push = readWspPush(bytes);
    return push ? messageOf(*push) : Unexpected(push.error());
}

Expected<ProvisioningPlan, QString> planOf(const BootstrapMessage &message, const UriLimits &limits)
{
    const auto document = message.profile == Profile::DeviceManagement
                              ? documentOfDmMessage(message.document)
                              : readProvisioningDocument(message.document);
    return document ? planOf(*document, limits) : Unexpected(document.error());
}

} // namespace client::bootstrap
