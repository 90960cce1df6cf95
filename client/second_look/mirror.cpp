#include "mirror.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

// ---- The device ----------------------------------------------------------------------------------

Mirror::~Mirror() = default;

Expected<void, QString> Mirror::open()
{
    m_device.reset(); // which gives the lock up
    auto device = DmDevice::open(m_options);
    if (!device)
        return Unexpected(device.error());
    if (auto made = (*device)->makeTree(); !made)
        return made;
    m_device = *std::move(device);
    return {};
}

void Mirror::mount()
{
    for (const NodeUri &root : profileRoots())
        static_cast<void>(m_device->tree().mountFor(root, ManagementTree::Use::Change));
}

std::optional<Picture> Mirror::wholeTree(std::size_t mostNodes)
{
    Picture tree = pictureOf(m_device->ownersView(), NodeUri());
    m_isWhole = tree.size() <= mostNodes;
    return m_isWhole ? std::optional(std::move(tree)) : std::nullopt;
}

Expected<NextMount, QString> Mirror::mountAgain(const std::vector<TreeChange> &changes)
{
    NextMount looks;
    std::vector<NodeUri> objects;
    if (m_device) {
        objects = objectsOf(changes);
        looks.now = look(objects);
    }
    if (const auto opened = open(); !opened)
        return Unexpected(opened.error());
    if (objects.empty())
        objects = objectsOf(changes);
    looks.next = look(objects);
    if (const QStringList faults = m_device->tree().mountFaults(); !faults.isEmpty())
        return Unexpected(faults.first());
    return looks;
}

std::vector<NodeUri> Mirror::objectsOf(const std::vector<TreeChange> &changes) const
{
    if (m_isWhole)
        return {NodeUri()};
    std::vector<NodeUri> objects;
    for (const TreeChange &change : changes)
        for (NodeUri &object : client::objectsOf(m_device->tree(), change))
            if (std::ranges::find(objects, object) == objects.end())
                objects.push_back(std::move(object));
    return objects;
}

std::vector<NodeUri> objectsOf(const ManagementTree &tree, const TreeChange &change)
{
    std::vector<NodeUri> objects;
    if (auto object = tree.objectOf(change.node))
        objects.push_back(*std::move(object));
    const auto renamed = change.renamedTo();
    if (auto object = renamed ? tree.objectOf(*renamed) : std::nullopt)
        objects.push_back(*std::move(object));
    return objects;
}

