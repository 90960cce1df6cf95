// Profiles on a bus.
//
// An operation asks the daemon for the connections that there are, has the database of numbers give
// each its ID, and names them; what it then reads or changes is one connection, read again just
// before it is changed. Connections of another type than gsm, or that this user may not see, are
// not profiles.
//
// Connections come and go while an operation looks at them: one that is gone between two calls is
// left out of a list, and not found by its name. Where two have the same name, both go by
// substitutes.

#include "networkmanager_profile_store.h"

#include "profile_names.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QUuid>
#include <algorithm>

namespace {

const QString getSettings = QStringLiteral("GetSettings");

constexpr uint toDisk = 0x1;        // NM_SETTINGS_ADD_CONNECTION2_FLAG_TO_DISK
constexpr uint whereItIsKept = 0x0; // NM_SETTINGS_UPDATE2_FLAG_NONE

ConnectionSettings settingsIn(const BusReply &reply)
{
    return qdbus_cast<ConnectionSettings>(reply.message.arguments().value(0));
}

std::string connectionProperty(const ConnectionSettings &settings, const QString &name)
{
    return property(settings, QStringLiteral("connection"), name).toString().toStdString();
}

bool isGsm(const ConnectionSettings &settings)
{
    return connectionProperty(settings, QStringLiteral("type")) == "gsm";
}

BusReply failed(StoreResult result)
{
    return {{}, Cause::Other, std::move(result)};
}

/// A connection that may not be changed, or that others change, can be read all the same.
BusReply ignoreRefusal(BusReply reply)
{
    const bool isSerious = reply.cause == Cause::NoDaemon || reply.cause == Cause::NoObject;
    return isSerious ? reply : BusReply();
}

StoreResult ofConnection(const std::string &id, const StoreResult &result)
{
    return {result.status, "NetworkManager, connection '" + id + "': " + result.message};
}

} // namespace

StoreResult NetworkManagerProfileStore::open(const std::string &databasePath,
                                             std::unique_ptr<ProfileStore> &store)
{
    std::unique_ptr<NetworkManagerProfileStore> opened(new NetworkManagerProfileStore);
    StoreResult result = opened->m_bus.connect();
    if (!result.failed())
        result = ConnectionDatabase::open(databasePath, opened->m_database);
    if (!result.failed())
        store = std::move(opened);
    return result;
}

// ---- The connections that there are -------------------------------------------------------------

StoreResult NetworkManagerProfileStore::refresh()
{
    m_isFresh = false;
    StoreResult result = m_bus.connect();
    std::vector<Entry> entries;
    if (!result.failed())
        result = readConnections(entries);
    if (!result.failed())
        result = nameEntries(entries);
    if (result.failed())
        return result;
    m_entries = std::move(entries);
    m_isFresh = true;
    return {};
}

/// Fills in paths, IDs and UUIDs, in the order in which the daemon lists the connections.
StoreResult NetworkManagerProfileStore::readConnections(std::vector<Entry> &entries)
{
    const BusReply listed = m_bus.callSettings(QStringLiteral("ListConnections"));
    if (listed.result.failed())
        return listed.result;
    QStringList paths;
    for (const QDBusObjectPath &path :
         qdbus_cast<QList<QDBusObjectPath>>(listed.message.arguments().value(0)))
        paths.append(path.path());
    return m_bus.callConnections(
        paths, getSettings, [&](const QString &path, const BusReply &reply) -> StoreResult {
            // It was removed in the meantime, or is not for this user to see.
            if (reply.cause == Cause::NoObject || reply.cause == Cause::NotPermitted)
                return {};
            const ConnectionSettings settings = settingsIn(reply);
            if (!reply.result.failed() && isGsm(settings)) {
                entries.push_back({path,
                                   connectionProperty(settings, QStringLiteral("id")),
                                   connectionProperty(settings, QStringLiteral("uuid")),
                                   0,
                                   {}});
            }
            return reply.result;
        });
}

