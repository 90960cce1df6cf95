// A plug-in that is right, or wrong in the one way that its build says (see CMakeLists.txt).

#include "dmnative/dmt_plugin_api.h"

#include <cstring>

namespace {

class Node final : public DmtRWPluginNode {};

class Tree final : public DmtRWPluginTree {
public:
    explicit Tree(const char *rootPath) { Init(rootPath); }

    void fill()
    {
        add("", nullptr);
        add("Office", nullptr);
        const DmtData address("internet");
        add("Office/Addr", &address);
        const DmtData password("s3cret");
        add("Office/AuthPw", &password);
    }

private:
    void add(const char *path, const DmtData *value)
    {
        auto *const node = new Node;
        const JemSmartPtr<DmtNode> holder(node);
        if (value)
            node->Init(JemSmartPtr<DmtPluginTree>(this), path, *value, 0);
        else
            node->Init(JemSmartPtr<DmtPluginTree>(this), path);
        SetNode(path, holder);
    }
};

} // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

#if defined(ODD_NEEDS_SYMBOL)
EXPORTED int SymbolThatNobodyDefines();
#endif

#if !defined(ODD_WITHOUT_VERSION)
EXPORTED int DMT_PluginLib_GetAPIVersion()
{
#if defined(ODD_OLD_VERSION)
    return 0x10000;
#elif defined(ODD_NEEDS_SYMBOL)
    return SymbolThatNobodyDefines();
#else
    return DMT_PLUGIN_API_VERSION;
#endif
}
#endif

#if !defined(ODD_WITHOUT_TREE)
EXPORTED int DMT_PluginLib_Data_GetPluginTree(const char *rootPath, void *,
                                              JemSmartPtr<DmtPluginTree> &tree)
{
#if defined(ODD_REFUSES_SECOND_ROOT)
    if (std::strstr(rootPath, "IntProfs"))
        return DMT_FEATURE_NOT_SUPPORTED;
#elif defined(ODD_CANNOT_LOAD)
    return DMT_FAILED;
#elif defined(ODD_LIES)
    return DMT_OK;
#endif
    const JemSmartPtr<Tree> made(new Tree(rootPath));
    made->fill();
    tree = JemSmartPtr<DmtPluginTree>(made.get());
    return DMT_OK;
}
#endif
