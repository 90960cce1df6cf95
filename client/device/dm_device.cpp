#include "dm_device.h"

#include "account_tree.h"
#include "private_file.h"
#include "private_storage.h"
#include "program_folder.h"
#include "setup_set_manager.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

/// A root of profiles, of which the client knows more than that a plug-in is there.
struct ProfileRoot {
    const char *uri;
    MappingFile mapping;
};

// Where a plug-in serves both, mounting the second one reads what the first one has written.
constexpr ProfileRoot profileRootTable[] = {
    {"./DevDetail/Ext/Conf/Conn/Profiles", {"kub_napdef_profilemapping.cfg", "NAPIDEF_Profile"}},
    {"./DevDetail/Ext/Conf/IntProfs/Profiles",
     {"kub_proxy_profilemapping.cfg", "PROXY_Profile", "PROXY_Conn"}},
};

// Servers are let into the device by the accounts that its owner keeps, and the profiles are there
// to be managed by them. A profile that a server adds is that server's: it lacks Replace on the
// root, so the new node gets a list with rights for its creator. A server that wants one of the
// others for itself replaces the list of that profile. If the roots gave Replace, every server
// could take either list away again through the profile's parent.
constexpr char profileRootAcl[] = "Add=*&Get=*";
constexpr char profileAcl[] = "Add=*&Delete=*&Get=*&Replace=*";

// By it the profile service chooses among its stores, each of which counts its profiles from 1.
constexpr char backendVariable[] = "KUB_NAPI_BACKEND";

constexpr char usualProfileStore[] = "sqlite";

} // namespace

Expected<std::unique_ptr<DmDevice>, QString> DmDevice::open(const Options &options)
{
    std::unique_ptr<DmDevice> device(new DmDevice(options));
    auto state = StateDirectory::open(options.stateDirectory);
    if (!state)
        return Unexpected(state.error());
    device->m_state = *std::move(state);
    device->m_accounts =
        AccountStore::load(device->m_state->clientFile(QStringLiteral("accounts.json")));
    return device;
}

Expected<void, QString> DmDevice::makeTree()
{
    if (!m_options.profileBackend.isEmpty())
        qputenv(backendVariable, m_options.profileBackend.toUtf8());
    const auto deviceId = readDeviceId();
    if (!deviceId)
        return Unexpected(deviceId.error());
    m_tree = std::make_unique<ManagementTree>(hostInfo(*deviceId));
    if (const auto read = readDescriptions(); !read)
        return read;
    const QString store = profileStore();
    m_tree->setProfileStore(store == QLatin1String(usualProfileStore) ? QString() : store);
    m_tree->setCommandWatch(&m_watch);
    hangInRoots();
    loadProperties();
    return {};
}

QString DmDevice::profileStore() const
{
    if (!m_options.profileBackend.isEmpty())
        return m_options.profileBackend;
    const QString store = qEnvironmentVariable(backendVariable);
    return store.isEmpty() ? QString::fromLatin1(usualProfileStore) : store;
}

// ---- Plug-ins ------------------------------------------------------------------------------------

namespace {

const ProfileRoot *profileRootAt(const NodeUri &uri)
{
    const auto *const root = std::ranges::find_if(
        profileRootTable, [&uri](const ProfileRoot &entry) { return nodeAt(entry.uri) == uri; });
    return root == std::end(profileRootTable) ? nullptr : root;
}

bool hasProfiles(const PluginDescription &description)
{
    return std::ranges::any_of(description.roots, profileRootAt);
}

/// Where the plug-ins of this installation, or of this build, are described.
QString installedPlugins()
{
    return support::programFolder() + QStringLiteral("/" KUB_PLUGINS_FROM_PROGRAM);
}

} // namespace

Expected<void, QString> DmDevice::readDescriptions()
{
    const QString folder =
        m_options.pluginFolder.isEmpty() ? installedPlugins() : m_options.pluginFolder;
    auto descriptions = readPluginDescriptions(folder);
    m_descriptionFaults = descriptions.faults;
    for (PluginDescription &description : descriptions.plugins)
        m_plugins.push_back({std::move(description)});
    const auto plugin = std::ranges::find_if(
        m_plugins, [](const Plugin &entry) { return hasProfiles(entry.description); });
    m_profilePlugin = plugin == m_plugins.end() ? nullptr : &*plugin;
    if (m_options.profilePlugin.isEmpty())
        return {};
    if (!m_profilePlugin)
        return Unexpected(QStringLiteral("%1 cannot take the place of a plug-in: none that has the "
                                         "profiles is described in %2")
                              .arg(m_options.profilePlugin, folder));
    m_profilePlugin->description.library = m_options.profilePlugin;
    return {};
}

