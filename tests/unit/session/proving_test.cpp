// Both sides prove who they are: 200, 212, 401 and 407 in all orders.

#include "session_fixture.h"

namespace client {

namespace {

using Kind = SessionEnd::Kind;

const Identity clientIdentity{"Bruce2", "OhBehave"};
const Identity serverIdentity{"dm.example", "ServerSecret"};

/// XML of the server's credentials in a header.
QByteArray cred(AuthType type, const QByteArray &nonce)
{
    const syncml::Cred cred = makeCred(type, serverIdentity, nonce);
    return "<Cred><Meta><Format>b64</Format><Type>" + cred.meta->type->toLatin1() +
           "</Type></Meta><Data>" + cred.data + "</Data></Cred>";
}

class Proving : public SessionTest {
protected:
    void clientProves(AuthType type, const std::optional<QByteArray> &nonce = std::nullopt)
    {
        account.toServer = {type, clientIdentity, nonce};
    }
    void serverProves(AuthType type, const std::optional<QByteArray> &nonce = std::nullopt)
    {
        account.toClient = {type, serverIdentity, nonce};
    }
    bool hasProof(std::size_t number, AuthType type, const QByteArray &nonce) const
    {
        const auto &cred = message(number).header.cred;
        return cred && credMatches(*cred, type, clientIdentity, nonce);
    }
    bool hasHmac(std::size_t number, const QByteArray &nonce) const
    {
        const TransportRequest &request = server.requests.at(number - 1);
        const auto header = parseHmacHeader(request.hmac.value_or(QByteArray()));
        return header && header->userName == clientIdentity.name &&
               header->mac == hmacProof(clientIdentity, nonce, request.body);
    }
    /// A message whose HMAC the server makes for that nonce; with "wrong" for another message.
    void saysWithHmac(const QByteArray &commands, const QByteArray &nonce, bool wrong = false,
                      const QByteArray &userName = serverIdentity.name,
                      const QByteArray &headerEnd = {})
    {
        const QByteArray bytes = server.encoded({commands, true, headerEnd}, 1);
        server.replies([=](const TransportRequest &request) {
            const QByteArray mac = hmacProof(serverIdentity, nonce, wrong ? bytes + ' ' : bytes);
            return TransportResponse{bytes, {}, formatHmacHeader({userName, mac}), request.url};
        });
    }
    /// The server's second message, proved with what the client's second one has challenged it to.
    void repliesWithProof(AuthType type, const QByteArray &commands)
    {
        server.replies([=, this](const TransportRequest &request) {
            const QByteArray nonce = challengeSent(2)->nonce.value_or(QByteArray());
            const bool isHmac = type == AuthType::Hmac;
            TransportResponse response;
            response.url = request.url;
            response.body =
                server.encoded({commands, true, isHmac ? QByteArray() : cred(type, nonce)}, 2);
            if (isHmac)
                response.hmac = formatHmacHeader(
                    {serverIdentity.name, hmacProof(serverIdentity, nonce, response.body)});
            return response;
        });
    }
    /// The challenge that the client sent in its message of that number.
    std::optional<Challenge> challengeSent(std::size_t number) const
    {
        const auto &chal = message(number).commands.at(0).chal;
        return chal ? readChal(*chal) : std::nullopt;
    }
    std::string clientNonce() const
    {
        return account.toServer.nonce.value_or("none").toStdString();
    }
    std::string serverNonce() const
    {
        return account.toClient.nonce.value_or("none").toStdString();
    }
};

// ---- The client proves itself --------------------------------------------------------------------

TEST_P(Proving, BasicIsSentAtOnceAndNoMoreAfter212)
{
    clientProves(AuthType::Basic);
    server.says(statusFor("SyncHdr", 212) + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_TRUE(hasProof(1, AuthType::Basic, {}));
    EXPECT_FALSE(message(2).header.cred);
}

TEST_P(Proving, After200ItIsSentAgainWithTheNextMessage)
{
    clientProves(AuthType::Basic);
    server.says(statusFor("SyncHdr", 200) + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_TRUE(hasProof(2, AuthType::Basic, {}));
}

TEST_P(Proving, Md5WithoutANonceWaitsForTheChallenge)
{
    clientProves(AuthType::Md5);
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")) + statusFor("Alert", 407) +
                statusFor("Replace", 407));
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Md5, "N2")) + get("2", {"./DevInfo/Man"}));
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Completed) << end.reason.toStdString();
    EXPECT_FALSE(message(1).header.cred);
    EXPECT_EQ(message(1).header.source.locName, QStringLiteral("Bruce2"));
    EXPECT_TRUE(hasProof(2, AuthType::Md5, "N1"));
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Alert 1201", "Replace 5 items", "Final"}))
        << "the first package is sent again";
    EXPECT_EQ(message(2).header.sessionId, message(1).header.sessionId);
    EXPECT_EQ(message(2).header.msgId, QStringLiteral("2"));
    EXPECT_FALSE(message(3).header.cred) << "212 is for the whole session";
    EXPECT_EQ(clientNonce(), "N2");
    EXPECT_EQ(listener.notes, Lines()) << "refused statuses belong to the challenge";
}

