// Whom a notification is from.

#include "messages.h"
#include "notification_proof.h"

#include <gtest/gtest.h>

using client::Account;
using namespace client::notification;

namespace {

Package0 packageIn(const QByteArray &bytes)
{
    const auto package = readPackage0(bytes);
    EXPECT_TRUE(package);
    return package ? *package : Package0();
}

TEST(NotificationProofTest, KnownDigestsHold)
{
    EXPECT_EQ(proofOf(packageIn(knownNotification), accountOfKnown()), Nonce::Agreed);
    EXPECT_EQ(proofOf(packageIn(otherNotification), accountOfOther()), Nonce::Agreed);
}

TEST(NotificationProofTest, TheDigestsOfALostNonceHoldInBothOfItsForms)
{
    const QByteArray trigger = knownNotification.sliced(16);
    const auto byText = QByteArray::fromHex("1e508e2913bb1058c741bfe48317d97a") + trigger;
    EXPECT_EQ(proofOf(packageIn(byText), accountOfKnown()), Nonce::ZeroText);
    const auto byOctets = QByteArray::fromHex("8ff51b310d56ad43548340d3f3d2b979") + trigger;
    EXPECT_EQ(proofOf(packageIn(byOctets), accountOfKnown()), Nonce::ZeroOctets);
}

TEST(NotificationProofTest, WithoutAnAgreedNonceThatOfZerosIsLeft)
{
    Account account = accountOfKnown();
    account.toClient.nonce.reset();
    EXPECT_EQ(proofOf(packageIn(knownNotification), account), std::nullopt);
    const QByteArray trigger = knownNotification.sliced(16);
    EXPECT_EQ(proofOf(packageIn(proved(trigger, account, "0x00000000")), account), Nonce::ZeroText);
    // Not by a nonce that is empty because there is none.
    EXPECT_EQ(proofOf(packageIn(proved(trigger, account, {})), account), std::nullopt);
}

TEST(NotificationProofTest, AnyOtherBitIsWrong)
{
    for (qsizetype at = 0; at < knownNotification.size() * 8; ++at) {
        QByteArray changed = knownNotification;
        changed[at / 8] = static_cast<char>(changed[at / 8] ^ (1 << at % 8));
        if (const auto package = readPackage0(changed)) {
            EXPECT_EQ(proofOf(*package, accountOfKnown()), std::nullopt) << at;
        }
    }
    EXPECT_EQ(proofOf(packageIn(knownNotification + 'v'), accountOfKnown()), std::nullopt);
}

TEST(NotificationProofTest, NeedsTheSecretAndTheIdentifierOfTheServer)
{
    const QByteArray trigger = knownNotification.sliced(16);
    Account account = accountOfKnown();
    account.toClient.identity.secret.clear();
    EXPECT_EQ(proofOf(packageIn(proved(trigger, account, "nonce2")), account), std::nullopt);
    account = accountOfKnown();
    account.serverId = "com.mgmtsrv.other";
    EXPECT_EQ(proofOf(packageIn(proved(trigger, account, "nonce2")), account), std::nullopt);
}

} // namespace
