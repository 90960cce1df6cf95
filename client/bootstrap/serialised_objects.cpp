#include "serialised_objects.h"

#include "account_tree.h"
#include "characteristic_reader.h"
#include "credentials.h"
#include "device_tree.h"
#include "node_value.h"
#include "provisioned_profiles.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <utility>

namespace client::bootstrap {

using support::Expected;
using support::Unexpected;

namespace {

// ---- The tree ------------------------------------------------------------------------------------

/// A node with those beneath it.
struct Object {
    const TndsNode *node;
    std::vector<Object> children;

    bool isLeaf() const { return node->value.has_value(); }
    QByteArray name() const { return QByteArray::fromPercentEncoding(node->name.toUtf8()); }
};

/// The nodes from the first on that are of its depth.
std::vector<Object> objectsOf(std::span<const TndsNode> &nodes)
{
    std::vector<Object> objects;
    while (!nodes.empty() && (objects.empty() || nodes[0].depth == objects[0].node->depth)) {
        Object object{&nodes[0], {}};
        nodes = nodes.subspan(1);
        if (!nodes.empty() && nodes[0].depth > object.node->depth)
            object.children = objectsOf(nodes);
        objects.push_back(std::move(object));
    }
    return objects;
}

const Object *childNamed(const Object &object, QByteArrayView name)
{
    const auto child = std::ranges::find_if(
        object.children, [&name](const Object &one) { return one.name() == name; });
    return child == object.children.end() ? nullptr : &*child;
}

// ---- What stands for what ------------------------------------------------------------------------

struct LeafRule {
    const char *leaf;
    const char *parm; ///< null: what it says goes into the choice of others
};

struct PartRule {
    const char *node;
    const char *type;  ///< of the characteristic; null: its leaves are those of the one above
    bool hasInstances; ///< each node beneath is one, whatever its name
    std::span<const LeafRule> leaves;
    std::span<const PartRule> parts;
};

constexpr LeafRule portLeaves[] = {{"PortNbr", "PORTNBR"}};
constexpr LeafRule addressLeaves[] = {{"Addr", "ADDR"}, {"AddrType", "ADDRTYPE"}};
constexpr PartRule addressParts[] = {{"Port", "PORT", true, portLeaves, {}}};
constexpr LeafRule credentialLeaves[] = {{"AAuthLevel", "AAUTHLEVEL"},
                                         {"AAuthType", "AAUTHTYPE"},
                                         {"AAuthName", "AAUTHNAME"},
                                         {"AAuthSecret", "AAUTHSECRET"},
                                         {"AAuthData", "AAUTHDATA"}};
constexpr LeafRule referenceLeaves[] = {{"ConRef", "TO-NAPID"}};
constexpr LeafRule accountLeaves[] = {{"AppID", "APPID"},
                                      {"ServerID", "PROVIDER-ID"},
                                      {"Name", "NAME"},
                                      {"PrefConRef", "TO-NAPID"},
                                      {"AAuthPref", nullptr}};
constexpr PartRule accountParts[] = {{"AppAddr", "APPADDR", true, addressLeaves, addressParts},
                                     {"AppAuth", "APPAUTH", true, credentialLeaves, {}},
                                     {"ToConRef", nullptr, true, referenceLeaves, {}}};

constexpr LeafRule papLeaves[] = {{"AuthId", "AUTHNAME"}, {"AuthPw", "AUTHSECRET"}};
constexpr PartRule authParts[] = {{"PAP", "NAPAUTHINFO", false, papLeaves, {}}};
constexpr LeafRule accessPointLeaves[] = {
    {"Bearer", "BEARER"}, {"Addr", "NAP-ADDRESS"},  {"DNS1", "DNS-ADDR"},  {"DNS2", "DNS-ADDR"},
    {"Linger", "LINGER"}, {"LineType", "CALLTYPE"}, {"Speed", "LINKSPEED"}};
constexpr PartRule accessPointParts[] = {{"Auth", nullptr, false, {}, authParts}};

constexpr LeafRule proxyLeaves[] = {{"Conn", "TO-NAPID"}, {"Addr", "PXADDR"}};
constexpr PartRule proxyPort[] = {{"Port", "PORT", false, portLeaves, {}}};
constexpr PartRule proxyParts[] = {{"Ph1", "PXPHYSICAL", false, proxyLeaves, proxyPort},
                                   {"Ph2", "PXPHYSICAL", false, proxyLeaves, proxyPort}};

enum class ObjectType { Account, AccessPoint, Proxy };

struct ObjectKind {
    ObjectType kind;
    std::array<const char *, 2> ids; ///< Management Object ids; null: none
    const char *path;                ///< where this device has such objects
    PartRule rule;
};

/// The second id of an account, and that of a connection, are those of an example that senders have
/// copied.
constexpr ObjectKind objectKinds[] = {
    {ObjectType::Account,
     {"urn:oma:mo:oma-dm-dmacc:1.0", "org.openmobilealliance/1.0/w7"},
     accountTreeRoot,
     {nullptr, "APPLICATION", false, accountLeaves, accountParts}},
    {ObjectType::AccessPoint,
     {"org.openmobilealliance/1.0/ConnMO", nullptr},
     accessPointRoot,
     {nullptr, "NAPDEF", false, accessPointLeaves, accessPointParts}},
    {ObjectType::Proxy,
     {nullptr, nullptr},
     proxyRoot,
     {nullptr, "PXLOGICAL", false, {}, proxyParts}},
};

const ObjectKind *kindOf(const TndsNode &node)
{
    const auto path = parseAddress(node.path);
    const auto isOf = [&](const ObjectKind &row) {
        return std::ranges::any_of(
            row.ids, [&](const char *id) { return id && node.type == QLatin1String(id); });
    };
    const auto isAt = [&](const ObjectKind &row) {
        return path && path->query == Address::Query::None && path->node == nodeAt(row.path);
    };
    const auto *row = std::ranges::find_if(objectKinds, isOf);
    if (row == std::end(objectKinds))
        row = std::ranges::find_if(objectKinds, isAt);
    return row == std::end(objectKinds) ? nullptr : row;
}

// ---- From one to the other -----------------------------------------------------------------------

constexpr char levelParm[] = "AAUTHLEVEL";
constexpr char nonceParm[] = "AAUTHDATA";
constexpr char referenceParm[] = "TO-NAPID";

QString textOf(const QByteArray &name)
{
    return QString::fromUtf8(name);
}

bool hasParm(const Characteristic &characteristic, const char *name)
{
    return std::ranges::find(characteristic.parms, QLatin1String(name), &Parm::name) !=
           characteristic.parms.end();
}

/// The name of the object that a reference leads to; any other value as it is.
QString withoutInbox(const QString &reference)
{
    constexpr QLatin1String inbox("./Inbox/");
    return reference.startsWith(inbox)
               ? textOf(QByteArray::fromPercentEncoding(reference.mid(inbox.size()).toUtf8()))
               : reference;
}

class Translator {
public:
    explicit Translator(const Object &object)
        : m_object(object), m_label(QLatin1String(inboxAddress) + u'/' + displayName(object.name()))
    {
    }

