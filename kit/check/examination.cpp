#include "examination.h"

#include "terminal.h"

#include <QTemporaryDir>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

/// In memory of both processes.
struct Progress {
    volatile unsigned calls;
    volatile int item;
    volatile bool isReturned; // from the examination
    volatile bool isLast;
    char node[512];
    char slot[512];
};

constexpr int valgrindFoundErrors = 121; // main.cpp has it say so
constexpr rlim_t largestFile = 256u << 20;
constexpr rlim_t mostMemory = 2048u << 20;
constexpr int mostDeaths = 5; // before a check is given up
constexpr char separator = '\0';

Progress &progressAt(void *memory)
{
    return *static_cast<Progress *>(memory);
}

void copyText(char (&to)[512], const std::string &from)
{
    std::snprintf(to, sizeof to, "%s", from.c_str());
}

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void setLimit(__rlimit_resource resource, rlim_t value)
{
    const rlimit limit{value, value};
    ::setrlimit(resource, &limit);
}

std::string contentOf(const std::string &file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

/// The line that tells most about an end: the first of a sanitizer or valgrind, else the last.
std::string tellingLine(const std::string &output)
{
    std::istringstream lines(output);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("ERROR: ") != line.npos || line.find("runtime error: ") != line.npos)
            return line;
        if (!line.empty())
            last = line;
    }
    return last;
}

/// What valgrind says first, and where.
std::string firstComplaint(const std::string &log)
{
    std::istringstream lines(log);
    std::string text;
    int taken = 0;
    for (std::string line; std::getline(lines, line) && taken < 4;) {
        const std::size_t prefix = line.find("== ");
        if (prefix == line.npos || line.find_first_not_of(' ', prefix + 3) == line.npos)
            continue;
        text += (taken++ ? "; " : "") + line.substr(line.find_first_not_of(' ', prefix + 3));
    }
    return text;
}

/// A folder with a fresh copy of the state, the other process's home; gone with the object.
class Home {
public:
    explicit Home(const std::string &state)
    {
        if (!m_folder.isValid())
            fail("no folder for a copy of the state");
        const std::string copy = stateFolder();
        if (!state.empty())
            std::filesystem::copy(state, copy, std::filesystem::copy_options::recursive);
        else
            std::filesystem::create_directory(copy);
        std::filesystem::permissions(copy, std::filesystem::perms::owner_all);
    }

    std::string path() const { return m_folder.path().toStdString(); }
    std::string stateFolder() const { return path() + "/state"; }
    std::string file(const char *name) const { return path() + '/' + name; }

