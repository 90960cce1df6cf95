// Profiles on a bus.
//
// The daemon is asked once for all connections; from then on its signals say what to read again.
// The database of numbers gives each connection its ID; then they are named. Connections of another
// type than gsm, or that this user may not see, are not profiles, but may become some, so their
// paths are kept as well.
//
// Connections come and go while an operation looks at them: one that is gone between two calls is
// left out of a list, and not found by its name. Where two have the same name, both go by
// substitutes.
//
// A list asks the daemon which connections there are, although its signals have said so: one call,
// whatever their number, by which what a signal could not tell (a connection that somebody's login
// has made visible) does not stay unseen, nor that the daemon does not answer.

#include "networkmanager_profile_store.h"

#include "profile_names.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QSet>
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

/// @return the record without its secrets; none where reading it changes the connection, or fails.
std::optional<NAP_PROFILE_S> recordIn(const ConnectionSettings &settings)
{
    GsmConnection connection = {settings, {}, {}};
    bool hasSecrets = false;
    NAP_PROFILE_S record;
    if (takeSecretsFromUserData(connection, hasSecrets).failed() || hasSecrets ||
        readRecord(connection, record).failed())
        return {};
    return record;
}

StoreResult notFound()
{
    return {NAPI_ERROR_NOT_FOUND, "NetworkManager has no such gsm connection"};
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

StoreResult NetworkManagerProfileStore::refresh(Asked asked)
{
    StoreResult result = m_bus.connect();
    takeNews();
    if (!result.failed() && (asked == Asked::WhichThereAre || !m_isListed))
        result = listConnections();
    if (!result.failed() && !m_unread.isEmpty())
        result = readConnections();
    return result;
}

/// A signal only says what to read again: what is true is what the daemon answers then.
void NetworkManagerProfileStore::takeNews()
{
    const ConnectionNews news = m_bus.takeNews();
    if (news.isEverything)
        forgetEverything();
    for (const QString &path : news.added) {
        if (!m_connections.contains(path)) // else it is one that was made here
            forget(path);
    }
    for (const QString &path : news.changed)
        forget(path);
    for (const QString &path : news.removed) {
        if (m_connections.contains(path)) // else it is one that was removed here
            forget(path);
    }
}

void NetworkManagerProfileStore::forget(const QString &path)
{
    Connection &connection = m_connections[path];
    if (!connection.isUnread)
        m_unread.append(path);
    connection.isUnread = true;
}

void NetworkManagerProfileStore::forgetEverything()
{
    m_entries.clear();
    m_numbers.clear();
    m_connections.clear();
    m_unread.clear();
    m_isListed = false;
    m_hasSubstitutes = false;
}

StoreResult NetworkManagerProfileStore::listConnections()
{
    const BusReply reply = m_bus.callSettings(QStringLiteral("ListConnections"));
    if (reply.result.failed())
        return reply.result;
    QSet<QString> listed;
    for (const QDBusObjectPath &path :
         qdbus_cast<QList<QDBusObjectPath>>(reply.message.arguments().value(0))) {
        listed.insert(path.path());
        if (!m_connections.contains(path.path()))
            forget(path.path());
    }
    for (const QString &path : m_connections.keys()) {
        if (!listed.contains(path))
            drop(path);
    }
    if (m_hasSubstitutes)
        nameEntries();
    m_isListed = true;
    return {};
}

StoreResult NetworkManagerProfileStore::readConnections()
{
    std::vector<Seen> seen;
    StoreResult result = readSettings(seen);
    if (!result.failed())
        result = keep(seen);
    if (!result.failed())
        m_unread.clear();
    return result;
}

StoreResult NetworkManagerProfileStore::readSettings(std::vector<Seen> &seen)
{
    return m_bus.callConnections(
        m_unread, getSettings, [&](const QString &path, const BusReply &reply) -> StoreResult {
            seen.push_back({path, {}});
            // It was removed in the meantime, or is not for this user to see.
            if (reply.cause == Cause::NoObject || reply.cause == Cause::NotPermitted)
                return {};
            ConnectionSettings settings = settingsIn(reply);
            if (!reply.result.failed() && isGsm(settings))
                seen.back().settings = std::move(settings);
            return reply.result;
        });
}

/// Makes entries of what was read, each under its number. Only when a connection has come, gone or
/// changed its ID can a name be another one.
StoreResult NetworkManagerProfileStore::keep(std::vector<Seen> &seen)
{
    std::vector<std::string> uuids;
    for (const Seen &connection : seen) {
        if (connection.settings.has_value())
            uuids.push_back(connectionProperty(*connection.settings, QStringLiteral("uuid")));
    }
    std::vector<std::uint32_t> numbers;
    StoreResult result = m_database->numbersOf(uuids, numbers);
    if (result.failed())
        return result;
    m_hasUnkeptNumbers = m_hasUnkeptNumbers || m_database->file().isInTransaction();
    bool isNamedAnew = false;
    auto number = numbers.begin();
    for (Seen &connection : seen) {
        const bool isProfile = connection.settings.has_value();
        const std::uint32_t oldNumber = m_connections.value(connection.path).number;
        const std::uint32_t newNumber = isProfile ? *number++ : notAProfile;
        if (oldNumber != newNumber) {
            drop(connection.path);
            isNamedAnew = true;
        }
        m_connections[connection.path] = {newNumber};
        if (!isProfile)
            continue;
        Entry &entry = m_entries[newNumber];
        const std::string id = connectionProperty(*connection.settings, QStringLiteral("id"));
        isNamedAnew = isNamedAnew || entry.connectionId != id;
        const std::string uuid = connectionProperty(*connection.settings, QStringLiteral("uuid"));
        entry = {connection.path,
                 id,
                 uuid,
                 entry.name,
                 recordIn(*connection.settings),
                 isPasswordKept(*connection.settings),
                 {}};
    }
    if (isNamedAnew)
        nameEntries();
    return {};
}

/// Leaves the names of the others as they are, which may be other ones where there are substitutes.
void NetworkManagerProfileStore::drop(const QString &path)
{
    const auto entry = m_entries.find(m_connections.value(path).number);
    m_connections.remove(path);
    m_unread.removeOne(path);
    if (entry == m_entries.end() || entry->second.path != path)
        return; // its UUID has another path by now
    m_numbers.erase(entry->second.name);
    m_entries.erase(entry);
}

void NetworkManagerProfileStore::nameEntries()
{
    std::vector<NamedConnection> connections;
    for (const auto &[number, entry] : m_entries)
        connections.push_back({entry.connectionId, entry.uuid});
    const std::vector<std::string> names = profileNames(connections);
    m_numbers.clear();
    m_hasSubstitutes = false;
    auto name = names.begin();
    for (auto &[number, entry] : m_entries) {
        entry.name = *name++;
        m_numbers[entry.name] = number;
        m_hasSubstitutes = m_hasSubstitutes || entry.name != entry.connectionId;
    }
}

NetworkManagerProfileStore::Numbered *NetworkManagerProfileStore::findEntry(std::string_view name)
{
    const auto number = m_numbers.find(std::string(name));
    return number == m_numbers.end() ? nullptr : &*m_entries.find(number->second);
}

StoreResult NetworkManagerProfileStore::runOnConnection(std::string_view name,
                                                        const Operation &operation)
{
    constexpr int mostAttempts = 3; // the first on old entries, one more when they change meanwhile
    BusReply reply;
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        StoreResult result = refresh();
        if (result.failed())
            return result;
        Numbered *found = findEntry(name);
        if (!found)
            return notFound();
        reply = operation(found->second);
        if (reply.cause != Cause::NoObject && reply.cause != Cause::NoDaemon)
            break;
        forget(found->second.path);
    }
    return reply.result;
}