/// Adds numbers and names, and sorts by number.
StoreResult NetworkManagerProfileStore::nameEntries(std::vector<Entry> &entries)
{
    std::vector<std::string> uuids;
    for (const Entry &entry : entries)
        uuids.push_back(entry.uuid);
    std::vector<std::uint32_t> numbers;
    StoreResult result = m_database->numbersOf(uuids, numbers);
    if (result.failed())
        return result;
    for (std::size_t index = 0; index < entries.size(); ++index)
        entries[index].number = numbers[index];
    std::ranges::sort(entries, {}, &Entry::number);

    std::vector<NamedConnection> connections;
    for (const Entry &entry : entries)
        connections.push_back({entry.connectionId, entry.uuid});
    const std::vector<std::string> names = profileNames(connections);
    for (std::size_t index = 0; index < entries.size(); ++index)
        entries[index].name = names[index];
    return {};
}

const NetworkManagerProfileStore::Entry *
NetworkManagerProfileStore::findEntry(const Matches &matches) const
{
    const auto found = std::ranges::find_if(m_entries, matches);
    return found == m_entries.end() ? nullptr : &*found;
}

BusReply NetworkManagerProfileStore::runOnEntry(const Entry &entry, const Operation &operation)
{
    const BusReply reply = m_bus.callConnection(entry.path, getSettings);
    if (reply.result.failed())
        return reply;
    const ConnectionSettings settings = settingsIn(reply);
    // After a restart of the daemon a path can lead to another connection, and another ID is
    // another name, which may by now be that of another connection.
    const bool isSame = isGsm(settings) &&
                        connectionProperty(settings, QStringLiteral("uuid")) == entry.uuid &&
                        connectionProperty(settings, QStringLiteral("id")) == entry.connectionId;
    if (!isSame)
        return {{}, Cause::NoObject, {NAPI_ERROR_BUSY, "NetworkManager: a connection changes"}};
    return operation(entry, settings);
}

StoreResult NetworkManagerProfileStore::runOnConnection(const Matches &matches,
                                                        const Operation &operation)
{
    constexpr int mostAttempts = 3; // the first on old entries, one more when they change meanwhile
    BusReply reply;
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        StoreResult result = m_bus.connect();
        if (result.failed())
            return result;
        const Entry *entry = m_isFresh ? findEntry(matches) : nullptr;
        if (!entry) {
            result = refresh();
            entry = findEntry(matches);
        }
        if (result.failed())
            return result;
        if (!entry)
            return {NAPI_ERROR_NOT_FOUND, "NetworkManager has no such gsm connection"};
        reply = runOnEntry(*entry, operation);
        if (reply.cause != Cause::NoObject && reply.cause != Cause::NoDaemon)
            break;
        m_isFresh = false;
    }
    return reply.result;
}

StoreResult NetworkManagerProfileStore::count(unsigned int &profiles)
{
    StoreResult result = refresh();
    if (!result.failed())
        profiles = static_cast<unsigned int>(m_entries.size());
    return result;
}

StoreResult NetworkManagerProfileStore::list(unsigned int limit, std::vector<std::string> &names)
{
    StoreResult result = refresh();
    if (result.failed())
        return result;
    names.clear();
    for (std::size_t index = 0; index < m_entries.size() && index < limit; ++index)
        names.push_back(m_entries[index].name);
    return {};
}

NetworkManagerProfileStore::Matches NetworkManagerProfileStore::hasName(std::string_view name)
{
    return [name](const Entry &entry) { return entry.name == name; };
}

StoreResult NetworkManagerProfileStore::idByName(std::string_view name, std::uint32_t &id)
{
    return runOnConnection(hasName(name), [&](const Entry &entry, const ConnectionSettings &) {
        id = entry.number;
        return BusReply();
    });
}

StoreResult NetworkManagerProfileStore::nameById(std::uint32_t id, std::string &name)
{
    return runOnConnection([&](const Entry &entry) { return entry.number == id; },
                           [&](const Entry &entry, const ConnectionSettings &) {
                               name = entry.name;
                               return BusReply();
                           });
}

// ---- Records ------------------------------------------------------------------------------------

BusReply NetworkManagerProfileStore::readSecrets(const Entry &entry, GsmConnection &connection)
{
    const QString gsm = QStringLiteral("gsm");
    BusReply reply = m_bus.callConnection(entry.path, QStringLiteral("GetSecrets"), {gsm});
    if (reply.cause == Cause::NoSecrets)
        return {};
    connection.gsmSecrets = settingsIn(reply).value(gsm);
    return reply;
}

