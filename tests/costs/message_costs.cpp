// How often a package of the server goes to the heap, from its bytes to the client's answer.
//
//   message-costs            prints the counts, one line an operation
//   message-costs FILE       compares them with the lines of the file; exit status 1 when they
//   differ
//
// Run by callgrind (--collect-atstart=no) it leaves a dump with the instructions of each operation.
#include "callgrind.h"
#include "expected_lines.h"
#include "heap_count.h"
#include "memory_tree.h"
#include "package.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

namespace {

using syncml::Command;
using syncml::CommandKind;
using syncml::Encoding;
using syncml::Message;

constexpr int commandsInPackage = 40;

/// A package of so many Gets of one leaf.
Message packageOfGets()
{
    Message message;
    message.header.verDtd = QStringLiteral("1.2");
    message.header.verProto = QStringLiteral("DM/1.2");
    message.header.sessionId = QStringLiteral("1");
    message.header.msgId = QStringLiteral("1");
    message.header.target.locUri = QStringLiteral("urn:costs:1");
    message.header.source.locUri = QStringLiteral("http://127.0.0.1/");
    message.final = true;
    for (int i = 0; i < commandsInPackage; ++i) {
        Command &get = message.commands.emplace_back();
        get.kind = CommandKind::Get;
        get.cmdId = QString::number(i + 1);
        get.items.emplace_back();
        get.items[0].target = syncml::Location{QStringLiteral("./M/Office/Addr"), {}};
    }
    return message;
}

/// The device that packages run on.
struct Device {
    Device()
    {
        memory->addInterior("Office");
        memory->addLeaf("Office/Addr", DmtData("internet.office.example"));
        tree.mount(client::NodeUri({"M"}), memory,
                   {.acl = *client::AccessControlList::parse("Get=*")});
    }

    Message answer(const Message &package, Encoding encoding)
    {
        const auto server = client::Principal::server("costs");
        client::PackageAnswer answer = client::answerPackage(package, tree, encoding, server);
        if (!answer.allSucceeded || !answer.message) {
            std::fputs("message-costs: the package failed\n", stderr);
            std::exit(1);
        }
        return *std::move(answer.message);
    }

    JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    client::ManagementTree tree{client::hostInfo("urn:costs:1")};
};

/// Carries one operation out and counts. What it needed before is warm: it has run once.
std::string countedLine(const std::string &operation, const std::function<void()> &run)
{
    run();
    const std::uint64_t before = costs::AllocationsNow();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    costs::counting = true;
    run();
    costs::counting = false;
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(operation.c_str());
    return operation + ": " + std::to_string(costs::AllocationsNow() - before) + " allocations";
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    std::vector<std::string> lines;
    for (const Encoding encoding : {Encoding::Xml, Encoding::Wbxml}) {
        Device device;
        const Message package = packageOfGets();
        const QByteArray bytes = *syncml::encode(package, encoding);
        const Message answer = device.answer(package, encoding);
        const std::string ending =
            std::string(" 40 Gets ") + (encoding == Encoding::Xml ? "XML" : "WBXML");
        lines.push_back(countedLine("decode" + ending, [&] { (void)syncml::decode(bytes); }));
        lines.push_back(
            countedLine("answer" + ending, [&] { (void)device.answer(package, encoding); }));
        lines.push_back(
            countedLine("encode" + ending, [&] { (void)syncml::encode(answer, encoding); }));
    }
    return costs::CompareWithFile(lines, argc, argv);
}