    /// Makes it the home of this process.
    void enter() const
    {
        ::setenv("KUB_STATE_DIR", stateFolder().c_str(), 1);
        ::setenv("HOME", path().c_str(), 1);
        for (const char *const name : {"XDG_STATE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
            ::unsetenv(name);
        if (::chdir(path().c_str()) != 0)
            ::_exit(EXIT_FAILURE);
    }

private:
    QTemporaryDir m_folder;
};

int openFile(const std::string &path, int flags)
{
    const int file = ::open(path.c_str(), flags | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0)
        fail(path.c_str());
    return file;
}

std::vector<Finding> readFindings(const std::string &file)
{
    std::vector<Finding> findings;
    std::istringstream texts(contentOf(file));
    for (Finding one;
         std::getline(texts, one.node, separator) && std::getline(texts, one.slot, separator) &&
         std::getline(texts, one.expected, separator) && std::getline(texts, one.came, separator);)
        findings.push_back(one);
    return findings;
}

/// Waits for the end of a process, or ends it when a call takes too long. @return its wait status
int await(pid_t process, const Progress &progress, int seconds, bool &isHanging)
{
    using Clock = std::chrono::steady_clock;
    unsigned calls = progress.calls;
    Clock::time_point since = Clock::now(); // when the last call began
    int status = 0;
    while (::waitpid(process, &status, WNOHANG) == 0) {
        if (progress.calls != calls) {
            calls = progress.calls;
            since = Clock::now();
        }
        if (!isHanging && Clock::now() - since > std::chrono::seconds(seconds)) {
            isHanging = true;
            ::kill(process, SIGKILL);
        }
        ::usleep(1000); // a handle of the process that can be polled is none under valgrind
    }
    ::kill(-process, SIGKILL); // whatever it has started
    return status;
}

} // namespace

void Witness::calls(const std::string &node, const std::string &slot)
{
    Progress &progress = progressAt(m_progress);
    copyText(progress.node, node);
    copyText(progress.slot, slot);
    progress.calls = progress.calls + 1;
}

void Witness::find(const Finding &finding)
{
    m_hasFound = true;
    std::string bytes;
    for (const std::string &text : {finding.node, finding.slot, finding.expected, finding.came})
        bytes += text.substr(0, text.find(separator)) + separator;
    if (::write(m_findings, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        ::abort(); // which is a finding as well
}

void Witness::find(const std::string &expected, const std::string &came)
{
    const Progress &progress = progressAt(m_progress);
    find({progress.node, progress.slot, expected, came});
}

std::vector<Finding> Examiner::run(Copies copies,
                                   const std::function<bool(Witness &, int item)> &examine)
{
    void *const shared = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        fail("no memory");
    Progress &progress = progressAt(shared);
    std::vector<Finding> findings;
    int deaths = 0;
    for (int item = 0; deaths < mostDeaths; item = progress.item + 1) {
        progress = {};
        progress.item = item;
        const Home home(m_state);
        const int found = openFile(home.file("findings"), O_WRONLY | O_APPEND);
        const int output = openFile(home.file("output"), O_WRONLY | O_APPEND);
        std::fflush(nullptr);
        const pid_t process = ::fork();
        if (process < 0)
            fail("no process");
        if (process == 0) {
            ::setpgid(0, 0);
            home.enter();
            ::dup2(output, STDOUT_FILENO);
            ::dup2(output, STDERR_FILENO);
            setLimit(RLIMIT_CORE, 0);
            setLimit(RLIMIT_FSIZE, largestFile);
            if (!m_limits.isSanitized)
                setLimit(RLIMIT_DATA, mostMemory);
            Witness witness(shared, found);
            bool isThere = true;
            while (isThere) {
                isThere = examine(witness, progress.item);
                if (copies == Copies::Each)
                    break;
                progress.item = progress.item + 1;
            }
            progress.isLast = !isThere;
            progress.isReturned = true;
            std::fflush(nullptr);
            ::_exit(EXIT_SUCCESS);
        }
        ::close(found);
        ::close(output);
        bool isHanging = false;
        const int status = await(process, progress, m_limits.seconds, isHanging);
        for (const Finding &finding : readFindings(home.file("findings")))
            findings.push_back(finding);
        const bool isComplaint =
            WIFEXITED(status) && WEXITSTATUS(status) == valgrindFoundErrors && progress.isReturned;
        if (progress.isReturned && !isComplaint) {
            if (progress.isLast)
                break;
            continue;
        }
        ++deaths;
        std::string came =
            isHanging ? "it has not returned within " + std::to_string(m_limits.seconds) + " s"
            : WIFSIGNALED(status) ? std::string("killed by SIG") + ::sigabbrev_np(WTERMSIG(status))
            : isComplaint         ? std::string("errors that valgrind has found")
                          : "the process ended with status " + std::to_string(WEXITSTATUS(status));
        const std::string log = std::filesystem::temp_directory_path().string() + "/valgrind." +
                                std::to_string(process);
        const std::string why = std::filesystem::exists(log)
                                    ? firstComplaint(contentOf(log))
                                    : tellingLine(contentOf(home.file("output")));
        if (!why.empty())
            came += ": " + why;
        // Valgrind speaks at the end of the process, and says itself which call it was.
        findings.push_back(isComplaint
                               ? Finding{progress.node, "the process", "no errors", came}
                               : Finding{progress.node, progress.slot, "the call returns", came});
        if (progress.isReturned && progress.isLast)
            break;
    }
    ::munmap(shared, sizeof(Progress));
    return findings;
}