std::vector<NodeUri> withTwins(const std::vector<NodeUri> &objects)
{
    const std::vector<NodeUri> roots = profileRoots();
    std::vector<NodeUri> all;
    for (const NodeUri &object : objects) {
        all.push_back(object);
        if (std::ranges::find(roots, object.parent()) != roots.end())
            for (const NodeUri &root : roots)
                all.push_back(root.child(object.name()));
    }
    std::ranges::sort(all);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

Picture Mirror::look(const std::vector<NodeUri> &objects)
{
    Picture picture;
    for (const NodeUri &object : objects)
        picture.merge(pictureOf(m_device->ownersView(), object));
    return picture;
}

// ---- Changes -------------------------------------------------------------------------------------

Outcome Mirror::carryOut(const TreeChange &change)
{
    TreeView tree(m_device->tree(), change.principal);
    switch (change.kind) {
    case TreeChange::Kind::Add:
        return tree.add(change.node, change.value);
    case TreeChange::Kind::Replace:
        return tree.replace(change.node, change.value);
    case TreeChange::Kind::ReplaceChildren:
        return tree.replaceChildren(change.node, change.children);
    case TreeChange::Kind::ReplaceProperty:
        return tree.replaceProperty(change.node, change.property,
                                    change.value.data.value_or(QByteArray()));
    case TreeChange::Kind::Remove:
        return tree.remove(change.node);
    case TreeChange::Kind::Copy:
        return tree.copy(change.source, change.node);
    case TreeChange::Kind::AtomicBegins:
        m_atBeginOfAtomic = m_device->tree().properties();
        return {};
    case TreeChange::Kind::AtomicTakenBack:
        m_device->tree().setProperties(m_atBeginOfAtomic);
        return {};
    }
    return {};
}

namespace {

/// The settings of one bearer in a record.
struct BearerPart {
    const char *bearer;
    std::size_t begin;
    std::size_t end;
    std::size_t addressSize; ///< of the address, which is the first field

    std::string_view bytesIn(const NAP_PROFILE_S &record) const
    {
        return {reinterpret_cast<const char *>(&record) + begin, end - begin};
    }
    QByteArray addressIn(const NAP_PROFILE_S &record) const
    {
        const std::string_view bytes = bytesIn(record).substr(0, addressSize);
        return {bytes.data(), static_cast<qsizetype>(std::min(bytes.find('\0'), bytes.size()))};
    }
};

constexpr BearerPart bearerParts[] = {
    {"GSM-GPRS", offsetof(NAP_PROFILE_S, gprsAddress), offsetof(NAP_PROFILE_S, csdAddress),
     sizeof NAP_PROFILE_S::gprsAddress},
    {"GSM-CSD", offsetof(NAP_PROFILE_S, csdAddress), offsetof(NAP_PROFILE_S, csd2Address),
     sizeof NAP_PROFILE_S::csdAddress},
    {"GSM-CSD2", offsetof(NAP_PROFILE_S, csd2Address), offsetof(NAP_PROFILE_S, proxy1Address),
     sizeof NAP_PROFILE_S::csd2Address},
};

/// What moving a profile to another bearer has overwritten.
QString overwrittenIn(const NAP_PROFILE_S &before, const NAP_PROFILE_S &after)
{
    for (const BearerPart &part : bearerParts) {
        const QByteArray address = part.addressIn(before);
        if (!address.isEmpty() && !part.addressIn(after).isEmpty() &&
            part.bytesIn(before) != part.bytesIn(after))
            return QStringLiteral("the %1 settings that the profile had (Addr %2) are overwritten")
                .arg(QLatin1String(part.bearer), QString::fromUtf8(address));
    }
    return {};
}

bool isBearerLeaf(const NodeUri &node)
{
    return node.name() == "Bearer";
}

} // namespace

void Mirror::profileCall(const call_observer::ProfileCall &call)
{
    if (std::string_view(call.function) == "NAPI_ModifyProfile" && call.before && call.after)
        m_record = {m_record ? m_record->before : *call.before, *call.after};
}

SeenChange Mirror::apply(const TreeChange &change)
{
    if (change.isMarker())
        return {carryOut(change).status, {}, {}, {}};
    const std::vector<NodeUri> objects = withTwins(client::objectsOf(m_device->tree(), change));
    const Picture before = look(objects);
    m_record.reset();
    m_device->setObserver(this);
    SeenChange seen;
    seen.status = carryOut(change).status;
    m_device->setObserver(nullptr);
    const std::optional<RecordChange> record = m_record;
    const Picture after = look(objects);
    seen.difference = difference(before, after);
    if (succeeded(seen.status)) {
        seen.asked = askedBy(change, after);
        if (record && isBearerLeaf(change.node))
            seen.overwritten = overwrittenIn(record->before, record->after);
    }
    return seen;
}

namespace {

/// The value as a leaf of that format would say it; as it was given where it cannot be read so.
QByteArray asTextOf(const QString &format, const QByteArray &given)
{
    const auto type = typeOfFormat(format);
    if (!type || *type == DmtData::Node)
        return given;
    const Result<DmtData> value = parseValue(*type, given);
    return value ? valueText(*value) : given;
}

} // namespace

std::vector<AskedValue> Mirror::askedBy(const TreeChange &change, const Picture &after) const
{
    std::vector<AskedValue> asked;
    const auto ask = [&](const NodeUri &leaf, const QByteArray &given) {
        const auto reads = after.find(leaf);
        AskedValue value{leaf, given, std::nullopt};
        if (reads != after.end()) {
            value.value = asTextOf(reads->second.format, given);
            value.reads = reads->second;
        }
        asked.push_back(std::move(value));
    };
    switch (change.kind) {
    case TreeChange::Kind::Add:
    case TreeChange::Kind::Replace:
        if (change.value.data)
            ask(change.node, *change.value.data);
        break;
    case TreeChange::Kind::ReplaceChildren:
        for (const TreeView::ChildValue &child : change.children)
            ask(change.node.child(child.name), child.text);
        break;
    case TreeChange::Kind::Copy:
        if (const TreeView tree = m_device->ownersView();
            const auto source = tree.find(change.source))
            if (const Result<DmtData> value = tree.value(*source))
                ask(change.node, valueText(*value));
        break;
    default:
        break;
    }
    return asked;
}

} // namespace client