TEST_P(Proving, Md5WithAStoredNonceIsSentAtOnce)
{
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Md5, "N1")));
    run();
    EXPECT_TRUE(hasProof(1, AuthType::Md5, "N0"));
    EXPECT_EQ(message(1).header.source.locName, QStringLiteral("Bruce2"));
    EXPECT_EQ(clientNonce(), "N1");
}

TEST_P(Proving, NextNonceWith200IsForTheNextMessage)
{
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Md5, "N1")) + get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_TRUE(hasProof(2, AuthType::Md5, "N1"));
}

TEST_P(Proving, StaleNonceIsFollowedByOneMoreTry)
{
    clientProves(AuthType::Md5, "stale");
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Md5, "N1")));
    server.says(statusFor("SyncHdr", 212));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasProof(1, AuthType::Md5, "stale"));
    EXPECT_TRUE(hasProof(2, AuthType::Md5, "N1"));
}

TEST_P(Proving, NonceThatCouldNotBeKeptEndsTheSession)
{
    const QByteArray largest(largestNonce, 'n');
    for (const int status : {401, 200, 212}) {
        SCOPED_TRACE(status);
        clientProves(AuthType::Md5, "N0");
        server = ScriptedServer(GetParam());
        server.says(statusFor("SyncHdr", status, chal(AuthType::Md5, largest + 'n')) +
                    get("2", {"./DevInfo/Man"}));
        const SessionEnd end = run();
        EXPECT_EQ(end.kind, Kind::Failed);
        EXPECT_EQ(end.reason, QStringLiteral("the server's nonce has 257 bytes, which is more than "
                                             "256"));
        EXPECT_EQ(end.commands, 0);
        EXPECT_EQ(clientNonce(), "N0");
    }
}

TEST_P(Proving, LargestNonceIsTaken)
{
    const QByteArray largest(largestNonce, 'n');
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Md5, largest)));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(clientNonce(), largest.toStdString());
}

TEST_P(Proving, WrongSecretIsNotTriedForEver)
{
    clientProves(AuthType::Md5, "stale");
    for (const char *const nonce : {"N1", "N2", "N3", "N4"})
        server.says(statusFor("SyncHdr", 401, chal(AuthType::Md5, nonce)));
    EXPECT_TRUE(failsWith("the server does not accept the client's credentials"));
    EXPECT_EQ(server.messages.size(), 2U);
    EXPECT_EQ(clientNonce(), "stale") << "a peer that proved nothing must not replace it";
}

TEST_P(Proving, WrongPasswordIsTriedOnceByBasic)
{
    clientProves(AuthType::Basic);
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Basic, {})));
    EXPECT_EQ(run().kind, Kind::Failed);
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Proving, ChallengeInTheMiddleOfASessionIsAnswered)
{
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 212) + get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")));
    server.says(statusFor("SyncHdr", 212) + get("2", {"./DevInfo/Mod"}));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_FALSE(message(2).header.cred);
    EXPECT_TRUE(hasProof(3, AuthType::Md5, "N1"));
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 200", "Alert 1201", "Replace 5 items", "Final"}));
    EXPECT_EQ(sent(4).at(2), "Results 2 ./DevInfo/Mod = model");
}

TEST_P(Proving, ChallengeWithoutFinalIsAnsweredWithAWholePackage)
{
    clientProves(AuthType::Md5);
    server.says({statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")), false, {}});
    server.says(statusFor("SyncHdr", 212));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 200", "Alert 1201", "Replace 5 items", "Final"}));
}

TEST_P(Proving, AskedForAnotherDigestTheClientGivesIt)
{
    clientProves(AuthType::Md5);
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Hmac, "N1")));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N2")) +
                get("2", {"./DevInfo/Man"}));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_FALSE(message(2).header.cred);
    EXPECT_TRUE(hasHmac(2, "N1"));
    EXPECT_TRUE(hasHmac(3, "N2"));
}

TEST_P(Proving, AskedForThePasswordItselfTheClientEndsTheSession)
{
    for (const AuthType type : {AuthType::Md5, AuthType::Hmac}) {
        server = ScriptedServer(GetParam());
        clientProves(type);
        server.says(statusFor("SyncHdr", 407, chal(AuthType::Basic, {})));
        const SessionEnd end = run();
        EXPECT_EQ(end.kind, Kind::Failed);
        EXPECT_TRUE(
            end.reason.startsWith(QStringLiteral("the server asks for the password itself")));
        EXPECT_EQ(server.messages.size(), 1U);
    }
}

TEST_P(Proving, HmacAccountGivesNoWeakerProof)
{
    clientProves(AuthType::Hmac, "N0");
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Md5, "chosen")));
    EXPECT_TRUE(failsWith("the server asks for a weaker proof (syncml:auth-md5) "
                          "than it should get (syncml:auth-MAC)"));
    EXPECT_EQ(server.messages.size(), 1U);
}

TEST_P(Proving, HmacThatWasAskedForIsNotGivenUpAgain)
{
    clientProves(AuthType::Md5);
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Hmac, "N1")));
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Md5, "chosen")));
    EXPECT_EQ(run().reason, QStringLiteral("the server asks for a weaker proof (syncml:auth-md5) "
                                           "than it should get (syncml:auth-MAC)"));
    EXPECT_EQ(server.messages.size(), 2U);
}

