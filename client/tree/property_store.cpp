#include "property_store.h"

#include "private_file.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

// ---- The properties of one node ------------------------------------------------------------------

namespace {

using Properties = PropertyStore::Properties;

constexpr qsizetype largestFile = 16 * 1024 * 1024; // bytes

Expected<void, QString> propertyFits(const QByteArray &bytes, qsizetype largest)
{
    if (bytes.size() > largest)
        return Unexpected(QStringLiteral("more than %1 bytes").arg(largest));
    return {};
}

/// One property as the file names it.
struct PropertyField {
    const char *name;
    QString (*get)(const Properties &);
    /// The error says what a text is not that the property cannot have.
    Expected<void, QString> (*set)(Properties &, const QString &text);
};

constexpr PropertyField propertyFields[] = {
    {"type", [](const Properties &p) { return p.type; },
     [](Properties &p, const QString &text) -> Expected<void, QString> {
         p.type = text;
         return propertyFits(text.toUtf8(), PropertyStore::longestType);
     }},
    {"title", [](const Properties &p) { return QString::fromUtf8(p.title); },
     [](Properties &p, const QString &text) -> Expected<void, QString> {
         p.title = text.toUtf8();
         return propertyFits(p.title, PropertyStore::longestTitle);
     }},
    {"acl",
     [](const Properties &p) { return p.acl ? QString::fromUtf8(p.acl->toText()) : QString(); },
     [](Properties &p, const QString &text) -> Expected<void, QString> {
         const QByteArray bytes = text.toUtf8();
         if (auto fits = propertyFits(bytes, PropertyStore::longestAcl); !fits)
             return fits;
         auto acl = AccessControlList::parse(bytes);
         if (!acl)
             return Unexpected(acl.error());
         p.acl = *std::move(acl);
         return {};
     }},
    {"changed",
     // An invalid time gives an empty text.
     [](const Properties &p) { return p.changed.toString(Qt::ISODate); },
     [](Properties &p, const QString &text) -> Expected<void, QString> {
         p.changed = QDateTime::fromString(text, Qt::ISODate).toUTC();
         if (!p.changed.isValid())
             return Unexpected(QStringLiteral("\"%1\" is not a time").arg(text));
         return {};
     }},
    {"version",
     [](const Properties &p) { return p.version ? QString::number(p.version) : QString(); },
     [](Properties &p, const QString &text) -> Expected<void, QString> {
         bool isNumber = false;
         p.version = text.toUShort(&isNumber, 10);
         if (!isNumber)
             return Unexpected(QStringLiteral("\"%1\" is not a number from 0 to %2")
                                   .arg(text)
                                   .arg(std::numeric_limits<quint16>::max()));
         return {};
     }},
};

QJsonObject toJson(const Properties &properties)
{
    QJsonObject object;
    for (const PropertyField &field : propertyFields) {
        const QString text = field.get(properties);
        // A list that was replaced with an empty one is not a list that was never replaced.
        const bool isEmptyAcl = properties.acl && QLatin1String(field.name) == QLatin1String("acl");
        if (!text.isEmpty() || isEmptyAcl)
            object[QLatin1String(field.name)] = text;
    }
    return object;
}

Expected<Properties, QString> fromJson(const QJsonObject &object)
{
    Properties properties;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const auto *const field =
            std::ranges::find_if(propertyFields, [&entry](const PropertyField &row) {
                return entry.key() == QLatin1String(row.name);
            });
        if (field == std::end(propertyFields) || !entry.value().isString())
            return Unexpected(QStringLiteral("%1 is not a property with a text").arg(entry.key()));
        if (const auto set = field->set(properties, entry.value().toString()); !set)
            return Unexpected(QStringLiteral("%1: %2").arg(entry.key(), set.error()));
    }
    return properties;
}

/// Bytes of a text in JSON, without its quotes.
qsizetype bytesInJson(QByteArrayView utf8)
{
    constexpr qsizetype escapeOfControl = 6; // \u001F
    qsizetype bytes = utf8.size();
    for (const char byte : utf8) {
        if (static_cast<unsigned char>(byte) < 0x20)
            bytes += escapeOfControl - 1;
        else if (byte == '"' || byte == '\\')
            ++bytes;
    }
    return bytes;
}

