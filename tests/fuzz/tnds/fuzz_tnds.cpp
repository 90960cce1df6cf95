// Any bytes as a serialised tree that a server adds, puts in the place of a node, or adds to the
// Inbox. The first byte says which, and where.

#include "command_processor.h"
#include "memory_tree.h"
#include "provisioning_plan.h"
#include "require.h"
#include "serialised_objects.h"

#include <cstdint>
#include <map>

using namespace client;

namespace {

constexpr char root[] = "./M";
constexpr const char *targets[] = {"./M/A", "./M/B", "./M/New", "./M/A/Text"};

enum Choice : unsigned {
    Target = 3, ///< a place in targets
    Replaces = 4,
    IsOwners = 8,
    RefusesText = 16, ///< the plug-in does, for one leaf
};

JemSmartPtr<MemoryTree> makeMemory(unsigned choice)
{
    const JemSmartPtr<MemoryTree> memory = MemoryTree::create();
    memory->addInterior("A");
    memory->addLeaf("A/Text", DmtData("a text"));
    memory->addLeaf("A/Number", DmtData(7));
    memory->addInterior("A/Inner");
    memory->addLeaf("A/Inner/Flag", DmtData(true));
    memory->addInterior("B");
    memory->addLeaf("B/Text", DmtData("another"));
    if (choice & RefusesText) {
        memory->failures["set A/Text"] = 500;
        memory->failures["create New/Text"] = 500;
    }
    return memory;
}

/// Every node with its value and what is kept of it.
std::map<QByteArray, QByteArray> pictureOf(ManagementTree &tree)
{
    const TreeView owners(tree, Principal::owner());
    std::map<QByteArray, QByteArray> picture;
    for (const ListedNode &listed :
         owners.list(*owners.find(nodeAt(root)), TreeView::Values::Read)) {
        QByteArray &text = picture[listed.node.uri().toUri()];
        text = formatName(listed.node.valueType()).toLatin1();
        if (listed.value && *listed.value)
            text += '=' + valueText(**listed.value);
        for (const Property property :
             {Property::Acl, Property::Title, Property::Type, Property::VerNo})
            text += '\n' + *owners.property(listed.node, property);
    }
    return picture;
}

syncml::Command commandOf(unsigned choice, const QByteArray &document)
{
    syncml::Command command;
    command.kind = choice & Replaces ? syncml::CommandKind::Replace : syncml::CommandKind::Add;
    command.cmdId = QStringLiteral("1");
    syncml::Item item;
    item.target = syncml::Location{QString::fromLatin1(targets[choice & Target]), {}};
    item.meta.emplace();
    item.meta->type = QStringLiteral("application/vnd.syncml.dmtnds+xml");
    item.data = document;
    command.items = {item};
    return command;
}

void checkChange(unsigned choice, const QByteArray &document, std::size_t nodes)
{
    const JemSmartPtr<MemoryTree> memory = makeMemory(choice);
    ManagementTree tree(hostInfo("urn:test:1"));
    tree.mount(nodeAt(root), memory,
               {.acl = *AccessControlList::parse("Add=*&Delete=*&Get=*&Replace=*")});
    const auto before = pictureOf(tree);
    memory->calls.clear();
    CommandProcessor processor(tree, choice & IsOwners ? Principal::owner()
                                                       : Principal::server("dm.example"));
    std::vector<syncml::Command> answers;
    processor.run(commandOf(choice, document), answers);
    require(answers.size() == 1, "a command with another number of answers than one");
    const int status = answers[0].data->toInt();
    // The tree that is there counts as well: pictures are taken of it.
    constexpr std::size_t mostCallsForANode = 60;
    require(memory->calls.size() <= mostCallsForANode * (nodes + before.size()),
            "more calls of the plug-in than the nodes are worth");
    const auto after = pictureOf(tree);
    require(status == 200 || after == before, "a refused tree that has changed something");
    const NodeUri target = nodeAt(targets[choice & Target]);
    for (const auto &[uri, text] : before) {
        const NodeUri node = nodeAt(uri.constData());
        if (target.contains(node) || node.contains(target))
            continue;
        const auto found = after.find(uri);
        require(found != after.end() && found->second == text, "a change beside the target");
    }
}

void checkObjects(const std::vector<TndsNode> &nodes)
{
    const auto document = bootstrap::documentOfObjects(nodes);
    if (!document) {
        require(!document.error().isEmpty(), "objects that are refused without a reason");
        return;
    }
    const auto plan = bootstrap::planOf(*document, {});
    if (!plan) {
        require(!plan.error().isEmpty(), "a plan that is refused without a reason");
        return;
    }
    for (const bootstrap::PlannedAccount &planned : plan->accounts)
        require(checkComplete(planned.account) && checkAccountName(planned.name),
                "an account that cannot be kept");
    describe(*plan, bootstrap::Secrets::Masked);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray document(reinterpret_cast<const char *>(data + 1),
                              static_cast<qsizetype>(size - 1));
    const Result<std::vector<TndsNode>> nodes = readTnds(document);
    if (nodes) {
        require(!nodes->empty(), "a tree without a node");
        checkObjects(*nodes);
    } else {
        const DmStatus status = nodes.error().status;
        require(!nodes.error().reason.isEmpty() &&
                    (status == DmStatus::BadRequest || status == DmStatus::TooLarge ||
                     status == DmStatus::UnsupportedFormat),
                "a refusal without a reason, or with a status of something else");
    }
    checkChange(data[0], document, nodes ? nodes->size() : 0);
    return 0;
}
