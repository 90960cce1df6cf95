// Entry points: the two functions that an engine looks up in this library.

#include "DM_Napi_Plugin.h"

#include "DM_Napi_PluginTree.h"
#include "dmnative/dmt_plugin_api.h"

#include <cstring>
#include <type_traits>

#define KUB_EXPORT extern "C" __attribute__((visibility("default")))

KUB_EXPORT int DMT_PluginLib_GetAPIVersion() noexcept
{
    return DMT_PLUGIN_API_VERSION;
}

KUB_EXPORT int DMT_PluginLib_Data_GetPluginTree(const char *rootPath, void *,
                                                JemSmartPtr<DmtPluginTree> &tree) noexcept
{
    const char *const root = rootPath ? rootPath : "";
    LOG_TRACE("\nEnter in napiplugin\n"
              "Enter napi_plugin:DMT_PluginLib_Data_GetPluginTree : RootNodePath = %s\n",
              root);
    if (std::strcmp(root, CONN_ROOT_PATH) != 0 && std::strcmp(root, INTPROFS_ROOT_PATH) != 0) {
        LOG_FAILURE("Rootpath of the Subtree is not a NAPI Plugin!\n");
        return DMT_FEATURE_NOT_SUPPORTED;
    }
    auto *const loading = new DM_NAPI_PluginTree(root);
    const JemSmartPtr<DmtPluginTree> holder(loading);
    // Whatever went wrong, the engine learns only that the mount failed.
    if (loading->LoadProfilesinDB() != DMT_OK)
        return DMT_FAILED;
    tree = holder;
    return DMT_OK;
}

// What an engine casts the two symbols to.
static_assert(
    std::is_convertible_v<decltype(&DMT_PluginLib_GetAPIVersion), DmtPluginGetApiVersion *>);
static_assert(
    std::is_convertible_v<decltype(&DMT_PluginLib_Data_GetPluginTree), DmtPluginGetTree *>);