TEST_P(Proving, BasicAccountGivesADigestWhenAsked)
{
    clientProves(AuthType::Basic);
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Md5, "N1")));
    server.says(statusFor("SyncHdr", 212));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasProof(2, AuthType::Md5, "N1"));
}

TEST_P(Proving, WithoutCredentialsInTheAccountAChallengeEndsTheSession)
{
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")));
    EXPECT_TRUE(failsWith("the server asks for credentials (syncml:auth-md5) and "
                          "there are none to give"));
}

TEST_P(Proving, UnknownTypeEndsTheSession)
{
    clientProves(AuthType::Md5);
    QByteArray unknown = chal(AuthType::Md5, "N1");
    unknown.replace("auth-md5", "auth-X509");
    server.says(statusFor("SyncHdr", 407, unknown));
    EXPECT_EQ(run().reason, QStringLiteral("the server asks for credentials of the unknown type "
                                           "syncml:auth-X509"));
}

TEST_P(Proving, RefusalWithoutAChallengeEndsTheSession)
{
    clientProves(AuthType::Basic);
    server.says(statusFor("SyncHdr", 401));
    EXPECT_EQ(run().reason,
              QStringLiteral("the server refuses the client and does not say what it asks for"));
}

TEST_P(Proving, StatusOfTheHeaderThatIsNotAStatusEndsTheSession)
{
    for (const char *const text : {"OK", "", "0", "-200", "+200", "100", "199", "600", "0200", "20",
                                   "2000", "0x0c8", "2 0", "200 OK"}) {
        server = ScriptedServer(GetParam());
        server.says(statusFor("SyncHdr", 200).replace("200", text) + get("2", {"./DevInfo/Man"}));
        const SessionEnd end = run();
        EXPECT_EQ(end.kind, Kind::Failed) << text;
        EXPECT_EQ(end.reason, QStringLiteral("the server's status of the header, \"%1\", is not a "
                                             "status")
                                  .arg(QString::fromLatin1(text)));
        EXPECT_EQ(end.commands, 0);
    }
}

TEST_P(Proving, OtherRefusalOfTheHeaderEndsTheSession)
{
    server.says(statusFor("SyncHdr", 513) + get("2", {"./DevInfo/Man"}));
    EXPECT_TRUE(failsWith("the server refuses the session with 513 Protocol Version "
                          "Not Supported"));
}

TEST_P(Proving, HmacCoversEveryMessageWithTheNewestNonce)
{
    clientProves(AuthType::Hmac, "N0");
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N1")) +
                get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N2")) +
                get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N3")));
    run();
    EXPECT_TRUE(hasHmac(1, "N0"));
    EXPECT_TRUE(hasHmac(2, "N1"));
    EXPECT_TRUE(hasHmac(3, "N2"));
    EXPECT_EQ(clientNonce(), "N3");
    EXPECT_FALSE(message(1).header.cred);
    EXPECT_EQ(message(1).header.source.locName, QStringLiteral("Bruce2"));
}

TEST_P(Proving, HmacWithoutANonceForTheNextMessageEndsTheSession)
{
    const QByteArray noNonce = "<Chal><Meta><Format>b64</Format>"
                               "<Type>syncml:auth-MAC</Type></Meta></Chal>";
    for (const QByteArray &status :
         {statusFor("SyncHdr", 200), statusFor("SyncHdr", 200, noNonce), QByteArray()}) {
        server = ScriptedServer(GetParam());
        clientProves(AuthType::Hmac, "N0");
        server.says(status + replace("2", profileUri("Office/Addr"), "x"));
        EXPECT_TRUE(failsWith("the server gives no nonce for the next HMAC proof"))
            << status.toStdString();
        EXPECT_EQ(server.messages.size(), 1U);
        EXPECT_EQ(read(profile("Office/Addr")), "internet");
    }
}

TEST_P(Proving, HmacForTheWholeSessionEndsTheSession)
{
    clientProves(AuthType::Hmac, "N0");
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Hmac, "N1")) +
                replace("2", profileUri("Office/Addr"), "x"));
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Failed);
    EXPECT_TRUE(end.reason.startsWith(
        QStringLiteral("the server takes one HMAC proof for the whole session (212)")));
    EXPECT_EQ(server.messages.size(), 1U);
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Proving, HmacWithANonceThatIsNoneEndsTheSession)
{
    const struct {
        const char *name;
        QByteArray statuses;
    } answers[] = {
        {"empty", statusFor("SyncHdr", 200, chal(AuthType::Hmac, ""))},
        {"the one just used", statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N0"))},
        {"for MD5", statusFor("SyncHdr", 200, chal(AuthType::Md5, "N1"))},
        {"for basic",
         statusFor("SyncHdr", 200, chal(AuthType::Md5, "N1").replace("auth-md5", "auth-basic"))},
        {"for what nobody knows",
         statusFor("SyncHdr", 200, chal(AuthType::Md5, "N1").replace("auth-md5", "auth-X509"))},
    };
    for (const auto &answer : answers) {
        SCOPED_TRACE(answer.name);
        clientProves(AuthType::Hmac, "N0");
        server = ScriptedServer(GetParam());
        server.says(answer.statuses + get("2", {"./DevInfo/Man"}));
        EXPECT_TRUE(failsWith("the server gives no nonce for the next HMAC proof"));
        EXPECT_EQ(server.messages.size(), 1U);
        EXPECT_NE(clientNonce(), "") << "an empty nonce cannot be stored";
    }
}

TEST_P(Proving, HmacGoesOnWithTheNewNonceOfTwo)
{
    clientProves(AuthType::Hmac, "N0");
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N1")) +
                statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N0")) +
                get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N2")));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasHmac(2, "N1"));
}

TEST_P(Proving, HmacNonceOfAnEarlierMessageEndsTheSession)
{
    clientProves(AuthType::Hmac, "N0");
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N1")) +
                get("2", {"./DevInfo/Man"}));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N0")) +
                get("2", {"./DevInfo/Mod"}));
    EXPECT_EQ(run().reason, QStringLiteral("the server gives no nonce for the next HMAC proof"));
    EXPECT_EQ(server.messages.size(), 2U);
    EXPECT_EQ(clientNonce(), "N1");
}

