// A simulated handset with the built plug-in mounted on it, and its whole state as lines of text.
#pragma once

#include "dmnative/dmt_plugin_api.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

/// The two mounted trees.
enum Root { Conn, IntProfs };

/// Largest number of profiles that the handset's profile service stores.
inline constexpr int HANDSET_MAX_PROFILES = 5;

/// What a profile holds before the story begins. Empty parts do not exist in the record.
struct StoredProfile {
    std::string gprsAddress = {};
    std::string csdAddress = {};
    std::string csd2Address = {};
    std::string proxy1Address = {};
    bool editable = true;
};

/// Each test starts with an empty profile service and no mapping files, on the real host libraries
/// and the plug-in as it is shipped, reached through its exported functions and virtual tables
/// only.
class StoryTest : public ::testing::Test {
protected:
    StoryTest();
    ~StoryTest() override;

    /// Puts a profile into the profile service, past the plug-in.
    void Store(const std::string &name, const StoredProfile &profile);
    /// Mounts both trees, Conn first. A test fails at once when a mount is refused.
    void Mount();
    /// Drops the engine's references, and with them the trees.
    void Unmount();
    void Remount();

    // What a server may ask for. Each returns the engine's status.
    int AddInterior(Root root, const std::string &path);
    int AddLeaf(Root root, const std::string &path, const DmtData &value);
    int Replace(Root root, const std::string &path, const DmtData &value);
    int Rename(Root root, const std::string &path, const std::string &newName);
    int Delete(Root root, const std::string &path);
    int ReplaceChildren(Root root, const std::string &path,
                        const std::vector<std::pair<std::string, DmtData>> &values);
    /// A leaf's value as in the lines below; "status N" when it cannot be read.
    std::string Get(Root root, const std::string &path);
    /// All leaf children of a node in one call, as "name = value".
    Lines GetChildren(Root root, const std::string &path);
    Lines ChildNames(Root root, const std::string &path);

    /// What differs from the last call (or the last mount): lines that went ("- ...") and then
    /// lines that came ("+ ..."). The state has one line for
    ///   - each profile in the service, and each of its bytes or fields that is not zero,
    ///   - each entry of both mapping files, read back from disk; an ID is shown as {profile name},
    ///   - each node of both mounted trees, with the value of a leaf.
    Lines Changes();

    DmtPluginTree &Tree(Root root) { return *m_trees[root]; }

private:
    Lines State();
    void AppendService(Lines &lines);
    void AppendMappingFiles(Lines &lines);
    void AppendNodes(Root root, const std::string &path, Lines &lines);
    std::string WithProfileName(const std::string &key) const;

    JemSmartPtr<DmtPluginTree> m_trees[2];
    Lines m_lastState;
    std::map<std::string, std::string> m_profileNames; ///< by decimal ID, deleted ones included
};

/// A value as the lines show it: texts in double quotes with unprintable bytes as \xNN.
std::string ValueText(const DmtData &value);
std::string Quoted(const std::string &text);

// Values, written as the stories read.
inline DmtData Text(const std::string &text)
{
    return DmtData(text.c_str());
}
inline DmtData Int(int number)
{
    return DmtData(number);
}
inline DmtData Bool(bool flag)
{
    return DmtData(flag);
}
