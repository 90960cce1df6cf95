#include "device_tree.h"

#include <QLocale>
#include <QSysInfo>

namespace client {

namespace {

constexpr char dmVersion[] = "1.2";

// Room for every name that the profile service can hold, escaped, with its subtree beneath it.
constexpr UriLimits acceptedUris{.maxDepth = 16, .maxTotalLength = 1024, .maxSegmentLength = 255};

class ClientNode final : public DmtPluginNode {
public:
    explicit ClientNode(const QByteArray &acl = {}) { m_acl.text = DMString(acl.constData()); }
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

DeviceInfo hostInfo(const QByteArray &deviceId)
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

void ClientTree::addInterior(const QByteArray &path, const QByteArray &acl)
{
    const JemSmartPtr<DmtPluginNode> node(new ClientNode(acl));
    node->Init(this, path.constData());
    SetNode(path.constData(), node);
}

void ClientTree::addLeaf(const QByteArray &path, const DmtData &value)
{
    addLeaf(path, value, new ClientNode);
}

void ClientTree::addLeaf(const QByteArray &path, const DmtData &value,
                         const JemSmartPtr<DmtPluginNode> &leaf)
{
    leaf->Init(this, path.constData(), value, 0);
    SetNode(path.constData(), leaf);
}

JemSmartPtr<DeviceTree> DeviceTree::create(const DeviceInfo &info)
{
    const JemSmartPtr<DeviceTree> tree(new DeviceTree);
    tree->Init(".");
    tree->fill(info);
    return tree;
}

void DeviceTree::fill(const DeviceInfo &info)
{
    addInterior("", factoryRootAcl);

    addInterior("DevInfo");
    addLeaf("DevInfo/DevId", text(info.deviceId));
    addLeaf("DevInfo/Man", text(info.manufacturer));
    addLeaf("DevInfo/Mod", text(info.model));
    addLeaf("DevInfo/DmV", DmtData(dmVersion));
    addLeaf("DevInfo/Lang", text(info.language));

    addInterior("DevDetail");
    addInterior("DevDetail/URI");
    addLeaf("DevDetail/URI/MaxDepth", decimal(info.uriLimits.maxDepth));
    addLeaf("DevDetail/URI/MaxTotLen", decimal(info.uriLimits.maxTotalLength));
    addLeaf("DevDetail/URI/MaxSegLen", decimal(info.uriLimits.maxSegmentLength));
    addLeaf("DevDetail/DevTyp", text(info.deviceType));
    addLeaf("DevDetail/OEM", text(info.oem));
    addLeaf("DevDetail/FwV", text(info.firmwareVersion));
    addLeaf("DevDetail/SwV", text(info.softwareVersion));
    addLeaf("DevDetail/HwV", text(info.hardwareVersion));
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

} // namespace client
