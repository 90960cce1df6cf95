// Series of operations on the plug-in's two trees, with hostile names and values, each checked
// against the model: its status, its result, and what the trees, the mapping files and the stored
// records hold behind it.
#include "handset_doubles.h"
#include "input_reader.h"
#include "plugin_test.h"
#include "tree_model.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>

using doubles::HandsetDoubles;
using model::Value;

namespace {

constexpr int LONGEST_SERIES = 80;

constexpr const char *NAMES[] = {
    "Office",       "Home",   "PX1",        "Ph1",   "Ph2",      "Ph3",        "Port", "PortNbr",
    "UserEditable", "Conn",   "Bearer",     "Addr",  "DNS1",     "Linger",     "Auth", "PAP",
    "AuthId",       "AuthPw", "LineType",   "Speed", "\xC3\x91", "Office&&_2", "&&_",  "a/b",
    "Modem",        "",       "Office/Ph1", "\xFF",  "%s%n",     "1Ph1DC1",
};

constexpr const char *TEXTS[] = {
    "GSM-GPRS",
    "GSM-CSD",
    "GSM-CSD2",
    "ANALOG-MODEM",
    "Isdn",
    "V.110",
    "",
    "10.0.0.1",
    "1.2.3",
    "010.1.2.3",
    "255.255.255.256",
    "Office",
    " \xE2\x80\x83 10.0.0.9\r\n",
    "%s%n%s",
};

constexpr int NUMBERS[] = {0, 14400, 9600, 4800, 2400, 1200, -1, 65535, 65536, 2147483647};

std::string ReadName(InputReader &input)
{
    const std::size_t which = input.Below(std::size(NAMES) + 2);
    if (which < std::size(NAMES))
        return NAMES[which];
    return which == std::size(NAMES) ? input.Text(70) : std::string(60 + input.Below(8), 'n');
}

/// A path that an engine can pass: relative to the root, so without a slash in front.
std::string ReadPath(InputReader &input)
{
    std::string path;
    for (std::size_t depth = input.Below(6); depth-- > 0;)
        path += (path.empty() ? "" : "/") + ReadName(input);
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

Value ReadValue(InputReader &input)
{
    switch (input.Below(6)) {
    case 0:
    case 1:
        return Value::OfText(TEXTS[input.Below(std::size(TEXTS))]);
    case 2:
        return Value::OfText(input.Text(120));
    case 3:
        return Value::OfNumber(NUMBERS[input.Below(std::size(NUMBERS))]);
    case 4:
        return Value::OfFlag(input.Below(2) == 1);
    default:
        return input.Below(2) == 1 ? Value::OfNumber(input.Number()) : Value();
    }
}

DmtData ToData(const Value &value)
{
    switch (value.type) {
    case Value::Text:
        return DmtData(value.text.c_str());
    case Value::Number:
        return DmtData(value.number);
    case Value::Flag:
        return DmtData(value.flag);
    default:
        return DmtData();
    }
}

Value ToValue(const DmtData &data)
{
    DMString text;
    Value value;
    if (data.GetString(text) == DMT_OK)
        return Value::OfText(text.text());
    if (data.GetInt(value.number) == DMT_OK)
        return Value::OfNumber(value.number);
    if (data.GetBoolean(value.flag) == DMT_OK)
        return Value::OfFlag(value.flag);
    return {};
}

[[noreturn]] void Differs(const std::string &what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

/// The subject is only put together when the check fails.
void Expect(bool holds, const char *what, const std::string &subject = {})
{
    if (!holds)
        Differs(what + (" " + subject));
}

/// One handset, and the model of it.
class World {
public:
    void Step(InputReader &input);

private:
    struct Mounted {
        doubles::TreePtr tree;
        std::optional<model::Tree> expected;
    };

    void StoreProfile(InputReader &input);
    void RemoveProfile(InputReader &input);
    void Mount(int which);
    void Operate(InputReader &input, Mounted &mounted);
    void CheckServices() const;
    void CheckNodes(const Mounted &mounted) const;

    HandsetDoubles m_handset;
    model::Service m_service;
    model::Files m_files;
    Mounted m_mounted[2];
};

void World::Step(InputReader &input)
{
    const std::size_t what = input.Below(16);
    if (what == 0)
        StoreProfile(input);
    else if (what == 1 && input.Below(2) == 0)
        RemoveProfile(input);
    else if (what == 1)
        m_handset.napi.maxProfiles = m_service.maximum = static_cast<int>(input.Below(200));
    else if (what == 2)
        Mount(static_cast<int>(input.Below(2)));
    else
        Operate(input, m_mounted[input.Below(2)]);
    CheckServices();
    m_handset.journal.Clear();
}

void World::StoreProfile(InputReader &input)
{
    std::string name = ReadName(input).substr(0, 63);
    if (name.empty() || m_service.Named(name))
        return;
    model::Bytes record{};
    const std::size_t kind = input.Below(6);
    const std::size_t addresses[] = {0x008, 0x17D, 0x23C};
    if (kind < 3)
        record[addresses[kind]] = 'a';
    else if (kind == 3)
        record[addresses[0]] = record[addresses[1]] = record[addresses[2]] = 'b';
    else if (kind == 4)
        record.fill(static_cast<std::uint8_t>(input.Byte()));
    NAP_PROFILE_S stored;
    std::memcpy(&stored, record.data(), record.size());
    m_handset.napi.Store(name, stored);
    m_service.profiles.push_back({m_service.nextId++, name, record});
}

void World::RemoveProfile(InputReader &input)
{
    if (m_service.profiles.empty())
        return;
    const auto place = static_cast<std::ptrdiff_t>(
        input.Below(std::min<std::size_t>(m_service.profiles.size(), 256)));
    m_service.profiles.erase(m_service.profiles.begin() + place);
    m_handset.napi.profiles.erase(m_handset.napi.profiles.begin() + place);
}

void World::Mount(int which)
{
    Mounted &mounted = m_mounted[which];
    JemSmartPtr<DmtPluginTree> tree;
    Expect(DMT_PluginLib_Data_GetPluginTree(
               which == 0 ? doubles::CONN_ROOT : doubles::INTPROFS_ROOT, nullptr, tree) == DMT_OK,
           "a mount failed");
    mounted.tree = doubles::TreePtr(static_cast<DM_NAPI_PluginTree *>(tree.get()));
    mounted.expected.emplace(which == 0 ? model::Tree::Napdef : model::Tree::Proxy, m_service,
                             m_files);
    CheckNodes(mounted);
}

void World::Operate(InputReader &input, Mounted &mounted)
{
    if (!mounted.tree)
        return;
    DM_NAPI_PluginTree &tree = *mounted.tree;
    model::Tree &expected = *mounted.expected;
    const std::size_t what = input.Below(7);
    const std::string path = ReadPath(input);
    JemSmartPtr<DmtNode> node;
    int status = 0;
    int expectedStatus = 0;
    if (what == 0) {
        status = tree.GetNode(path.c_str(), node);
        DmtData data;
        if (status == DMT_OK)
            status = node->GetValue(data);
        Value value;
        expectedStatus = expected.GetValue(path, value);
        Expect(status != DMT_OK || ToValue(data) == value, "value of", path);
    } else if (what == 1) {
        const Value value = ReadValue(input);
        status = tree.GetNode(path.c_str(), node);
        if (status == DMT_OK)
            status = node->SetValue(ToData(value));
        expectedStatus = expected.SetValue(path, value);
    } else if (what == 2) {
        status = tree.CreateInteriorNode(path.c_str(), node);
        expectedStatus = expected.AddInterior(path);
    } else if (what == 3) {
        const Value value = ReadValue(input);
        status = tree.CreateLeafNode(path.c_str(), node, ToData(value));
        expectedStatus = expected.AddLeaf(path, value);
    } else if (what == 4) {
        status = tree.DeleteNode(path.c_str());
        expectedStatus = expected.Delete(path);
    } else if (what == 5) {
        const std::string newName = ReadName(input);
        status = tree.RenameNode(path.c_str(), newName.c_str());
        expectedStatus = expected.Rename(path, newName);
    } else {
        DmtChildValuesMap values;
        status = tree.GetChildValuesMap(path.c_str(), values);
        std::map<std::string, Value> expectedValues;
        expectedStatus = expected.GetChildValues(path, expectedValues);
        std::map<std::string, Value> found;
        for (int i = 0; i < values.size(); ++i)
            found[values.keys()[i].text()] = ToValue(values.values()[i]);
        Expect(status != DMT_OK || found == expectedValues, "values beneath", path);
    }
    node.reset();
    if (status != expectedStatus)
        Differs("operation " + std::to_string(what) + " on \"" + path + "\" answered " +
                std::to_string(status) + ", expected " + std::to_string(expectedStatus) + "\n" +
                m_handset.log.Text());
    CheckNodes(mounted);
}

void World::CheckServices() const
{
    Expect(m_handset.napi.profiles.size() == m_service.profiles.size(), "number of profiles");
    for (std::size_t i = 0; i < m_service.profiles.size(); ++i) {
        const auto &found = m_handset.napi.profiles[i];
        const model::Service::Profile &expected = m_service.profiles[i];
        Expect(found.id == expected.id && found.name == expected.name, "profile", expected.name);
        Expect(std::memcmp(&found.record, expected.record.data(), expected.record.size()) == 0,
               "record of", expected.name);
    }
    Expect(m_handset.settings.OnDisk(doubles::NAPDEF_FILE, doubles::NAPDEF_GROUP) == m_files.napdef,
           "NAPDEF mapping file");
    Expect(m_handset.settings.OnDisk(doubles::PROXY_FILE, doubles::PROXY_GROUP) == m_files.proxy,
           "PROXY mapping file");
    Expect(m_handset.settings.OnDisk(doubles::PROXY_FILE, doubles::CONN_GROUP) == m_files.conn,
           "connection references");
}

/// Every node of the model is in the tree; one look-up each, so that a check stays quick.
void World::CheckNodes(const Mounted &mounted) const
{
    for (const auto &[path, expected] : mounted.expected->Nodes()) {
        JemSmartPtr<DmtNode> node;
        Expect(mounted.tree->GetNode(path.c_str(), node) == DMT_OK, "no node at", path);
        Expect(node->IsLeaf() == expected.isLeaf, "kind of the node at", path);
        DmtData kept;
        static_cast<DmtPluginNode &>(*node).DmtPluginNode::GetValue(kept);
        Expect(ToValue(kept) == expected.value, "value kept by the node at", path);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    InputReader input(data, size);
    const std::size_t blocksBefore = dmnative_control::LiveBlocks();
    {
        World world;
        for (int step = 0; step < LONGEST_SERIES && !input.AtEnd(); ++step)
            world.Step(input);
    }
    Expect(dmnative_control::LiveBlocks() == blocksBefore, "blocks of the engine leaked");
    return 0;
}
