#include "device_tree.h"

#include <QLocale>
#include <QSysInfo>

namespace client {

namespace {

constexpr char dmVersion[] = "1.2";

// Room for every name that the profile service can hold, escaped, with its subtree beneath it.
constexpr UriLimits acceptedUris{.maxDepth = 16, .maxTotalLength = 1024, .maxSegmentLength = 255};

class DeviceNode final : public DmtPluginNode {
public:
    void setOwnAcl(const char *text) { m_acl.text = DMString(text); }
};

DmtData text(const QByteArray &value)
{
    return DmtData(value.constData());
}

DmtData decimal(int number)
{
    return text(QByteArray::number(number));
}

} // namespace

DeviceDescription describeHost(const QByteArray &deviceId)
{
    return {
        .deviceId = deviceId,
        .manufacturer = "kub",
        .model = "host",
        .language = QLocale::system().bcp47Name().toUtf8(),
        .deviceType = "workstation",
        .oem = "kub",
        .firmwareVersion = QSysInfo::kernelVersion().toUtf8(),
        .softwareVersion = KUB_VERSION,
        .hardwareVersion = QSysInfo::currentCpuArchitecture().toUtf8(),
        .uriLimits = acceptedUris,
    };
}

JemSmartPtr<DeviceTree> DeviceTree::create(const DeviceDescription &device)
{
    const JemSmartPtr<DeviceTree> tree(new DeviceTree);
    tree->Init(".");
    tree->fill(device);
    return tree;
}

void DeviceTree::fill(const DeviceDescription &device)
{
    addInterior("", factoryRootAcl);

    addInterior("DevInfo");
    addLeaf("DevInfo/DevId", text(device.deviceId));
    addLeaf("DevInfo/Man", text(device.manufacturer));
    addLeaf("DevInfo/Mod", text(device.model));
    addLeaf("DevInfo/DmV", DmtData(dmVersion));
    addLeaf("DevInfo/Lang", text(device.language));

    addInterior("DevDetail");
    addInterior("DevDetail/URI");
    addLeaf("DevDetail/URI/MaxDepth", decimal(device.uriLimits.maxDepth));
    addLeaf("DevDetail/URI/MaxTotLen", decimal(device.uriLimits.maxTotalLength));
    addLeaf("DevDetail/URI/MaxSegLen", decimal(device.uriLimits.maxSegmentLength));
    addLeaf("DevDetail/DevTyp", text(device.deviceType));
    addLeaf("DevDetail/OEM", text(device.oem));
    addLeaf("DevDetail/FwV", text(device.firmwareVersion));
    addLeaf("DevDetail/SwV", text(device.softwareVersion));
    addLeaf("DevDetail/HwV", text(device.hardwareVersion));
    addLeaf("DevDetail/LrgObj", DmtData(true));
}

void DeviceTree::addNodesAbove(const NodeUri &node)
{
    const NodeUri parent = node.parent();
    QByteArray path;
    for (const QByteArray &name : parent.names()) {
        path += path.isEmpty() ? name : '/' + name;
        JemSmartPtr<DmtNode> existing;
        if (GetNode(path.constData(), existing) != DMT_OK)
            addInterior(path);
    }
}

void DeviceTree::addInterior(const QByteArray &path, const char *acl)
{
    auto *const node = new DeviceNode;
    const JemSmartPtr<DmtNode> holder(node);
    node->Init(JemSmartPtr<DmtPluginTree>(this), path.constData());
    if (acl)
        node->setOwnAcl(acl);
    SetNode(path.constData(), holder);
}

void DeviceTree::addLeaf(const QByteArray &path, const DmtData &value)
{
    auto *const node = new DeviceNode;
    const JemSmartPtr<DmtNode> holder(node);
    node->Init(JemSmartPtr<DmtPluginTree>(this), path.constData(), value, 0);
    SetNode(path.constData(), holder);
}

} // namespace client
