#include "story_fixture.h"

#include "aplog.h"
#include "napi.h"
#include "nmcli_witness.h"
#include "setup_set_manager.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace {

// ---- The handset's state directory -------------------------------------------------------------

/// Points the host libraries at a directory of this process before any of them is used.
class PrivateStateDirectory : public ::testing::Environment {
public:
    PrivateStateDirectory()
    {
        std::string path = (std::filesystem::temp_directory_path() / "kub-stories-XXXXXX").string();
        if (!mkdtemp(path.data())) {
            std::perror("cannot make a state directory");
            std::abort();
        }
        m_path = path;
        setenv("KUB_STATE_DIR", path.c_str(), 1);
        setenv("KUB_NAPI_MAX", std::to_string(HANDSET_MAX_PROFILES).c_str(), 1);
        m_log = std::fopen((m_path / "plugin.log").c_str(), "w");
        libaplog_to_module_ptr = m_log;
    }
    PrivateStateDirectory(const PrivateStateDirectory &) = delete;
    PrivateStateDirectory &operator=(const PrivateStateDirectory &) = delete;
    ~PrivateStateDirectory() override
    {
        libaplog_to_module_ptr = nullptr;
        if (m_log)
            std::fclose(m_log);
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

private:
    std::filesystem::path m_path;
    std::FILE *m_log;
};

[[maybe_unused]] const ::testing::Environment *const stateDirectory =
    ::testing::AddGlobalTestEnvironment(new PrivateStateDirectory);

// ---- The plug-in
// ---------------------------------------------------------------------------------

DmtPluginGetTree *EntryPoint()
{
    static DmtPluginGetTree *const entry = [] {
        void *const library = dlopen(KUB_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
        if (!library) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        return reinterpret_cast<DmtPluginGetTree *>(dlsym(library, DMT_PLUGIN_TREE_SYMBOL));
    }();
    return entry;
}

const char *const rootPaths[] = {"./DevDetail/Ext/Conf/Conn/Profiles",
                                 "./DevDetail/Ext/Conf/IntProfs/Profiles"};
const char *const rootNames[] = {"Conn", "IntProfs"};

// ---- The profile record
// --------------------------------------------------------------------------

enum class FieldType { Text, Address, Number };

struct RecordField {
    const char *name;
    std::size_t offset;
    std::size_t width;
    FieldType type;
};

// The service's published layout in literal numbers, on purpose without its struct.
const RecordField recordFields[] = {
    {"creation byte", 0x001, 1, FieldType::Number},
    {"flags", 0x004, 4, FieldType::Number},
    {"gprs address", 0x008, 100, FieldType::Text},
    {"gprs auth id", 0x06C, 100, FieldType::Text},
    {"gprs password", 0x0D0, 100, FieldType::Text},
    {"gprs dns1", 0x138, 4, FieldType::Address},
    {"gprs dns2", 0x13C, 4, FieldType::Address},
    {"gprs linger", 0x140, 2, FieldType::Number},
    {"csd address", 0x17D, 44, FieldType::Text},
    {"csd auth id", 0x1A9, 64, FieldType::Text},
    {"csd password", 0x1E9, 64, FieldType::Text},
    {"csd dns1", 0x230, 4, FieldType::Address},
    {"csd dns2", 0x234, 4, FieldType::Address},
    {"csd linger", 0x238, 2, FieldType::Number},
    {"csd speed code", 0x23B, 1, FieldType::Number},
    {"csd2 address", 0x23C, 44, FieldType::Text},
    {"csd2 auth id", 0x268, 64, FieldType::Text},
    {"csd2 password", 0x2A8, 64, FieldType::Text},
    {"csd2 dns1", 0x2EC, 4, FieldType::Address},
    {"csd2 dns2", 0x2F0, 4, FieldType::Address},
    {"csd2 linger", 0x2F4, 2, FieldType::Number},
    {"csd2 speed code", 0x2F7, 1, FieldType::Number},
    {"proxy1 address", 0x2F8, 100, FieldType::Text},
    {"proxy1 port", 0x35C, 2, FieldType::Number},
    {"proxy1 text", 0x35E, 100, FieldType::Text},
    {"proxy1 byte", 0x3C2, 1, FieldType::Number},
    {"proxy2 address", 0x3C3, 100, FieldType::Text},
    {"proxy2 port", 0x428, 2, FieldType::Number},
    {"proxy2 text", 0x42A, 100, FieldType::Text},
    {"proxy2 byte", 0x48E, 1, FieldType::Number},
};

constexpr std::size_t RECORD_SIZE = 1168;
using RecordBytes = std::uint8_t[RECORD_SIZE];

std::string FieldText(const RecordBytes &bytes, const RecordField &field)
{
    const std::uint8_t *const first = bytes + field.offset;
    if (field.type == FieldType::Text) {
        std::string text(first, first + field.width);
        while (!text.empty() && text.back() == '\0')
            text.pop_back();
        return Quoted(text);
    }
    unsigned long number = 0;
    for (std::size_t i = field.width; i > 0; --i)
        number = number * 256 + first[i - 1];
    if (field.type == FieldType::Number)
        return std::to_string(number);
    std::string dotted;
    for (int shift = 24; shift >= 0; shift -= 8)
        dotted += std::to_string(number >> shift & 0xFF) + (shift ? "." : "");
    return dotted;
}

void CopyText(RecordBytes &bytes, std::size_t offset, std::size_t width, const std::string &text)
{
    ASSERT_LE(text.size(), width);
    std::memcpy(bytes + offset, text.data(), text.size());
}

Lines ProfileNames()
{
    unsigned int count = 0;
    EXPECT_EQ(NAPI_ListAllProfile(nullptr, &count), 0);
    std::string slots(count * std::size_t{64}, '\0');
    EXPECT_EQ(NAPI_ListAllProfile(slots.data(), &count), 0);
    Lines names;
    for (std::size_t i = 0; i < count; ++i)
        names.emplace_back(slots.data() + 64 * i);
    return names;
}

std::string MappingFile(const char *name)
{
    return getSettingDirectory().toStdString() + name;
}

const char napdefFile[] = "kub_napdef_profilemapping.cfg";
const char proxyFile[] = "kub_proxy_profilemapping.cfg";

} // namespace

std::string Quoted(const std::string &text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F) {
            quoted += character;
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", byte);
            quoted += escape;
        }
    }
    return quoted + "\"";
}

