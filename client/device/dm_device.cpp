#include "dm_device.h"

#include "account_tree.h"
#include "profile_numbers.h"

#include <QFile>
#include <algorithm>
#include <utility>

namespace client {

namespace {

struct ProfileRoot {
    const char *uri;
    MappingFile mapping;
};

// The second root reads what mounting the first one has written.
constexpr ProfileRoot mountOrder[] = {
    {"./DevDetail/Ext/Conf/Conn/Profiles", {"kub_napdef_profilemapping.cfg", "NAPIDEF_Profile"}},
    {"./DevDetail/Ext/Conf/IntProfs/Profiles", {"kub_proxy_profilemapping.cfg", "PROXY_Profile"}},
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

QString chosenProfileStore()
{
    const QString name = qEnvironmentVariable(backendVariable);
    return name == QStringLiteral("sqlite") ? QString() : name;
}

} // namespace

std::unique_ptr<DmDevice> DmDevice::open(const Options &options, QString &error)
{
    std::unique_ptr<DmDevice> device(new DmDevice(options));
    device->m_state = StateDirectory::open(options.stateDirectory, error);
    if (!device->m_state)
        return nullptr;
    device->m_accounts =
        AccountStore::load(device->m_state->clientFile(QStringLiteral("accounts.json")));
    return device;
}

bool DmDevice::mount(QString &error)
{
    if (!m_options.profileBackend.isEmpty())
        qputenv(backendVariable, m_options.profileBackend.toUtf8());
    QByteArray deviceId;
    if (!readDeviceId(deviceId, error))
        return false;
    m_log = m_options.pluginMessagesToStandardError
                ? PluginLog::toStandardError()
                : PluginLog::toFile(m_state->clientFile(QStringLiteral("plugin.log")), error);
    if (!m_log)
        return false;
    m_plugin = PluginHost::load(m_options.pluginFile, error);
    if (!m_plugin)
        return false;
    m_tree = std::make_unique<ManagementTree>(hostInfo(deviceId));
    m_tree->setProfileStore(chosenProfileStore());
    if (!mountRoots(error))
        return false;
    loadProperties();
    return true;
}

/// @return false when there is none and none could be made
bool DmDevice::readDeviceId(QByteArray &id, QString &error)
{
    id = m_state->deviceId(error);
    if (id.isEmpty() && QFile::exists(m_state->clientFile(QStringLiteral("device-id"))))
        m_deviceIdDamage = error;
    return !id.isEmpty() || !m_deviceIdDamage.isEmpty();
}

namespace {

NodeUri mountPoint(const char *root)
{
    return parseAddress(QString::fromLatin1(root), UriLimits())->node;
}

} // namespace

bool DmDevice::mountRoots(QString &error)
{
    QString malformed;
    for (const ProfileRoot &root : mountOrder) {
        const JemSmartPtr<DmtTree> tree = m_plugin->treeFor(root.uri, error);
        if (!tree)
            return false;
        m_tree->mount(mountPoint(root.uri), tree,
                      {.acl = *AccessControlList::parse(profileRootAcl, malformed),
                       .profileAcl = *AccessControlList::parse(profileAcl, malformed),
                       .profileNumbers = [&root] { return readProfileNumbers(root.mapping); }});
    }
    m_tree->mount(mountPoint(accountTreeRoot), accountTreeFor(Principal::anonymousServer()),
                  {.ownersTree = accountTreeFor(Principal::owner())});
    return true;
}

JemSmartPtr<DmtTree> DmDevice::accountTreeFor(const Principal &user)
{
    return makeAccountTree(*m_accounts, user);
}

// ---- Kept state ----------------------------------------------------------------------------------

QString DmDevice::propertiesFile() const
{
    return m_state->clientFile(QStringLiteral("properties.json"));
}

void DmDevice::loadProperties()
{
    auto properties =
        PropertyStore::load(propertiesFile(), m_tree->profileNumbers(), m_propertiesDamage);
    if (properties)
        m_tree->setProperties(std::move(*properties));
    else
        m_tree->losePropertiesFor(m_propertiesDamage);
}

bool DmDevice::saveProperties(QString &error)
{
    if (!m_tree)
        return true;
    if (m_propertiesDamage.isEmpty())
        return m_tree->saveProperties(propertiesFile(), error);
    error = QStringLiteral("nothing is written to a damaged file: %1").arg(m_propertiesDamage);
    return !m_tree->properties().isChanged();
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
                                    "anything; %2, and give the lists anew")
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

bool DmDevice::putAccount(const QString &name, const Account &account, QString &error)
{
    const Account *const stored = m_accounts->find(name);
    const QByteArray before = stored ? stored->serverId : QByteArray();
    if (!stored && !forget(name, {}, error))
        return false;
    if (!m_accounts->put(name, account, error))
        return false;
    showAccounts();
    return hasAccountOf(before) || forget({}, before, error);
}

bool DmDevice::removeAccount(const QString &name, QString &error)
{
    const Account *const stored = m_accounts->find(name);
    const auto damaged = m_accounts->damagedAccounts().find(name);
    const QByteArray before = stored ? stored->serverId
                              : damaged != m_accounts->damagedAccounts().end()
                                  ? damaged->second.serverId
                                  : QByteArray();
    if (!m_accounts->remove(name, error))
        return false;
    showAccounts();
    return forget(name, hasAccountOf(before) ? QByteArray() : before, error);
}

bool DmDevice::hasAccountOf(const QByteArray &serverId) const
{
    return serverId.isEmpty() ||
           std::ranges::any_of(m_accounts->accounts(), [&serverId](const auto &entry) {
               return entry.second.serverId == serverId;
           });
}

bool DmDevice::forget(const QString &account, const QByteArray &serverId, QString &error)
{
    if (m_tree) {
        if (!serverId.isEmpty())
            m_tree->forgetServer(serverId);
        const bool isSaved = saveProperties(error);
        return isSaved && m_propertiesDamage.isEmpty();
    }
    QString malformed;
    std::optional<NodeUri> node;
    if (!account.isEmpty())
        node = mountPoint(accountTreeRoot).child(account.toUtf8());
    return PropertyStore::forgetInFile(propertiesFile(), node, serverId,
                                       *AccessControlList::parse(factoryRootAcl, malformed), error);
}

/// Has the tree show the accounts as they are now.
void DmDevice::showAccounts()
{
    if (m_tree)
        m_tree->remount(mountPoint(accountTreeRoot), accountTreeFor(Principal::anonymousServer()),
                        accountTreeFor(Principal::owner()));
}

} // namespace client
