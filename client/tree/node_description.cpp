#include "node_description.h"

#include "media_type.h"

#include <algorithm>
#include <vector>

namespace client {

namespace {

// ---- Kinds of nodes ------------------------------------------------------------------------------

constexpr unsigned readOnly = AccessGet;
constexpr unsigned copyable = AccessGet | AccessCopy;
constexpr unsigned provisioned = AccessAdd | AccessCopy | AccessDelete | AccessGet | AccessReplace;
using syncml::media_type::plainText;

constexpr NodeDescription fixedLeaf(const char *name, const char *meaning,
                                    DmtData::Type format = DmtData::String)
{
    return {name, format, copyable, Occurrence::One, true, plainText, meaning, {}};
}

constexpr NodeDescription fixedInterior(const char *name, const char *type, const char *meaning,
                                        std::span<const NodeDescription> children)
{
    return {name, DmtData::Node, readOnly, Occurrence::One, true, type, meaning, children};
}

/// A leaf that a server adds, changes and deletes.
constexpr NodeDescription leaf(const char *name, const char *meaning,
                               DmtData::Type format = DmtData::String)
{
    return {name, format, provisioned, Occurrence::ZeroOrOne, false, plainText, meaning, {}};
}

/// An interior node that a server adds, renames and deletes.
constexpr NodeDescription interior(const char *name, const char *meaning, Occurrence occurrence,
                                   std::span<const NodeDescription> children)
{
    constexpr unsigned access = AccessAdd | AccessDelete | AccessGet | AccessReplace;
    return {name, DmtData::Node, access, occurrence, false, "", meaning, children};
}

/// The node that holds the profiles.
constexpr NodeDescription profiles(const char *meaning, std::span<const NodeDescription> children)
{
    constexpr unsigned access = AccessAdd | AccessGet;
    return {"Profiles", DmtData::Node, access, Occurrence::One, true, "", meaning, children};
}

/// A leaf of an account, which exists as long as its account.
constexpr NodeDescription accountLeaf(const char *name, unsigned access, const char *meaning,
                                      DmtData::Type format = DmtData::String)
{
    return {name, format, access, Occurrence::One, false, plainText, meaning, {}};
}

constexpr NodeDescription accountInterior(const char *name, Occurrence occurrence,
                                          const char *meaning,
                                          std::span<const NodeDescription> children)
{
    return {name, DmtData::Node, readOnly, occurrence, false, "", meaning, children};
}

// ---- The client's own nodes ----------------------------------------------------------------------

constexpr NodeDescription devInfoNodes[] = {
    fixedLeaf("DevId", "Identifier of the device, a URN"),
    fixedLeaf("Man", "Manufacturer"),
    fixedLeaf("Mod", "Model"),
    fixedLeaf("DmV", "Version of the DM protocol"),
    fixedLeaf("Lang", "Language of the user interface, an RFC 1766 tag"),
};
constexpr NodeDescription devInfo = fixedInterior("DevInfo", "urn:oma:mo:oma-dm-devinfo:1.0",
                                                  "What every session begins with", devInfoNodes);

constexpr NodeDescription uriNodes[] = {
    fixedLeaf("MaxDepth", "Most names in an address"),
    fixedLeaf("MaxTotLen", "Most characters in an address"),
    fixedLeaf("MaxSegLen", "Most characters in one name"),
};
constexpr NodeDescription devDetailNodes[] = {
    fixedInterior("URI", "", "Limits of addresses; 0 is no limit", uriNodes),
    fixedLeaf("DevTyp", "Kind of device"),
    fixedLeaf("OEM", "Original equipment manufacturer"),
    fixedLeaf("FwV", "Version of the firmware"),
    fixedLeaf("SwV", "Version of the software"),
    fixedLeaf("HwV", "Version of the hardware"),
    fixedLeaf("LrgObj", "Whether objects may come in chunks", DmtData::Bool),
};
constexpr NodeDescription devDetail = fixedInterior("DevDetail", "urn:oma:mo:oma-dm-devdetail:1.0",
                                                    "Details of the device", devDetailNodes);

// ---- DM accounts ---------------------------------------------------------------------------------

constexpr unsigned accountValue = AccessGet | AccessCopy | AccessReplace;

constexpr NodeDescription credentialNodes[] = {
    accountLeaf("AAuthLevel", copyable, "CLCRED: client to server; SRVCRED: server to client"),
    accountLeaf("AAuthType", accountValue, "BASIC, DIGEST or HMAC"),
    accountLeaf("AAuthName", accountValue, "User name"),
    accountLeaf("AAuthSecret", AccessReplace, "Password"),
    accountLeaf("AAuthData", AccessReplace, "Nonce of the next proof", DmtData::Bin),
};
constexpr NodeDescription credentialsNode[] = {
    accountInterior("", Occurrence::ZeroOrMore, "What one side proves itself with",
                    credentialNodes),
};
constexpr NodeDescription addressNodes[] = {
    accountLeaf("Addr", accountValue, "Where a session begins, an http or https URL"),
    accountLeaf("AddrType", copyable, "URI"),
};
constexpr NodeDescription addressNode[] = {
    accountInterior("", Occurrence::One, "An address of the server", addressNodes),
};
constexpr NodeDescription pollingNodes[] = {
    accountLeaf(
        "Interval", accountValue,
        "Seconds from the end of a session until the device begins the next; 0 is never, and "
        "a server may set 900 or more",
        DmtData::Int),
    accountLeaf("FirstDelay", accountValue, "Seconds until the first of them", DmtData::Int),
    accountLeaf("RetryDelay", accountValue,
                "Seconds after one that failed, doubled each time; 60 or more", DmtData::Int),
    accountLeaf("LongestRetryDelay", accountValue, "Most seconds after one that failed; 60 or more",
                DmtData::Int),
};
constexpr NodeDescription accountExtensions[] = {
    accountInterior("Polling", Occurrence::One, "When the device begins sessions by itself",
                    pollingNodes),
};
constexpr NodeDescription accountNodes[] = {
    accountLeaf("AppID", copyable, "w7"),
    accountLeaf("ServerID", copyable, "Server Identifier, which access rights are given to"),
    accountLeaf("Name", accountValue, "Name of the account for people"),
    accountLeaf("AAuthPref", accountValue, "How the client prefers to prove itself"),
    accountInterior("AppAddr", Occurrence::One, "Addresses of the server", addressNode),
    accountInterior("AppAuth", Occurrence::One, "Credentials of both sides", credentialsNode),
    accountInterior("Ext", Occurrence::One, "What this device adds to the standard object",
                    accountExtensions),
};
constexpr NodeDescription accounts[] = {
    accountInterior("", Occurrence::ZeroOrMore, "One DM account", accountNodes),
};
constexpr NodeDescription dmAcc = fixedInterior("DMAcc", "urn:oma:mo:oma-dm-dmacc:1.0",
                                                "Servers that manage the device", accounts);

// ---- Connection profiles -------------------------------------------------------------------------

constexpr NodeDescription papNodes[] = {
    leaf("AuthId", "User name"),
    leaf("AuthPw", "Password"),
};
constexpr NodeDescription authNodes[] = {
    interior("PAP", "Password authentication", Occurrence::ZeroOrOne, papNodes),
};
constexpr NodeDescription connectionNodes[] = {
    leaf("Bearer", "GSM-GPRS, GSM-CSD or GSM-CSD2; another bearer takes the settings along"),
    leaf("Addr", "Access point name, or number to dial"),
    leaf("DNS1", "First name server, a dotted quad; 0.0.0.0 is none"),
    leaf("DNS2", "Second name server"),
    leaf("Linger", "Seconds until an idle connection is given up, 0 to 65535", DmtData::Int),
    interior("Auth", "Authentication in the network", Occurrence::ZeroOrOne, authNodes),
    leaf("LineType", "ANALOG-MODEM, Isdn or V.110; circuit-switched bearers only"),
    leaf("Speed", "0, 2400, 4800, 9600 or 14400 bit/s; circuit-switched bearers only",
         DmtData::Int),
};
constexpr NodeDescription connections[] = {
    interior("", "One bearer of a network access profile", Occurrence::ZeroOrMore, connectionNodes),
};
constexpr NodeDescription connectionProfiles = profiles("Connections", connections);

// ---- Proxy profiles ------------------------------------------------------------------------------

constexpr NodeDescription portNodes[] = {
    leaf("PortNbr", "Port number, 0 to 65535", DmtData::Int),
};
constexpr NodeDescription proxyNodes[] = {
    leaf("Conn", "Name of the connection profile that the proxy is reached by"),
    leaf("Addr", "Host name or address"),
    interior("Port", "Port of the proxy", Occurrence::ZeroOrOne, portNodes),
};
constexpr NodeDescription proxyProfileNodes[] = {
    interior("Ph1", "First proxy, for GSM-GPRS", Occurrence::ZeroOrOne, proxyNodes),
    interior("Ph2", "Second proxy, for GSM-CSD", Occurrence::ZeroOrOne, proxyNodes),
    interior("Ph3", "For GSM-CSD2; holds a connection only", Occurrence::ZeroOrOne, proxyNodes),
    leaf("UserEditable", "Whether the user may change the profile", DmtData::Bool),
};
constexpr NodeDescription proxyProfileNode[] = {
    interior("", "Proxies of a network access profile", Occurrence::ZeroOrMore, proxyProfileNodes),
};
constexpr NodeDescription proxyProfiles = profiles("Proxies", proxyProfileNode);

constexpr DescribedTree trees[] = {
    {".", devInfo},
    {".", devDetail},
    {".", dmAcc},
    {"./DevDetail/Ext/Conf/Conn", connectionProfiles},
    {"./DevDetail/Ext/Conf/IntProfs", proxyProfiles},
};

const NodeDescription *childNamed(const NodeDescription &parent, QByteArrayView name)
{
    const auto child = std::ranges::find_if(parent.children, [&name](const NodeDescription &entry) {
        return entry.name[0] == '\0' || name == entry.name;
    });
    return child == parent.children.end() ? nullptr : &*child;
}

} // namespace

std::span<const DescribedTree> describedTrees()
{
    return trees;
}

const NodeDescription *descriptionOf(const NodeUri &node)
{
    static const std::vector<NodeUri> roots = [] {
        std::vector<NodeUri> uris;
        for (const DescribedTree &tree : trees)
            uris.push_back(nodeAt(tree.parent).child(tree.root.name));
        return uris;
    }();
    const NodeDescription *found = nullptr;
    for (std::size_t i = 0; i < std::size(trees); ++i) {
        const NodeUri &root = roots[i];
        if (!root.contains(node))
            continue;
        found = &trees[i].root;
        const QByteArrayView names = node.joinedNames();
        for (qsizetype begin = node.beginBeneath(root); found && begin < names.size();) {
            const QByteArrayView name = NodeUri::first(names.sliced(begin));
            found = childNamed(*found, name);
            begin += name.size() + 1;
        }
    }
    return found;
}

} // namespace client
