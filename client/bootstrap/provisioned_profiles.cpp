#include "provisioned_profiles.h"

#include "characteristic_reader.h"
#include "xml_text.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;

namespace {

/// What the profile service and the plug-in have room for, in bytes. A text that fills its field
/// would run into the next one when it is read.
constexpr qsizetype longestProfileName = 63;
constexpr qsizetype longestProxyAddress = 99;
struct BearerRow {
    const char *name;
    const char *addressType; ///< of a NAPDEF that does not name its bearer
    const char *proxyNode;   ///< where the proxy of such a profile is
    qsizetype longestAddress;
    qsizetype longestCredential;
    bool isCircuitSwitched;
};

constexpr BearerRow bearers[] = {
    {"GSM-GPRS", "APN", "Ph1", 99, 99, false},
    {"GSM-CSD", "E164", "Ph2", 43, 63, true},
};

/// Up to here the plug-in takes a name for that of a profile.
constexpr QByteArrayView logicalIdMark("&&_");

const BearerRow *bearerNamed(const QString &name)
{
    const auto *const row = std::ranges::find_if(
        bearers, [&name](const BearerRow &one) { return name == QLatin1String(one.name); });
    return row == std::end(bearers) ? nullptr : row;
}

bool canBeProfileName(const QString &name, const UriLimits &limits)
{
    const QByteArray bytes = name.toUtf8();
    // One that begins beyond ASCII would have another name at the next mount, and a profile that
    // is called so already would not be found under it.
    const auto isAscii = [](char byte) { return static_cast<quint8>(byte) < 0x80; };
    return !bytes.isEmpty() && bytes.size() <= longestProfileName && isAscii(bytes[0]) &&
           !bytes.contains(logicalIdMark) && syncml::isXmlLine(name) && name == name.trimmed() &&
           checkNewName(bytes, limits);
}

/// Four decimal numbers of one byte each.
bool isIpv4(const QString &text)
{
    const QStringList parts = text.split(u'.');
    return parts.size() == 4 && std::ranges::all_of(parts, [](const QString &part) {
               constexpr int largest = 255;
               return !part.isEmpty() && part.size() <= 3 &&
                      std::ranges::all_of(part, [](QChar c) { return c >= u'0' && c <= u'9'; }) &&
                      part.toInt() <= largest;
           });
}

std::optional<int> numberUpTo(const QString &text, int largest)
{
    const bool hasDigitsOnly =
        !text.isEmpty() && text.size() <= 6 &&
        std::ranges::all_of(text, [](QChar c) { return c >= u'0' && c <= u'9'; });
    const int number = hasDigitsOnly ? text.toInt() : -1;
    return hasDigitsOnly && number <= largest ? std::optional(number) : std::nullopt;
}

PlannedNode interior(const NodeUri &uri)
{
    return {uri, QStringLiteral("node")};
}

PlannedNode leaf(const NodeUri &uri, const QString &text)
{
    return {uri, QStringLiteral("chr"), text.toUtf8()};
}

PlannedNode leaf(const NodeUri &uri, int number)
{
    return {uri, QStringLiteral("int"), QByteArray::number(number)};
}

// ---- Access points -------------------------------------------------------------------------------

struct AccessPoint {
    std::size_t profile = 0; ///< in the plan
    const BearerRow *bearer = nullptr;
    bool isInternet = false;
    bool hasProxy = false;
};

/// Of which a device can have several, by their NAPID.
using AccessPoints = std::map<QString, AccessPoint>;

class AccessPointReader {
public:
    AccessPointReader(const Characteristic &napdef, std::vector<IgnoredPart> &ignored)
        : m_napdef(napdef), m_reader(napdef, labelOf(napdef, {"NAME", "NAPID"}), ignored),
          m_ignored(ignored)
    {
    }

    /// @return none when nothing is made of it, and why is told then
    Expected<std::optional<PlannedProfile>, QString> read(const UriLimits &limits)
    {
        m_bearer = readBearer();
        if (!m_bearer)
            return std::optional<PlannedProfile>();
        const auto address = fitting("NAP-ADDRESS", m_bearer->longestAddress);
        if (!address) {
            m_reader.ignoreWhole(QStringLiteral("an access point without an address is not kept"));
            return std::optional<PlannedProfile>();
        }
        const auto name = readName(limits);
        if (!name)
            return Unexpected(name.error());
        m_profile.name = *name;
        m_root = nodeAt(accessPointRoot).child(*name);
        m_profile.nodes = {interior(m_root),
                           leaf(m_root.child("Bearer"), QString::fromLatin1(m_bearer->name)),
                           leaf(m_root.child("Addr"), *address)};
        readDnsServers();
        readNumber("LINGER", "Linger", {}, 0xFFFF);
        readCredentials();
        if (m_bearer->isCircuitSwitched)
            readModem();
        giveLists();
        return std::optional(m_profile);
    }