TEST_P(Proving, HmacChallengeWithAUsedNonceEndsTheSession)
{
    clientProves(AuthType::Hmac, "N0");
    for (const char *const nonce : {"", "N0"}) {
        SCOPED_TRACE(nonce);
        server = ScriptedServer(GetParam());
        server.says(statusFor("SyncHdr", 401, chal(AuthType::Hmac, nonce)));
        EXPECT_EQ(run().reason,
                  QStringLiteral("the server asks for an HMAC proof without a new nonce"));
        EXPECT_EQ(server.messages.size(), 1U);
        EXPECT_EQ(clientNonce(), "N0");
    }
}

TEST_P(Proving, HmacMayTakeTheNonceThatMd5HasUsed)
{
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 401, chal(AuthType::Hmac, "N0")));
    server.says(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "N1")));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasHmac(2, "N0"));
}

TEST_P(Proving, Md5GoesOnWithItsNonceWhenTheServerGivesNoneOfUse)
{
    for (const QByteArray &challenge :
         {QByteArray(), chal(AuthType::Md5, ""), chal(AuthType::Md5, "N0"),
          chal(AuthType::Md5, "N1").replace("auth-md5", "auth-basic")}) {
        SCOPED_TRACE(challenge.toStdString());
        clientProves(AuthType::Md5, "N0");
        server = ScriptedServer(GetParam());
        server.says(statusFor("SyncHdr", 200, challenge) + get("2", {"./DevInfo/Man"}));
        EXPECT_EQ(run().kind, Kind::Completed);
        EXPECT_TRUE(hasProof(2, AuthType::Md5, "N0"));
        EXPECT_EQ(clientNonce(), "N0");
    }
}

TEST_P(Proving, Md5WithAnEmptyNonceIsGivenAndNotKept)
{
    clientProves(AuthType::Md5, "N0");
    serverProves(AuthType::Basic);
    server.says(
        {statusFor("SyncHdr", 401, chal(AuthType::Md5, "")), true, cred(AuthType::Basic, {})});
    server.says(statusFor("SyncHdr", 212));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasProof(2, AuthType::Md5, ""));
    EXPECT_EQ(clientNonce(), "N0");
}

TEST_P(Proving, HmacChallengeWithoutANonceEndsTheSession)
{
    clientProves(AuthType::Hmac, "N0");
    QByteArray challenge = chal(AuthType::Hmac, "N1");
    challenge.remove(challenge.indexOf("<NextNonce>"),
                     challenge.indexOf("</Meta>") - challenge.indexOf("<NextNonce>"));
    server.says(statusFor("SyncHdr", 401, challenge));
    EXPECT_EQ(run().reason,
              QStringLiteral("the server asks for an HMAC proof without a new nonce"));
    EXPECT_EQ(server.messages.size(), 1U);
}

// ---- The server proves itself --------------------------------------------------------------------

TEST_P(Proving, ServerWithBasicIsAcceptedForTheSession)
{
    serverProves(AuthType::Basic);
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Basic, {})});
    server.says({accepted() + get("2", {"./DevInfo/Mod"}), true, {}});
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 212");
    EXPECT_EQ(challengeSent(2), std::nullopt);
    EXPECT_EQ(sent(3).at(2), "Results 2 ./DevInfo/Mod = model");
}

TEST_P(Proving, ServerWithMd5GetsTheNonceOfTheNextSession)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, "S0")});
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 212");
    ASSERT_TRUE(challengeSent(2));
    EXPECT_EQ(challengeSent(2)->type, AuthType::Md5);
    EXPECT_EQ(serverNonce(), challengeSent(2)->nonce->toStdString());
}

TEST_P(Proving, FirstNonceIsThatOfBothSides)
{
    clientProves(AuthType::Md5, "C0");
    serverProves(AuthType::Md5, "S0");
    options.firstNonce = "0x00000000";
    server.says({statusFor("SyncHdr", 212, chal(AuthType::Md5, "C1")) + get("2", {"./DevInfo/Man"}),
                 true, cred(AuthType::Md5, "0x00000000")});
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasProof(1, AuthType::Md5, "0x00000000"));
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 212");
    EXPECT_EQ(clientNonce(), "C1");
    ASSERT_TRUE(challengeSent(2));
    EXPECT_EQ(serverNonce(), challengeSent(2)->nonce->toStdString());
}

