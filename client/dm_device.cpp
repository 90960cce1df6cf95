#include "dm_device.h"

#include "profile_mapping.h"
#include "session/account_tree.h"

#include <algorithm>
#include <utility>

namespace client {

namespace {

struct ProfileRoot {
    const char *uri;
    ProfileMapping mapping;
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

} // namespace

std::unique_ptr<DmDevice> DmDevice::open(const Options &options, QString &error)
{
    std::unique_ptr<DmDevice> device(new DmDevice);
    device->m_state = StateDirectory::open(options.stateDirectory, error);
    if (!device->m_state)
        return nullptr;
    if (!options.profileBackend.isEmpty())
        qputenv("KUB_NAPI_BACKEND", options.profileBackend.toUtf8());
    const QByteArray deviceId = device->m_state->deviceId(error);
    if (deviceId.isEmpty())
        return nullptr;
    device->m_log =
        options.pluginMessagesToStandardError
            ? PluginLog::toStandardError()
            : PluginLog::toFile(device->m_state->clientFile(QStringLiteral("plugin.log")), error);
    if (!device->m_log)
        return nullptr;
    device->m_plugin = PluginHost::load(options.pluginFile, error);
    if (!device->m_plugin)
        return nullptr;
    if (!device->loadAccounts(error))
        return nullptr;
    device->m_tree = std::make_unique<ManagementTree>(describeHost(deviceId));
    const bool isReady = device->mountRoots(error) && device->loadProperties(error);
    return isReady ? std::move(device) : nullptr;
}

bool DmDevice::loadAccounts(QString &error)
{
    m_accounts = AccountStore::load(m_state->clientFile(QStringLiteral("accounts.json")), error);
    return m_accounts.has_value();
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
    m_tree->mount(mountPoint(accountTreeRoot), makeAccountTree(*m_accounts, [tree = m_tree.get()] {
                      return tree->principal().isOwner();
                  }));
    return true;
}

// ---- Kept state ----------------------------------------------------------------------------------

QString DmDevice::propertiesFile() const
{
    return m_state->clientFile(QStringLiteral("properties.json"));
}

bool DmDevice::loadProperties(QString &error)
{
    auto properties = PropertyStore::load(propertiesFile(), m_tree->profileNumbers(), error);
    if (properties)
        m_tree->setProperties(std::move(*properties));
    return properties.has_value();
}

bool DmDevice::saveProperties(QString &error)
{
    return m_tree->saveProperties(propertiesFile(), error);
}

bool DmDevice::putAccount(const QString &name, const Account &account, QString &error)
{
    const Account *const stored = m_accounts->find(name);
    const QByteArray before = stored ? stored->serverId : account.serverId;
    return m_accounts->put(name, account, error) && forgetServerWithoutAccount(before, error);
}

bool DmDevice::removeAccount(const QString &name, QString &error)
{
    const Account *const stored = m_accounts->find(name);
    const QByteArray before = stored ? stored->serverId : QByteArray();
    return m_accounts->remove(name, error) && forgetServerWithoutAccount(before, error);
}

bool DmDevice::forgetServerWithoutAccount(const QByteArray &serverId, QString &error)
{
    const auto isOfServer = [&serverId](const auto &entry) {
        return entry.second.serverId == serverId;
    };
    if (std::ranges::any_of(m_accounts->accounts(), isOfServer))
        return true;
    m_tree->forgetServer(serverId);
    return saveProperties(error);
}

} // namespace client
