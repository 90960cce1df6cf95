// A value or none, in the room of a pointer.

#include "boxed.h"

#include <gtest/gtest.h>
#include <string>

namespace support {

namespace {

using Text = Boxed<std::string>;

TEST(BoxedTest, HasAValueOnlyWhenItWasGivenOne)
{
    Text text;
    EXPECT_FALSE(text);
    EXPECT_FALSE(text.has_value());
    EXPECT_FALSE(Text(std::nullopt));
    text.emplace() = "a";
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, "a");
    EXPECT_EQ(text->size(), 1U);
    text.reset();
    EXPECT_FALSE(text);
}

TEST(BoxedTest, ACopyIsAValueOfItsOwn)
{
    Text text = std::string("a");
    const Text copy = text;
    *text = "b";
    EXPECT_EQ(*copy, "a");
    text = copy;
    EXPECT_EQ(*text, "a");
    text = Text(copy);
    text = *&text;
    EXPECT_EQ(*text, "a");
    EXPECT_EQ(*copy, "a");
}

TEST(BoxedTest, IsEqualByItsValue)
{
    EXPECT_EQ(Text(), Text());
    EXPECT_EQ(Text(std::string("a")), Text(std::string("a")));
    EXPECT_FALSE(Text(std::string("a")) == Text(std::string("b")));
    EXPECT_FALSE(Text(std::string()) == Text());
    EXPECT_FALSE(Text() == Text(std::string()));
}

} // namespace

} // namespace support