TEST_P(Proving, FirstNonceIsNeverKept)
{
    clientProves(AuthType::Md5, "C0");
    serverProves(AuthType::Md5, "S0");
    options.firstNonce = "0x00000000";
    server.says({accepted(), true, cred(AuthType::Md5, "S0")});
    server.says({accepted(), true, cred(AuthType::Md5, "S0")});
    run();
    EXPECT_EQ(clientNonce(), "C0");
    EXPECT_EQ(serverNonce(), "S0") << "it was not that of the proof";
}

TEST_P(Proving, HmacBeginsWithTheFirstNonce)
{
    clientProves(AuthType::Hmac, "C0");
    serverProves(AuthType::Hmac);
    options.firstNonce = QByteArray(4, '\0');
    saysWithHmac(statusFor("SyncHdr", 200, chal(AuthType::Hmac, "C1")), QByteArray(4, '\0'));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_TRUE(hasHmac(1, QByteArray(4, '\0')));
    EXPECT_EQ(clientNonce(), "C1");
}

TEST_P(Proving, ServerWithoutCredentialsGetsNothingButStatuses)
{
    serverProves(AuthType::Md5, "S0");
    server.says(accepted() + replace("2", profileUri("Office/Addr"), "x") +
                get("3", {"./DevInfo/Man"}) + "<Sequence><CmdID>4</CmdID>" +
                get("5", {"./DevInfo/Mod"}) + "</Sequence>");
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 407", "Status 2 Replace 407", "Status 3 Get 407",
                              "Status 4 Sequence 407", "Status 5 Get 407", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(serverNonce(), "S0") << "nobody has proved anything, so the good nonce stays";
}

TEST_P(Proving, ServerWithWrongCredentialsGets401)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + replace("2", profileUri("Office/Addr"), "x"), true,
                 cred(AuthType::Md5, "another")});
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 401", "Status 2 Replace 401", "Final"}));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Proving, ServerMayTryAgainWithTheNonceOfTheChallenge)
{
    serverProves(AuthType::Md5);
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, {})});
    server.replies([this](const TransportRequest &request) {
        const QByteArray nonce = *challengeSent(2)->nonce;
        return TransportResponse{
            server.encoded({statusFor("SyncHdr", 200, {}, 2) + get("3", {"./DevInfo/Man"}), true,
                            cred(AuthType::Md5, nonce)},
                           2),
            {},
            {},
            request.url};
    });
    const SessionEnd end = run();
    EXPECT_EQ(end.kind, Kind::Completed);
    EXPECT_EQ(end.commands, 1) << "what comes again does not count twice";
    EXPECT_EQ(end.refused, 0);
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 401");
    EXPECT_EQ(sent(3), (Lines{"Status 0 SyncHdr 212", "Status 3 Get 200",
                              "Results 3 ./DevInfo/Man = maker", "Final"}));
    EXPECT_EQ(serverNonce(), challengeSent(3)->nonce->toStdString());
}

TEST_P(Proving, ServerThatNeverProvesItselfIsGivenUp)
{
    serverProves(AuthType::Md5);
    for (int i = 0; i < 5; ++i)
        server.says(accepted() + get("2", {"./DevInfo/Man"}));
    EXPECT_TRUE(failsWith("the server could not prove who it is"));
    EXPECT_EQ(server.messages.size(), 3U);
}

TEST_P(Proving, NothingOfAnUnprovedMessageIsObeyed)
{
    clientProves(AuthType::Basic);
    serverProves(AuthType::Md5, "S0");
    server.says({statusFor("SyncHdr", 500) + alert("3", "1223") + get("4", {"./DevInfo/Man"}), true,
                 "<RespURI>http://evil.example/</RespURI>"
                 "<Meta><MaxMsgSize>10</MaxMsgSize></Meta>"});
    server.answersFrom = QUrl(QStringLiteral("http://evil.example/redirected"));
    server.replies([this](const TransportRequest &request) {
        const QByteArray nonce = *challengeSent(2)->nonce;
        return TransportResponse{
            server.encoded(
                {accepted() + get("4", {"./DevInfo/Man"}), true, cred(AuthType::Md5, nonce)}, 2),
            {},
            {},
            request.url};
    });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2),
              (Lines{"Status 0 SyncHdr 407", "Status 3 Alert 407", "Status 4 Get 407", "Final"}));
    EXPECT_EQ(sent(3).at(2), "Results 4 ./DevInfo/Man = maker");
    for (const TransportRequest &request : server.requests)
        EXPECT_EQ(request.url, account.address);
}

TEST_P(Proving, UnprovedRequestForMoreIsACommandLikeAnyOther)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + alert("2", "1222"), false, {}});
    run();
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 407", "Status 2 Alert 407", "Final"}));
}

