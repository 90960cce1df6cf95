// Loading a plug-in library and asking it for its trees.
#pragma once

#include "dmnative/dmt_plugin_api.h"
#include "expected.h"
#include "profile_call_observer.h"
#include "setting_call_observer.h"
#include "stored_node.h"

#include <QString>
#include <memory>

namespace client {

/// A loaded plug-in. It stays loaded until this object goes, so whoever holds one of its trees or
/// nodes has to drop them first: their code is the plug-in's.
class PluginHost {
public:
    /// Loads a library with all its symbols bound, and checks its interface version and exports.
    /// @param file  a path, or a bare name that is looked for in the library folders
    /// @return never null; the error is a sentence that names the file and the reason
    static support::Expected<std::unique_ptr<PluginHost>, QString> load(const QString &file);

    /// The path of the library that load() would load; what it was given when it can load none.
    static QString pathOf(const QString &file);

    ~PluginHost();
    PluginHost(const PluginHost &) = delete;
    PluginHost &operator=(const PluginHost &) = delete;

    /// Asks for the tree that serves a root.
    /// @return never null
    support::Expected<JemSmartPtr<DmtTree>, QString> treeFor(const QByteArray &root) const;

    /// Has the calls of the profile service and of the settings files, which the plug-in is linked
    /// with, told to these, until this object goes; to nobody with null. The libraries of a handset
    /// tell nobody.
    void observeCalls(call_observer::ProfileCallObserver *profileCalls,
                      call_observer::SettingCallObserver *settingCalls) const;

    /// Has the profile service that the plug-in is linked with write all profiles into a store of
    /// their own in another state directory, which has none yet. The service of a handset cannot.
    support::Expected<void, QString> copyProfiles(const QString &folder) const;

    /// Reads a profile from the profile service that the plug-in is linked with.
    /// @return the error is a sentence that names the profile
    support::Expected<StoredProfile, QString> readProfile(std::uint32_t id) const;

private:
    PluginHost(QString file, void *library);

    support::Expected<void, QString> bindExports();

    QString m_file;
    void *m_library;
    DmtPluginGetTree *m_getTree = nullptr;
};

} // namespace client
