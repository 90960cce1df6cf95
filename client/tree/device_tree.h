// The nodes that the client serves itself: the root, DevInfo and DevDetail.
#pragma once

#include "dmnative/dmt_tree.h"
#include "node_uri.h"

#include <QByteArray>

namespace client {

/// Access control list of the root until somebody replaces it: everybody may add beneath the root
/// and read everything.
inline constexpr char factoryRootAcl[] = "Add=*&Get=*";

/// What DevInfo and DevDetail say about the device.
struct DeviceInfo {
    QByteArray deviceId; ///< ./DevInfo/DevId, a URN; also the source of every message
    QByteArray manufacturer;
    QByteArray model;
    QByteArray language; ///< an RFC 1766 tag
    QByteArray deviceType;
    QByteArray oem;
    QByteArray firmwareVersion;
    QByteArray softwareVersion;
    QByteArray hardwareVersion;
    UriLimits uriLimits; ///< ./DevDetail/URI: the limits that addresses are checked against
};

/// Values of the machine that the client runs on.
DeviceInfo hostInfo(const QByteArray &deviceId);

/// Tree of the client's own nodes, mounted at the root. Everything in it is permanent and read-only
/// for servers.
class DeviceTree final : public DmtPluginTree {
public:
    static JemSmartPtr<DeviceTree> create(const DeviceInfo &info);

    /// Makes the interior nodes above a node, as far as they are missing.
    void addNodesAbove(const NodeUri &node);

private:
    DeviceTree() = default;

    void addInterior(const QByteArray &path, const char *acl = nullptr);
    void addLeaf(const QByteArray &path, const DmtData &value);
    void fill(const DeviceInfo &info);
};

} // namespace client
