// A plug-in of nodes to execute, ./Vendor/Busy/Run0 to Run19, each of which does what its argument
// says, and writes that it was called to the file that BUSY_LOG names.

#include "dmnative/dmt_plugin_api.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

class Tree final : public DmtRWPluginTree {
public:
    Tree() { Init("./Vendor/Busy"); }

    template <class Node>
    void add(const std::string &path)
    {
        auto *const node = new Node;
        const JemSmartPtr<DmtNode> holder(node);
        node->Init(JemSmartPtr<DmtPluginTree>(this), path.c_str());
        SetNode(path.c_str(), holder);
    }
};

class Root final : public DmtPluginNode {};

class RunNode final : public DmtPluginNode {
public:
    RunNode() { m_acl.text = DMString("Exec=*&Get=*"); }

    int Execute(const char *argument, DMString &) override
    {
        const char *const log = std::getenv("BUSY_LOG");
        std::ofstream(log ? log : "/dev/null", std::ios::app)
            << m_path.text() << ' ' << argument << std::endl;
        if (std::strcmp(argument, "be killed") == 0)
            ::kill(::getpid(), SIGKILL);
        return std::strcmp(argument, "fail") == 0 ? DMT_COMMAND_FAILED : DMT_OK;
    }
};

} // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int DMT_PluginLib_GetAPIVersion()
{
    return DMT_PLUGIN_API_VERSION;
}

EXPORTED int DMT_PluginLib_Data_GetPluginTree(const char *, void *,
                                              JemSmartPtr<DmtPluginTree> &tree)
{
    const JemSmartPtr<Tree> made(new Tree);
    made->add<Root>("");
    for (int i = 0; i < 20; ++i)
        made->add<RunNode>("Run" + std::to_string(i));
    tree = JemSmartPtr<DmtPluginTree>(made.get());
    return DMT_OK;
}