std::string ValueText(const DmtData &value)
{
    DMString text;
    int number = 0;
    bool flag = false;
    switch (value.GetType()) {
    case 0:
        return "null";
    case 1:
        return value.GetString(text) == 0 ? Quoted(text.text()) : "unreadable text";
    case 2:
        return value.GetInt(number) == 0 ? std::to_string(number) : "unreadable int";
    case 3:
        return value.GetBoolean(flag) != 0 ? "unreadable bool" : flag ? "true" : "false";
    default:
        return "type " + std::to_string(value.GetType());
    }
}

// ---- Life of a handset
// -----------------------------------------------------------------------------

StoryTest::StoryTest()
{
    for (const std::string &name : ProfileNames())
        EXPECT_EQ(NAPI_DeleteProfile(name.c_str()), 0);
    std::filesystem::remove(MappingFile(napdefFile));
    std::filesystem::remove(MappingFile(proxyFile));
}

StoryTest::~StoryTest() = default;

void StoryTest::Store(const std::string &name, const StoredProfile &profile)
{
    alignas(NAP_PROFILE_S) RecordBytes bytes = {};
    bytes[0x004] = profile.editable ? 0 : 1;
    CopyText(bytes, 0x008, 100, profile.gprsAddress);
    CopyText(bytes, 0x17D, 44, profile.csdAddress);
    CopyText(bytes, 0x23C, 44, profile.csd2Address);
    CopyText(bytes, 0x2F8, 100, profile.proxy1Address);
    NAP_PROFILE_S record;
    std::memcpy(&record, bytes, RECORD_SIZE);
    ASSERT_EQ(NAPI_CreateProfile(name.c_str(), &record, 0, 0), 0) << name;
}

void StoryTest::Mount()
{
    for (const Root root : {Conn, IntProfs})
        ASSERT_EQ(EntryPoint()(rootPaths[root], nullptr, m_trees[root]), 0) << rootPaths[root];
    m_lastState = State();
}

void StoryTest::Unmount()
{
    for (JemSmartPtr<DmtPluginTree> &tree : m_trees)
        tree.reset();
}

void StoryTest::Remount()
{
    const Lines before = m_lastState;
    Unmount();
    Mount();
    m_lastState = before;
}

// ---- What a server may ask for
// ----------------------------------------------------------------------

int StoryTest::AddInterior(Root root, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    return Tree(root).CreateInteriorNode(path.c_str(), node);
}

int StoryTest::AddLeaf(Root root, const std::string &path, const DmtData &value)
{
    JemSmartPtr<DmtNode> node;
    return Tree(root).CreateLeafNode(path.c_str(), node, value);
}

int StoryTest::Replace(Root root, const std::string &path, const DmtData &value)
{
    JemSmartPtr<DmtNode> node;
    const int status = Tree(root).GetNode(path.c_str(), node);
    return status ? status : node->SetValue(value);
}

int StoryTest::Rename(Root root, const std::string &path, const std::string &newName)
{
    return Tree(root).RenameNode(path.c_str(), newName.c_str());
}

int StoryTest::Delete(Root root, const std::string &path)
{
    return Tree(root).DeleteNode(path.c_str());
}

int StoryTest::ReplaceChildren(Root root, const std::string &path,
                               const std::vector<std::pair<std::string, DmtData>> &values)
{
    DmtChildValuesMap map;
    for (const auto &[name, value] : values)
        map.put(DMString(name.c_str()), value);
    return Tree(root).SetChildValuesMap(path.c_str(), map);
}

std::string StoryTest::Get(Root root, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    int status = Tree(root).GetNode(path.c_str(), node);
    DmtData value;
    if (status == 0)
        status = node->GetValue(value);
    return status ? "status " + std::to_string(status) : ValueText(value);
}