/// What properties add to a file at most under a name of that size, or under any other name that
/// the file may have for the node, whenever it was changed and however often.
qsizetype bytesInFile(qsizetype nameBytes, const Properties &properties)
{
    // A profile's first name, escaped, or its number, and what JSON puts around an entry.
    constexpr qsizetype longestOtherName = 256;
    constexpr qsizetype namesTimeAndVersion = 128;
    const qsizetype bytes = longestOtherName + namesTimeAndVersion + nameBytes +
                            bytesInJson(properties.type.toUtf8()) + bytesInJson(properties.title);
    return properties.acl ? bytes + bytesInJson(properties.acl->toText()) : bytes;
}

/// The same for a node. Asked for with each change of a node, so nothing is written for it.
qsizetype bytesInFile(const NodeUri &node, const Properties &properties)
{
    constexpr qsizetype escapeInUri = 3; // %41
    const qsizetype depth = node.depth();
    const qsizetype separators = std::max<qsizetype>(depth - 1, 0);
    return bytesInFile(depth + escapeInUri * (node.joinedNames().size() - separators), properties);
}

qsizetype bytesInFile(const QString &key, const Properties &properties)
{
    return bytesInFile(bytesInJson(key.toUtf8()), properties);
}

} // namespace

// ---- In memory -----------------------------------------------------------------------------------

namespace {

/// The place of a node when one above it, or the node itself, moves.
NodeUri moved(const NodeUri &node, const NodeUri &from, const NodeUri &to)
{
    if (node == from)
        return to;
    return to.child(node.joinedNames().sliced(node.beginBeneath(from)).toByteArray());
}

/// @return whether the list had the server
bool forget(AccessControlList &acl, const QByteArray &server, bool isOfRoot,
            const AccessControlList &rootAcl)
{
    if (!acl.forget(server))
        return false;
    if (!isOfRoot)
        return true;
    for (const Right right : {Right::Add, Right::Delete, Right::Exec, Right::Get, Right::Replace})
        if (acl.servers(right).empty())
            for (const QByteArray &other : rootAcl.servers(right))
                acl.grant(right, other);
    return true;
}

} // namespace

const PropertyStore::Properties &PropertyStore::get(QByteArrayView joinedNames) const
{
    static const Properties none;
    const auto found = m_properties.find(joinedNames);
    return found == m_properties.end() ? none : found->second;
}

void PropertyStore::set(const NodeUri &node, Properties properties)
{
    m_isChanged = true;
    if (const auto old = m_properties.find(node); old != m_properties.end())
        erase(old);
    if (properties == Properties())
        return;
    m_bytes += bytesInFile(node, properties);
    m_properties.emplace(node, std::move(properties));
}

void PropertyStore::noteChange(const NodeUri &node, const QDateTime &time)
{
    m_isChanged = true;
    const auto [entry, isNew] = m_properties.try_emplace(node);
    if (isNew)
        m_bytes += bytesInFile(node, entry->second);
    entry->second.changed = time;
    ++entry->second.version;
}

PropertyStore::Map::iterator PropertyStore::erase(Map::iterator entry)
{
    m_isChanged = true;
    m_bytes -= bytesInFile(entry->first, entry->second);
    return m_properties.erase(entry);
}

bool PropertyStore::hasRoomFor(const NodeUri &node, const Properties &properties) const
{
    constexpr qsizetype forNotesOfChanges = largestFile / 4;
    const auto old = m_properties.find(node);
    const qsizetype before = old == m_properties.end() ? 0 : bytesInFile(node, old->second);
    const qsizetype bytes = m_bytes - before + bytesInFile(node, properties);
    return bytes <= largestFile - forNotesOfChanges || bytes <= m_bytes;
}

void PropertyStore::remove(const NodeUri &node)
{
    extract(node);
    std::erase_if(m_firstNames, [&node](const auto &entry) { return node.contains(entry.first); });
}

void PropertyStore::move(const NodeUri &from, const NodeUri &to)
{
    for (auto &[node, properties] : extract(from))
        set(moved(node, from, to), std::move(properties));
    const NodeUri firstName = firstNameOf(from);
    std::map<NodeUri, NodeUri> firstNames;
    for (const auto &[node, name] : m_firstNames)
        firstNames.emplace(from.contains(node) ? moved(node, from, to) : node, name);
    firstNames.insert_or_assign(to, firstName);
    m_firstNames = std::move(firstNames);
}

