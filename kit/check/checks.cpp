#include "checks.h"

#include "engine_memory.h"
#include "operations.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <link.h>
#include <set>
#include <sstream>

namespace {

using std::string;
using std::to_string;

/// What an output holds before a call, to see whether the call has filled it.
constexpr char untouched[] = "(as it was before the call)";

/// For a sentence: a text that is long stands there by its size.
string brief(const string &text)
{
    constexpr std::size_t most = 60;
    return text.size() <= most ? text : to_string(text.size()) + " bytes";
}

string quoted(const string &text)
{
    return brief('"' + text + '"');
}

string statusText(int status)
{
    return "status " + to_string(status);
}

/// A mounted device on which item's node is looked at.
class Look {
public:
    Look(Witness &witness, const Plugin &plugin, std::size_t root, int item)
        : m_library(plugin.file), m_device(witness, m_library, plugin.roots, root)
    {
        if (!m_device.isMounted())
            return;
        const std::vector<string> paths = m_device.paths();
        m_isThere = static_cast<std::size_t>(item) < paths.size();
        if (m_isThere)
            m_path = paths[static_cast<std::size_t>(item)];
        m_node = m_isThere ? m_device.nodeAt(m_path) : Node();
    }

    /// False when there are no more nodes.
    bool isThere() const { return m_isThere; }
    bool hasNode() const { return bool(m_node); }
    Device &device() { return m_device; }
    const string &path() const { return m_path; }
    const Node &node() const { return m_node; }
    bool isLeaf() const { return m_node && m_node->IsLeaf(); }

