#include "call_sites.h"

#include <algorithm>
#include <cstdio>
#include <dlfcn.h>
#include <execinfo.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

namespace faults {

namespace {

constexpr int FRAMES = 24;
/// Lines between the beginning of a call and the place that the compiler notes for it.
constexpr int LINES_OF_A_CALL = 4;

struct Place {
    std::string file; ///< without its folder
    int line;
};

/// What a call looks like in the sources.
struct Pattern {
    const char *site;
    std::regex text;
};

const std::vector<Pattern> &Patterns()
{
    static const std::vector<Pattern> patterns = [] {
        std::vector<Pattern> all;
        for (const char *call :
             {"flush", "setSettingInfo", "removeEntry", "getSettingInfo", "getEntryKeyList"})
            all.push_back({call, std::regex("(->|\\.)" + std::string(call) + "\\(")});
        for (const char *call :
             {"NAPI_ListAllProfile", "NAPI_ReadProfile", "NAPI_ModifyProfile", "NAPI_CreateProfile",
              "NAPI_DeleteProfile", "NAPI_GetProfileIDByName", "NAPI_GetProfileNameByID",
              "NAPI_GetMaxProfiles", "NAPI_IsProfileValid", "getSettingDirectory"})
            all.push_back({call, std::regex("\\b" + std::string(call) + "\\(")});
        all.push_back({"unlink", std::regex("::unlink\\(")});
        all.push_back({"new[]", std::regex(R"(new \(std::nothrow\) \w+\[)")});
        all.push_back({"new", std::regex(R"(new \(std::nothrow\)(?! \w+\[))")});
        all.push_back({"SETUP_SET_Manager",
                       std::regex(R"(^\s*SETUP_SET_Manager\(|nothrow\) SETUP_SET_Manager\()")});
        return all;
    }();
    return patterns;
}

/// Blanks out comments and texts of a line.
std::string CodeOf(const std::string &line)
{
    static const std::regex text(R"("([^"\\]|\\.)*")");
    const std::string code = std::regex_replace(line, text, "\"\"");
    return code.substr(0, code.find("//"));
}

std::vector<std::pair<std::string, Place>> CallsInSources(const std::string &directory)
{
    std::vector<std::pair<std::string, Place>> calls;
    for (const auto &file : std::filesystem::directory_iterator(directory)) {
        if (file.path().extension() != ".cpp")
            continue;
        std::ifstream source(file.path());
        int number = 1;
        for (std::string line; std::getline(source, line); ++number)
            for (const Pattern &pattern : Patterns()) {
                const std::string code = CodeOf(line);
                const auto begin = std::sregex_iterator(code.begin(), code.end(), pattern.text);
                if (begin != std::sregex_iterator())
                    calls.push_back({pattern.site, {file.path().filename().string(), number}});
            }
    }
    return calls;
}

/// The lines of addresses in this program, as addr2line has them; inlined callers after the rest.
std::map<void *, std::vector<Place>> PlacesOf(const std::set<void *> &addresses)
{
    Dl_info info{};
    dladdr(reinterpret_cast<void *>(&CallsInSources), &info);
    const auto base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    std::ostringstream command;
    command << "addr2line -a -i -e " << std::filesystem::read_symlink("/proc/self/exe");
    for (void *address : addresses) // a return address is after its call
        command << " 0x" << std::hex << reinterpret_cast<std::uintptr_t>(address) - base - 1;
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.str().c_str(), "r"), pclose);
    std::map<void *, std::vector<Place>> places;
    auto current = addresses.begin();
    bool first = true;
    char buffer[4096];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe.get())) {
        const std::string line(buffer);
        if (line.rfind("0x", 0) == 0) {
            if (!first)
                ++current;
            first = false;
            continue;
        }
        const std::size_t colon = line.rfind(':');
        if (colon != std::string::npos)
            places[*current].push_back(
                {std::filesystem::path(line.substr(0, colon)).filename().string(),
                 std::atoi(line.c_str() + colon + 1)});
    }
    return places;
}

} // namespace

void CallSites::Reached(const std::string &site, bool failed)
{
    void *frames[FRAMES];
    const int count = backtrace(frames, FRAMES);
    Stack stack(frames, frames + std::min(count, FRAMES));
    m_stacks[{site, stack}] |= failed;
}

std::string CallSites::NeverFailed(const std::string &sourceDirectory, std::size_t &calls) const
{
    std::set<void *> addresses;
    for (const auto &[key, failed] : m_stacks)
        addresses.insert(key.second.begin(), key.second.end());
    const std::map<void *, std::vector<Place>> places = PlacesOf(addresses);

    // The innermost frames in the plug-in's sources are where the call stands.
    std::set<std::string> failedLines;
    for (const auto &[key, failed] : m_stacks) {
        const auto &[site, stack] = key;
        bool found = false;
        for (std::size_t i = 0; i < stack.size() && failed && !found; ++i) {
            const auto known = places.find(stack[i]);
            if (known == places.end())
                continue;
            for (const Place &place : known->second)
                if (place.file.rfind("DM_Napi_", 0) == 0) {
                    failedLines.insert(site + " " + place.file + ":" + std::to_string(place.line));
                    found = true;
                    break;
                }
        }
    }
    std::string missing;
    const auto found = CallsInSources(sourceDirectory);
    calls = found.size();
    for (const auto &[site, place] : found) {
        bool failed = false;
        for (int line = place.line; line < place.line + LINES_OF_A_CALL; ++line)
            failed |= failedLines.count(site + " " + place.file + ":" + std::to_string(line)) > 0;
        if (!failed)
            missing += "  " + site + " in " + place.file + ":" + std::to_string(place.line) + "\n";
    }
    return missing;
}

} // namespace faults