QString DmDevice::profilePlugin() const
{
    return m_profilePlugin ? PluginHost::pathOf(m_profilePlugin->description.library) : QString();
}

const QString *DmDevice::longExecAt(const NodeUri &node) const
{
    for (const Plugin &plugin : m_plugins)
        if (const auto type = plugin.description.longExec.find(node);
            type != plugin.description.longExec.end())
            return &type->second;
    return nullptr;
}

bool DmDevice::isProfilePluginLoaded() const
{
    return m_profilePlugin && m_profilePlugin->host;
}

Expected<void, QString> DmDevice::openLog()
{
    auto log = m_options.pluginMessagesToStandardError ? PluginLog::toStandardError()
                                                       : PluginLog::toFile(logFile());
    if (!log)
        return Unexpected(log.error());
    m_log = *std::move(log);
    m_watch.setLog(m_log.get());
    return {};
}

Expected<void, QString> DmDevice::load(Plugin &plugin)
{
    if (!m_log)
        if (auto opened = openLog(); !opened)
            return opened;
    auto host = PluginHost::load(plugin.description.library);
    if (!host)
        return Unexpected(host.error());
    plugin.host = *std::move(host);
    if (m_loadListener && &plugin == m_profilePlugin)
        std::exchange(m_loadListener, nullptr)();
    plugin.host->observeCalls(&m_watch, &m_watch);
    return {};
}

/// Fails when there is none and none could be made. With a damaged file the device has none.
Expected<QByteArray, QString> DmDevice::readDeviceId()
{
    auto id = m_state->deviceId();
    if (id || !QFile::exists(m_state->clientFile(QStringLiteral("device-id"))))
        return id;
    m_deviceIdDamage = id.error();
    return QByteArray();
}

void DmDevice::hangInRoots()
{
    for (std::size_t i = 0; i < m_plugins.size(); ++i) {
        Plugin &plugin = m_plugins[i];
        for (const NodeUri &root : plugin.description.roots) {
            MountTerms terms;
            if (const ProfileRoot *const profiles = profileRootAt(root))
                terms = {.acl = *AccessControlList::parse(profileRootAcl),
                         .profileAcl = *AccessControlList::parse(profileAcl),
                         .profileNumbers = [this, profiles] {
                             return profileNumbersOf(profiles->mapping);
                         }};
            m_tree->mountWhenNeeded(
                root, [this, &plugin, uri = root.toUri()] { return mountedTree(plugin, uri); },
                terms, static_cast<int>(i));
        }
    }
    m_tree->mount(nodeAt(accountTreeRoot),
                  makeAccountTree(*m_accounts, Principal::anonymousServer()),
                  {.ownersTree = makeAccountTree(*m_accounts, Principal::owner())});
}

namespace {

/// How many nodes there are at a path of a tree and beneath it.
int countNodes(DmtTree &tree, const QByteArray &path)
{
    DMStringVector names;
    if (tree.GetChildNodeNames(path.constData(), names) != DMT_OK)
        return 1;
    int count = 1;
    for (const DMString &name : names)
        count +=
            countNodes(tree, path.isEmpty() ? QByteArray(name.text()) : path + '/' + name.text());
    return count;
}

} // namespace

Expected<JemSmartPtr<DmtTree>, QString> DmDevice::mountedTree(Plugin &plugin,
                                                              const QByteArray &root)
{
    m_watch.beginMount(root);
    auto tree = treeFor(plugin, root);
    if (!tree)
        tree = Unexpected(mountFault(tree.error()));
    const int nodes = tree && m_watch.isObserved() ? countNodes(**tree, {}) : 0;
    m_watch.endMount(nodes, tree ? QString() : tree.error());
    return tree;
}

