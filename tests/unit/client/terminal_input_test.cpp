// Reading lines that a person types.

#include "interrupt_guard.h"
#include "line_input.h"

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace client::cli {

namespace {

using support::LineInput;
using Result = LineInput::Result;

class LineInputTest : public testing::Test {
protected:
    LineInputTest() { EXPECT_EQ(::pipe(m_ends), 0); }
    ~LineInputTest() override
    {
        ::close(m_ends[0]);
        hangUp();
    }
    void type(const QByteArray &text) const
    {
        EXPECT_EQ(::write(m_ends[1], text.constData(), static_cast<std::size_t>(text.size())),
                  text.size());
    }
    void hangUp()
    {
        if (m_ends[1] >= 0)
            ::close(m_ends[1]);
        m_ends[1] = -1;
    }
    Result read(int interruptFile = -1)
    {
        constexpr std::chrono::milliseconds soon(50);
        return LineInput(m_ends[0], interruptFile)
            .readLine(LineInput::Echo::On, std::chrono::steady_clock::now() + soon, m_line);
    }

    QByteArray m_line;

private:
    int m_ends[2] = {-1, -1};
};

TEST_F(LineInputTest, ALineIsReadAndTheNextOneLeft)
{
    type("one\ntwo\n");
    EXPECT_EQ(read(), Result::Line);
    EXPECT_EQ(m_line, "one");
    EXPECT_EQ(read(), Result::Line);
    EXPECT_EQ(m_line, "two");
}

TEST_F(LineInputTest, WhatStandsBeforeTheEndIsALine)
{
    type("rest");
    hangUp();
    EXPECT_EQ(read(), Result::Line);
    EXPECT_EQ(m_line, "rest");
    EXPECT_EQ(read(), Result::EndOfInput);
}

TEST_F(LineInputTest, AWaitEndsAtItsDeadline)
{
    EXPECT_EQ(read(), Result::TimedOut);
}

TEST_F(LineInputTest, AnInterruptThatCameBeforeTheWaitIsNotMissed)
{
    const InterruptGuard guard;
    EXPECT_FALSE(InterruptGuard::wasInterrupted());
    EXPECT_EQ(read(guard.file()), Result::TimedOut);
    std::raise(SIGINT);
    EXPECT_TRUE(InterruptGuard::wasInterrupted());
    EXPECT_EQ(read(guard.file()), Result::Interrupted);
    type("too late\n");
    EXPECT_EQ(read(guard.file()), Result::Interrupted) << "every question from then on";
}

} // namespace

} // namespace client::cli