BusReply NetworkManagerProfileStore::readKeptSecrets(const Entry &entry, GsmConnection &connection)
{
    StoreResult result = m_database->secretsOf(entry.uuid, connection.keptSecrets);
    if (result.failed())
        return failed(result);
    GsmConnection taken = connection;
    bool isTaken = false;
    result = takeSecretsFromUserData(taken, isTaken);
    if (result.failed())
        return failed(ofConnection(entry.connectionId, result));
    if (!isTaken)
        return {};
    // First they are on the disk, then they go. Where one of the two cannot be done, by a user who
    // may only read for one, they stay, and are found again the next time.
    if (taken.keptSecrets != connection.keptSecrets)
        result = m_database->setSecrets(entry.uuid, taken.keptSecrets);
    connection.keptSecrets = taken.keptSecrets;
    if (result.failed())
        return {};
    connection.settings = taken.settings;
    return ignoreRefusal(sendUpdate(entry, connection));
}

BusReply NetworkManagerProfileStore::readProfile(const Entry &entry,
                                                 const ConnectionSettings &settings,
                                                 GsmConnection &connection, NAP_PROFILE_S &record)
{
    connection.settings = settings;
    if (BusReply reply = readKeptSecrets(entry, connection); reply.result.failed())
        return reply;
    // Asking for a password that the daemon does not keep would bother the agents of the user.
    BusReply reply;
    if (isPasswordKept(settings))
        reply = readSecrets(entry, connection);
    if (reply.result.failed())
        return reply;
    StoreResult result = readRecord(connection, record);
    if (!result.failed())
        return {};
    return failed(ofConnection(entry.connectionId, result));
}

StoreResult NetworkManagerProfileStore::read(std::string_view name, NAP_PROFILE_S &record)
{
    return runOnConnection(hasName(name),
                           [&](const Entry &entry, const ConnectionSettings &settings) {
                               GsmConnection connection;
                               return readProfile(entry, settings, connection, record);
                           });
}

StoreResult NetworkManagerProfileStore::modify(std::string_view name, const NAP_PROFILE_S &record)
{
    return runOnConnection(hasName(name),
                           [&](const Entry &entry, const ConnectionSettings &settings) {
                               GsmConnection before;
                               NAP_PROFILE_S oldRecord;
                               BusReply reply = readProfile(entry, settings, before, oldRecord);
                               if (reply.result.failed())
                                   return reply;
                               GsmConnection after = before;
                               ConnectionChange change;
                               StoreResult result = writeRecord(oldRecord, record, after, change);
                               if (result.failed())
                                   return failed(ofConnection(entry.connectionId, result));
                               return update(entry, before, after, change);
                           });
}

BusReply NetworkManagerProfileStore::sendUpdate(const Entry &entry, const GsmConnection &connection)
{
    return m_bus.callConnection(
        entry.path, QStringLiteral("Update2"),
        {QVariant::fromValue(settingsToSend(connection.settings)), whereItIsKept, QVariantMap()});
}

BusReply NetworkManagerProfileStore::update(const Entry &entry, const GsmConnection &before,
                                            const GsmConnection &after,
                                            const ConnectionChange &change)
{
    if (!change.keptSecrets)
        return updateConnection(entry, before, after, change);
    SqliteTransaction transaction = m_database->transaction();
    StoreResult result = transaction.begin();
    if (!result.failed())
        result = m_database->setSecrets(entry.uuid, after.keptSecrets);
    if (result.failed())
        return failed(result);
    BusReply reply = updateConnection(entry, before, after, change);
    if (reply.result.failed())
        return reply;
    result = transaction.commit();
    if (!result.failed())
        return reply;
    updateConnection(entry, after, before, change);
    return failed(result);
}

BusReply NetworkManagerProfileStore::updateConnection(const Entry &entry,
                                                      const GsmConnection &before,
                                                      const GsmConnection &after,
                                                      const ConnectionChange &change)
{
    if (!change.secrets)
        return change.settings ? sendUpdate(entry, after) : BusReply();
    if (!after.gsmSecrets.isEmpty()) {
        // One secret in an update makes the daemon drop all others, so they go along.
        GsmConnection complete = after;
        complete.settings[QStringLiteral("gsm")].insert(after.gsmSecrets);
        return sendUpdate(entry, complete);
    }
    // An update without secrets makes it keep the old ones, so they are removed in a second step.
    BusReply reply;
    if (change.settings)
        reply = sendUpdate(entry, after);
    if (reply.result.failed())
        return reply;
    reply = m_bus.callConnection(entry.path, QStringLiteral("ClearSecrets"));
    if (reply.result.failed() && change.settings)
        sendUpdate(entry, before);
    return reply;
}