StoreResult NetworkManagerProfileStore::count(unsigned int &profiles)
{
    StoreResult result = refresh(Asked::WhichThereAre);
    if (!result.failed())
        profiles = static_cast<unsigned int>(m_entries.size());
    return result;
}

StoreResult NetworkManagerProfileStore::list(unsigned int limit, std::vector<std::string> &names)
{
    StoreResult result = refresh(Asked::WhichThereAre);
    if (result.failed())
        return result;
    names.clear();
    for (const auto &[number, entry] : m_entries) {
        if (names.size() < limit)
            names.push_back(entry.name);
    }
    return {};
}

StoreResult NetworkManagerProfileStore::idByName(std::string_view name, std::uint32_t &id)
{
    StoreResult result = refresh();
    if (result.failed())
        return result;
    const Numbered *found = findEntry(name);
    if (!found)
        return notFound();
    id = found->first;
    return {};
}

StoreResult NetworkManagerProfileStore::nameById(std::uint32_t id, std::string &name)
{
    StoreResult result = refresh();
    if (result.failed())
        return result;
    const auto found = m_entries.find(id);
    if (found == m_entries.end())
        return notFound();
    name = found->second.name;
    return {};
}

// ---- Records ------------------------------------------------------------------------------------

BusReply NetworkManagerProfileStore::readAgain(const Entry &entry, ConnectionSettings &settings)
{
    BusReply reply = m_bus.callConnection(entry.path, getSettings);
    if (reply.result.failed())
        return reply;
    settings = settingsIn(reply);
    // Another ID is another name, which may by now be that of another connection.
    const bool isSame = isGsm(settings) &&
                        connectionProperty(settings, QStringLiteral("uuid")) == entry.uuid &&
                        connectionProperty(settings, QStringLiteral("id")) == entry.connectionId;
    if (!isSame)
        return {{}, Cause::NoObject, {NAPI_ERROR_BUSY, "NetworkManager: a connection changes"}};
    return reply;
}