NodeUri PropertyStore::firstNameOf(const NodeUri &node) const
{
    // The nearest renamed node above it comes last, and has the whole first address.
    NodeUri firstName = node;
    for (const auto &[current, first] : m_firstNames)
        if (current.contains(node))
            firstName = moved(node, current, first);
    return firstName;
}

PropertyStore::Map PropertyStore::extract(const NodeUri &node)
{
    // Addresses are ordered by their names, so a node and everything beneath it are neighbours.
    const auto first = m_properties.lower_bound(node);
    const auto last =
        std::find_if(first, m_properties.end(),
                     [&node](const Map::value_type &entry) { return !node.contains(entry.first); });
    Map extracted(first, last);
    for (auto entry = first; entry != last;)
        entry = erase(entry);
    return extracted;
}

void PropertyStore::forgetServer(const QByteArray &server, const AccessControlList &rootAcl)
{
    for (auto &[key, properties] : m_withoutNode)
        m_isChanged |= properties.acl && forget(*properties.acl, server, false, rootAcl);
    const auto forgetCounted = [&](const auto &name, Properties &properties, bool isOfRoot) {
        const qsizetype before = bytesInFile(name, properties);
        if (!properties.acl || !forget(*properties.acl, server, isOfRoot, rootAcl))
            return;
        m_bytes += bytesInFile(name, properties) - before;
        m_isChanged = true;
    };
    for (auto &[key, properties] : m_unresolved)
        forgetCounted(key, properties, false);
    for (auto &[node, properties] : m_properties)
        forgetCounted(node, properties, node.isRoot());
}

// ---- In a file -----------------------------------------------------------------------------------

namespace {

/// Stands in front of a profile's number, in the place of the node's name. No name begins with it
/// in a file, where it is written %23.
constexpr QLatin1StringView numberMark("/#");
/// Follows the name of a store, in front of the number.
constexpr QChar storeEnd = u':';

/// The node of the profile that is above the node, or is it.
PropertyStore::ProfileNumbers::const_iterator
profileOf(const NodeUri &node, const PropertyStore::ProfileNumbers &numbers)
{
    // Addresses are ordered by their names, so what is above a node comes before it, with
    // nothing but its own kind between the two.
    const auto after = numbers.upper_bound(node);
    if (after == numbers.begin() || !std::prev(after)->first.contains(node))
        return numbers.end();
    return std::prev(after);
}

/// A text of a file: a node, or one that no mounted profile has.
struct Key {
    bool isValid = false;
    std::optional<NodeUri> node;
};

Key nodeNamed(const QString &text)
{
    const Result<Address> address = parseAddress(text);
    if (!address || address->query != Address::Query::None)
        return {};
    return {true, address->node};
}

Key readKey(const QString &text, const PropertyStore::ProfileNumbers &numbers)
{
    const qsizetype mark = text.indexOf(numberMark);
    if (mark < 0)
        return nodeNamed(text);
    const qsizetype begin = mark + numberMark.size();
    const qsizetype slash = text.indexOf(u'/', begin);
    const qsizetype end = slash < 0 ? text.size() : slash;
    const QString profileText = text.sliced(begin, end - begin);
    const qsizetype storeSize = std::max<qsizetype>(profileText.indexOf(storeEnd), 0);
    const QString store = profileText.first(storeSize);
    bool isNumber = false;
    const quint32 number =
        profileText.sliced(storeSize == 0 ? 0 : storeSize + 1).toUInt(&isNumber, 10);
    const Key root = nodeNamed(text.first(mark));
    if (!isNumber || !root.isValid)
        return {};
    const auto profile = std::ranges::find_if(numbers, [&](const auto &entry) {
        return entry.second == number && numbers.store == store &&
               entry.first.parent() == *root.node;
    });
    if (profile == numbers.end())
        return {nodeNamed(u'.' + text.sliced(end)).isValid, std::nullopt};
    return nodeNamed(QString::fromLatin1(profile->first.toUri()) + text.sliced(end));
}

} // namespace

namespace {

/// Whether what the file calls so is beneath the root, or is it.
bool isBeneath(const NodeUri &root, const QString &text)
{
    const qsizetype mark = text.indexOf(numberMark);
    const Key key = nodeNamed(mark < 0 ? text : text.first(mark));
    return key.node && root.contains(*key.node);
}

} // namespace

