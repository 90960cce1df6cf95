// Secrets that are typed instead of standing on a command line.

#include "secret_input.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace commandline {

namespace {

class SecretTest : public testing::Test {
protected:
    /// Gives the bytes as standard input.
    void SetUp() override { m_before = ::dup(STDIN_FILENO); }
    void TearDown() override
    {
        ::dup2(m_before, STDIN_FILENO);
        ::close(m_before);
    }
    static void type(const QByteArray &bytes)
    {
        int ends[2] = {-1, -1};
        ASSERT_EQ(::pipe(ends), 0);
        ASSERT_EQ(::write(ends[1], bytes.constData(), static_cast<std::size_t>(bytes.size())),
                  bytes.size());
        ::close(ends[1]);
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[0]);
    }
    /// The secret, or what is wrong in brackets.
    static std::string meant(const char *text, StandardInput input = StandardInput::Unused)
    {
        const auto secret = secretMeant(QString::fromLatin1(text), QStringLiteral("it"), input);
        return secret ? secret->toStdString() : "(" + secret.error().toStdString() + ")";
    }

private:
    int m_before = -1;
};

TEST_F(SecretTest, IsTheTextUnlessItIsADash)
{
    type("line\n");
    EXPECT_EQ(meant("text"), "text");
    EXPECT_EQ(meant(""), "");
    EXPECT_EQ(meant("--"), "--");
    EXPECT_EQ(meant("-"), "line") << "which nothing has read yet";
}

TEST_F(SecretTest, IsOneLineForEachDash)
{
    type("first\n-\n\n\xc3\xa4");
    EXPECT_EQ(meant("-"), "first");
    EXPECT_EQ(meant("-"), "-");
    EXPECT_EQ(meant("-"), "");
    EXPECT_EQ(meant("-"), "\xc3\xa4");
    EXPECT_EQ(meant("-"), "(no value for it)");
}

TEST_F(SecretTest, IsNotALineThatIsACommand)
{
    type("delete .\n");
    EXPECT_EQ(meant("-", StandardInput::Commands), "(standard input is the shell's)");
    EXPECT_EQ(meant("text", StandardInput::Commands), "text");
    EXPECT_EQ(meant("-"), "delete .");
}

TEST_F(SecretTest, HasToBeTextOfALengthThatCanBeHeld)
{
    type("\xff\n");
    EXPECT_EQ(meant("-"), "(the value of it is not UTF-8)");
    constexpr qsizetype aboveTheLongest = 64 * 1024;
    std::FILE *const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fputs(std::string(aboveTheLongest, 'x').c_str(), file);
    std::fputc('\n', file);
    std::rewind(file);
    ::dup2(::fileno(file), STDIN_FILENO);
    EXPECT_EQ(meant("-"), "(the value of it is too long)");
    std::fclose(file);
}

} // namespace

} // namespace commandline
