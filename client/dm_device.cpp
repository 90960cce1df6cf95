#include "dm_device.h"

#include "session/account_tree.h"

namespace client {

namespace {

// The second root reads what mounting the first one has written.
constexpr const char *mountOrder[] = {
    "./DevDetail/Ext/Conf/Conn/Profiles",
    "./DevDetail/Ext/Conf/IntProfs/Profiles",
};

} // namespace

std::unique_ptr<DmDevice> DmDevice::open(const Options &options, QString &error)
{
    std::unique_ptr<DmDevice> device(new DmDevice);
    device->m_state = StateDirectory::open(options.stateDirectory, error);
    if (!device->m_state)
        return nullptr;
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
    return device->mountRoots(error) ? std::move(device) : nullptr;
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
    for (const char *const root : mountOrder) {
        const JemSmartPtr<DmtTree> tree = m_plugin->treeFor(root, error);
        if (!tree)
            return false;
        m_tree->mount(mountPoint(root), tree);
    }
    m_tree->mount(mountPoint(accountTreeRoot), makeAccountTree(*m_accounts));
    return true;
}

} // namespace client