/// Reads a file of the plug-in's for the client, of which nobody hears who listens to the plug-in.
std::map<QString, quint32> DmDevice::profileNumbersOf(const MappingFile &mapping)
{
    m_watch.setPaused(true);
    auto numbers = readProfileNumbers(mapping);
    m_watch.setPaused(false);
    return numbers;
}

/// The fault with what the plug-in has said of it, and where the rest is.
QString DmDevice::mountFault(const QString &fault) const
{
    const QString said = m_watch.troubleOfMount();
    if (said.isEmpty())
        return fault;
    const QString place = m_options.pluginMessagesToStandardError
                              ? QString()
                              : QStringLiteral("; all that it said is in ") + logFile();
    return fault + QStringLiteral(": ") + said + place;
}

Expected<JemSmartPtr<DmtTree>, QString> DmDevice::treeFor(Plugin &plugin, const QByteArray &root)
{
    if (!plugin.host)
        if (const auto loaded = load(plugin); !loaded)
            return Unexpected(loaded.error());
    return plugin.host->treeFor(root);
}

QString DmDevice::logFile() const
{
    return m_state->clientFile(QStringLiteral("plugin.log"));
}

QStringList DmDevice::takeMountFaults()
{
    QStringList faults = m_tree->mountFaults();
    faults.remove(0, std::exchange(m_mountFaultsTaken, faults.size()));
    return faults;
}

// ---- Kept state ----------------------------------------------------------------------------------

QString DmDevice::propertiesFile() const
{
    return m_state->clientFile(QStringLiteral("properties.json"));
}

void DmDevice::loadProperties()
{
    std::vector<NodeUri> unmounted = m_tree->unmountedRoots();
    for (const NodeUri &root : profileRoots())
        if (std::ranges::find(unmounted, root) == unmounted.end())
            unmounted.push_back(root); // their plug-in is not described at present
    auto properties = PropertyStore::load(propertiesFile(), m_tree->profileNumbers(), unmounted);
    if (properties) {
        m_tree->setProperties(*std::move(properties));
    } else {
        m_propertiesDamage = properties.error();
        m_tree->losePropertiesFor(m_propertiesDamage);
    }
}

Expected<void, QString> DmDevice::saveProperties()
{
    const bool hasNothingToSave =
        !m_tree || (!m_propertiesDamage.isEmpty() && !m_tree->properties().isChanged());
    return hasNothingToSave ? Expected<void, QString>() : writeProperties();
}

Expected<void, QString> DmDevice::writeProperties()
{
    if (!m_propertiesDamage.isEmpty())
        return Unexpected(
            QStringLiteral("nothing is written to a damaged file: %1").arg(m_propertiesDamage));
    return m_tree->saveProperties(propertiesFile());
}

// ---- What is stored ------------------------------------------------------------------------------

namespace {

/// Takes what goes wrong in the libraries beneath the plug-in while the client itself calls them.
class OwnCalls final : public call_observer::ProfileCallObserver,
                       public call_observer::SettingCallObserver {
public:
    QString takeFault() { return std::exchange(m_faults, {}).join(QStringLiteral("; ")); }

    bool wantsRecords() const override { return false; }
    bool observe(const call_observer::ProfileCall &call) noexcept override
    {
        return take(
            QString::fromUtf8(call.reason.data(), static_cast<qsizetype>(call.reason.size())));
    }
    bool observe(const call_observer::SettingCall &call) noexcept override
    {
        return take(call.reason);
    }

private:
    bool take(const QString &reason)
    {
        if (!reason.isEmpty())
            m_faults += reason;
        return true;
    }

    QStringList m_faults;
};

StoredMapping readMapping(const MappingFile &mapping, OwnCalls &calls)
{
    StoredMapping stored;
    stored.file = QString::fromLatin1(mapping.file);
    const SETUP_SET_Manager settings(getSettingDirectory() + stored.file, false);
    for (const char *const group : {mapping.group, mapping.otherGroup}) {
        if (!group)
            continue;
        const QMap<QString, QString> entries = settings.getEntryKeyList(QLatin1String(group));
        for (auto entry = entries.begin(); entry != entries.end(); ++entry)
            stored.entries.push_back({QString::fromLatin1(group), entry.key(), entry.value()});
    }
    stored.fault = calls.takeFault();
    return stored;
}

} // namespace