    const BearerRow *bearer() const { return m_bearer; }
    bool isInternet() { return m_reader.flag("INTERNET"); }

private:
    const BearerRow *readBearer()
    {
        const std::vector<QString> names = m_reader.texts("BEARER");
        for (const QString &name : names)
            if (const BearerRow *const row = bearerNamed(name))
                return checkedAddressType(row);
        const auto addressType = m_reader.text("NAP-ADDRTYPE");
        const auto *const row = std::ranges::find_if(bearers, [&addressType](const BearerRow &one) {
            return addressType == QLatin1String(one.addressType);
        });
        if (names.empty() && row != std::end(bearers))
            return row;
        m_reader.ignoreWhole(QStringLiteral("its bearer is neither GSM-GPRS nor GSM-CSD"));
        return nullptr;
    }

    const BearerRow *checkedAddressType(const BearerRow *row)
    {
        const auto type = m_reader.text("NAP-ADDRTYPE");
        if (!type || *type == QLatin1String(row->addressType))
            return row;
        m_reader.ignoreWhole(
            QStringLiteral("its address has a type that its bearer does not have"));
        return nullptr;
    }

    /// A name that its node can have: that which people read, else that which links lead to.
    Expected<QByteArray, QString> readName(const UriLimits &limits)
    {
        const auto name = m_reader.text("NAME");
        const auto id = m_reader.text("NAPID");
        if (name && canBeProfileName(*name, limits))
            return name->toUtf8();
        if (!id || !canBeProfileName(*id, limits))
            return Unexpected(
                QStringLiteral("%1: no profile can be called by its NAME or its NAPID: 1 to 63 "
                               "bytes, the first one ASCII, without slashes and control characters")
                    .arg(m_reader.label()));
        if (name)
            m_reader.ignore(QStringLiteral("NAME"),
                            QStringLiteral("no profile can be called that; it is called %1, by its "
                                           "NAPID")
                                .arg(*id));
        return id->toUtf8();
    }

    /// A value that a leaf has room for; none, and that is told, when it has not.
    std::optional<QString> fitting(const char *name, qsizetype longest)
    {
        return fitting(m_reader, name, longest);
    }
    static std::optional<QString> fitting(CharacteristicReader &reader, const char *name,
                                          qsizetype longest)
    {
        const auto text = reader.text(name);
        if (!text || text->isEmpty())
            return std::nullopt;
        if (text->toUtf8().size() <= longest && syncml::isXmlLine(*text))
            return text;
        reader.ignore(QString::fromLatin1(name),
                      QStringLiteral("the profile has room for a line of %1 bytes").arg(longest));
        return std::nullopt;
    }

    void readDnsServers()
    {
        constexpr std::array leaves = {"DNS1", "DNS2"};
        std::size_t used = 0;
        for (const QString &address : m_reader.texts("DNS-ADDR")) {
            if (!isIpv4(address))
                m_reader.ignore(QStringLiteral("DNS-ADDR"),
                                QStringLiteral("it is not an IPv4 address"));
            else if (used == leaves.size())
                m_reader.ignore(QStringLiteral("DNS-ADDR"),
                                QStringLiteral("a profile has room for two"));
            else
                m_profile.nodes.push_back(leaf(m_root.child(leaves[used++]), address));
        }
    }

    /// @param allowed  the numbers that the leaf takes; empty: all
    void readNumber(const char *name, const char *leafName, const std::vector<int> &allowed,
                    int largest)
    {
        const auto text = m_reader.text(name);
        if (!text)
            return;
        const auto number = numberUpTo(*text, largest);
        if (number && (allowed.empty() || std::ranges::find(allowed, *number) != allowed.end()))
            m_profile.nodes.push_back(leaf(m_root.child(leafName), *number));
        else
            m_reader.ignore(QString::fromLatin1(name),
                            QStringLiteral("the profile does not take this number"));
    }