    Expected<Characteristic, QString> translate()
    {
        const ObjectKind *const row = kindOf(*m_object.node);
        Characteristic characteristic;
        characteristic.shownAs = m_label;
        if (!row)
            return characteristic;
        characteristic.type = QLatin1String(row->rule.type);
        if (!fill(m_object, row->rule, {characteristic, {}, {}}))
            return Unexpected(m_fault);
        complete(row->kind, characteristic);
        return characteristic;
    }

private:
    /// Where what is read goes.
    struct Place {
        Characteristic &characteristic;
        NodeUri node;  ///< beneath that of the characteristic
        QString shown; ///< the same for people, with a slash at its end; empty for that node itself
    };

    bool fill(const Object &object, const PartRule &rule, const Place &place)
    {
        if (!keepList(object, place))
            return false;
        for (const Object &child : object.children) {
            const Place at{place.characteristic, place.node.child(child.name()),
                           place.shown + displayName(child.name())};
            if (!(child.isLeaf() ? fillLeaf(child, rule, at) : fillPart(child, rule, at)))
                return false;
        }
        return true;
    }

    bool fillLeaf(const Object &leaf, const PartRule &rule, const Place &place)
    {
        const auto found = std::ranges::find_if(
            rule.leaves, [&leaf](const LeafRule &one) { return leaf.name() == one.leaf; });
        if (found == rule.leaves.end()) {
            place.characteristic.parms.push_back({QString(), std::nullopt, place.shown});
            return true;
        }
        if (found->parm) {
            const auto value = valueOf(*leaf.node, *found, place.shown);
            if (!value)
                return false;
            place.characteristic.parms.push_back({QLatin1String(found->parm), *value, place.shown});
        }
        return keepList(leaf, place);
    }

