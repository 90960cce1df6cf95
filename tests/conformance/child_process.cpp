#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr uid_t nobody = 65534;

void writeFile(const char *path, const std::string &text)
{
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    const ssize_t written = ::write(file, text.data(), text.size());
    ::close(file);
    if (written < 0)
        skipChild(path);
}

void enterMountNamespace()
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
        skipChild("this machine does not allow mounts of one's own");
    if (user != 0) {
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        skipChild("this machine does not allow mounts of one's own");
}

} // namespace

ChildOutcome runInChild(const std::function<void()> &body)
{
    std::FILE *errors = std::tmpfile();
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(::fileno(errors), STDERR_FILENO);
        body();
        std::fflush(nullptr);
        std::_Exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    ChildOutcome outcome;
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    std::rewind(errors);
    char buffer[4096];
    std::size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, errors)) > 0)
        outcome.errorOutput.append(buffer, got);
    std::fclose(errors);
    return outcome;
}

void skipChild(const char *reason)
{
    std::fprintf(stderr, "skipped: %s: %s\n", reason, std::strerror(errno));
    std::fflush(nullptr);
    std::_Exit(childSkipped);
}

void mountPrivateFileSystem(const std::string &directory, std::size_t size)
{
    enterMountNamespace();
    const std::string options = "mode=0700,size=" + std::to_string(size);
    if (::mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
        skipChild("this machine does not allow mounts of one's own");
}

void makeFileSystemReadOnly(const std::string &directory)
{
    if (::mount("none", directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        skipChild("cannot make a file system read-only");
}

void becomeNobodyWith(const std::string &directory)
{
    if (::geteuid() != 0)
        skipChild("needs root, to become a user without rights");
    if (!giveAway(directory))
        skipChild("cannot give files away");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory))
        if (!giveAway(entry.path()))
            skipChild("cannot give files away");
    if (::setresgid(nobody, nobody, nobody) != 0 || ::setresuid(nobody, nobody, nobody) != 0)
        skipChild("cannot become a user without rights");
}

bool giveAway(const std::string &path)
{
    return ::geteuid() == 0 && ::lchown(path.c_str(), nobody, nobody) == 0;
}

void limitFileSize(std::size_t bytes)
{
    std::signal(SIGXFSZ, SIG_IGN); // the write then fails instead
    const rlimit limit = {bytes, bytes};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
        skipChild("cannot limit the size of files");
}