Lines StoryTest::GetChildren(Root root, const std::string &path)
{
    DmtChildValuesMap values;
    const int status = Tree(root).GetChildValuesMap(path.c_str(), values);
    Lines lines;
    for (int i = 0; i < values.size(); ++i)
        lines.push_back(std::string(values.keys()[i].text()) + " = " +
                        ValueText(values.values()[i]));
    if (status)
        lines.push_back("status " + std::to_string(status));
    return lines;
}

Lines StoryTest::ChildNames(Root root, const std::string &path)
{
    DMStringVector names;
    EXPECT_EQ(Tree(root).GetChildNodeNames(path.c_str(), names), 0);
    Lines lines;
    for (const DMString &name : names)
        lines.emplace_back(name.text());
    return lines;
}

// ---- The state as lines
// -----------------------------------------------------------------------------

Lines StoryTest::Changes()
{
    Lines before = std::move(m_lastState);
    const Lines now = State();
    m_lastState = now;
    Lines added;
    for (const std::string &line : now) {
        const auto same = std::find(before.begin(), before.end(), line);
        if (same == before.end())
            added.push_back("+ " + line);
        else
            before.erase(same);
    }
    Lines changes;
    for (const std::string &line : before)
        changes.push_back("- " + line);
    changes.insert(changes.end(), added.begin(), added.end());
    return changes;
}

Lines StoryTest::State()
{
    Lines lines;
    AppendService(lines);
    AppendMappingFiles(lines);
    for (const Root root : {Conn, IntProfs})
        AppendNodes(root, "", lines);
    return lines;
}

void StoryTest::AppendService(Lines &lines)
{
    std::map<std::string, NAP_PROFILE_S> records;
    for (const std::string &name : ProfileNames()) {
        unsigned int id = 0;
        EXPECT_EQ(NAPI_GetProfileIDByName(name.c_str(), &id), 0);
        m_profileNames[std::to_string(id)] = name;
        NAP_PROFILE_S record;
        EXPECT_EQ(NAPI_ReadProfile(name.c_str(), &record, 0, 0), 0);
        records[name] = record;
        RecordBytes bytes;
        static_assert(sizeof record == RECORD_SIZE);
        std::memcpy(bytes, &record, RECORD_SIZE);

        const std::string profile = "service " + name;
        lines.push_back(profile);
        const auto nonZero = [](std::uint8_t byte) { return byte != 0; };
        for (const RecordField &field : recordFields) {
            std::uint8_t *const first = bytes + field.offset;
            if (std::none_of(first, first + field.width, nonZero))
                continue;
            lines.push_back(profile + ": " + field.name + " = " + FieldText(bytes, field));
            std::fill_n(first, field.width, std::uint8_t{0});
        }
        for (std::size_t offset = 0; offset < RECORD_SIZE; ++offset)
            if (bytes[offset])
                lines.push_back(profile + ": byte " + std::to_string(offset) + " = " +
                                std::to_string(bytes[offset]));
    }
    if (isNetworkManagerBackend())
        expectNmcliShows(records);
}

/// "5Ph1DC1" as "{Office}Ph1DC1", so that expected lines do not depend on the numbers given out.
std::string StoryTest::WithProfileName(const std::string &key) const
{
    const std::size_t digits = std::min(key.find_first_not_of("0123456789"), key.size());
    const auto known = m_profileNames.find(key.substr(0, digits));
    if (known == m_profileNames.end())
        return key;
    return "{" + known->second + "}" + key.substr(digits);
}

void StoryTest::AppendMappingFiles(Lines &lines)
{
    const auto append = [&](const char *file, const char *group, const char *label, bool idKeys) {
        const SETUP_SET_Manager manager(QString::fromStdString(MappingFile(file)), false);
        const QMap<QString, QString> entries = manager.getEntryKeyList(QString::fromLatin1(group));
        for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
            const std::string key = entry.key().toStdString();
            lines.push_back(std::string(label) + " " + (idKeys ? WithProfileName(key) : key) +
                            " = " + entry.value().toStdString());
        }
    };
    append(napdefFile, "NAPIDEF_Profile", "napdef", true);
    append(proxyFile, "PROXY_Profile", "proxy", true);
    append(proxyFile, "PROXY_Conn", "reference", false);
}

void StoryTest::AppendNodes(Root root, const std::string &path, Lines &lines)
{
    if (!m_trees[root])
        return;
    JemSmartPtr<DmtNode> node;
    ASSERT_EQ(Tree(root).GetNode(path.c_str(), node), 0) << path;
    const std::string line = std::string(rootNames[root]) + "/" + path;
    if (node->IsLeaf()) {
        lines.push_back(line + " = " + Get(root, path));
        return;
    }
    lines.push_back(path.empty() ? line : line + "/");
    DMVector<JemSmartPtr<DmtNode>> children;
    ASSERT_EQ(node->GetChildNodes(children), 0) << path;
    for (const JemSmartPtr<DmtNode> &child : children)
        AppendNodes(root, (path.empty() ? "" : path + "/") + child->GetName().text(), lines);
}
