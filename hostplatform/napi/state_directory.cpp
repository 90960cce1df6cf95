#include "state_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string environment(const char *variable)
{
    const char *value = std::getenv(variable);
    return value == nullptr ? std::string() : value;
}

std::string homeDirectory()
{
    std::string home = environment("HOME");
    if (home.empty()) {
        if (const passwd *user = ::getpwuid(::getuid()))
            home = user->pw_dir;
    }
    return home.empty() ? "/" : home;
}

std::filesystem::path chosenDirectory()
{
    if (const std::string chosen = environment("KUB_STATE_DIR"); !chosen.empty())
        return chosen;
    // The base directory rules ask for a relative path to be ignored.
    if (const std::string stateHome = environment("XDG_STATE_HOME"); stateHome.starts_with('/'))
        return std::filesystem::path(stateHome) / "kub-dm";
    return std::filesystem::path(homeDirectory()) / ".local/state/kub-dm";
}

} // namespace

std::string stateDirectory()
{
    std::error_code ignored; // a working directory that is gone leaves the path relative
    std::string path =
        std::filesystem::absolute(chosenDirectory(), ignored).lexically_normal().string();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

int createPrivateDirectory(const std::string &path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        if (::mkdir(path.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST)
            return errno;
        if (end == std::string::npos)
            return 0;
    }
}