    bool fillPart(const Object &part, const PartRule &rule, const Place &place)
    {
        const auto found = std::ranges::find_if(
            rule.parts, [&part](const PartRule &one) { return part.name() == one.node; });
        if (found == rule.parts.end()) {
            place.characteristic.parts.push_back({{}, {}, {}, place.shown});
            return true;
        }
        if (!found->hasInstances)
            return fillInstance(part, *found, place);
        if (!keepList(part, place))
            return false;
        return std::ranges::all_of(part.children, [&](const Object &instance) {
            return fillInstance(instance, *found,
                                {place.characteristic, place.node.child(instance.name()),
                                 place.shown + u'/' + displayName(instance.name())});
        });
    }

    /// A node whose leaves go into a characteristic of its own, or into the one above.
    bool fillInstance(const Object &object, const PartRule &rule, const Place &place)
    {
        if (!rule.type)
            return fill(object, rule, {place.characteristic, place.node, place.shown + u'/'});
        Characteristic part{QLatin1String(rule.type), {}, {}, place.shown};
        const QString above = std::exchange(m_part, m_part + place.shown + QStringLiteral(": "));
        if (!fill(object, rule, {part, {}, {}}))
            return false;
        m_part = above;
        place.characteristic.parts.push_back(std::move(part));
        return true;
    }

    /// The value of a leaf; none when it is not of its format.
    std::optional<QString> valueOf(const TndsNode &leaf, const LeafRule &rule, const QString &shown)
    {
        const bool isNonce = QByteArrayView(rule.parm) == nonceParm;
        const QString format = leaf.format.isEmpty()
                                   ? formatName(isNonce ? DmtData::Bin : DmtData::String)
                                   : leaf.format;
        const auto type = typeOfFormat(format);
        if (!type) {
            fail(shown, QStringLiteral("no node here can have the format %1").arg(format));
            return std::nullopt;
        }
        const Result<DmtData> value = parseValue(*type, leaf.value);
        if (!value) {
            fail(shown, value.error().reason);
            return std::nullopt;
        }
        const QByteArray octets = *type == DmtData::Bin ? valueBytes(*value) : valueText(*value);
        if (isNonce)
            return QString::fromLatin1(octets.toBase64());
        if (const Result<DmtData> text = parseValue(DmtData::String, octets); !text) {
            fail(shown, text.error().reason);
            return std::nullopt;
        }
        return QByteArrayView(rule.parm) == referenceParm ? withoutInbox(textOf(octets))
                                                          : textOf(octets);
    }

    bool keepList(const Object &object, const Place &place)
    {
        // An empty one inherits, as a node without one does.
        if (!object.node->acl || object.node->acl->trimmed().isEmpty())
            return true;
        const auto acl = AccessControlList::parse(*object.node->acl);
        if (!acl)
            return fail(place.shown, QStringLiteral("its ACL: ") + acl.error());
        place.characteristic.lists.push_back({place.node, *acl});
        return true;
    }

    bool fail(const QString &shown, const QString &what)
    {
        const QString node = shown.isEmpty() ? shown : shown + QStringLiteral(": ");
        m_fault = QStringLiteral("%1: %2%3%4").arg(m_label, m_part, node, what);
        return false;
    }

