#include "plugin_host.h"

#include "profile_copy.h"

#include <QFile>
#include <QFileInfo>
#include <array>
#include <dlfcn.h>
#include <link.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

template <class Function>
Function *symbol(void *library, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(library, name));
}

} // namespace

Expected<std::unique_ptr<PluginHost>, QString> PluginHost::load(const QString &file)
{
    // Everything is bound now: a plug-in with an undefined symbol is refused here, and does not end
    // the program later in the middle of a command.
    void *const library = dlopen(QFile::encodeName(file).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        return Unexpected(QStringLiteral("cannot load the plug-in %1: %2")
                              .arg(file, QString::fromLocal8Bit(dlerror())));
    std::unique_ptr<PluginHost> plugin(new PluginHost(file, library));
    if (const auto bound = plugin->bindExports(); !bound)
        return Unexpected(bound.error());
    return plugin;
}

QString PluginHost::pathOf(const QString &file)
{
    // Only the loader knows where it looks.
    void *const library = dlopen(QFile::encodeName(file).constData(), RTLD_LAZY | RTLD_LOCAL);
    if (!library)
        return file;
    link_map *loaded = nullptr;
    const bool isFound = dlinfo(library, RTLD_DI_LINKMAP, static_cast<void *>(&loaded)) == 0;
    const QString path =
        isFound ? QFileInfo(QFile::decodeName(loaded->l_name)).absoluteFilePath() : QString();
    dlclose(library);
    return path.isEmpty() ? file : path;
}

PluginHost::PluginHost(QString file, void *library) : m_file(std::move(file)), m_library(library) {}

PluginHost::~PluginHost()
{
    observeCalls(nullptr, nullptr);
    dlclose(m_library);
}

void PluginHost::observeCalls(call_observer::ProfileCallObserver *profileCalls,
                              call_observer::SettingCallObserver *settingCalls) const
{
    // A library's own dependencies are searched with it.
    if (auto *const set = symbol<call_observer::SetProfileCallObserver>(
            m_library, call_observer::setProfileCallObserverSymbol))
        set(profileCalls);
    if (auto *const set = symbol<call_observer::SetSettingCallObserver>(
            m_library, call_observer::setSettingCallObserverSymbol))
        set(settingCalls);
}

Expected<void, QString> PluginHost::copyProfiles(const QString &folder) const
{
    auto *const copy =
        symbol<profile_copy::CopyProfiles>(m_library, profile_copy::copyProfilesSymbol);
    if (!copy)
        return Unexpected(QStringLiteral("the profile service cannot copy its profiles"));
    std::array<char, 1024> reason{};
    if (copy(QFile::encodeName(folder).constData(), reason.data(), reason.size()) != NAPI_OK)
        return Unexpected(QString::fromUtf8(reason.data()));
    return {};
}

Expected<StoredProfile, QString> PluginHost::readProfile(std::uint32_t id) const
{
    auto *const findName =
        symbol<decltype(NAPI_GetProfileNameByID)>(m_library, "NAPI_GetProfileNameByID");
    auto *const read = symbol<decltype(NAPI_ReadProfile)>(m_library, "NAPI_ReadProfile");
    if (!findName || !read)
        return Unexpected(QStringLiteral("the plug-in is linked with no profile service"));
    std::array<char, NAPI_NAME_SIZE> name{};
    StoredProfile profile;
    profile.id = id;
    int status = findName(id, name.data());
    if (status == NAPI_OK)
        status = read(name.data(), &profile.record, 0, 0);
    if (status == NAPI_ERROR_NOT_FOUND)
        return Unexpected(QStringLiteral("profile %1 is not stored any more").arg(id));
    if (status != NAPI_OK)
        return Unexpected(
            QStringLiteral("profile %1 cannot be read: status %2").arg(id).arg(status));
    profile.name =
        QByteArray(name.data(), static_cast<qsizetype>(qstrnlen(name.data(), name.size())));
    return profile;
}

Expected<void, QString> PluginHost::bindExports()
{
    auto *const getVersion =
        symbol<DmtPluginGetApiVersion>(m_library, DMT_PLUGIN_API_VERSION_SYMBOL);
    m_getTree = symbol<DmtPluginGetTree>(m_library, DMT_PLUGIN_TREE_SYMBOL);
    const char *const missing = !getVersion  ? DMT_PLUGIN_API_VERSION_SYMBOL
                                : !m_getTree ? DMT_PLUGIN_TREE_SYMBOL
                                             : nullptr;
    if (missing)
        return Unexpected(QStringLiteral("%1 is not a plug-in: it does not export %2")
                              .arg(m_file, QString::fromLatin1(missing)));
    const int version = getVersion();
    if (version != DMT_PLUGIN_API_VERSION)
        return Unexpected(
            QStringLiteral("the plug-in %1 has interface version 0x%2; this client needs 0x%3")
                .arg(m_file, QString::number(version, 16),
                     QString::number(DMT_PLUGIN_API_VERSION, 16)));
    return {};
}

Expected<JemSmartPtr<DmtTree>, QString> PluginHost::treeFor(const QByteArray &root) const
{
    JemSmartPtr<DmtPluginTree> tree;
    const int status = m_getTree(root.constData(), nullptr, tree);
    if (status == DMT_OK && tree)
        return JemSmartPtr<DmtTree>(tree);
    return Unexpected(
        QStringLiteral("the plug-in %1 did not mount %2: %3")
            .arg(m_file, QString::fromUtf8(root),
                 status == DMT_FEATURE_NOT_SUPPORTED ? QStringLiteral("it does not serve this root")
                 : status == DMT_OK ? QStringLiteral("it reported success without a tree")
                                    : QStringLiteral("status %1").arg(status)));
}

} // namespace client
