// Text on its way to a terminal.

#include "terminal.h"

#include <gtest/gtest.h>
#include <map>

namespace commandline {

namespace {

TEST(PrintableTest, TextIsKeptAndRubbishIsEscaped)
{
    for (const auto &[bytes, shown] : std::map<QByteArray, QString>{
             {"B\xc3\xbcro \xf0\x9f\x93\xb1", QStringLiteral("B\u00fcro \U0001f4f1")},
             {"a\xff b", QStringLiteral("a\\xff b")},
             {"a\x80\x81z", QStringLiteral("a\\x80\\x81z")},
             {"cut\xc3", QStringLiteral("cut\\xc3")},
             {"DOMAIN\\user", QStringLiteral("DOMAIN\\user")},
             {"\xe2\x80\xa8", QStringLiteral("\\xe2\\x80\\xa8")}})
        EXPECT_EQ(printable(bytes), shown) << bytes.toStdString();
}

} // namespace

} // namespace commandline
