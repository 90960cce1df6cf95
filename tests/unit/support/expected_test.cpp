// A value or the error that says why there is none.

#include "expected.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace support {

namespace {

using Number = Expected<int, std::string>;

TEST(ExpectedTest, HasItsValueAndNoError)
{
    const Number number = 7;
    ASSERT_TRUE(number);
    EXPECT_EQ(*number, 7);
    EXPECT_THROW((void)number.error(), std::bad_variant_access);
}

TEST(ExpectedTest, HasItsErrorAndNoValue)
{
    const Number number = Unexpected("is not a number");
    ASSERT_FALSE(number);
    EXPECT_EQ(number.error(), "is not a number");
    EXPECT_THROW((void)*number, std::bad_variant_access);
}

TEST(ExpectedTest, ZeroAndEmptyTextsAreValues)
{
    EXPECT_TRUE(Number(0));
    EXPECT_TRUE((Expected<std::string, std::string>(std::string())));
    EXPECT_FALSE((Expected<bool, std::string>(Unexpected("unknown"))));
    EXPECT_TRUE((Expected<bool, std::string>(false)));
}

TEST(ExpectedTest, TellsAValueFromAnErrorOfTheSameType)
{
    using Text = Expected<std::string, std::string>;
    EXPECT_TRUE(Text(std::string("text")));
    EXPECT_FALSE(Text(Unexpected(std::string("text"))));
}

TEST(ExpectedTest, ReachesIntoItsValueAndLetsItBeMovedOut)
{
    Expected<std::string, int> text = std::string("text");
    text->push_back('s');
    EXPECT_EQ(text->size(), 5U);
    *text += '.';
    EXPECT_EQ(*text, "texts.");
    Expected<std::unique_ptr<int>, int> owner = std::make_unique<int>(7);
    const std::unique_ptr<int> taken = *std::move(owner);
    EXPECT_EQ(*taken, 7);
}

TEST(ExpectedTest, OfNothingSaysOnlyWhetherItWasDone)
{
    using Done = Expected<void, std::string>;
    const Done done;
    EXPECT_TRUE(done);
    EXPECT_THROW((void)done.error(), std::bad_optional_access);
    const Done failed = Unexpected("disk full");
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error(), "disk full");
    EXPECT_FALSE(Done(Unexpected(std::string()))) << "an error without words is an error";
}

} // namespace

} // namespace support