bool PropertyStore::take(const QString &text, const Properties &properties,
                         const ProfileNumbers &numbers)
{
    const Key key = readKey(text, numbers);
    if (!key.node) {
        m_withoutNode.emplace(text, properties);
        return false;
    }
    set(*key.node, properties);
    return text != keyOf(*key.node, numbers);
}

void PropertyStore::resolve(const NodeUri &root, const ProfileNumbers &numbers)
{
    bool isOutdated = m_isChanged;
    for (auto entry = m_unresolved.begin(); entry != m_unresolved.end();) {
        const auto kept = entry++;
        if (!isBeneath(root, kept->first))
            continue;
        m_bytes -= bytesInFile(kept->first, kept->second);
        isOutdated |= take(kept->first, kept->second, numbers);
        m_unresolved.erase(kept);
    }
    m_isChanged = isOutdated;
}

Expected<PropertyStore, QString> PropertyStore::load(const QString &file,
                                                     const ProfileNumbers &numbers,
                                                     const std::vector<NodeUri> &unmounted)
{
    PropertyStore store;
    const auto read = support::PrivateFile(file, largestFile).readObject();
    if (!read)
        return Unexpected(read.error());
    const QJsonObject nodes = read->value_or(QJsonObject());
    bool isOutdated = false;
    for (auto entry = nodes.begin(); entry != nodes.end(); ++entry) {
        if (!readKey(entry.key(), numbers).isValid || !entry.value().isObject())
            return Unexpected(
                QStringLiteral("%1: %2 is not a node with properties").arg(file, entry.key()));
        const auto properties = fromJson(entry.value().toObject());
        if (!properties)
            return Unexpected(
                QStringLiteral("%1: %2: %3").arg(file, entry.key(), properties.error()));
        if (std::ranges::any_of(unmounted, [&entry](const NodeUri &root) {
                return isBeneath(root, entry.key());
            })) {
            store.m_bytes += bytesInFile(entry.key(), *properties);
            store.m_unresolved.emplace(entry.key(), *properties);
        } else {
            isOutdated |= store.take(entry.key(), *properties, numbers);
        }
    }
    store.m_isChanged = isOutdated;
    return store;
}

Expected<void, QString> PropertyStore::forgetInFile(const QString &file,
                                                    const std::optional<NodeUri> &node,
                                                    const QByteArray &server,
                                                    const AccessControlList &rootAcl)
{
    // Without numbers each profile keeps the number that the file has.
    auto store = load(file, {});
    if (!store)
        return Unexpected(store.error());
    if (node)
        store->remove(*node);
    if (!server.isEmpty())
        store->forgetServer(server, rootAcl);
    return store->save(file, {});
}

QString PropertyStore::keyOf(const NodeUri &node, const ProfileNumbers &numbers) const
{
    const auto profile = profileOf(node, numbers);
    if (profile == numbers.end())
        return QString::fromLatin1(firstNameOf(node).toUri());
    const NodeUri &top = profile->first;
    return QString::fromLatin1(top.parent().toUri()) + numberMark +
           (numbers.store.isEmpty() ? QString() : numbers.store + storeEnd) +
           QString::number(profile->second) +
           QString::fromLatin1(node.toUri().mid(top.toUri().size()));
}

Expected<void, QString> PropertyStore::save(const QString &file, const ProfileNumbers &numbers)
{
    if (!m_isChanged)
        return {};
    QJsonObject nodes;
    for (const auto &[node, properties] : m_properties) {
        const QString key = keyOf(node, numbers);
        // A node that was added under the first name of a renamed one gives way to that one.
        if (firstNameOf(node) != node || !nodes.contains(key))
            nodes[key] = toJson(properties);
    }
    for (const auto &[key, properties] : m_unresolved)
        nodes[key] = toJson(properties);
    QJsonObject all = nodes;
    for (const auto &[key, properties] : m_withoutNode)
        if (!nodes.contains(key))
            all[key] = toJson(properties);
    QByteArray bytes = QJsonDocument(all).toJson(QJsonDocument::Compact);
    if (bytes.size() > largestFile)
        bytes = QJsonDocument(nodes).toJson(QJsonDocument::Compact);
    auto saved = support::PrivateFile(file, largestFile).replace(bytes);
    if (saved)
        m_isChanged = false;
    return saved;
}

} // namespace client
