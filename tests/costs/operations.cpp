#include "operations.h"

#include "counted_handset.h"
#include "dmnative/dmt_plugin_api.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" DmtPluginGetTree DMT_PluginLib_Data_GetPluginTree;

namespace costs {

namespace {

using TreePtr = JemSmartPtr<DmtPluginTree>;

constexpr int USUAL_SIZE = 10;
constexpr char CONN[] = "./DevDetail/Ext/Conf/Conn/Profiles";
constexpr char INT_PROFS[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";
constexpr char PACKET[] = "Packet data";
constexpr char MODEM[] = "Modem";

void Require(int status)
{
    if (status == DMT_OK)
        return;
    std::fprintf(stderr, "plugin-costs: an operation answered %d\n", status);
    std::exit(1);
}

TreePtr Mount(const char *root)
{
    TreePtr tree;
    Require(DMT_PluginLib_Data_GetPluginTree(root, nullptr, tree));
    return tree;
}

void StoreProfiles(int profiles)
{
    ForgetEverything();
    NAP_PROFILE_S packet{};
    std::strcpy(packet.gprsAddress, "internet.operator.example");
    std::strcpy(packet.gprsAuthId, "user");
    std::strcpy(packet.gprsAuthPassword, "password");
    packet.gprsDns1 = 0x0A000001;
    std::strcpy(packet.proxy1Address, "proxy.operator.example");
    packet.proxy1Port = 8080;
    NAP_PROFILE_S modem{};
    std::strcpy(modem.csdAddress, "+491720000");
    modem.csdSpeedCode = 0x4B;
    for (int i = 0; i < profiles - 2; ++i)
        Store("Operator " + std::to_string(i), packet);
    Store(MODEM, modem);
    Store(PACKET, packet);
}

/// Both trees, mounted on a fresh store.
struct Trees {
    TreePtr conn = Mount(CONN);
    TreePtr intProfs = Mount(INT_PROFS);
};

std::shared_ptr<Trees> FreshTrees()
{
    StoreProfiles(USUAL_SIZE);
    return std::make_shared<Trees>();
}

JemSmartPtr<DmtNode> NodeAt(const TreePtr &tree, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    Require(tree->GetNode(path.c_str(), node));
    return node;
}

struct Leaf {
    const char *name;
    const char *root;
    std::string path;
    DmtData value;
};

std::vector<Leaf> LeafClasses()
{
    const std::string packet = std::string(PACKET) + "/";
    const std::string modem = std::string(MODEM) + "/";
    return {
        {"text", CONN, packet + "Addr", DmtData("internet.example")},
        {"dns", CONN, packet + "DNS1", DmtData("192.168.100.200")},
        {"number", CONN, packet + "Linger", DmtData(60)},
        {"nested-text", CONN, packet + "Auth/PAP/AuthPw", DmtData("secret")},
        {"speed", CONN, modem + "Speed", DmtData(9600)},
        {"line-type", CONN, modem + "LineType", DmtData("Isdn")},
        {"bearer", CONN, modem + "Bearer", DmtData("GSM-CSD2")},
        {"proxy-text", INT_PROFS, packet + "Ph1/Addr", DmtData("proxy.example")},
        {"proxy-port", INT_PROFS, packet + "Ph2/Port/PortNbr", DmtData(3128)},
        {"flag", INT_PROFS, packet + "UserEditable", DmtData(false)},
        {"conn", INT_PROFS, packet + "Ph1/Conn", DmtData(MODEM)},
    };
}

void AddMounts(std::vector<Operation> &operations)
{
    for (const int profiles : {10, 100, 300})
        for (const char *root : {CONN, INT_PROFS})
            operations.push_back({root == CONN ? "mount-conn" : "mount-intprofs", profiles, [=] {
                                      StoreProfiles(profiles);
                                      if (root == INT_PROFS)
                                          Mount(CONN); // whose file the mount reads
                                      // The tree goes with the operation, outside the counts.
                                      return [root, tree = std::make_shared<TreePtr>()] {
                                          *tree = Mount(root);
                                      };
                                  }});
}

void AddLeaves(std::vector<Operation> &operations)
{
    for (const Leaf &leaf : LeafClasses()) {
        const auto nodeOf = [leaf](const std::shared_ptr<Trees> &trees) {
            return NodeAt(leaf.root == CONN ? trees->conn : trees->intProfs, leaf.path);
        };
        operations.push_back({std::string("get-") + leaf.name, USUAL_SIZE, [=] {
                                  const auto trees = FreshTrees();
                                  return [trees, node = nodeOf(trees)] {
                                      DmtData value;
                                      Require(node->GetValue(value));
                                  };
                              }});
        operations.push_back({std::string("set-") + leaf.name, USUAL_SIZE, [=] {
                                  const auto trees = FreshTrees();
                                  return [trees, node = nodeOf(trees), value = leaf.value] {
                                      Require(node->SetValue(value));
                                  };
                              }});
    }
}

void AddProfileChanges(std::vector<Operation> &operations)
{
    operations.push_back({"add-profile", USUAL_SIZE, [] {
                              return [trees = FreshTrees()] {
                                  JemSmartPtr<DmtNode> node;
                                  Require(trees->conn->CreateInteriorNode("New", node));
                              };
                          }});
    operations.push_back({"adopt-profile", USUAL_SIZE, [] {
                              const auto trees = FreshTrees();
                              Store("New", NAP_PROFILE_S{});
                              return [trees] {
                                  JemSmartPtr<DmtNode> node;
                                  Require(trees->conn->CreateInteriorNode("New", node));
                              };
                          }});
    operations.push_back(
        {"add-leaf", USUAL_SIZE, [] {
             const auto trees = FreshTrees();
             JemSmartPtr<DmtNode> node;
             Require(trees->conn->CreateInteriorNode("New", node));
             return [trees] {
                 JemSmartPtr<DmtNode> leaf;
                 Require(trees->conn->CreateLeafNode("New/Addr", leaf, DmtData("+4917200")));
             };
         }});
    operations.push_back({"rename-conn", USUAL_SIZE, [] {
                              return [trees = FreshTrees()] {
                                  Require(trees->conn->RenameNode(PACKET, "Renamed"));
                              };
                          }});
    operations.push_back({"rename-intprofs", USUAL_SIZE, [] {
                              return [trees = FreshTrees()] {
                                  Require(trees->intProfs->RenameNode(PACKET, "Renamed"));
                              };
                          }});
    operations.push_back(
        {"delete-not-last", USUAL_SIZE,
         [] { return [trees = FreshTrees()] { Require(trees->conn->DeleteNode(PACKET)); }; }});
    operations.push_back({"delete-last", USUAL_SIZE, [] {
                              const auto trees = FreshTrees();
                              Require(trees->conn->DeleteNode(PACKET));
                              return [trees] { Require(trees->intProfs->DeleteNode(PACKET)); };
                          }});
}

void AddBulk(std::vector<Operation> &operations)
{
    operations.push_back({"get-children-map", USUAL_SIZE, [] {
                              return [trees = FreshTrees()] {
                                  DmtChildValuesMap values;
                                  Require(trees->conn->GetChildValuesMap(PACKET, values));
                              };
                          }});
    operations.push_back({"set-children-map", USUAL_SIZE, [] {
                              DmtChildValuesMap values;
                              values.put(DMString("Addr"), DmtData("internet"));
                              values.put(DMString("Linger"), DmtData(60));
                              return [trees = FreshTrees(), values] {
                                  Require(trees->conn->SetChildValuesMap(PACKET, values));
                              };
                          }});
    operations.push_back({"release", USUAL_SIZE, [] {
                              StoreProfiles(USUAL_SIZE);
                              return [tree = std::make_shared<TreePtr>(Mount(CONN))] {
                                  tree->reset();
                              };
                          }});
}

} // namespace

std::vector<Operation> AllOperations()
{
    std::vector<Operation> operations;
    AddMounts(operations);
    AddLeaves(operations);
    AddProfileChanges(operations);
    AddBulk(operations);
    return operations;
}

} // namespace costs
