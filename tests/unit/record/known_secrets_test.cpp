#include "known_secrets.h"

#include "knowing.h"

#include <gtest/gtest.h>

namespace client {
namespace {

TEST(KnownSecretsTest, MasksASecretInEachForm)
{
    const KnownSecrets secrets = knowing("pass&word");
    EXPECT_EQ(secrets.masked(QByteArray("a pass&word b")), "a ********* b");
    EXPECT_EQ(secrets.masked(QByteArray("pass&amp;word")), QByteArray(13, '*'));
    EXPECT_EQ(secrets.masked(QByteArray("pass%26word")), QByteArray(11, '*'));
    const QByteArray hex = QByteArray("pass&word").toHex();
    EXPECT_EQ(secrets.masked("<" + hex + ">"), "<" + QByteArray(hex.size(), '*') + ">");
}

TEST(KnownSecretsTest, MasksTheOwnDigitsOfASecretInBase64WhereverItBegins)
{
    const KnownSecrets secrets = knowing("pass&word");
    for (const char *const before : {"", "a", "ab", "name:"}) {
        const QByteArray digits = (before + QByteArray("pass&word")).toBase64();
        const QByteArray masked = secrets.masked(digits);
        EXPECT_GE(masked.count('*'), 10) << digits.toStdString();
        EXPECT_EQ(masked.size(), digits.size());
    }
}

TEST(KnownSecretsTest, AShortSecretIsAWordOfItsOwn)
{
    const KnownSecrets secrets = knowing("pw");
    EXPECT_EQ(secrets.masked(QByteArray("pw=pw, upward pwr")), "**=**, upward pwr");
}

TEST(KnownSecretsTest, OneSecretMayBeginAsAnotherDoes)
{
    KnownSecrets secrets;
    for (const char *const secret : {"pass", "password", "passable!", "passw-"})
        secrets.add(secret);
    for (const auto &[text, masked] : {std::pair("a password b", "a ******** b"),
                                       {"passwor", "****wor"},
                                       {"passable", "****able"},
                                       {"passable!", "*********"},
                                       {"passwpassw-", "****w******"},
                                       {"passpassword", "************"},
                                       {"pas", "pas"},
                                       {"~pass", "~****"}})
        EXPECT_EQ(secrets.masked(QByteArray(text)), masked);
}

TEST(KnownSecretsTest, MasksEveryPlaceWhereAnyOfManyStands)
{
    constexpr int count = 500;
    KnownSecrets secrets;
    QByteArray text;
    QByteArray masked;
    for (int i = 0; i < count; ++i) {
        const QByteArray secret = "secret-" + QByteArray::number(i * 7919) + '-';
        secrets.add(secret);
        text += "is " + secret + QByteArray(" and \xff\x00", 7) + secret.toHex() + ";";
        masked += "is " + QByteArray(secret.size(), '*') + QByteArray(" and \xff\x00", 7) +
                  QByteArray(secret.size() * 2, '*') + ";";
    }
    EXPECT_EQ(secrets.masked(text), masked);
}

TEST(KnownSecretsTest, AnEmptySecretIsNone)
{
    EXPECT_EQ(knowing("").masked(QByteArray("text")), "text");
}

} // namespace
} // namespace client
