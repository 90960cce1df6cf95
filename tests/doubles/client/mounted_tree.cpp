#include "mounted_tree.h"

namespace client {

namespace {

const DeviceInfo device{
    .deviceId = "urn:test:1",
    .manufacturer = "maker",
    .model = "model",
    .language = "en",
    .deviceType = "type",
    .oem = "oem",
    .firmwareVersion = "f1",
    .softwareVersion = "s1",
    .hardwareVersion = "h1",
    .uriLimits = {.maxDepth = 8, .maxTotalLength = 200, .maxSegmentLength = 20},
};

} // namespace

MountedTree::MountedTree() : managementTree(device)
{
    memory->addInterior("Office");
    memory->addLeaf("Office/Addr", DmtData("internet"));
    memory->addLeaf("Office/Linger", DmtData(30));
    memory->addLeaf("Office/Enabled", DmtData(true));
    memory->addLeaf("Office/Port", DmtData(0));
    memory->withoutValue = {"Office/Port"};
    memory->addInterior("Office/Auth");
    memory->addLeaf("Office/Auth/AuthPw", DmtData("secret"));
    memory->addInterior("Home");
    memory->addLeaf("Home/Addr", DmtData("home.example"));
    managementTree.mount(uri(mountRoot), memory, {.acl = acl("Add=*&Delete=*&Get=*&Replace=*")});
    memory->calls.clear();
}

AccessControlList MountedTree::acl(const char *text)
{
    return *AccessControlList::parse(text);
}

NodeUri MountedTree::uri(const char *text)
{
    return parseAddress(QString::fromUtf8(text), {})->node;
}

std::string MountedTree::read(const NodeUri &leaf) const
{
    const Result<TreeNode> node = tree.find(leaf);
    const Result<DmtData> value = node ? tree.value(*node) : Result<DmtData>(node.outcome());
    return value ? valueText(*value).toStdString() : std::to_string(code(value.outcome()));
}

std::string MountedTree::childrenOf(const NodeUri &node) const
{
    std::string names;
    for (const TreeNode &child : tree.children(*tree.find(node)))
        names += (names.empty() ? "" : " ") + child.uri().name().toStdString();
    return names;
}

TreeView::NewValue MountedTree::text(const char *data)
{
    return {{}, {}, QByteArray(data)};
}

TreeView::NewValue MountedTree::typed(const char *format, const char *data)
{
    return {QString::fromLatin1(format), {}, QByteArray(data)};
}

} // namespace client