/// The profile that a node beneath a profile root shows, or is in the subtree of.
Expected<StoredProfile, QString> DmDevice::profileOf(const NodeUri &node) const
{
    for (const ProfileRoot &root : profileRootTable) {
        const NodeUri above = nodeAt(root.uri);
        if (!above.contains(node) || above == node)
            continue;
        const QByteArrayView beneath = node.joinedNames().sliced(node.beginBeneath(above));
        const auto numbers = readProfileNumbers(root.mapping);
        const auto number = numbers.find(QString::fromUtf8(NodeUri::first(beneath)));
        if (number == numbers.end())
            return Unexpected(QStringLiteral("%1 names no profile for this node, or several")
                                  .arg(QLatin1String(root.mapping.file)));
        return m_profilePlugin->host->readProfile(number->second);
    }
    return Unexpected(QStringLiteral("the node is of no profile"));
}

Expected<StoredNode, QString> DmDevice::storedFor(const NodeUri &node)
{
    if (!m_profilePlugin)
        return Unexpected(QStringLiteral("no plug-in that has the profiles is described"));
    if (!m_profilePlugin->host)
        if (const auto loaded = load(*m_profilePlugin); !loaded)
            return Unexpected(loaded.error());
    const PluginHost &host = *m_profilePlugin->host;
    OwnCalls calls;
    host.observeCalls(&calls, &calls);
    StoredNode stored;
    auto profile = profileOf(node);
    const QString fault = calls.takeFault();
    if (profile)
        stored.profile = *std::move(profile);
    else
        stored.fault =
            fault.isEmpty() ? profile.error() : profile.error() + QStringLiteral(": ") + fault;
    for (const ProfileRoot &root : profileRootTable)
        stored.mappings.push_back(readMapping(root.mapping, calls));
    host.observeCalls(&m_watch, &m_watch);
    return stored;
}

// ---- A copy of the state -------------------------------------------------------------------------

std::vector<NodeUri> profileRoots()
{
    std::vector<NodeUri> roots;
    for (const ProfileRoot &root : profileRootTable)
        roots.push_back(nodeAt(root.uri));
    return roots;
}

DmDevice::Options DmDevice::optionsFor(const QString &folder) const
{
    Options options = m_options;
    options.stateDirectory = folder;
    options.pluginMessagesToStandardError = false;
    return options;
}

bool DmDevice::hasProfilesInState() const
{
    return profileStore() == QLatin1String(usualProfileStore);
}

namespace {

/// Copies a file of the state, if there is one.
Expected<void, QString> copyFile(const QString &from, const QString &to)
{
    constexpr qsizetype largest = 64 * 1024 * 1024;
    const auto content = support::PrivateFile(from, largest).read();
    if (!content)
        return Unexpected(content.error());
    if (!*content)
        return {};
    handset_state::Refusal refusal;
    auto file = handset_state::openFile(QFile::encodeName(to).toStdString(),
                                        O_WRONLY | O_CREAT | O_EXCL, refusal);
    if (!file)
        return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    const std::span bytes((*content)->constData(), static_cast<std::size_t>((*content)->size()));
    if (!file.writeAll(bytes) || !file.close())
        return Unexpected(QStringLiteral("cannot write %1: %2")
                              .arg(to, QString::fromLocal8Bit(std::strerror(errno))));
    return {};
}

} // namespace

Expected<void, QString> DmDevice::copyFilesTo(const QString &folder) const
{
    QStringList files;
    for (const char *const name : {"device-id", "accounts.json", "properties.json"})
        files += QStringLiteral("client/") + QLatin1String(name);
    for (const QString &name : QDir(m_state->path() + QStringLiteral("/settings"))
                                   .entryList(QDir::Files | QDir::System | QDir::Hidden))
        files += QStringLiteral("settings/") + name;
    for (const char *const name : {"/client", "/settings"})
        if (const auto refusal =
                handset_state::makeFolder(QFile::encodeName(folder).toStdString() + name))
            return Unexpected(QString::fromLocal8Bit(refusal.text().c_str()));
    for (const QString &file : files)
        if (auto copied = copyFile(m_state->path() + u'/' + file, folder + u'/' + file); !copied)
            return copied;
    return {};
}