TEST_P(Proving, UnprovedEndOfDataDoesNotBreakAnObjectOff)
{
    tree.replace(profile("Office/Addr"), text(QByteArray(3000, 'x')));
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted() + get("2", {profileUri("Office/Addr")}), "S0", false,
                 serverIdentity.name, "<Meta><MaxMsgSize>1500</MaxMsgSize></Meta>");
    server.replies([this](const TransportRequest &request) {
        const QByteArray bytes =
            server.encoded({statusFor("SyncHdr", 200, {}, 2) + alert("1", "1225")}, 2);
        return TransportResponse{bytes, {}, {}, request.url};
    });
    run();
    ASSERT_GE(server.messages.size(), 3U);
    EXPECT_TRUE(message(2).commands.back().items.at(0).moreData);
    EXPECT_EQ(sent(3).at(0), "Status 0 SyncHdr 407");
    EXPECT_EQ(message(3).commands.back().kind, syncml::CommandKind::Results);
}

TEST_P(Proving, EmptyAnswerDoesNotEndASessionInWhichTheServerOwesAProof)
{
    for (const AuthType type : {AuthType::Basic, AuthType::Md5, AuthType::Hmac}) {
        server = ScriptedServer(GetParam());
        serverProves(type, "S0");
        EXPECT_TRUE(failsWith("the server did not prove who it is"));
    }
}

TEST_P(Proving, MessageOfAnotherSessionEndsTheSession)
{
    options.sessionId = QStringLiteral("A");
    serverProves(AuthType::Basic);
    server.says({accepted() + replace("2", profileUri("Office/Addr"), "x"), true,
                 cred(AuthType::Basic, {})});
    EXPECT_TRUE(failsWith("the server answers for session \"5\" instead of \"A\""));
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
    EXPECT_EQ(sent(2), (Lines{"Alert 1223", "Final"}));
}

TEST_P(Proving, MessageThatComesAgainEndsTheSession)
{
    serverProves(AuthType::Basic);
    const ScriptedServer::Message change{accepted() + replace("2", profileUri("Office/Addr"), "x"),
                                         true, cred(AuthType::Basic, {})};
    const QByteArray bytes = server.encoded(change, 1);
    const auto replay = [bytes](const TransportRequest &request) {
        return TransportResponse{bytes, {}, {}, request.url};
    };
    server.replies(replay);
    server.replies(replay);
    EXPECT_TRUE(failsWith("the server uses the MsgID \"1\" again"));
    EXPECT_EQ(listener.commands.size(), 1U);
    EXPECT_EQ(sent(3), (Lines{"Alert 1223", "Final"}));
}

TEST_P(Proving, ServerWithNothingToDoGetsOneMoreChanceToProveItself)
{
    for (const AuthType type : {AuthType::Basic, AuthType::Md5, AuthType::Hmac}) {
        SCOPED_TRACE(authWord(type).toStdString());
        server = ScriptedServer(GetParam());
        serverProves(type);
        server.says(accepted());
        repliesWithProof(type, statusFor("SyncHdr", 200, {}, 2));
        const SessionEnd end = run();
        EXPECT_EQ(end.kind, Kind::Completed) << end.reason.toStdString();
        EXPECT_EQ(server.messages.size(), 2U);
        EXPECT_EQ(sent(2),
                  (Lines{"Status 0 SyncHdr 407", "Alert 1201", "Replace 5 items", "Final"}))
            << "a challenge never goes alone";
        ASSERT_TRUE(challengeSent(2));
        EXPECT_EQ(challengeSent(2)->type, type);
    }
}

TEST_P(Proving, ServerThatHadNothingToDoAndProvedItselfMayHaveSomething)
{
    serverProves(AuthType::Hmac);
    server.says(accepted());
    repliesWithProof(AuthType::Hmac, accepted() + get("2", {"./DevInfo/Man"}));
    server.replies([this](const TransportRequest &request) {
        const QByteArray mac = hmacProof(serverIdentity, *challengeSent(3)->nonce, {});
        return TransportResponse{{}, {}, formatHmacHeader({serverIdentity.name, mac}), request.url};
    });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(3).at(2), "Results 2 ./DevInfo/Man = maker");
}

TEST_P(Proving, ServerWithNothingToDoThatDoesNotTakeItsChanceFailsTheSession)
{
    for (const AuthType type : {AuthType::Basic, AuthType::Md5, AuthType::Hmac}) {
        SCOPED_TRACE(authWord(type).toStdString());
        server = ScriptedServer(GetParam());
        serverProves(type, "S0");
        for (int i = 0; i < 5; ++i)
            server.says(accepted());
        EXPECT_TRUE(failsWith("the server did not prove who it is"));
        EXPECT_EQ(server.messages.size(), 2U);
        EXPECT_EQ(serverNonce(), "S0") << "nobody has proved anything, so the good nonce stays";
    }
}

TEST_P(Proving, ServerWithNothingToDoIsNotToldOfAnEventTwice)
{
    serverProves(AuthType::Md5);
    options.events.push_back({});
    options.events.back().type = QStringLiteral("org.example.up");
    server.says(accepted());
    repliesWithProof(AuthType::Md5, statusFor("SyncHdr", 200, {}, 2));
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(1).size(), 4U);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 407", "Alert 1201", "Replace 5 items", "Final"}));
}

