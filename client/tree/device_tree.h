// The nodes that the client serves itself: the root, DevInfo and DevDetail; and the base of its
// trees.
#pragma once

#include "dmnative/dmt_tree.h"
#include "node_uri.h"

#include <QByteArray>

namespace client {

/// What takes serialised objects, and shows none.
inline constexpr char inboxAddress[] = "./Inbox";

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

/// Base of trees that the client fills itself.
class ClientTree : public DmtPluginTree {
protected:
    /// @param acl  the node's own list; an empty one inherits
    void addInterior(const QByteArray &path, const QByteArray &acl = {});
    /// Adds a leaf that keeps its value.
    void addLeaf(const QByteArray &path, const DmtData &value);
    /// @param value  the first one; its type stays the leaf's
    void addLeaf(const QByteArray &path, const DmtData &value,
                 const JemSmartPtr<DmtPluginNode> &leaf);
};

/// Tree of the client's own nodes, mounted at the root. Everything in it is permanent and read-only
/// for servers.
class DeviceTree final : public ClientTree {
public:
    static JemSmartPtr<DeviceTree> create(const DeviceInfo &info);

    /// Makes the interior nodes above a node, as far as they are missing.
    void addNodesAbove(const NodeUri &node);

private:
    DeviceTree() = default;

    void fill(const DeviceInfo &info);
};

} // namespace client
