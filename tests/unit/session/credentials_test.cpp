// Proofs, challenges and the HTTP header of HMAC.

#include "credentials.h"

#include <gtest/gtest.h>
#include <set>

namespace client {

namespace {

const Identity bruce{"Bruce2", "OhBehave"};

// ---- Published vectors ---------------------------------------------------------------------------

TEST(Proof, BasicIsThePublishedOne)
{
    EXPECT_EQ(basicProof(bruce), "QnJ1Y2UyOk9oQmVoYXZl");
}

TEST(Proof, Md5IsThePublishedOne)
{
    EXPECT_EQ(md5Proof(bruce, "Nonce"), "Zz6EivR3yeaaENcRN6lpAQ==");
}

TEST(Proof, HmacIsThatOfTheFormula)
{
    EXPECT_EQ(hmacProof(bruce, "Nonce", "<SyncML/>"), "urdCeS3JUmjFgi8SX3webw==");
}

TEST(Proof, DependsOnEveryPart)
{
    const std::set<QByteArray> proofs = {
        hmacProof(bruce, "Nonce", "<SyncML/>"),
        hmacProof(bruce, "Nonce", "<SyncML />"),
        hmacProof(bruce, "nonce", "<SyncML/>"),
        hmacProof({"Bruce2", "ohBehave"}, "Nonce", "<SyncML/>"),
        hmacProof({"Bruce", "OhBehave"}, "Nonce", "<SyncML/>"),
    };
    EXPECT_EQ(proofs.size(), 5U);
}

TEST(Proof, ComparesWholeTexts)
{
    EXPECT_TRUE(sameProof("abc", "abc"));
    EXPECT_FALSE(sameProof("abc", "abd"));
    EXPECT_FALSE(sameProof("abc", "ab"));
    EXPECT_FALSE(sameProof("abc", ""));
    EXPECT_TRUE(sameProof("", ""));
}

TEST(Nonce, HasSixteenOctetsAndIsNewEachTime)
{
    EXPECT_EQ(freshNonce().size(), 16);
    EXPECT_NE(freshNonce(), freshNonce());
}

// ---- Names ---------------------------------------------------------------------------------------

TEST(AuthTypeName, IsTheOneOnTheWire)
{
    EXPECT_EQ(wireName(AuthType::Basic), QStringLiteral("syncml:auth-basic"));
    EXPECT_EQ(wireName(AuthType::Md5), QStringLiteral("syncml:auth-md5"));
    EXPECT_EQ(wireName(AuthType::Hmac), QStringLiteral("syncml:auth-MAC"));
    EXPECT_EQ(authTypeOfWireName(QStringLiteral("SYNCML:AUTH-MD5")), AuthType::Md5);
    EXPECT_EQ(authTypeOfWireName(QStringLiteral("syncml:auth-X509")), std::nullopt);
    EXPECT_EQ(authTypeOfWireName(QString()), std::nullopt);
}

TEST(AuthTypeName, IsTheOneOfAccounts)
{
    EXPECT_EQ(accountName(AuthType::Basic), QStringLiteral("BASIC"));
    EXPECT_EQ(accountName(AuthType::Md5), QStringLiteral("DIGEST"));
    EXPECT_EQ(accountName(AuthType::Hmac), QStringLiteral("HMAC"));
    EXPECT_EQ(authTypeOfAccountName(QStringLiteral("DIGEST")), AuthType::Md5);
    EXPECT_EQ(authTypeOfAccountName(QStringLiteral("X509")), std::nullopt);
}

// ---- Cred ----------------------------------------------------------------------------------------

TEST(Cred, NamesItsTypeAndItsFormat)
{
    const syncml::Cred cred = makeCred(AuthType::Md5, bruce, "Nonce");
    EXPECT_EQ(cred.meta->type, QStringLiteral("syncml:auth-md5"));
    EXPECT_EQ(cred.meta->format, QStringLiteral("b64"));
    EXPECT_EQ(cred.data, "Zz6EivR3yeaaENcRN6lpAQ==");
}

TEST(Cred, MatchesOnlyItsTypeNameSecretAndNonce)
{
    const syncml::Cred cred = makeCred(AuthType::Md5, bruce, "Nonce");
    EXPECT_TRUE(credMatches(cred, AuthType::Md5, bruce, "Nonce"));
    EXPECT_FALSE(credMatches(cred, AuthType::Md5, bruce, "nonce"));
    EXPECT_FALSE(credMatches(cred, AuthType::Md5, {"Bruce2", "Oh"}, "Nonce"));
    EXPECT_FALSE(credMatches(cred, AuthType::Basic, bruce, "Nonce"));
    EXPECT_FALSE(credMatches(cred, AuthType::Hmac, bruce, "Nonce"));
    EXPECT_FALSE(credMatches(cred, AuthType::None, bruce, "Nonce"));
}

TEST(Cred, IgnoresWhiteSpaceInItsBase64)
{
    syncml::Cred cred = makeCred(AuthType::Basic, bruce, {});
    cred.data = "\n  QnJ1Y2UyOk9o\r\n\tQmVoYXZl ";
    EXPECT_TRUE(credMatches(cred, AuthType::Basic, bruce, {}));
}

TEST(Cred, WithoutATypeMatchesNothing)
{
    syncml::Cred cred = makeCred(AuthType::Basic, bruce, {});
    cred.meta.reset();
    EXPECT_FALSE(credMatches(cred, AuthType::Basic, bruce, {}));
}

// ---- Chal ----------------------------------------------------------------------------------------

TEST(Chal, CarriesTheNonceAsBase64)
{
    const syncml::Chal chal = makeChal(AuthType::Md5, "Nonce");
    EXPECT_EQ(chal.meta.type, QStringLiteral("syncml:auth-md5"));
    EXPECT_EQ(chal.meta.format, QStringLiteral("b64"));
    EXPECT_EQ(chal.meta.nextNonce, QByteArray("Tm9uY2U="));
    EXPECT_EQ(readChal(chal), (Challenge{AuthType::Md5, QByteArray("Nonce")}));
}

TEST(Chal, OfBasicHasNoNonce)
{
    EXPECT_EQ(makeChal(AuthType::Basic, {}).meta.nextNonce, std::nullopt);
}

TEST(Chal, IsReadWithWhiteSpaceAndWithoutAFormat)
{
    syncml::Chal chal = makeChal(AuthType::Hmac, "Nonce");
    chal.meta.format.reset();
    chal.meta.nextNonce = QByteArray(" Tm9u\n Y2U= ");
    EXPECT_EQ(readChal(chal), (Challenge{AuthType::Hmac, QByteArray("Nonce")}));
}

TEST(Chal, WithANonceThatIsNoBase64IsTakenAsItIs)
{
    syncml::Chal chal = makeChal(AuthType::Md5, {});
    chal.meta.nextNonce = QByteArray("not base64!");
    EXPECT_EQ(readChal(chal)->nonce, QByteArray("not base64!"));
}

TEST(Chal, OfAnUnknownTypeIsNotRead)
{
    syncml::Chal chal = makeChal(AuthType::Md5, "Nonce");
    chal.meta.type = QStringLiteral("syncml:auth-X509");
    EXPECT_EQ(readChal(chal), std::nullopt);
    chal.meta.type.reset();
    EXPECT_EQ(readChal(chal), std::nullopt);
}

// ---- HTTP header of HMAC -------------------------------------------------------------------------

TEST(HmacHeader, IsWrittenWithItsThreeParameters)
{
    EXPECT_EQ(formatHmacHeader({"Robert Jordan", "NTI2OTJhMDAwNjYxODkwYmQ3NWUxN2RhN2ZmYmJlMzk="}),
              "algorithm=MD5, username=\"Robert Jordan\", "
              "mac=NTI2OTJhMDAwNjYxODkwYmQ3NWUxN2RhN2ZmYmJlMzk=");
}

TEST(HmacHeader, IsReadInAnyForm)
{
    const HmacHeader expected{"Robert Jordan", "bWFj=="};
    for (const char *const text : {
             "algorithm=MD5, username=\"Robert Jordan\", mac=bWFj==",
             "username=\"Robert Jordan\",mac=bWFj==",
             "mac=bWFj==,username=\"Robert Jordan\"",
             " MAC = \"bWFj==\" , UserName = Robert Jordan ",
             "algorithm=md5, username=\"Robert \\Jordan\", mac=bWFj==, extra=1",
         })
        EXPECT_EQ(parseHmacHeader(text), expected) << text;
}

TEST(HmacHeader, ReadsTheNameThatItWrites)
{
    const HmacHeader header{"a \"quoted\\\" name, mac=x", "bWFj"};
    EXPECT_EQ(parseHmacHeader(formatHmacHeader(header)), header);
}

TEST(HmacHeader, IsRefusedWhenSomethingIsWrong)
{
    for (const char *const text :
         {"", "mac=x", "username=\"a\"", "algorithm=SHA1, username=\"a\", mac=x",
          "username=\"a, mac=x", "username=\"a\" mac=x", "username=\"a\"b, mac=x", "username",
          "username=\"a\\", "=,=,="})
        EXPECT_EQ(parseHmacHeader(text), std::nullopt) << text;
}

} // namespace

} // namespace client
