#include "state_location.h"

#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

namespace handset_state {

namespace {

std::string environment(const char *variable)
{
    const char *const value = std::getenv(variable);
    return !value ? std::string() : value;
}

std::string homeDirectory()
{
    std::string home = environment("HOME");
    if (!home.starts_with('/')) {
        const passwd *const user = ::getpwuid(::geteuid());
        home = user && user->pw_dir ? user->pw_dir : "/";
    }
    return home;
}

std::string chosenDirectory()
{
    if (const std::string chosen = environment("KUB_STATE_DIR"); !chosen.empty())
        return chosen;
    // The base directory rules ask for a relative path to be ignored.
    if (const std::string stateHome = environment("XDG_STATE_HOME"); stateHome.starts_with('/'))
        return stateHome + "/kub-dm";
    return homeDirectory() + "/.local/state/kub-dm";
}

} // namespace

std::string location()
{
    return absolutePath(chosenDirectory());
}

std::string absolutePath(const std::string &directory)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(directory, error);
    if (error)
        return directory;
    std::string path = absolute.lexically_normal().string();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

} // namespace handset_state
