// What a DM operation takes on the store of the profile service that KUB_NAPI_BACKEND chooses.
//
//   kub-store-times [--calls] PROFILES...
//
// For each number of profiles it prints a line for each operation, with the median of the elapsed
// time in microseconds: elapsed, because a store in another process spends it there. With --calls
// the operation runs once, and the number of calls to NetworkManager on the bus stands in place of
// the time. Everything that the store holds is deleted: on NetworkManager run it with
// tests/integration/networkmanager/with-private-networkmanager only.
#include "temporary_handset.h"

#include "aplog.h"
#include "dmnative/dmt_plugin_api.h"

#include <QProcess>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

extern "C" DmtPluginGetTree DMT_PluginLib_Data_GetPluginTree;

namespace {

using bench::Require;
using TreePtr = JemSmartPtr<DmtPluginTree>;

constexpr char CONN[] = "./DevDetail/Ext/Conf/Conn/Profiles";
constexpr char INT_PROFS[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";

TreePtr Mount(const char *root)
{
    TreePtr tree;
    Require(DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree) == DMT_OK, "mount");
    return tree;
}

JemSmartPtr<DmtNode> NodeAt(const TreePtr &tree, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    Require(tree->GetNode(path.c_str(), node) == DMT_OK, "GetNode " + path);
    return node;
}

struct Operation {
    const char *name;
    std::function<void()> run;
    int rounds; ///< how often its time is taken
};

/// In an order in which each finds what it needs.
std::vector<Operation> Operations()
{
    const TreePtr conn = Mount(CONN);
    const std::string profile = bench::PACKET_PROFILE;
    const std::string added = "Added";
    const auto get = [=](const std::string &leaf) {
        DmtData value;
        Require(NodeAt(conn, profile + "/" + leaf)->GetValue(value) == DMT_OK, "Get " + leaf);
    };
    const auto replace = [=](const std::string &leaf, const std::string &value) {
        Require(NodeAt(conn, profile + "/" + leaf)->SetValue(DmtData(value.c_str())) == DMT_OK,
                "Replace " + leaf);
    };
    DmtData address;
    DMString addressText;
    Require(NodeAt(conn, profile + "/Addr")->GetValue(address) == DMT_OK &&
                address.GetString(addressText) == DMT_OK,
            "Get Addr");
    const std::string sameAddress = addressText.text();
    int round = 0;
    return {
        {"mount Conn", [] { Mount(CONN); }, 5},
        {"mount IntProfs", [] { Mount(INT_PROFS); }, 5},
        {"Get of Addr", [=] { get("Addr"); }, 51},
        {"Get of all leaves of a profile",
         [=] {
             DmtChildValuesMap values;
             Require(conn->GetChildValuesMap(profile.c_str(), values) == DMT_OK, "Get");
         },
         21},
        {"Replace of Addr by the same", [=] { replace("Addr", sameAddress); }, 21},
        {"Replace of Addr", [=]() mutable { replace("Addr", "apn" + std::to_string(++round)); },
         21},
        {"Replace of AuthPw",
         [=]() mutable { replace("Auth/PAP/AuthPw", "pw" + std::to_string(++round)); }, 21},
        {"Add of a profile",
         [=] {
             JemSmartPtr<DmtNode> node;
             Require(conn->CreateInteriorNode(added.c_str(), node) == DMT_OK, "Add");
         },
         1},
        {"Delete of a profile",
         [=] { Require(conn->DeleteNode(added.c_str()) == DMT_OK, "Delete"); }, 1},
    };
}

double MedianMicroseconds(const Operation &operation)
{
    std::vector<double> times;
    for (int round = 0; round < operation.rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        operation.run();
        const std::chrono::duration<double, std::micro> time =
            std::chrono::steady_clock::now() - begin;
        times.push_back(time.count());
    }
    std::nth_element(times.begin(), times.begin() + operation.rounds / 2, times.end());
    return times[static_cast<std::size_t>(operation.rounds / 2)];
}

/// Counts the calls to NetworkManager with dbus-monitor. Marks are calls of this program that the
/// monitor sees after all calls before them.
class CallCounter {
public:
    CallCounter()
    {
        m_monitor.start(QStringLiteral("dbus-monitor"),
                        {QStringLiteral("--system"), QStringLiteral("--profile"),
                         QStringLiteral("type='method_call'")});
        do
            SendMark();
        while (ReadToMark(100) < 0); // until it listens
    }
    ~CallCounter()
    {
        m_monitor.kill();
        m_monitor.waitForFinished();
    }

    int CallsOf(const std::function<void()> &operation)
    {
        ReadToNewMark();
        operation();
        return ReadToNewMark();
    }

private:
    QString Mark() const { return QStringLiteral("Mark%1").arg(m_marks); }

    void SendMark()
    {
        ++m_marks;
        QProcess::execute(QStringLiteral("dbus-send"),
                          {QStringLiteral("--system"), QStringLiteral("--type=method_call"),
                           QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/"),
                           QStringLiteral("kub.bench.") + Mark()});
    }

    int ReadToNewMark()
    {
        SendMark();
        const int calls = ReadToMark(30000);
        Require(calls >= 0, "dbus-monitor");
        return calls;
    }

    /// @return the number of calls to NetworkManager before the last mark; -1 when the monitor
    ///         says nothing for that many milliseconds.
    int ReadToMark(int limitMs)
    {
        for (int calls = 0;;) {
            while (!m_monitor.canReadLine()) {
                if (!m_monitor.waitForReadyRead(limitMs)) {
                    Require(m_monitor.state() == QProcess::Running, "dbus-monitor");
                    return -1;
                }
            }
            const QByteArray line = m_monitor.readLine().trimmed();
            if (line.endsWith(Mark().toUtf8()))
                return calls;
            calls += line.contains("\torg.freedesktop.NetworkManager.Settings");
        }
    }

    QProcess m_monitor;
    int m_marks = 0;
};

void PrintTimes(int profiles)
{
    for (const Operation &operation : Operations())
        std::printf("%5d  %-32s %12.0f us\n", profiles, operation.name,
                    MedianMicroseconds(operation));
}

void PrintCalls(int profiles)
{
    const std::vector<Operation> operations = Operations();
    CallCounter counter;
    for (const Operation &operation : operations)
        std::printf("%5d  %-32s %12d calls\n", profiles, operation.name,
                    counter.CallsOf(operation.run));
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool wantsCalls = !arguments.empty() && arguments.front() == "--calls";
    if (wantsCalls)
        arguments.erase(arguments.begin());
    if (arguments.empty()) {
        std::fprintf(stderr, "usage: kub-store-times [--calls] PROFILES...\n");
        return 2;
    }
    const bench::TemporaryHandset handset;
    libaplog_to_module_ptr = std::fopen("/dev/null", "w");
    for (const std::string &argument : arguments) {
        const int profiles = std::atoi(argument.c_str());
        Require(profiles >= 2, argument + " is not a number from 2: it");
        bench::StoreProfiles(profiles);
        if (wantsCalls)
            PrintCalls(profiles);
        else
            PrintTimes(profiles);
    }
    std::fclose(libaplog_to_module_ptr);
    return 0;
}