BusReply NetworkManagerProfileStore::readSecrets(const Entry &entry, GsmConnection &connection)
{
    const QString gsm = QStringLiteral("gsm");
    BusReply reply = m_bus.callForSecrets(entry.path, gsm);
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
    forget(entry.path);
    return ignoreRefusal(sendUpdate(entry, connection));
}

/// Reads a connection with its secrets, and makes a record of it.
BusReply NetworkManagerProfileStore::readProfile(const Entry &entry, GsmConnection &connection,
                                                 NAP_PROFILE_S &record)
{
    BusReply reply = readAgain(entry, connection.settings);
    if (!reply.result.failed())
        reply = readKeptSecrets(entry, connection);
    // Asking for a password that the daemon does not keep would bother the agents of the user.
    if (!reply.result.failed() && isPasswordKept(connection.settings))
        reply = readSecrets(entry, connection);
    if (reply.result.failed())
        return reply;
    StoreResult result = readRecord(connection, record);
    return result.failed() ? failed(ofConnection(entry.connectionId, result)) : BusReply();
}

/// Adds the secrets to the record of an entry; those beside the connection are there already.
BusReply NetworkManagerProfileStore::completeRecord(const Entry &entry, GsmConnection &secrets,
                                                    NAP_PROFILE_S &record)
{
    BusReply reply;
    if (entry.isPasswordKept)
        reply = readSecrets(entry, secrets);
    if (reply.result.failed())
        return reply;
    record = *entry.record;
    StoreResult result = readSecretFields(secrets, record);
    return result.failed() ? failed(ofConnection(entry.connectionId, result)) : BusReply();
}

/// What other processes keep beside the connection is looked up each time: no signal tells of that.
BusReply NetworkManagerProfileStore::readEntry(Entry &entry, NAP_PROFILE_S &record)
{
    KeptSecrets secrets;
    StoreResult result = m_database->secretsOf(entry.uuid, secrets);
    if (result.failed())
        return failed(result);
    if (entry.record.has_value() && entry.keptSecrets == secrets) {
        record = *entry.record;
        return {};
    }
    GsmConnection connection = {{}, {}, secrets};
    NAP_PROFILE_S found;
    BusReply reply;
    if (entry.record.has_value() && !entry.keptSecrets.has_value())
        reply = completeRecord(entry, connection, found);
    else
        reply = readProfile(entry, connection, found);
    if (reply.result.failed())
        return reply;
    entry.record = found;
    entry.keptSecrets = connection.keptSecrets;
    record = found;
    return {};
}

StoreResult NetworkManagerProfileStore::read(std::string_view name, NAP_PROFILE_S &record)
{
    return runOnConnection(name, [&](Entry &entry) { return readEntry(entry, record); });
}

BusReply NetworkManagerProfileStore::modifyEntry(const Entry &entry, const NAP_PROFILE_S &record)
{
    GsmConnection before;
    NAP_PROFILE_S oldRecord;
    BusReply reply = readProfile(entry, before, oldRecord);
    if (reply.result.failed())
        return reply;
    GsmConnection after = before;
    ConnectionChange change;
    StoreResult result = writeRecord(oldRecord, record, after, change);
    if (result.failed())
        return failed(ofConnection(entry.connectionId, result));
    if (change.settings || change.secrets || change.keptSecrets)
        forget(entry.path);
    return update(entry, before, after, change);
}

