// What is shown of text that somebody else made.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foreign_text.h"

namespace {

using foreign_text::characterLength;
using foreign_text::cutAtCharacter;
using foreign_text::printable;
using foreign_text::printableJson;
using foreign_text::printableLines;

std::string utf8(unsigned int character)
{
    std::string text;
    if (character < 0x80U)
        text = {static_cast<char>(character)};
    else if (character < 0x800U)
        text = {static_cast<char>(0xC0U | character >> 6U),
                static_cast<char>(0x80U | (character & 0x3FU))};
    else
        text = {static_cast<char>(0xE0U | character >> 12U),
                static_cast<char>(0x80U | (character >> 6U & 0x3FU)),
                static_cast<char>(0x80U | (character & 0x3FU))};
    return text;
}

bool isHarmful(unsigned int character)
{
    return character < 0x20U || (character >= 0x7FU && character <= 0x9FU) || character == 0x61CU ||
           character == 0x200EU || character == 0x200FU ||
           (character >= 0x2028U && character <= 0x202EU) ||
           (character >= 0x2066U && character <= 0x2069U);
}

TEST(ForeignText, EveryCharacterOfTheBasicPlaneIsShownUnlessItSteersOrReorders)
{
    for (unsigned int character = 0; character <= 0xFFFFU; ++character) {
        if (character >= 0xD800U && character <= 0xDFFFU)
            continue;
        const std::string text = utf8(character);
        EXPECT_EQ(printable(text) != text, isHarmful(character)) << std::hex << character;
    }
}

TEST(ForeignText, WhatIsNotShownComesAsItsBytes)
{
    EXPECT_EQ(printable("a\x1b[2J\x7f\n\t\r"), "a\\x1b[2J\\x7f\\n\\t\\x0d");
    EXPECT_EQ(printable("\xc2\x9b\xe2\x80\xae\xe2\x81\xa6"),
              "\\xc2\\x9b\\xe2\\x80\\xae\\xe2\\x81\\xa6");
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(printable("B\xc3\xbcro \xf0\x9f\x93\xb1 DOMAIN\\user"),
              "B\xc3\xbcro \xf0\x9f\x93\xb1 DOMAIN\\user");
    EXPECT_EQ(printable(""), "");
}

TEST(ForeignText, BytesThatAreNoCharacterAreNotShown)
{
    const std::vector<std::string> broken = {"\xff",
                                             "\x80",
                                             "\xc3",
                                             "\xc0\xaf",
                                             "\xe0\x80\xaf",
                                             "\xe2\x82",
                                             "\xed\xa0\x80",
                                             "\xf4\x90\x80\x80",
                                             "\xf8\x88\x80\x80\x80"};
    for (const std::string &bytes : broken) {
        EXPECT_EQ(characterLength(bytes), 0U);
        EXPECT_EQ(printable(bytes).find_first_not_of("\\x0123456789abcdef"), std::string::npos);
        EXPECT_EQ(printable("a" + bytes + "b").size(), 2 + 4 * bytes.size());
    }
}

TEST(ForeignText, LinesKeepTheirBreaks)
{
    EXPECT_EQ(printableLines("one\ntwo\r\x1b\xe2\x80\xa8"), "one\ntwo\\x0d\\x1b\\xe2\\x80\\xa8");
}

TEST(ForeignText, JsonIsTheSameDocument)
{
    EXPECT_EQ(printableJson("{\n\"a\": \"\xc2\x9b\x7f\xe2\x80\xae\xc3\xbc\\u001b\"\n}"),
              "{\n\"a\": \"\\u009b\\u007f\\u202e\xc3\xbc\\u001b\"\n}");
}

TEST(ForeignText, IsCutBetweenTwoCharacters)
{
    const std::string text = "a\xc3\xbc\xe2\x82\xac"; // 1, 2 and 3 bytes
    const std::vector<std::size_t> sizes = {0, 1, 1, 3, 3, 3, 6, 6};
    for (std::size_t size = 0; size < sizes.size(); ++size)
        EXPECT_EQ(cutAtCharacter(text, size), text.substr(0, sizes[size])) << size;
}

} // namespace
