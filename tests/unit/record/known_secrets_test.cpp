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

TEST(KnownSecretsTest, AnEmptySecretIsNone)
{
    EXPECT_EQ(knowing("").masked(QByteArray("text")), "text");
}

} // namespace
} // namespace client
