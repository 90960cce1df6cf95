// Any bytes as a notification: alone, in a push, and behind a header that is right.

#include "notification_proof.h"

#include <QCryptographicHash>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace client::notification;

namespace {

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/// The trigger as its fields say, but for the bits that mean nothing.
QByteArray written(const Package0 &package)
{
    constexpr quint64 version = 11;
    const quint64 bits = version << 30 | static_cast<quint64>(package.uiMode) << 28 |
                         static_cast<quint64>(package.initiator) << 27;
    QByteArray trigger;
    for (int shift = 32; shift >= 0; shift -= 8)
        trigger += static_cast<char>(bits >> shift & 0xFF);
    trigger += static_cast<char>(package.sessionId >> 8);
    trigger += static_cast<char>(package.sessionId & 0xFF);
    trigger += static_cast<char>(package.serverId.size());
    return trigger + package.serverId + package.vendorBody;
}

QByteArray withoutBitsOfLaterVersions(QByteArray trigger)
{
    trigger[1] = static_cast<char>(trigger[1] & 0xF8);
    for (const int at : {2, 3, 4})
        trigger[at] = 0;
    return trigger;
}

/// The digest, written down once more.
QByteArray md5(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5);
}

client::Account accountOf(const QByteArray &serverId)
{
    client::Account account;
    account.serverId = serverId;
    account.toClient.identity.secret = "secret";
    account.toClient.nonce = "nonce";
    return account;
}

void checkProof(Package0 package)
{
    const client::Account account = accountOf(package.serverId);
    for (const QByteArray &nonce : {QByteArray("nonce"), QByteArray("0x00000000"),
                                    QByteArray(4, '\0'), QByteArray(), QByteArray("other")}) {
        package.digest = md5(md5(package.serverId + ":secret").toBase64() + ':' + nonce + ':' +
                             md5(package.trigger).toBase64());
        const bool isTaken = nonce.size() == 10 || nonce.size() == 4 || nonce == "nonce";
        require(proofOf(package, account).has_value() == isTaken, "a proof that is taken wrongly");
    }
    package.digest = QByteArray(16, 'd');
    require(!proofOf(package, account), "a digest that holds for anything");
    require(!proofOf(package, accountOf(package.serverId + 'x')), "the proof of another server");
}

void checkPackage(const QByteArray &bytes)
{
    const auto package = readPackage0(bytes);
    if (!package) {
        require(package.error().startsWith(QStringLiteral("byte ")) ||
                    bytes.size() > Package0::largest,
                "a refusal that does not say where");
        return;
    }
    require(package->digest + package->trigger == bytes, "bytes that belong nowhere");
    require(written(*package) == withoutBitsOfLaterVersions(package->trigger),
            "fields that do not say what the trigger says");
    require(package->sessionId != 0 && !package->serverId.isEmpty(), "a session of nobody");
    checkProof(*package);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    checkPackage(bytes);
    const auto alone = readPackage0(bytes);
    const auto pushed = readNotificationPush(QByteArray::fromHex("010603c4af87") + bytes);
    require(bool(alone) == bool(pushed) && (!alone || *alone == *pushed),
            "a package that reads differently in a push");
    const bool isReadAsPush = bool(readNotificationPush(bytes));
    require(!isReadAsPush || isNotificationPush(bytes), "a push that is somebody else's");
    return 0;
}