    // ---- What an object does not say in so many words

    void complete(ObjectType kind, Characteristic &characteristic) const
    {
        switch (kind) {
        case ObjectType::Account:
            completeAccount(characteristic);
            break;
        case ObjectType::AccessPoint:
            for (const char *const name : {"NAPID", "NAME"})
                characteristic.parms.push_back({QLatin1String(name), textOf(m_object.name())});
            for (Characteristic &part : characteristic.parts)
                if (part.type == QLatin1String("NAPAUTHINFO"))
                    part.parms.push_back({QStringLiteral("AUTHTYPE"), QStringLiteral("PAP")});
            break;
        case ObjectType::Proxy:
            for (Characteristic &part : characteristic.parts)
                if (!part.type.isEmpty() && !hasParm(part, referenceParm))
                    part.parms.push_back({QLatin1String(referenceParm), textOf(m_object.name())});
            break;
        }
    }

    void completeAccount(Characteristic &account) const
    {
        if (!hasParm(account, "APPID"))
            account.parms.push_back({QStringLiteral("APPID"), QStringLiteral("w7")});
        // A device that was given a server reports to it.
        account.parms.push_back({QStringLiteral("INIT"), std::nullopt});
        const Object *const preferred = childNamed(m_object, "AAuthPref");
        const QString type =
            preferred && preferred->isLeaf() ? textOf(*preferred->node->value) : QString();
        const std::pair<const char *, const char *> levels[] = {{"CLCRED", "APPSRV"},
                                                                {"SRVCRED", "CLIENT"}};
        std::vector<Characteristic *> chosen;
        for (const auto &[level, levelOfProvisioning] : levels) {
            Characteristic *const best = bestCredentials(account, level, type);
            if (!best)
                continue;
            std::ranges::find(best->parms, QLatin1String(levelParm), &Parm::name)->value =
                QLatin1String(levelOfProvisioning);
            chosen.push_back(best);
        }
        for (Characteristic &part : account.parts)
            if (part.type == QLatin1String("APPAUTH") &&
                std::ranges::find(chosen, &part) == chosen.end())
                part.type.clear();
    }

    /// Of those of a level, of which an object can have several: the preferred type, else one that
    /// a session can have, else the first.
    static Characteristic *bestCredentials(Characteristic &account, const char *level,
                                           const QString &preferredType)
    {
        Characteristic *best = nullptr;
        int bestRank = -1;
        for (Characteristic &part : account.parts) {
            if (part.type != QLatin1String("APPAUTH") ||
                client::bootstrap::valueOf(part, levelParm) != QLatin1String(level))
                continue;
            const QString type = client::bootstrap::valueOf(part, "AAUTHTYPE").value_or(QString());
            const int rank = int(type.isEmpty() || authTypeOfAccountName(type)) +
                             int(!type.isEmpty() && type == preferredType);
            if (rank > bestRank) {
                best = &part;
                bestRank = rank;
            }
        }
        return best;
    }

    const Object &m_object;
    const QString m_label;
    QString m_part; ///< that is being filled, for people, with a colon at its end
    QString m_fault;
};

/// Whether the node stands for the Inbox itself.
bool isInbox(const Object &object)
{
    return (object.node->name.isEmpty() || nodeAt(inboxAddress).name() == object.name()) &&
           object.node->path.isEmpty() && !kindOf(*object.node) && !object.children.empty();
}

} // namespace

Expected<ProvisioningDocument, QString> documentOfObjects(const std::vector<TndsNode> &nodes)
{
    ProvisioningDocument document;
    std::span<const TndsNode> rest(nodes);
    for (const Object &top : objectsOf(rest)) {
        const std::span<const Object> objects =
            isInbox(top) ? std::span<const Object>(top.children) : std::span(&top, 1);
        for (const Object &object : objects) {
            auto characteristic = Translator(object).translate();
            if (!characteristic)
                return Unexpected(characteristic.error());
            document.characteristics.push_back(*std::move(characteristic));
        }
    }
    return document;
}

} // namespace client::bootstrap