TEST_P(Proving, BothSidesCanChallengeEachOther)
{
    clientProves(AuthType::Md5);
    serverProves(AuthType::Md5);
    server.says(statusFor("SyncHdr", 407, chal(AuthType::Md5, "N1")));
    server.replies([this](const TransportRequest &request) {
        const QByteArray nonce = *challengeSent(2)->nonce;
        return TransportResponse{
            server.encoded({statusFor("SyncHdr", 212, chal(AuthType::Md5, "N2"), 2) +
                                get("3", {"./DevInfo/Man"}),
                            true, cred(AuthType::Md5, nonce)},
                           2),
            {},
            {},
            request.url};
    });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2), (Lines{"Status 0 SyncHdr 407", "Alert 1201", "Replace 5 items", "Final"}));
    EXPECT_TRUE(hasProof(2, AuthType::Md5, "N1"));
    EXPECT_EQ(sent(3).at(0), "Status 0 SyncHdr 212");
    EXPECT_EQ(clientNonce(), "N2");
}

TEST_P(Proving, NonceOfAServerThatDidNotProveItselfIsNotKept)
{
    clientProves(AuthType::Md5, "good");
    serverProves(AuthType::Md5, "S0");
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Md5, "poison")) +
                get("2", {"./DevInfo/Man"}));
    run();
    EXPECT_EQ(clientNonce(), "good");
}

TEST_P(Proving, ServerWithHmacProvesEveryMessage)
{
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted() + get("2", {"./DevInfo/Man"}), "S0");
    server.replies([this](const TransportRequest &request) {
        const QByteArray bytes =
            server.encoded({statusFor("SyncHdr", 200, {}, 2) + get("3", {"./DevInfo/Mod"})}, 2);
        const QByteArray mac = hmacProof(serverIdentity, *challengeSent(2)->nonce, bytes);
        return TransportResponse{
            bytes, {}, formatHmacHeader({serverIdentity.name, mac}), request.url};
    });
    server.replies([this](const TransportRequest &request) {
        const QByteArray mac = hmacProof(serverIdentity, *challengeSent(3)->nonce, {});
        return TransportResponse{{}, {}, formatHmacHeader({serverIdentity.name, mac}), request.url};
    });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 200");
    EXPECT_EQ(challengeSent(2)->type, AuthType::Hmac);
    EXPECT_EQ(sent(3).at(2), "Results 3 ./DevInfo/Mod = model");
    EXPECT_NE(challengeSent(2)->nonce, challengeSent(3)->nonce);
    EXPECT_EQ(serverNonce(), "none") << "the end was proved with the last one";
}

TEST_P(Proving, HmacOfTheLastMessageLeavesNoNonce)
{
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted(), "S0");
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(serverNonce(), "none") << "each message has a nonce of its own";
}

TEST_P(Proving, HmacOfAnotherMessageIsRefused)
{
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted() + replace("2", profileUri("Office/Addr"), "x"), "S0", true);
    run();
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 401");
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Proving, HmacInAnotherNameIsRefused)
{
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted() + replace("2", profileUri("Office/Addr"), "x"), "S0", false, "another");
    run();
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 401");
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Proving, MessageWithoutItsHmacIsRefused)
{
    serverProves(AuthType::Hmac, "S0");
    server.says(accepted() + replace("2", profileUri("Office/Addr"), "x"));
    run();
    EXPECT_EQ(sent(2).at(0), "Status 0 SyncHdr 407");
    EXPECT_EQ(read(profile("Office/Addr")), "internet");
}

TEST_P(Proving, EmptyAnswerHasAnHmacOfItsOwn)
{
    serverProves(AuthType::Hmac, "S0");
    saysWithHmac(accepted() + get("2", {"./DevInfo/Man"}), "S0");
    server.replies([](const TransportRequest &request) {
        const QByteArray mac = hmacProof(serverIdentity, "S0", {});
        return TransportResponse{{}, {}, formatHmacHeader({serverIdentity.name, mac}), request.url};
    });
    EXPECT_EQ(run().reason, QStringLiteral("the server did not prove who it is"))
        << "its nonce is not that of the last challenge";
}

TEST_P(Proving, EmptyAnswerIsNotTakenBeforeTheServerProvedAMessageOfTheSession)
{
    serverProves(AuthType::Hmac, "S0");
    server.replies([](const TransportRequest &request) {
        const QByteArray mac = hmacProof(serverIdentity, "S0", {});
        return TransportResponse{{}, {}, formatHmacHeader({serverIdentity.name, mac}), request.url};
    });
    EXPECT_TRUE(failsWith("the server did not prove who it is"))
        << "it may be the end of the last session, once more";
}

// ---- Nonces for the next session -----------------------------------------------------------------

TEST_P(Proving, NonceForTheServerIsKeptBeforeTheServerHearsOfIt)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, "S0")});
    std::optional<QByteArray> kept;
    options.keepNonces = [&](const Nonces &nonces) -> support::Expected<void, QString> {
        EXPECT_EQ(server.messages.size(), 1U) << "the message with the challenge is not sent yet";
        kept = nonces.toClient;
        return {};
    };
    EXPECT_EQ(run().kind, Kind::Completed);
    ASSERT_TRUE(challengeSent(2));
    EXPECT_EQ(kept, challengeSent(2)->nonce);
}