StoreResult NetworkManagerProfileStore::modify(std::string_view name, const NAP_PROFILE_S &record)
{
    return runOnConnection(name, [&](Entry &entry) { return modifyEntry(entry, record); });
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

StoreResult NetworkManagerProfileStore::refuseTakenName(std::string_view name)
{
    if (findEntry(name))
        return {NAPI_ERROR_EXISTS, "NetworkManager has a gsm connection of that name already"};
    // One more of them could not have the name for itself.
    const auto hasId = [&](const Numbered &entry) { return entry.second.connectionId == name; };
    if (m_hasSubstitutes && std::ranges::any_of(m_entries, hasId))
        return {NAPI_ERROR_EXISTS, "NetworkManager has several gsm connections of that name"};
    return {};
}

namespace {

StoreResult connectionIdFor(std::string_view name, QString &id)
{
    const std::string text(name);
    id = QString::fromStdString(text);
    if (id.toStdString() == text)
        return {};
    return {NAPI_ERROR_BAD_NAME,
            "a profile name in NetworkManager cannot begin with a byte order mark"};
}

} // namespace

StoreResult NetworkManagerProfileStore::create(std::string_view name, const NAP_PROFILE_S &record,
                                               unsigned int maximum)
{
    QString id;
    StoreResult result = connectionIdFor(name, id);
    // Before the transaction, so that the IDs which it gives to others' connections stay.
    if (!result.failed())
        result = refresh();
    if (!result.failed())
        result = createInTransaction(id, record, maximum);
    if (result.failed() && m_hasUnkeptNumbers)
        forgetEverything();
    m_hasUnkeptNumbers = false;
    return result;
}

/// In a transaction, because NetworkManager would take the same name twice.
StoreResult NetworkManagerProfileStore::createInTransaction(const QString &id,
                                                            const NAP_PROFILE_S &record,
                                                            unsigned int maximum)
{
    SqliteTransaction transaction = m_database->transaction();
    StoreResult result = transaction.begin();
    if (!result.failed())
        result = refresh();
    if (!result.failed())
        result = refuseTakenName(id.toStdString());
    if (result.failed())
        return result;
    if (m_entries.size() >= maximum) {
        return {NAPI_ERROR_STORE_FULL, "NetworkManager has " + std::to_string(m_entries.size()) +
                                           " gsm connections, the profile service takes no more"};
    }
    Added added;
    result = add(id, record, added);
    if (result.failed())
        return result;
    result = transaction.commit();
    if (result.failed()) { // without its number on the disk it is not a profile
        m_bus.callConnection(added.entry.path, QStringLiteral("Delete"));
        return result;
    }
    m_connections[added.entry.path] = {added.number};
    m_numbers[added.entry.name] = added.number;
    m_entries[added.number] = std::move(added.entry);
    return {};
}

/// Adds a connection to the daemon, with its number.
StoreResult NetworkManagerProfileStore::add(const QString &id, const NAP_PROFILE_S &record,
                                            Added &added)
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
    added = {numbers.front(), {path.path(), name, uuid.toStdString(), name, {}, false, {}}};
    return {};
}

StoreResult NetworkManagerProfileStore::remove(std::string_view name)
{
    return runOnConnection(name, [&](Entry &entry) {
        ConnectionSettings settings;
        BusReply reply = readAgain(entry, settings);
        return reply.result.failed() ? reply : removeEntry(entry);
    });
}

StoreResult NetworkManagerProfileStore::rename(std::string_view name, std::string_view newName)
{
    QString id;
    StoreResult result = connectionIdFor(newName, id);
    if (result.failed())
        return result;
    return runOnConnection(name, [&](Entry &entry) {
        if (StoreResult taken = refuseTakenName(newName); taken.failed())
            return failed(taken);
        GsmConnection connection;
        BusReply reply = readAgain(entry, connection.settings);
        if (reply.result.failed())
            return reply;
        connection.settings[QStringLiteral("connection")][QStringLiteral("id")] = id;
        // The daemon keeps its secrets, since none of them comes along.
        forget(entry.path);
        return sendUpdate(entry, connection);
    });
}

/// Deletes a connection, with its secrets; its entry goes, too.
BusReply NetworkManagerProfileStore::removeEntry(const Entry &entry)
{
    KeptSecrets secrets;
    StoreResult result = m_database->secretsOf(entry.uuid, secrets);
    if (!result.failed() && secrets.empty())
        return deleteConnection(entry.path);
    SqliteTransaction transaction = m_database->transaction();
    if (!result.failed())
        result = transaction.begin();
    if (!result.failed())
        result = m_database->setSecrets(entry.uuid, {});
    if (result.failed())
        return failed(result);
    BusReply reply = deleteConnection(entry.path);
    if (!reply.result.failed())
        reply.result = transaction.commit();
    return reply;
}

BusReply NetworkManagerProfileStore::deleteConnection(QString path)
{
    forget(path);
    BusReply reply = m_bus.callConnection(path, QStringLiteral("Delete"));
    if (reply.result.failed())
        return reply;
    drop(path);
    if (m_hasSubstitutes)
        nameEntries();
    return reply;
}
