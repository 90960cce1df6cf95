#include "message_mac.h"

#include "credentials.h"

#include <QByteArrayList>
#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <algorithm>
#include <iterator>

namespace client::bootstrap {

using support::Unexpected;

namespace {

struct KindRow {
    MacKind kind;
    const char *code;
    const char *provisioningName;
    const char *dmName;
};

// Senders of the DM profile use the codes of Client Provisioning, for which it has words of its
// own.
constexpr KindRow kinds[] = {
    {MacKind::Network, "0", "NETWPIN", "NETWORKID"},
    {MacKind::Pin, "1", "USERPIN", "USERPIN"},
    {MacKind::PinAndNetwork, "2", "USERNETWPIN", "USERPIN_NETWORKID"},
};

constexpr char userPinMacCode[] = "3";
constexpr char userPinMacName[] = "USERPINMAC";

const char *wordOf(const KindRow &row, Profile profile)
{
    return profile == Profile::DeviceManagement ? row.dmName : row.provisioningName;
}

bool hasDigitsOnly(const QByteArray &text, qsizetype fewest, qsizetype most)
{
    return text.size() >= fewest && text.size() <= most &&
           std::ranges::all_of(text, [](char byte) { return byte >= '0' && byte <= '9'; });
}

/// The IMSI as a SIM card keeps it: two digits in a byte, the first in the lower half, after a half
/// that says whether their number is odd.
QByteArray halfOctets(const QByteArray &imsi)
{
    const QByteArray digits = imsi.size() % 2 == 1 ? '9' + imsi : '1' + imsi + 'F';
    QByteArray swapped;
    for (qsizetype i = 0; i < digits.size(); i += 2) {
        swapped += digits[i + 1];
        swapped += digits[i];
    }
    return QByteArray::fromHex(swapped);
}

/// The keys that a sender may have used.
QByteArrayList keysOf(MacKind kind, Profile profile, const MacSecrets &secrets)
{
    if (kind == MacKind::Pin)
        return {secrets.pin};
    const QByteArray imsi = halfOctets(secrets.imsi);
    if (profile == Profile::ClientProvisioning)
        return {kind == MacKind::Network ? imsi : imsi + secrets.pin};
    // The DM profile leaves open which form the identity has.
    const QByteArray before = kind == MacKind::Network ? QByteArray() : secrets.pin + ':';
    return {before + imsi, before + secrets.imsi};
}

} // namespace

support::Expected<MacKind, QString> macKindOf(const QByteArray &security, Profile profile)
{
    const auto *const row = std::ranges::find_if(kinds, [&](const KindRow &one) {
        return security == one.code || security == wordOf(one, profile);
    });
    if (row != std::end(kinds))
        return row->kind;
    if (security == userPinMacCode || security == userPinMacName)
        return Unexpected(QStringLiteral(
            "USERPINMAC is not supported: its message has no MAC, and the few digits that the user "
            "types in its place are too easily guessed"));
    return Unexpected(
        QStringLiteral("the security method %1 is not known").arg(QString::fromLatin1(security)));
}

QString nameOf(MacKind kind, Profile profile)
{
    return QString::fromLatin1(wordOf(*std::ranges::find(kinds, kind, &KindRow::kind), profile));
}

bool isPin(const QByteArray &pin)
{
    return hasDigitsOnly(pin, 1, 32);
}

bool isImsi(const QByteArray &imsi)
{
    return hasDigitsOnly(imsi, 6, 15);
}

bool isRightMac(MacKind kind, Profile profile, const MacSecrets &secrets, const QByteArray &body,
                const QByteArray &mac)
{
    if ((needsPin(kind) && !isPin(secrets.pin)) || (needsImsi(kind) && !isImsi(secrets.imsi)))
        return false;
    bool isRight = false;
    for (const QByteArray &key : keysOf(kind, profile, secrets))
        isRight |=
            sameProof(QMessageAuthenticationCode::hash(body, key, QCryptographicHash::Sha1).toHex(),
                      mac.toLower());
    return isRight;
}

} // namespace client::bootstrap