TEST_P(Proving, NonceOfTheServerIsKeptBeforeAnythingIsDone)
{
    clientProves(AuthType::Md5, "N0");
    server.says(statusFor("SyncHdr", 212, chal(AuthType::Md5, "N1")) + get("2", {"./DevInfo/Man"}));
    std::optional<QByteArray> kept;
    options.keepNonces = [&](const Nonces &nonces) -> support::Expected<void, QString> {
        EXPECT_EQ(listener.commands, Lines());
        kept = nonces.toServer;
        return {};
    };
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(kept, QByteArray("N1"));
}

TEST_P(Proving, NonceOfTheServersProofIsGoneHoweverTheSessionEnds)
{
    const QByteArray proof = cred(AuthType::Md5, "S0");
    struct Ending {
        const char *name;
        ScriptedServer::Message last;
        Kind kind;
    };
    const Ending endings[] = {
        {"nothing to do", {accepted(), true, proof}, Kind::Completed},
        {"abort", {accepted() + alert("2", "1223"), true, proof}, Kind::AbortedByServer},
        {"refusal", {statusFor("SyncHdr", 500), true, proof}, Kind::Failed},
        {"unusable address",
         {accepted(), true, "<RespURI>ftp://dm.example/</RespURI>" + proof},
         Kind::Failed},
    };
    for (const Ending &ending : endings) {
        SCOPED_TRACE(ending.name);
        serverProves(AuthType::Md5, "S0");
        server = ScriptedServer(GetParam());
        server.says(ending.last);
        EXPECT_EQ(run().kind, ending.kind);
        EXPECT_EQ(serverNonce(), "none") << "whoever has seen the proof could use it again";
    }
}

TEST_P(Proving, NonceOfAProofIsGoneAlsoWhenItsMessageIsNotTaken)
{
    serverProves(AuthType::Md5, "S0");
    options.sessionId = QStringLiteral("A");
    server.says({accepted(), true, cred(AuthType::Md5, "S0")});
    EXPECT_EQ(run().reason,
              QStringLiteral("the server answers for session \"5\" instead of \"A\""));
    EXPECT_EQ(serverNonce(), "none");

    serverProves(AuthType::Md5, "S0");
    options.sessionId = QStringLiteral("5");
    server = ScriptedServer(GetParam());
    server.replies([this](const TransportRequest &request) {
        QByteArray bytes = server.encoded({accepted(), true, cred(AuthType::Md5, "S0")}, 1);
        // Behind the header, which can still be read, something cannot.
        bytes.chop(12);
        return TransportResponse{bytes, {}, {}, request.url};
    });
    EXPECT_TRUE(run().reason.startsWith(QStringLiteral("the server's message cannot be read")));
    EXPECT_EQ(serverNonce(), "none");
}

TEST_P(Proving, NonceThatTheServerUsesBeforeTheNextSessionIsGone)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, "S0")});
    server.replies([this](const TransportRequest &request) {
        const QByteArray nonce = *challengeSent(2)->nonce;
        return TransportResponse{
            server.encoded({accepted(), true, cred(AuthType::Md5, nonce)}, 2), {}, {}, request.url};
    });
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(serverNonce(), "none") << "though no proof was needed after 212";
}

TEST_P(Proving, NonceOfTheServersProofIsGoneBeforeAnythingIsDone)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, "S0")});
    std::vector<std::optional<QByteArray>> kept;
    options.keepNonces = [&](const Nonces &nonces) -> support::Expected<void, QString> {
        if (kept.empty()) {
            EXPECT_EQ(listener.commands, Lines());
        }
        kept.push_back(nonces.toClient);
        return {};
    };
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(kept, (std::vector<std::optional<QByteArray>>{std::nullopt, challengeSent(2)->nonce}))
        << "then the nonce of the challenge takes its place";
}

TEST_P(Proving, WrongProofCostsNoNonce)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted(), true, cred(AuthType::Md5, "guessed")});
    EXPECT_EQ(run().kind, Kind::Failed);
    EXPECT_EQ(serverNonce(), "S0");
}

TEST_P(Proving, ProofWithoutANonceCostsNone)
{
    serverProves(AuthType::Basic, "S0");
    server.says({accepted(), true, cred(AuthType::Basic, {})});
    EXPECT_EQ(run().kind, Kind::Completed);
    EXPECT_EQ(serverNonce(), "S0");
}

TEST_P(Proving, NonceThatCannotBeKeptIsNotGivenToTheServer)
{
    serverProves(AuthType::Md5, "S0");
    server.says({accepted() + get("2", {"./DevInfo/Man"}), true, cred(AuthType::Md5, "S0")});
    options.keepNonces = [](const Nonces &) -> support::Expected<void, QString> {
        return support::Unexpected(
            QStringLiteral("cannot write accounts.json: No space left on device"));
    };
    EXPECT_TRUE(failsWith("the nonce of the next proof cannot be kept: cannot write "
                          "accounts.json: No space left on device"));
    EXPECT_EQ(server.messages.size(), 1U);
}

IN_BOTH_ENCODINGS(Proving);

} // namespace

} // namespace client
