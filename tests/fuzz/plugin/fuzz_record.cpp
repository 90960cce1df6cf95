// Any 1168 bytes as the record of a stored profile: both trees mount, every leaf of the profile is
// read and compared with what the model reads from the same bytes, and a bearer change moves what
// the model moves.
#include "handset_doubles.h"
#include "input_reader.h"
#include "plugin_test.h"
#include "tree_model.h"

#include <cstdio>
#include <cstdlib>

using model::Value;

namespace {

constexpr const char *BEARERS[] = {"GSM-GPRS", "GSM-CSD", "GSM-CSD2"};

void Expect(bool holds, const char *what, const std::string &path = {})
{
    if (holds)
        return;
    std::fprintf(stderr, "%s %s\n", what, path.c_str());
    std::abort();
}

Value ToValue(const DmtData &data)
{
    DMString text;
    Value value;
    if (data.GetString(text) == DMT_OK)
        return Value::OfText(text.text());
    if (data.GetInt(value.number) == DMT_OK)
        return Value::OfNumber(value.number);
    if (data.GetBoolean(value.flag) == DMT_OK)
        return Value::OfFlag(value.flag);
    return {};
}

void CheckLeaves(DmtPluginTree &tree, model::Tree &expected)
{
    for (const auto &[path, expectedNode] : expected.Nodes()) {
        JemSmartPtr<DmtNode> node;
        Expect(tree.GetNode(path.c_str(), node) == DMT_OK, "no node at", path);
        Expect(node->IsLeaf() == expectedNode.isLeaf, "kind of the node at", path);
        DmtData data;
        Value value;
        Expect(node->GetValue(data) == expected.GetValue(path, value), "status of", path);
        Expect(ToValue(data) == value, "value of", path);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    InputReader input(data, size);
    const char *const newBearer = BEARERS[input.Below(std::size(BEARERS))];
    model::Bytes record{};
    input.Fill(record.data(), record.size());

    doubles::HandsetDoubles handset;
    NAP_PROFILE_S stored;
    std::memcpy(&stored, record.data(), record.size());
    handset.napi.Store("Office", stored);
    model::Service service;
    service.profiles.push_back({service.nextId++, "Office", record});
    model::Files files;

    JemSmartPtr<DmtPluginTree> conn;
    JemSmartPtr<DmtPluginTree> intProfs;
    Expect(DMT_PluginLib_Data_GetPluginTree(doubles::CONN_ROOT, nullptr, conn) == DMT_OK, "mount");
    model::Tree expectedConn(model::Tree::Napdef, service, files);
    Expect(DMT_PluginLib_Data_GetPluginTree(doubles::INTPROFS_ROOT, nullptr, intProfs) == DMT_OK,
           "mount");
    model::Tree expectedIntProfs(model::Tree::Proxy, service, files);
    CheckLeaves(*conn, expectedConn);
    CheckLeaves(*intProfs, expectedIntProfs);

    JemSmartPtr<DmtNode> bearer;
    if (conn->GetNode("Office/Bearer", bearer) == DMT_OK) {
        Expect(bearer->SetValue(DmtData(newBearer)) ==
                   expectedConn.SetValue("Office/Bearer", Value::OfText(newBearer)),
               "status of the bearer change");
        Expect(std::memcmp(&handset.napi.Find("Office")->record,
                           service.Named("Office")->record.data(), record.size()) == 0,
               "record after the bearer change");
        CheckLeaves(*conn, expectedConn);
    }
    return 0;
}
