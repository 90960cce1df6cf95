// What the built library file shows: symbols, names of libraries, virtual tables, messages.
#include "loaded_plugin.h"
#include "published_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace {

const std::string QUOTED_PLUGIN = "'" KUB_PLUGIN_FILE "'";

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// Values in brackets of the dynamic section's entries of one tag.
std::vector<std::string> DynamicEntries(const std::string &tag)
{
    std::vector<std::string> values;
    for (const std::string &line : Lines(Output("LC_ALL=C readelf -dW " + QUOTED_PLUGIN)))
        if (line.find("(" + tag + ")") != std::string::npos)
            values.push_back(line.substr(line.find('[') + 1, line.rfind(']') - line.find('[') - 1));
    return values;
}

TEST(LibraryFile, ExportsTheTwoEntryPointsAndNothingElse)
{
    std::set<std::string> exported;
    for (const std::string &line :
         Lines(Output("nm -D --defined-only --format=posix " + QUOTED_PLUGIN)))
        exported.insert(line.substr(0, line.find(' ', line.find(' ') + 1)));
    EXPECT_EQ(exported, (std::set<std::string>{"DMT_PluginLib_Data_GetPluginTree T",
                                               "DMT_PluginLib_GetAPIVersion T"}));
}

TEST(LibraryFile, HasItsPublishedName)
{
    EXPECT_EQ(DynamicEntries("SONAME"), (std::vector<std::string>{"libkubdmnapipluginlib.so.1"}));
}

TEST(LibraryFile, NeedsTheHandsetsLibrariesByTheirPublishedNames)
{
    const std::vector<std::string> needed = DynamicEntries("NEEDED");
    for (const char *const name :
         {"libdmnative.so.02", "libnapi.so", "libkubappbase.so.1", "libaplog.so.1.0.0"})
        EXPECT_EQ(std::count(needed.begin(), needed.end(), name), 1) << name;
}

TEST(LibraryFile, NeedsNothingElseButQtAndTheLanguagesLibraries)
{
    const std::set<std::string> known{"libdmnative.so.02", "libnapi.so",      "libkubappbase.so.1",
                                      "libaplog.so.1.0.0", "libQt6Core.so.6", "libQt6Network.so.6",
                                      "libstdc++.so.6",    "libgcc_s.so.1",   "libc.so.6",
                                      "libm.so.6"};
    for (const std::string &name : DynamicEntries("NEEDED")) {
        const bool sanitizer = name.rfind("libasan.", 0) == 0 || name.rfind("libubsan.", 0) == 0;
        const bool loader = name.rfind("ld-linux", 0) == 0;
        EXPECT_TRUE(known.count(name) == 1 || sanitizer || loader) << name;
    }
}

#ifndef KUB_SANITIZED // which pads every object with addresses that nothing may touch
TEST(LibraryFile, VirtualTablesHaveThePublishedNumberOfSlots)
{
    std::map<std::string, unsigned long> sizes;
    for (const std::string &line :
         Lines(Output("nm --defined-only --format=posix --radix=d " + QUOTED_PLUGIN))) {
        std::istringstream fields(line);
        std::string name;
        std::string type;
        unsigned long value = 0;
        unsigned long size = 0;
        fields >> name >> type >> value >> size;
        sizes[name] = size;
    }
    // Two words stand before the slots: the offset to the top and the type information.
    EXPECT_EQ(sizes["_ZTV18DM_NAPI_PluginTree"], (2 + 36) * sizeof(void *));
    EXPECT_EQ(sizes["_ZTV18DM_NAPI_PluginNode"], (2 + 25) * sizeof(void *));
}
#endif

TEST(LibraryFile, HoldsEveryMessageToTheLetterAndNoOther)
{
    const std::string file = FileContent(KUB_PLUGIN_FILE);
    const std::string prefix("\0(%s:%d)", 8);
    std::set<std::string> found;
    for (std::size_t at = file.find(prefix); at != std::string::npos;
         at = file.find(prefix, at + 1)) {
        const std::size_t text = at + prefix.size();
        found.insert(file.substr(text, file.find('\0', text) - text));
    }
    const std::set<std::string> published(std::begin(PUBLISHED_MESSAGES),
                                          std::end(PUBLISHED_MESSAGES));
    std::vector<std::string> missing;
    std::set_difference(published.begin(), published.end(), found.begin(), found.end(),
                        std::back_inserter(missing));
    EXPECT_EQ(missing, std::vector<std::string>{});
    std::vector<std::string> unknown;
    std::set_difference(found.begin(), found.end(), published.begin(), published.end(),
                        std::back_inserter(unknown));
    EXPECT_EQ(unknown, std::vector<std::string>{});
}

} // namespace