    void readCredentials()
    {
        bool hasCredentials = false;
        for (const Characteristic *const part : m_reader.parts("NAPAUTHINFO")) {
            CharacteristicReader info(*part, m_reader.labelOfPart(*part), m_ignored);
            if (info.text("AUTHTYPE") != QStringLiteral("PAP")) {
                info.ignoreWhole(QStringLiteral("a profile has credentials for PAP only"));
                continue;
            }
            if (hasCredentials) {
                info.ignoreWhole(QStringLiteral("a profile has one pair of credentials"));
                continue;
            }
            hasCredentials = true;
            const NodeUri pap = m_root.child("Auth").child("PAP");
            m_profile.nodes.push_back(interior(pap.parent()));
            m_profile.nodes.push_back(interior(pap));
            if (const auto id = fitting(info, "AUTHNAME", m_bearer->longestCredential))
                m_profile.nodes.push_back(leaf(pap.child("AuthId"), *id));
            if (const auto secret = fitting(info, "AUTHSECRET", m_bearer->longestCredential))
                m_profile.nodes.push_back(leaf(pap.child("AuthPw"), *secret));
        }
    }

    void readModem()
    {
        // V.110 has the codes of an analogue modem in a profile, and reads back as that.
        if (const auto type = m_reader.text("CALLTYPE"); type == QStringLiteral("ANALOG-MODEM"))
            m_profile.nodes.push_back(leaf(m_root.child("LineType"), *type));
        else if (type)
            m_reader.ignore(QStringLiteral("CALLTYPE"),
                            QStringLiteral("a profile cannot keep this one"));
        if (m_reader.text("LINKSPEED") == QStringLiteral("AUTOBAUDING"))
            m_profile.nodes.push_back(leaf(m_root.child("Speed"), 0));
        else
            readNumber("LINKSPEED", "Speed", {0, 2400, 4800, 9600, 14400}, 14400);
    }

    /// The lists of the nodes that are made of it.
    void giveLists()
    {
        giveLists(m_napdef, m_root);
        for (const Characteristic *const part : m_reader.parts("NAPAUTHINFO"))
            giveLists(*part, m_root.child("Auth").child("PAP"));
    }
    void giveLists(const Characteristic &part, const NodeUri &top)
    {
        for (const GivenList &list : part.lists) {
            const auto node =
                std::ranges::find(m_profile.nodes, top.beneath(list.node), &PlannedNode::uri);
            if (node != m_profile.nodes.end())
                node->acl = list.acl;
        }
    }

    const Characteristic &m_napdef;
    CharacteristicReader m_reader;
    std::vector<IgnoredPart> &m_ignored;
    const BearerRow *m_bearer = nullptr;
    PlannedProfile m_profile;
    NodeUri m_root;
};

Expected<void, QString> planAccessPoint(const Characteristic &napdef, const UriLimits &limits,
                                        ProvisioningPlan &plan, AccessPoints &points)
{
    const QString id = valueOf(napdef, "NAPID").value_or(QString());
    if (points.contains(id))
        return Unexpected(QStringLiteral("two access points have the NAPID \"%1\"").arg(id));
    AccessPointReader reader(napdef, plan.ignored);
    const auto profile = reader.read(limits);
    if (!profile)
        return Unexpected(profile.error());
    if (!*profile)
        return {};
    if (std::ranges::find(plan.profiles, (*profile)->name, &PlannedProfile::name) !=
        plan.profiles.end())
        return Unexpected(QStringLiteral("two access points are called \"%1\"")
                              .arg(QString::fromUtf8((*profile)->name)));
    points[id] = {plan.profiles.size(), reader.bearer(), reader.isInternet()};
    plan.profiles.push_back(**profile);
    return {};
}

// ---- Proxies -------------------------------------------------------------------------------------

/// The number of the first port that has one.
std::optional<int> readPort(CharacteristicReader &reader, std::vector<IgnoredPart> &ignored)
{
    constexpr int largestPort = 0xFFFF;
    std::optional<int> number;
    for (const Characteristic *const part : reader.parts("PORT")) {
        CharacteristicReader port(*part, reader.labelOfPart(*part), ignored);
        const auto text = port.text("PORTNBR");
        if (number)
            port.ignore(QStringLiteral("PORTNBR"), QStringLiteral("a proxy has one port here"));
        else if (text && !(number = numberUpTo(*text, largestPort)))
            port.ignore(QStringLiteral("PORTNBR"), QStringLiteral("it is not a port"));
    }
    return number;
}

class ProxyPlanner {
public:
    ProxyPlanner(ProvisioningPlan &plan, AccessPoints &points) : m_plan(plan), m_points(points) {}

