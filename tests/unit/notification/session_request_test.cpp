// What a notification leads to.

#include "session_request.h"

#include "messages.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using client::Account;
using client::AccountStore;
using namespace client::notification;

namespace {

class SessionRequestTest : public testing::Test {
protected:
    void keep(const char *name, Account account)
    {
        account.address = QUrl(QStringLiteral("https://dm.example/"));
        const auto kept = accounts.put(QString::fromLatin1(name), account);
        ASSERT_TRUE(kept) << kept.error().toStdString();
    }

    support::Expected<SessionRequest, Refusal> answerTo(const QByteArray &bytes) const
    {
        const auto package = readPackage0(bytes);
        EXPECT_TRUE(package);
        return requestOf(*package, accounts);
    }

    /// Kind of the refusal; none when it is remembered.
    std::optional<Refusal::Kind> remembering(const QByteArray &bytes,
                                             const NotificationMemory &where) const
    {
        const auto request = answerTo(bytes);
        EXPECT_TRUE(request);
        const auto kept = remember(*request, *accounts.find(request->account), where);
        return kept ? std::nullopt : std::optional(kept.error().kind);
    }

    QTemporaryDir directory;
    AccountStore accounts = AccountStore::load(directory.filePath(QStringLiteral("accounts.json")));
    const NotificationMemory memory{directory.filePath(QStringLiteral("notifications.json"))};
};

TEST_F(SessionRequestTest, IsForTheAccountOfTheServerThatIsProved)
{
    keep("Operator", accountOfKnown());
    keep("Other", accountOfOther());
    const auto request = answerTo(otherNotification);
    ASSERT_TRUE(request) << request.error().reason.toStdString();
    EXPECT_EQ(request->account, u"Other");
    EXPECT_EQ(request->sessionId, 10);
    EXPECT_EQ(request->uiMode, UiMode::Interactive);
    EXPECT_EQ(request->initiator, Initiator::Server);
    EXPECT_EQ(request->nonce, Nonce::Agreed);
}

TEST_F(SessionRequestTest, AmongAccountsOfOneServerTheSecretDecides)
{
    Account another = accountOfKnown();
    another.toClient.identity.secret = "another secret";
    keep("Another", another);
    keep("Operator", accountOfKnown());
    const auto request = answerTo(knownNotification);
    ASSERT_TRUE(request) << request.error().reason.toStdString();
    EXPECT_EQ(request->account, u"Operator");
}

TEST_F(SessionRequestTest, ARepetitionLeadsToNone)
{
    keep("Operator", accountOfKnown());
    EXPECT_EQ(remembering(knownNotification, memory), std::nullopt);
    EXPECT_EQ(remembering(knownNotification, memory), Refusal::Kind::Repeated);
    // By another nonce it is another notification.
    Account later = accountOfKnown();
    later.toClient.nonce = "the next nonce";
    keep("Operator", later);
    const auto again = proved(knownNotification.sliced(16), later, "the next nonce");
    EXPECT_EQ(remembering(again, memory), std::nullopt);
}

TEST_F(SessionRequestTest, OneOfAWrongDigestDoesNotKeepTheRightOneAway)
{
    keep("Operator", accountOfKnown());
    QByteArray forged = knownNotification;
    forged[0] = static_cast<char>(forged[0] ^ 1);
    const auto refused = answerTo(forged);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, Refusal::Kind::WrongDigest);
    EXPECT_TRUE(answerTo(knownNotification));
}

TEST_F(SessionRequestTest, AnUnknownServerIsNamed)
{
    keep("Other", accountOfOther());
    const auto refused = answerTo(knownNotification);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, Refusal::Kind::UnknownServer);
    EXPECT_EQ(refused.error().reason.toStdString(),
              "no account is of the server com.mgmtsrv.manage");
}

TEST_F(SessionRequestTest, ALostNonceIsSaid)
{
    keep("Operator", accountOfKnown());
    const auto request = answerTo(
        proved(knownNotification.sliced(16), accountOfKnown(), QByteArray::fromHex("00000000")));
    ASSERT_TRUE(request) << request.error().reason.toStdString();
    EXPECT_EQ(request->nonce, Nonce::ZeroOctets);
}

TEST_F(SessionRequestTest, WhatCannotBeRememberedIsNotObeyed)
{
    keep("Operator", accountOfKnown());
    const NotificationMemory nowhere(directory.filePath(QStringLiteral("missing/file.json")));
    EXPECT_EQ(remembering(knownNotification, nowhere), Refusal::Kind::NotRemembered);
}

} // namespace
