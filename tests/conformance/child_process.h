// Runs a piece of a test in a process of its own: for state that is chosen once a process, for
// faults that must not reach the other tests (limits, mounts, dropped privileges).
#pragma once

#include <functional>
#include <string>

/// Exit code of a child that cannot do what its test needs on this machine.
inline constexpr int childSkipped = 77;

struct ChildOutcome {
    int exitCode = -1;       ///< 0 when no expectation failed; negative for a signal
    std::string errorOutput; ///< what the child wrote to stderr
};

/// Forks, runs the body and waits. Expectations that fail in the body are printed and give
/// exit code 1. The caller must not have used a library that does not stand a fork.
ChildOutcome runInChild(const std::function<void()> &body);

/// For the body of a child: ends it, so that its test is skipped.
[[noreturn]] void skipChild(const char *reason);

/// For the body of a child: mounts an empty file system of that size in bytes on the directory,
/// seen by this process only. Skips the child where that is not allowed.
void mountPrivateFileSystem(const std::string &directory, std::size_t size);

/// Makes that file system read-only.
void makeFileSystemReadOnly(const std::string &directory);

/// For the body of a child: gives a directory with everything in it to a user without rights and
/// becomes that user, so that file modes count. Skips the child when the test does not run as root.
void becomeNobodyWith(const std::string &directory);

/// Gives a file or a directory, without what is in it, to a user other than the one who runs the
/// test. @return false when that takes rights that the test does not have
bool giveAway(const std::string &path);

/// For the body of a child: no file can grow beyond that many bytes; writing more fails.
void limitFileSize(std::size_t bytes);

/// In a test body: runs the lambda in a child, passes its failures and skips on.
#define EXPECT_CHILD_PASSES(outcome)                                                               \
    do {                                                                                           \
        if ((outcome).exitCode == childSkipped)                                                    \
            GTEST_SKIP() << (outcome).errorOutput;                                                 \
        EXPECT_EQ((outcome).exitCode, 0) << (outcome).errorOutput;                                 \
    } while (false)