    void planLogical(const Characteristic &logical)
    {
        CharacteristicReader reader(logical, labelOf(logical, {"NAME", "PROXY-ID"}),
                                    m_plan.ignored);
        // What a proxy is called: a profile has its access point's name.
        reader.flag("NAME");
        reader.flag("PROXY-ID");
        if (!logical.lists.empty())
            reader.ignore(QStringLiteral("ACL"),
                          QStringLiteral("a profile has the lists of its access point"));
        const auto port = readPort(reader, m_plan.ignored);
        for (const Characteristic *const physical : reader.parts("PXPHYSICAL"))
            planPhysical(*physical, reader.label(), port);
    }

private:
    void planPhysical(const Characteristic &physical, const QString &above,
                      const std::optional<int> &portAbove)
    {
        CharacteristicReader reader(
            physical, above + QStringLiteral(": ") + labelOf(physical, {"PHYSICAL-PROXY-ID"}),
            m_plan.ignored);
        reader.flag("PHYSICAL-PROXY-ID");
        const auto targets = pointsOf(reader);
        if (targets.empty()) {
            reader.ignoreWhole(QStringLiteral(
                "a proxy is part of a profile, and no access point of this message is its own"));
            return;
        }
        const auto address = reader.text("PXADDR");
        if (!address || address->isEmpty() || address->toUtf8().size() > longestProxyAddress ||
            !syncml::isXmlLine(*address)) {
            reader.ignoreWhole(
                QStringLiteral("it has no address that fits into the %1 bytes of a profile")
                    .arg(longestProxyAddress));
            return;
        }
        // An address is kept as it is, whatever its type.
        reader.flag("PXADDRTYPE");
        const auto ownPort = readPort(reader, m_plan.ignored);
        for (AccessPoint *const point : targets)
            add(*point, reader, *address, ownPort ? ownPort : portAbove);
    }

    std::vector<AccessPoint *> pointsOf(CharacteristicReader &reader)
    {
        std::vector<AccessPoint *> found;
        const auto take = [&found](AccessPoint &point) {
            if (std::ranges::find(found, &point) == found.end())
                found.push_back(&point);
        };
        for (const QString &id : reader.texts("TO-NAPID")) {
            if (const auto point = m_points.find(id); point != m_points.end())
                take(point->second);
            else if (id != QStringLiteral("INTERNET"))
                reader.ignore(QStringLiteral("TO-NAPID %1").arg(id),
                              QStringLiteral("no profile is made of that access point"));
            else
                for (auto &[otherId, other] : m_points)
                    if (other.isInternet)
                        take(other);
        }
        return found;
    }

    void add(AccessPoint &point, CharacteristicReader &reader, const QString &address,
             const std::optional<int> &port)
    {
        PlannedProfile &profile = m_plan.profiles[point.profile];
        if (point.hasProxy) {
            reader.ignore(QStringLiteral("PXADDR"),
                          QStringLiteral("the profile %1 has a proxy already")
                              .arg(QString::fromUtf8(profile.name)));
            return;
        }
        point.hasProxy = true;
        const NodeUri root = nodeAt(proxyRoot).child(profile.name);
        const NodeUri proxy = root.child(point.bearer->proxyNode);
        profile.nodes.push_back(interior(root));
        profile.nodes.push_back(interior(proxy));
        profile.nodes.push_back(leaf(proxy.child("Conn"), QString::fromUtf8(profile.name)));
        profile.nodes.push_back(leaf(proxy.child("Addr"), address));
        if (!port)
            return;
        profile.nodes.push_back(interior(proxy.child("Port")));
        profile.nodes.push_back(leaf(proxy.child("Port").child("PortNbr"), *port));
    }

    ProvisioningPlan &m_plan;
    AccessPoints &m_points;
};

} // namespace

Expected<void, QString> planProfiles(const ProvisioningDocument &document, const UriLimits &limits,
                                     ProvisioningPlan &plan)
{
    AccessPoints points;
    for (const Characteristic &characteristic : document.characteristics)
        if (characteristic.type == QStringLiteral("NAPDEF"))
            if (auto planned = planAccessPoint(characteristic, limits, plan, points); !planned)
                return planned;
    // A proxy may stand before the access point that it leads to.
    ProxyPlanner proxies(plan, points);
    for (const Characteristic &characteristic : document.characteristics)
        if (characteristic.type == QStringLiteral("PXLOGICAL"))
            proxies.planLogical(characteristic);
    return {};
}

} // namespace client::bootstrap