// ---- Profiles that come and go ------------------------------------------------------------------

StoreResult NetworkManagerProfileStore::refuseTakenName(std::string_view name) const
{
    if (findEntry(hasName(name)))
        return {NAPI_ERROR_EXISTS, "NetworkManager has a gsm connection of that name already"};
    // One more of them could not have the name for itself.
    if (findEntry([&](const Entry &entry) { return entry.connectionId == name; }))
        return {NAPI_ERROR_EXISTS, "NetworkManager has several gsm connections of that name"};
    return {};
}

StoreResult NetworkManagerProfileStore::create(std::string_view name, const NAP_PROFILE_S &record,
                                               unsigned int maximum)
{
    const std::string text(name);
    const QString id = QString::fromStdString(text);
    if (id.toStdString() != text) {
        return {NAPI_ERROR_BAD_NAME,
                "a profile name in NetworkManager cannot begin with a byte order mark"};
    }
    // NetworkManager would take the same name twice.
    SqliteTransaction transaction = m_database->transaction();
    StoreResult result = transaction.begin();
    if (!result.failed())
        result = refresh();
    if (!result.failed())
        result = refuseTakenName(name);
    if (result.failed())
        return result;
    if (m_entries.size() >= maximum) {
        return {NAPI_ERROR_STORE_FULL, "NetworkManager has " + std::to_string(m_entries.size()) +
                                           " gsm connections, the profile service takes no more"};
    }
    result = add(id, record);
    if (result.failed())
        return result;
    result = transaction.commit();
    if (result.failed()) // without its number on the disk it is not a profile
        m_bus.callConnection(m_entries.back().path, QStringLiteral("Delete"));
    return result;
}

/// Adds a connection to the daemon, with its number, and to the entries.
StoreResult NetworkManagerProfileStore::add(const QString &id, const NAP_PROFILE_S &record)
{
    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    GsmConnection connection = newConnection(id, uuid);
    ConnectionChange change;
    StoreResult result = writeRecord(NAP_PROFILE_S{}, record, connection, change);
    if (result.failed())
        return ofConnection(id.toStdString(), result);
    std::vector<std::uint32_t> numbers;
    result = m_database->numbersOf({uuid.toStdString()}, numbers);
    if (!result.failed() && change.keptSecrets)
        result = m_database->setSecrets(uuid.toStdString(), connection.keptSecrets);
    if (result.failed())
        return result;
    connection.settings[QStringLiteral("gsm")].insert(connection.gsmSecrets);
    const BusReply reply =
        m_bus.callSettings(QStringLiteral("AddConnection2"),
                           {QVariant::fromValue(connection.settings), toDisk, QVariantMap()});
    if (reply.result.failed())
        return reply.result;
    const auto path = qdbus_cast<QDBusObjectPath>(reply.message.arguments().value(0));
    const std::string name = id.toStdString();
    m_entries.push_back({path.path(), name, uuid.toStdString(), numbers.front(), name});
    return {};
}

StoreResult NetworkManagerProfileStore::remove(std::string_view name)
{
    return runOnConnection(hasName(name), [&](const Entry &entry, const ConnectionSettings &) {
        return removeEntry(entry);
    });
}

/// Deletes a connection, with its secrets.
BusReply NetworkManagerProfileStore::removeEntry(const Entry &entry)
{
    const QString method = QStringLiteral("Delete");
    KeptSecrets secrets;
    StoreResult result = m_database->secretsOf(entry.uuid, secrets);
    if (!result.failed() && secrets.empty())
        return m_bus.callConnection(entry.path, method);
    SqliteTransaction transaction = m_database->transaction();
    if (!result.failed())
        result = transaction.begin();
    if (!result.failed())
        result = m_database->setSecrets(entry.uuid, {});
    if (result.failed())
        return failed(result);
    BusReply reply = m_bus.callConnection(entry.path, method);
    if (!reply.result.failed())
        reply.result = transaction.commit();
    return reply;
}
