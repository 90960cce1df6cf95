// Plays a story of a server on the plug-in: mounts, reads, and changes of every kind. The
// observer's lines go to the file $KUB_CALL_OBSERVER.
//
//   observed_calls PLUGIN
#include <QString>
#include <cstdlib>
#include <string>

#include "call_line.h"
#include "plugin_host.h"
#include "plugin_log.h"

namespace {

class LineWriter : public call_observer::ProfileCallObserver,
                   public call_observer::SettingCallObserver {
public:
    explicit LineWriter(std::FILE *file) : m_file(file) {}

    bool wantsRecords() const override { return true; }

    bool observe(const call_observer::ProfileCall &call) noexcept override
    {
        const std::string_view function = call.function;
        const bool isAboutIds = function.find("ID") != std::string_view::npos;
        writeLine(m_file, {.function = function,
                           .profile = std::string(call.profile),
                           // The witness sees no other ID than one that was asked for or answered.
                           .id = isAboutIds ? call.id : std::nullopt,
                           .count = call.count,
                           .status = call.status,
                           .record = call.after});
        return true;
    }

    bool observe(const call_observer::SettingCall &call) noexcept override
    {
        writeLine(m_file, {.function = call.function,
                           .status = call.result,
                           .file = call.file,
                           .group = call.group,
                           .key = call.key,
                           .value = call.after});
        return true;
    }

private:
    std::FILE *m_file;
};

void readLeaves(DmtTree &tree, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    if (tree.GetNode(path.c_str(), node) != DMT_OK)
        return;
    DmtData value;
    if (node->IsLeaf()) {
        node->GetValue(value);
        return;
    }
    DMVector<JemSmartPtr<DmtNode>> children;
    node->GetChildNodes(children);
    for (const JemSmartPtr<DmtNode> &child : children)
        readLeaves(tree, (path.empty() ? "" : path + "/") + child->GetName().text());
}

void replace(DmtTree &tree, const char *path, const DmtData &value)
{
    JemSmartPtr<DmtNode> node;
    if (tree.GetNode(path, node) == DMT_OK)
        node->SetValue(value);
}

void play(DmtTree &conn, DmtTree &proxies)
{
    constexpr int longLinger = 70000;
    JemSmartPtr<DmtNode> node;
    readLeaves(conn, "");
    readLeaves(proxies, "");
    replace(conn, "Office/Linger", DmtData(longLinger));
    replace(conn, "Office/Addr", DmtData("apn.example"));
    replace(conn, "Office/Auth/PAP/AuthPw", DmtData("pass"));
    replace(proxies, "Office/Ph1/Addr", DmtData("other.example"));
    conn.CreateInteriorNode("New", node);
    conn.CreateLeafNode("New/Addr", node, DmtData("new.example"));
    replace(conn, "New/Bearer", DmtData("GSM-CSD"));
    conn.CreateInteriorNode("One too many", node);
    conn.RenameNode("New", "Renamed");
    conn.DeleteNode("Home");
    proxies.DeleteNode("Office");
    conn.DeleteNode("Office");
}

} // namespace

int main(int argc, char *argv[])
{
    std::FILE *const file = std::fopen(std::getenv("KUB_CALL_OBSERVER"), "w");
    if (argc != 2 || !file)
        return EXIT_FAILURE;
    LineWriter observer(file);
    const auto log = client::PluginLog::toStandardError();
    const auto plugin = client::PluginHost::load(QString::fromLocal8Bit(argv[1]));
    if (!log || !plugin)
        return EXIT_FAILURE;
    (*plugin)->observeCalls(&observer, &observer);
    {
        auto conn = (*plugin)->treeFor("./DevDetail/Ext/Conf/Conn/Profiles");
        auto proxies = (*plugin)->treeFor("./DevDetail/Ext/Conf/IntProfs/Profiles");
        if (!conn || !proxies)
            return EXIT_FAILURE;
        play(**conn, **proxies);
    }
    std::fclose(file);
    return EXIT_SUCCESS;
}
