// The words of a line of the shell.

#include "words.h"

#include <gtest/gtest.h>

namespace client::cli {

namespace {

std::string words(const QByteArray &line)
{
    const auto split = splitWords(line);
    if (!split)
        return "(unfinished)";
    std::string text;
    for (const QString &word : *split)
        text += "[" + word.toStdString() + "]";
    return text;
}

TEST(WordsTest, BlanksSeparateWords)
{
    EXPECT_EQ(words("get  ./A\t./B "), "[get][./A][./B]");
}

TEST(WordsTest, QuotesAndBackslashesKeepBlanks)
{
    EXPECT_EQ(words("rename './My Office' x"), "[rename][./My Office][x]");
    EXPECT_EQ(words("rename \"./My Office\" x"), "[rename][./My Office][x]");
    EXPECT_EQ(words("rename ./My\\ Office x"), "[rename][./My Office][x]");
    EXPECT_EQ(words("a\"b c\"'d e'f"), "[ab cd ef]");
}

TEST(WordsTest, QuotesCanBeQuoted)
{
    EXPECT_EQ(words("\"it's\""), "[it's]");
    EXPECT_EQ(words("'say \"x\"'"), "[say \"x\"]");
    EXPECT_EQ(words("\\\"x\\'"), "[\"x']");
    EXPECT_EQ(words("\"a\\\"b\\\\c\""), "[a\"b\\c]");
    EXPECT_EQ(words("'a\\b'"), "[a\\b]");
}

TEST(WordsTest, AnEmptyWordIsAWord)
{
    EXPECT_EQ(words("replace ./A ''"), "[replace][./A][]");
    EXPECT_EQ(words("replace ./A \"\" x"), "[replace][./A][][x]");
}

TEST(WordsTest, AnOpenQuoteIsNoLine)
{
    EXPECT_EQ(words("get 'x"), "(unfinished)");
    EXPECT_EQ(words("get \"x"), "(unfinished)");
}

TEST(WordsTest, OtherCharactersMeanThemselves)
{
    EXPECT_EQ(words("get ./A?prop=Name $x;y|z"), "[get][./A?prop=Name][$x;y|z]");
    EXPECT_EQ(words("get B\xc3\xbcro"), "[get][B\xc3\xbcro]");
}

TEST(WordsTest, AQuotedWordIsOneWordAgain)
{
    for (const char *word :
         {"plain", "with blank", "it's", "say \"x\"", "back\\slash", "B\xc3\xbcro"})
        EXPECT_EQ(words(quoteWord(QString::fromUtf8(word)).toUtf8()),
                  "[" + std::string(word) + "]");
}

TEST(WordsTest, AnUnfinishedLineHasTheWordThatIsBeingTyped)
{
    const auto line = splitUnfinished("get ./A ./B\\ C");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->words, (QStringList{QStringLiteral("get"), QStringLiteral("./A")}));
    EXPECT_EQ(line->prefix, QStringLiteral("./B C"));

    const auto newWord = splitUnfinished("get ");
    ASSERT_TRUE(newWord);
    EXPECT_EQ(newWord->words, QStringList{QStringLiteral("get")});
    EXPECT_EQ(newWord->prefix, QString());

    const auto empty = splitUnfinished("");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->words, QStringList());
    EXPECT_EQ(splitUnfinished("get './A"), std::nullopt);
}

} // namespace

} // namespace client::cli
