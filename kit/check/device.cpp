#include "device.h"

#include "engine_memory.h"

#include <algorithm>
#include <dlfcn.h>
#include <set>

namespace {

template <class Function>
Function *symbol(void *library, const char *name)
{
    return library ? reinterpret_cast<Function *>(dlsym(library, name)) : nullptr;
}

constexpr std::size_t mostNodes = 100000; // a list that leads to itself has no end
constexpr int deepest = 100;              // levels

/// Refusals of the DM protocol.
constexpr int refusals[] = {400, 401, 403, 404, 405, 406, 407, 408, 412, 413,
                            414, 415, 416, 418, 420, 424, 425, 500, 501, 503,
                            505, 506, 507, 508, 510, 511, 513, 514, 516, 517};

} // namespace

bool isKnownStatus(int status)
{
    return status == DMT_OK || status == DMT_FAILED ||
           std::ranges::find(refusals, status) != std::end(refusals);
}

std::string childPath(const std::string &path, const std::string &name)
{
    return path.empty() ? name : path + '/' + name;
}

std::string parentOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? std::string() : path.substr(0, slash);
}

std::string lastSegment(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string textOf(const DmtData &value)
{
    DMString text;
    int number = 0;
    bool flag = false;
    DMVector<unsigned char> bytes;
    if (value.GetString(text) == DMT_OK)
        return '"' + std::string(text.text()) + '"';
    if (value.GetInt(number) == DMT_OK)
        return "the number " + std::to_string(number);
    if (value.GetBoolean(flag) == DMT_OK)
        return flag ? "true" : "false";
    if (value.GetBinary(bytes) == DMT_OK)
        return "the bytes " + std::string(bytes.begin(), bytes.end());
    return "a value of type " + std::to_string(value.GetType());
}

// ---- Library -------------------------------------------------------------------------------------

Library::Library(const std::string &file) : m_library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (!m_library)
        m_fault = dlerror();
    m_getVersion = symbol<DmtPluginGetApiVersion>(m_library, DMT_PLUGIN_API_VERSION_SYMBOL);
    m_getTree = symbol<DmtPluginGetTree>(m_library, DMT_PLUGIN_TREE_SYMBOL);
}

void Library::unload()
{
    dlclose(m_library);
}

// ---- Device --------------------------------------------------------------------------------------

Device::Device(Witness &witness, const Library &library, const std::vector<std::string> &roots,
               std::size_t root)
    : m_witness(witness), m_library(library), m_roots(roots), m_root(root)
{
    engine_memory::setMisuseListener([&witness] {
        witness.find("each block is given back once",
                     "one that is not a live block of the engine's memory");
    });
    if (mount())
        drop();
    m_blocksBefore = engine_memory::liveBlocks();
    mount();
}

Device::~Device()
{
    drop();
}

bool Device::mount()
{
    m_allocationsBefore = engine_memory::allocations();
    for (const std::string &root : m_roots) {
        m_witness.calls(root, DMT_PLUGIN_TREE_SYMBOL);
        Tree tree;
        const int status = m_library.getTree()(root.c_str(), nullptr, tree);
        if (status != DMT_OK || !tree) {
            m_witness.find("status 0 and a tree",
                           status == DMT_OK ? "no tree" : "status " + std::to_string(status));
            m_trees.clear();
            return false;
        }
        m_trees.push_back(tree);
    }
    return true;
}

void Device::drop()
{
    while (!m_trees.empty()) {
        calls("", "Release, and the last reference");
        m_trees.back()->Release();
        m_trees.pop_back();
    }
}

void Device::mountAgain()
{
    drop();
    mount();
}

void Device::giveBack()
{
    drop();
    const std::size_t left = engine_memory::liveBlocks();
    expect(left <= m_blocksBefore, "the engine's memory is given back",
           std::to_string(left - m_blocksBefore) + " blocks are left, from " +
               engine_memory::placesOfBlocksSince(m_allocationsBefore));
}

void Device::calls(const std::string &path, const std::string &slot) const
{
    m_witness.calls(path.empty() ? m_roots[m_root] : m_roots[m_root] + '/' + path, slot);
}

bool Device::expect(bool holds, const std::string &expected, const std::string &came) const
{
    if (!holds)
        m_witness.find(expected, came);
    return holds;
}

void Device::expectKnown(int status) const
{
    expect(isKnownStatus(status), "0, 1 or a refusal of the DM protocol",
           "status " + std::to_string(status));
}

Node Device::nodeAt(const std::string &path) const
{
    calls(path, "GetNode");
    Node node;
    return tree().GetNode(path.c_str(), node) == DMT_OK ? node : Node();
}

std::vector<std::string> Device::childNames(const std::string &path) const
{
    const Node node = nodeAt(path);
    DMVector<Node> children;
    calls(path, "GetChildNodes");
    if (!node || node->GetChildNodes(children) != DMT_OK)
        return {};
    std::vector<std::string> names;
    for (const Node &child : children) {
        calls(path, "GetChildNodes");
        if (expect(bool(child), "nodes", "a null pointer among them"))
            names.emplace_back(child->GetName().text());
    }
    return names;
}

std::vector<std::string> Device::paths() const
{
    std::vector<std::string> found = {""};
    std::set<std::string> known = {""};
    for (std::size_t next = 0; next < found.size(); ++next) {
        const std::string path = found[next];
        for (const std::string &name : childNames(path)) {
            const std::string child = childPath(path, name);
            if (!known.insert(child).second)
                continue;
            if (found.size() >= mostNodes || std::ranges::count(child, '/') >= deepest) {
                m_witness.find("a tree with an end", "more than " + std::to_string(mostNodes) +
                                                         " nodes, or " + std::to_string(deepest) +
                                                         " levels");
                return found;
            }
            found.push_back(child);
        }
    }
    return found;
}

std::map<std::string, std::string> Device::valuesBeneath(const std::string &path) const
{
    std::map<std::string, std::string> values;
    for (const std::string &one : paths()) {
        if (one != path && !one.starts_with(path + '/'))
            continue;
        const Node node = nodeAt(one);
        DmtData value;
        calls(one, "GetValue");
        if (node && node->IsLeaf() && node->GetValue(value) == DMT_OK)
            values[one.substr(path.size())] = textOf(value);
    }
    return values;
}