    /// Gives back everything.
    void end()
    {
        m_node.reset();
        m_device.giveBack();
    }

private:
    Library m_library;
    Device m_device;
    bool m_isThere = false;
    string m_path;
    Node m_node;
};

// ---- The library ---------------------------------------------------------------------------------

bool examineExports(Witness &witness, const Plugin &plugin, std::size_t, int)
{
    const Library library(plugin.file);
    if (!library.getVersion())
        witness.find({"", DMT_PLUGIN_API_VERSION_SYMBOL, "an exported function", "none"});
    if (!library.getTree())
        witness.find({"", DMT_PLUGIN_TREE_SYMBOL, "an exported function", "none"});
    if (!library.getVersion())
        return false;
    witness.calls("", DMT_PLUGIN_API_VERSION_SYMBOL);
    const int version = library.getVersion()();
    char text[2][16];
    std::snprintf(text[0], sizeof text[0], "0x%x", unsigned(DMT_PLUGIN_API_VERSION));
    std::snprintf(text[1], sizeof text[1], "0x%x", unsigned(version));
    if (version != DMT_PLUGIN_API_VERSION)
        witness.find(text[0], text[1]);
    return false;
}

/// Roots that are nearly the given one.
std::vector<string> nearMisses(const string &root)
{
    string otherCase = root;
    for (char &letter : otherCase)
        letter = char(std::islower(letter) ? std::toupper(letter) : std::tolower(letter));
    string otherLetter = root;
    otherLetter.back() = otherLetter.back() == 'x' ? 'y' : 'x';
    string otherStart = root;
    otherStart.front() = otherStart.front() == 'x' ? 'y' : 'x';
    return {"",
            "/",
            ".",
            root.substr(0, root.size() - 1),
            root.substr(1),
            parentOf(root),
            lastSegment(root),
            root + 'x',
            root + '/',
            root + "/x",
            root + ' ',
            '/' + root,
            otherCase,
            otherLetter,
            otherStart,
            root + string(1 << 16, 'x')};
}

bool examineNearMisses(Witness &witness, const Plugin &plugin, std::size_t root, int)
{
    const Library library(plugin.file);
    for (const string &other : nearMisses(plugin.roots[root])) {
        if (std::ranges::find(plugin.roots, other) != plugin.roots.end())
            continue;
        witness.calls(other, string(DMT_PLUGIN_TREE_SYMBOL) + ' ' + quoted(other));
        Tree tree;
        const int status = library.getTree()(other.c_str(), nullptr, tree);
        if (status != DMT_FEATURE_NOT_SUPPORTED || tree)
            witness.find("status 406 and no tree",
                         statusText(status) + (tree ? " and a tree" : ""));
    }
    return false;
}

bool examineMount(Witness &witness, const Plugin &plugin, std::size_t root, int)
{
    Library library(plugin.file);
    {
        Device device(witness, library, plugin.roots, root);
        if (!device.isMounted())
            return false;
        device.calls("", "GetRootPath");
        device.expect(device.tree().GetRootPath() == plugin.roots[root].c_str(),
                      quoted(plugin.roots[root]), quoted(device.tree().GetRootPath().text()));
        const Node node = device.nodeAt("");
        device.expect(bool(node), "a node at the root", "none");
        device.calls("", "IsLeaf");
        device.expect(!node || !node->IsLeaf(), "an interior node", "a leaf");
    }
    Device(witness, library, plugin.roots, root).giveBack();
    witness.calls(plugin.roots[root], "unloading the library");
    library.unload();
    return false;
}

// ---- Virtual tables ------------------------------------------------------------------------------

/// Whether the address is in a part of a loaded file that can be executed.
bool isCode(const void *address)
{
    struct Search {
        ElfW(Addr) address;
        bool isFound;
    } search{reinterpret_cast<ElfW(Addr)>(address), false};
    dl_iterate_phdr(
        [](dl_phdr_info *file, std::size_t, void *data) {
            auto &wanted = *static_cast<Search *>(data);
            for (int i = 0; i < file->dlpi_phnum; ++i) {
                const auto &part = file->dlpi_phdr[i];
                const ElfW(Addr) start = file->dlpi_addr + part.p_vaddr;
                if (part.p_type == PT_LOAD && (part.p_flags & PF_X) && wanted.address >= start &&
                    wanted.address - start < part.p_memsz)
                    wanted.isFound = true;
            }
            return 0;
        },
        &search);
    return search.isFound;
}

constexpr const char *nodeSlots[] = {"complete destructor",
                                     "deleting destructor",
                                     "GetTree",
                                     "GetPath",
                                     "GetAttributes",
                                     "SetTitle",
                                     "SetAcl",
                                     "GetValue",
                                     "SetValue",
                                     "GetChildNodes",
                                     "IsLeaf",
                                     "GetChildNode",
                                     "Execute",
                                     "GetNodeName",
                                     "GetName",
                                     "GetFirstChunk",
                                     "GetNextChunk",
                                     "SetFirstChunk",
                                     "SetNextChunk",
                                     "SetLastChunk",
                                     "HasChunkedValue"};
constexpr const char *treeSlots[] = {"complete destructor",
                                     "deleting destructor",
                                     "GetNode",
                                     "DeleteNode",
                                     "Clone",
                                     "RenameNode",
                                     "CreateLeafNode",
                                     "CreateLeafNode",
                                     "CreateInteriorNode",
                                     "GetChildValuesMap",
                                     "SetChildValuesMap",
                                     "GetChildNodeNames",
                                     "Flush",
                                     "Commit",
                                     "Rollback",
                                     "Begin",
                                     "IsAtomic",
                                     "GetPrincipal",
                                     "OnAdd",
                                     "OnDelete",
                                     "Synchronize",
                                     "Release",
                                     "FindAddedNode",
                                     "FindAddedParentNode",
                                     "SetAddedNode",
                                     "RemoveAddedNode",
                                     "Init",
                                     "GetFullPath",
                                     "Verify",
                                     "GetParameter",
                                     "LogCommand",
                                     "RemoveNode"};

void examineTable(Device &device, const string &path, const void *object,
                  std::span<const char *const> slots)
{
    const void *const *table;
    std::memcpy(&table, object, sizeof table);
    for (std::size_t slot = 0; slot < slots.size(); ++slot) {
        device.calls(path, "slot " + to_string(slot) + ", " + slots[slot]);
        if (!isCode(table[slot]))
            device.witness().find("a function", table[slot] ? "another address" : "null");
    }
}

bool examineTables(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    if (!look.hasNode())
        return look.isThere();
    if (item == 0)
        examineTable(look.device(), "", &look.device().tree(), treeSlots);
    examineTable(look.device(), look.path(), look.node().get(), nodeSlots);
    return true;
}

// ---- Each slot -----------------------------------------------------------------------------------

/// Each slot once, those that change something last; the node may be gone before the end.
bool examineStatuses(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    if (!look.hasNode())
        return look.isThere();
    for (const Operation &operation : allOperations()) {
        look.device().calls(look.path(), operation.slot);
        look.device().expectKnown(
            operation.run(look.device().tree(), *look.node(), look.path().c_str()));
    }
    look.end();
    return true;
}

/// Says so where an object has not the references that it had, and gives it these.
void expectReferences(Device &device, const char *what, JemRefCounted &object, std::int64_t before)
{
    device.expect(object.RefCount() == before,
                  string(what) + " with the " + to_string(before) + " references that it had",
                  to_string(object.RefCount()));
    while (object.RefCount() < before)
        object.TakeReference();
}

void examineReferencesOf(const Operation &operation, Look &look)
{
    Device &device = look.device();
    DmtNode &node = *look.node();
    DmtPluginTree &tree = device.tree();
    const std::vector<Node> heldNode(3, look.node()); // whatever the calls drop, they stay
    const std::vector<Tree> heldTree(3, Tree(&tree));
    const auto run = [&] { operation.run(tree, node, look.path().c_str()); };
    device.calls(look.path(), operation.slot);
    const std::int64_t firstOfNode = node.RefCount();
    const std::int64_t firstOfTree = tree.RefCount();
    run(); // what is made at the first call and kept is not lost
    const std::int64_t ofNode = std::max(node.RefCount(), firstOfNode);
    const std::int64_t ofTree = std::max(tree.RefCount(), firstOfTree);
    const std::size_t blocks = engine_memory::liveBlocks();
    const std::size_t allocations = engine_memory::allocations();
    run();
    expectReferences(device, "a node", node, ofNode);
    expectReferences(device, "a tree", tree, ofTree);
    const std::size_t after = engine_memory::liveBlocks();
    device.expect(after <= blocks, "as many live blocks of the engine's memory as before",
                  to_string(after - blocks) + " more, from " +
                      engine_memory::placesOfBlocksSince(allocations));
}

bool examineReferences(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    if (!look.hasNode())
        return look.isThere();
    for (const Operation &operation : allOperations())
        if (operation.isRead)
            examineReferencesOf(operation, look);
    look.end();
    return true;
}

// ---- Allocation failures -------------------------------------------------------------------------

/// Mounts with each allocation that may fail. The first item; the others are nodes.
void failAllocationsOfMount(Witness &witness, const Plugin &plugin, std::size_t root)
{
    const Library library(plugin.file);
    for (int failing = 0;; ++failing) {
        witness.calls(plugin.roots[root],
                      DMT_PLUGIN_TREE_SYMBOL + (" without allocation " + to_string(failing)));
        std::vector<Tree> trees(plugin.roots.size());
        for (std::size_t before = 0; before < root; ++before)
            library.getTree()(plugin.roots[before].c_str(), nullptr, trees[before]);
        engine_memory::failAllocation(failing);
        const int status = library.getTree()(plugin.roots[root].c_str(), nullptr, trees[root]);
        const int failable = engine_memory::failableAllocations();
        engine_memory::failAllocation(-1);
        if (failable <= failing)
            return; // none has failed
        if ((status == DMT_OK) != bool(trees[root]))
            witness.find("status 0 and a tree, or neither",
                         statusText(status) + (trees[root] ? " and a tree" : " without a tree"));
    }
}

bool examineAllocations(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    if (item == 0) {
        failAllocationsOfMount(witness, plugin, root);
        return true;
    }
    Look look(witness, plugin, root, item - 1);
    if (!look.hasNode())
        return look.isThere();
    for (const Operation &operation : allOperations()) {
        for (int failing = 0;; ++failing) {
            look.device().calls(look.path(),
                                operation.slot + (" without allocation " + to_string(failing)));
            engine_memory::failAllocation(failing);
            const int status =
                operation.run(look.device().tree(), *look.node(), look.path().c_str());
            const int failable = engine_memory::failableAllocations();
            engine_memory::failAllocation(-1);
            if (failable <= failing)
                break; // none has failed
            look.device().expectKnown(status);
        }
    }
    return true;
}

// ---- Reading -------------------------------------------------------------------------------------

/// The bytes of every file of the state.
std::map<string, string> stateFiles()
{
    std::map<string, string> files;
    for (const auto &file : std::filesystem::recursive_directory_iterator(".")) {
        if (!file.is_regular_file() || file.path() == "./output" || file.path() == "./findings")
            continue;
        std::ifstream stream(file.path(), std::ios::binary);
        std::ostringstream content;
        content << stream.rdbuf();
        files[file.path().string()] = content.str();
    }
    return files;
}

void expectText(Device &device, int status, const DMString &text, const string &expected)
{
    device.expect(status == DMT_OK && text == expected.c_str(), "status 0 and " + quoted(expected),
                  statusText(status) + " and " + quoted(text.text()));
}

void readNames(Look &look)
{
    Device &device = look.device();
    DMString text(untouched);
    device.calls(look.path(), "GetPath");
    int status = look.node()->GetPath(text);
    expectText(device, status, text, look.path());
    text = DMString(untouched);
    device.calls(look.path(), "GetNodeName");
    status = look.node()->GetNodeName(text);
    expectText(device, status, text, lastSegment(look.path()));
    device.calls(look.path(), "GetName");
    expectText(device, DMT_OK, look.node()->GetName(), lastSegment(look.path()));
    JemSmartPtr<DmtTree> tree;
    device.calls(look.path(), "GetTree");
    status = look.node()->GetTree(tree);
    device.expect(status == DMT_OK && tree.get() == &device.tree(), "status 0 and the node's tree",
                  statusText(status) + (tree ? " and another tree" : " and none"));
}

void readValue(Look &look)
{
    Device &device = look.device();
    DmtData value(untouched);
    device.calls(look.path(), "GetValue");
    const int status = look.node()->GetValue(value);
    const bool isUntouched = textOf(value) == textOf(DmtData(untouched));
    // An engine hands in an empty value, so one that is left alone says that the leaf has none.
    if (status == DMT_OK && look.isLeaf())
        device.expect(value.GetType() >= DmtData::Null && value.GetType() <= DmtData::Bin,
                      "a value that a leaf can have", textOf(value));
    if (status != DMT_OK)
        device.expect(isUntouched, "the output as it was, with " + statusText(status),
                      textOf(value));
    DmtAttributes attributes;
    device.calls(look.path(), "GetAttributes");
    if (look.node()->GetAttributes(attributes) != DMT_OK)
        return;
    expectText(device, DMT_OK, attributes.name, lastSegment(look.path()));
    device.expect((attributes.type == DmtData::Node) == !look.isLeaf(),
                  look.isLeaf() ? "the type of a leaf" : "the type of an interior node",
                  "type " + to_string(attributes.type));
}

void readChildren(Look &look)
{
    Device &device = look.device();
    DMVector<Node> children;
    device.calls(look.path(), "GetChildNodes");
    const int status = look.node()->GetChildNodes(children);
    device.expect(status == (look.isLeaf() ? int(DMT_NOT_ALLOWED) : int(DMT_OK)),
                  look.isLeaf() ? "status 405 of a leaf" : "status 0", statusText(status));
    std::set<string> names;
    for (const string &name : device.childNames(look.path())) {
        device.calls(look.path(), "GetChildNodes");
        device.expect(!name.empty() && name.find('/') == name.npos, "names of one path segment",
                      quoted(name));
        device.expect(names.insert(name).second, "each child once", quoted(name) + " twice");
        const string path = childPath(look.path(), name);
        const Node found = device.nodeAt(path);
        Node child;
        device.calls(look.path(), "GetChildNode " + quoted(name));
        const int childStatus = look.node()->GetChildNode(name.c_str(), child);
        device.expect(childStatus == DMT_OK && child && child.get() == found.get(),
                      "status 0 and the node that GetNode has",
                      statusText(childStatus) + (child ? " and another node" : " and none"));
    }
    Node missing;
    device.calls(look.path(), "GetChildNode \"dm-plugin-check\"");
    const int missingStatus = look.node()->GetChildNode("dm-plugin-check", missing);
    device.expect(missingStatus == DMT_NOT_FOUND && !missing, "status 404 and no node",
                  statusText(missingStatus) + (missing ? " and a node" : ""));
}

bool examineReading(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    if (!look.hasNode()) {
        if (look.isThere())
            look.device().expect(false, "a node that its parent lists", "none");
        return look.isThere();
    }
    const std::map<string, string> before = stateFiles();
    readNames(look);
    readValue(look);
    readChildren(look);
    const std::map<string, string> after = stateFiles();
    for (const auto &[file, content] : after) {
        const auto earlier = before.find(file);
        look.device().calls(look.path(), "reading");
        look.device().expect(earlier != before.end() && earlier->second == content,
                             "no file that changes", file + " has changed");
    }
    return true;
}

// ---- Changing ------------------------------------------------------------------------------------

/// Writes the value that the leaf has, which then has it still.
void writeAsItIs(Look &look)
{
    Device &device = look.device();
    DmtData value;
    device.calls(look.path(), "GetValue");
    if (look.node()->GetValue(value) != DMT_OK)
        return;
    const string before = textOf(value);
    device.calls(look.path(), "SetValue " + brief(before));
    if (look.node()->SetValue(value) != DMT_OK)
        return;
    DmtData now;
    device.calls(look.path(), "GetValue after SetValue of what it was");
    const int status = look.node()->GetValue(now);
    device.expect(status == DMT_OK && textOf(now) == before, "status 0 and " + brief(before),
                  statusText(status) + " and " + brief(textOf(now)));
}

bool examineWriting(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    if (!look.hasNode() || !look.isLeaf())
        return look.isThere();
    writeAsItIs(look);
    look.end();
    return true;
}

bool isListed(Device &device, const string &path)
{
    return std::ranges::count(device.childNames(parentOf(path)), lastSegment(path)) == 1;
}

/// After an add with that status.
void expectAdded(Device &device, const string &path, int status, const Node &node)
{
    if (status != DMT_OK) {
        device.expect(!node, "no node with " + statusText(status), "a node");
        device.expect(!device.nodeAt(path), "no node after " + statusText(status), "a node");
        return;
    }
    device.expect(bool(node), "a node with status 0", "an output that was not filled");
    device.expect(device.nodeAt(path).get() == node.get(), "the node that was added", "another");
    device.calls(parentOf(path), "GetChildNodes");
    device.expect(isListed(device, path), quoted(lastSegment(path)) + " among the children",
                  "it is not");
}

bool examineAdding(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    Device &device = look.device();
    if (!look.hasNode() || look.isLeaf())
        return look.isThere();
    {
        const string leaf = childPath(look.path(), "AddedLeaf");
        Node added;
        device.calls(leaf, "CreateLeafNode");
        const int status = device.tree().CreateLeafNode(leaf.c_str(), added, plainValue);
        expectAdded(device, leaf, status, added);
    }
    {
        const string interior = childPath(look.path(), "AddedInterior");
        Node added;
        device.calls(interior, "CreateInteriorNode");
        const int status = device.tree().CreateInteriorNode(interior.c_str(), added);
        expectAdded(device, interior, status, added);
    }
    look.end();
    return true;
}

bool examineRenaming(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    Device &device = look.device();
    if (!look.hasNode() || look.path().empty())
        return look.isThere();
    const auto before = device.valuesBeneath(look.path());
    const string renamed = childPath(parentOf(look.path()), "Renamed");
    device.calls(look.path(), "RenameNode \"Renamed\"");
    const int status = device.tree().RenameNode(look.path().c_str(), "Renamed");
    const string &now = status == DMT_OK ? renamed : look.path();
    const string &gone = status == DMT_OK ? look.path() : renamed;
    const string after = "after RenameNode with " + statusText(status);
    device.expect(!device.nodeAt(gone), "no node " + after, "a node");
    device.expect(bool(device.nodeAt(now)), "a node " + after, "none");
    const auto values = device.valuesBeneath(now);
    for (const auto &[path, value] : before) {
        device.calls(now + path, "GetValue " + after);
        const auto found = values.find(path);
        device.expect(found != values.end() && found->second == value, brief(value),
                      found == values.end() ? "none" : brief(found->second));
    }
    look.end();
    return true;
}

bool examineDeleting(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    Device &device = look.device();
    if (!look.hasNode() || look.path().empty())
        return look.isThere();
    const std::vector<string> before = device.paths();
    device.calls(look.path(), "DeleteNode");
    const int status = device.tree().DeleteNode(look.path().c_str());
    const string after = "after DeleteNode with " + statusText(status);
    for (const string &path : before) {
        const bool isBeneath = path == look.path() || path.starts_with(look.path() + '/');
        const bool hasToBeThere = !isBeneath || status != DMT_OK;
        const bool isThere = bool(device.nodeAt(path));
        device.expect(isThere == hasToBeThere, (hasToBeThere ? "a node " : "no node ") + after,
                      isThere ? "a node" : "none");
    }
    device.calls(parentOf(look.path()), "GetChildNodes");
    device.expect(isListed(device, look.path()) == (status != DMT_OK),
                  status == DMT_OK ? "no mention of the node " + after : "the node " + after,
                  status == DMT_OK ? "it is listed" : "it is not listed");
    look.end();
    return true;
}

// ---- Hostile names and values --------------------------------------------------------------------

const std::vector<string> hostileNames = {"",
                                          ".",
                                          "..",
                                          "../..",
                                          "a/b",
                                          "/",
                                          "//",
                                          "\x01\n",
                                          "\x1b[2J",
                                          "%s%n%s%n",
                                          "\xff\xfe",
                                          "\xc3",
                                          "\xc0\x80",
                                          "a b",
                                          "&<>\"'",
                                          "$(reboot)",
                                          "\\",
                                          string(255, 'n'),
                                          "=",
                                          "[x]",
                                          "A\xcc\x88",
                                          "#",
                                          " ",
                                          "*",
                                          string(1 << 20, 'x')};

/// What is left of a tree after hostile calls: it can be walked, read, and mounted again.
void expectSound(Device &device)
{
    device.valuesBeneath("");
    device.mountAgain();
    if (device.isMounted())
        device.valuesBeneath("");
}

bool examineNames(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    Device &device = look.device();
    if (!look.hasNode())
        return look.isThere();
    for (const string &name : hostileNames) {
        const string path = look.path() + '/' + name;
        Node node;
        const auto call = [&](const char *slot, auto run) {
            device.calls(look.path(), slot + (' ' + quoted(name)));
            device.expectKnown(run());
            node.reset();
        };
        DmtPluginTree &tree = device.tree();
        call("GetChildNode", [&] { return look.node()->GetChildNode(name.c_str(), node); });
        call("GetNode", [&] { return tree.GetNode(path.c_str(), node); });
        call("CreateInteriorNode", [&] { return tree.CreateInteriorNode(path.c_str(), node); });
        call("CreateLeafNode", [&] { return tree.CreateLeafNode(path.c_str(), node, plainValue); });
        call("DeleteNode", [&] { return tree.DeleteNode(path.c_str()); });
        call("RenameNode", [&] {
            string now;
            DMString text;
            // Where an earlier name has brought it.
            if (look.node()->GetPath(text) == DMT_OK)
                now = text.text();
            return tree.RenameNode(now.c_str(), name.c_str());
        });
    }
    expectSound(device);
    return true;
}

std::vector<DmtData> hostileValues()
{
    std::vector<DmtData> values;
    for (const string &text : hostileNames)
        values.emplace_back(text.c_str());
    for (const char *const text : {"-1", "2147483648", "99999999999999999999", "1e999", "nan"})
        values.emplace_back(text);
    values.emplace_back(static_cast<const char *>(nullptr));
    for (const int number : {0, -1, INT_MAX, INT_MIN})
        values.emplace_back(number);
    values.emplace_back(true);
    DMVector<unsigned char> bytes;
    constexpr unsigned char withNuls[] = {'a', 0, 'b', 0};
    for (const unsigned char byte : withNuls)
        bytes.push_back(byte);
    values.emplace_back(bytes);
    values.emplace_back(DMStringVector());
    values.emplace_back();
    return values;
}

bool examineValues(Witness &witness, const Plugin &plugin, std::size_t root, int item)
{
    Look look(witness, plugin, root, item);
    Device &device = look.device();
    if (!look.hasNode())
        return look.isThere();
    for (const DmtData &value : hostileValues()) {
        device.calls(look.path(), "SetValue " + brief(textOf(value)));
        device.expectKnown(look.node()->SetValue(value));
        DmtData now;
        device.calls(look.path(), "GetValue after SetValue " + brief(textOf(value)));
        device.expectKnown(look.node()->GetValue(now));
    }
    expectSound(device);
    return true;
}

// ---- All -----------------------------------------------------------------------------------------

constexpr Check checks[] = {
    {"exports", "exported functions and version", Stage::Exports, Copies::One, examineExports,
     false},
    {"near-miss-roots", "roots that are nearly the plug-in's", Stage::Mount, Copies::One,
     examineNearMisses},
    {"mount", "mounting and giving back", Stage::Mount, Copies::One, examineMount},
    {"tables", "virtual tables", Stage::Tables, Copies::One, examineTables},
    {"references", "reads of each node: reference counts, memory", Stage::References, Copies::One,
     examineReferences},
    {"read", "reads of each node: what they say", Stage::Reading, Copies::One, examineReading},
    {"statuses", "status of each slot", Stage::Changing, Copies::Each, examineStatuses},
    {"write", "writing each leaf", Stage::Changing, Copies::Each, examineWriting},
    {"add", "adding beneath each interior node", Stage::Changing, Copies::Each, examineAdding},
    {"rename", "renaming each node", Stage::Changing, Copies::Each, examineRenaming},
    {"delete", "deleting each node", Stage::Changing, Copies::Each, examineDeleting},
    {"hostile-names", "hostile names", Stage::Changing, Copies::Each, examineNames},
    {"hostile-values", "hostile values", Stage::Changing, Copies::Each, examineValues},
    {"allocations", "allocations that fail, one by one", Stage::Changing, Copies::One,
     examineAllocations},
};

} // namespace

std::span<const Check> allChecks()
{
    return checks;
}