Expected<void, QString> DmDevice::copyProfilesTo(const QString &folder) const
{
    return m_profilePlugin->host->copyProfiles(folder);
}

// ---- Damage --------------------------------------------------------------------------------------

namespace {

/// The text as one word of a POSIX shell.
QString shellWord(QString text)
{
    return u'\'' + text.replace(u'\'', QStringLiteral("'\\''")) + u'\'';
}

/// How to go on without a file.
QString setAside(const QString &file)
{
    return QStringLiteral("to set it aside: mv %1 %2")
        .arg(shellWord(file), shellWord(file + QStringLiteral(".damaged")));
}

} // namespace

QStringList DmDevice::damage() const
{
    QStringList sentences;
    for (const QString &fault : m_descriptionFaults)
        sentences += QStringLiteral("%1; the client goes on without that plug-in").arg(fault);
    if (!m_deviceIdDamage.isEmpty())
        sentences +=
            QStringLiteral("%1; the device has no identifier, and gets a new one when the "
                           "file is gone; %2")
                .arg(m_deviceIdDamage, setAside(m_state->clientFile(QStringLiteral("device-id"))));
    const QString accountsFile = m_state->clientFile(QStringLiteral("accounts.json"));
    if (!m_accounts->damage().isEmpty())
        sentences += QStringLiteral("%1; its accounts are not used; %2")
                         .arg(m_accounts->damage(), setAside(accountsFile));
    for (const auto &[name, account] : m_accounts->damagedAccounts())
        sentences += QStringLiteral("%1: %2; the account is not used until the file is mended; "
                                    "account remove takes it away")
                         .arg(accountsFile, account.reason);
    if (!m_propertiesDamage.isEmpty())
        sentences += QStringLiteral("%1; without the access control lists in it no server may do "
                                    "anything; %2, and give the lists again")
                         .arg(m_propertiesDamage, setAside(propertiesFile()));
    return sentences;
}

QString DmDevice::reasonAgainstServers() const
{
    for (const QString &damage : {m_deviceIdDamage, m_accounts->damage(), m_propertiesDamage})
        if (!damage.isEmpty())
            return QStringLiteral(
                       "no server may do anything as long as a state file is damaged: %1")
                .arg(damage);
    return {};
}

// ---- Accounts ------------------------------------------------------------------------------------

Expected<void, QString> DmDevice::putAccount(const QString &name, const Account &account)
{
    const QByteArray before = m_accounts->serverIdOf(name);
    if (!m_accounts->find(name))
        if (auto forgotten = forget(name, {}); !forgotten)
            return forgotten;
    if (auto kept = m_accounts->put(name, account); !kept)
        return kept;
    showAccounts();
    return hasAccountOf(before) ? Expected<void, QString>() : forget({}, before);
}

Expected<void, QString> DmDevice::removeAccount(const QString &name)
{
    const QByteArray before = m_accounts->serverIdOf(name);
    if (auto removed = m_accounts->remove(name); !removed)
        return removed;
    showAccounts();
    return forget(name, hasAccountOf(before) ? QByteArray() : before);
}

bool DmDevice::hasAccountOf(const QByteArray &serverId) const
{
    return serverId.isEmpty() ||
           std::ranges::any_of(m_accounts->accounts(), [&serverId](const auto &entry) {
               return entry.second.serverId == serverId;
           });
}

Expected<void, QString> DmDevice::forget(const QString &account, const QByteArray &serverId)
{
    if (m_tree) {
        if (!serverId.isEmpty())
            m_tree->forgetServer(serverId);
        return writeProperties();
    }
    std::optional<NodeUri> node;
    if (!account.isEmpty())
        node = nodeAt(accountTreeRoot).child(account.toUtf8());
    return PropertyStore::forgetInFile(propertiesFile(), node, serverId,
                                       *AccessControlList::parse(factoryRootAcl));
}

/// Has the tree show the accounts as they are now.
void DmDevice::showAccounts()
{
    if (m_tree)
        m_tree->remount(nodeAt(accountTreeRoot),
                        makeAccountTree(*m_accounts, Principal::anonymousServer()),
                        makeAccountTree(*m_accounts, Principal::owner()));
}

} // namespace client
