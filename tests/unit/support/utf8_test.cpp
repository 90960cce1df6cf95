// Texts from UTF-8.

#include "utf8.h"

#include <gtest/gtest.h>

namespace support {

namespace {

TEST(Utf8Test, EveryCharacterIsTaken)
{
    EXPECT_EQ(fromUtf8(""), QString());
    EXPECT_EQ(fromUtf8("a\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80"),
              QStringLiteral("a\u00fc\u20ac\U0001f600"));
    EXPECT_EQ(fromUtf8(QByteArrayView("a\0b", 3)), QString::fromLatin1("a\0b", 3));
}

TEST(Utf8Test, AByteOrderMarkIsACharacterOfTheText)
{
    EXPECT_EQ(fromUtf8("\xef\xbb\xbf"
                       "a"),
              QStringLiteral("\ufeff"
                             "a"));
}

TEST(Utf8Test, BytesThatAreNotUtf8AreNoText)
{
    for (const char *const bytes : {"\x80", "\xff", "a\xc3", "\xc0\xaf", "\xed\xa0\x80",
                                    "\xf4\x90\x80\x80", "\xe2\x82", "\xc3\xbc\xfc"})
        EXPECT_EQ(fromUtf8(bytes), std::nullopt) << bytes;
}

} // namespace

} // namespace support
