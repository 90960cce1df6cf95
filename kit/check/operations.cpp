#include "operations.h"

#include "device.h"

namespace {

using std::string;

constexpr Operation operations[] = {
    {"GetTree", true,
     [](auto &, DmtNode &node, auto) {
         JemSmartPtr<DmtTree> tree;
         return node.GetTree(tree);
     }},
    {"GetPath", true,
     [](auto &, DmtNode &node, auto) {
         DMString path;
         return node.GetPath(path);
     }},
    {"GetAttributes", true,
     [](auto &, DmtNode &node, auto) {
         DmtAttributes attributes;
         return node.GetAttributes(attributes);
     }},
    {"GetValue", true,
     [](auto &, DmtNode &node, auto) {
         DmtData value;
         return node.GetValue(value);
     }},
    {"GetChildNodes", true,
     [](auto &, DmtNode &node, auto) {
         DMVector<Node> children;
         return node.GetChildNodes(children);
     }},
    {"GetChildNode", true,
     [](auto &, DmtNode &node, auto) {
         Node child;
         return node.GetChildNode("dm-plugin-check", child);
     }},
    {"GetNodeName", true,
     [](auto &, DmtNode &node, auto) {
         DMString name;
         return node.GetNodeName(name);
     }},
    {"GetName", true,
     [](auto &, DmtNode &node, auto) {
         node.GetName();
         return 0;
     }},
    {"GetNode", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         Node node;
         return tree.GetNode(path, node);
     }},
    {"GetChildNodeNames", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DMStringVector names;
         return tree.GetChildNodeNames(path, names);
     }},
    {"GetChildValuesMap", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DmtChildValuesMap values;
         return tree.GetChildValuesMap(path, values);
     }},
    {"GetPrincipal", true,
     [](DmtPluginTree &tree, auto &, auto) {
         tree.GetPrincipal();
         return 0;
     }},
    {"FindAddedNode", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         tree.FindAddedNode(path);
         return 0;
     }},
    {"FindAddedParentNode", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         tree.FindAddedParentNode(path);
         return 0;
     }},
    {"GetFullPath", true,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DMString full;
         return tree.GetFullPath(path, full);
     }},
    {"Verify", true, [](DmtPluginTree &tree, auto &, auto) { return tree.Verify(); }},
    {"GetParameter", true,
     [](DmtPluginTree &tree, auto &, auto) {
         DMString value;
         return tree.GetParameter("dm-plugin-check", value);
     }},
    {"SetTitle", false, [](auto &, DmtNode &node, auto) { return node.SetTitle("plain"); }},
    {"SetAcl", false,
     [](auto &, DmtNode &node, auto) { return node.SetAcl(DmtAcl{DMString("Get=*")}); }},
    {"SetValue", false,
     [](auto &, DmtNode &node, auto) {
         DmtData value;
         node.GetValue(value);
         return node.SetValue(value);
     }},
    {"GetFirstChunk", false,
     [](auto &, DmtNode &node, auto) {
         DmtDataChunk chunk;
         const int status = node.GetFirstChunk(chunk);
         return status == DMT_OK && !chunk.last ? node.GetNextChunk(chunk) : status;
     }},
    {"SetFirstChunk", false,
     [](auto &, DmtNode &node, auto) {
         DmtDataChunk chunk;
         const int status = node.SetFirstChunk(chunk);
         return status == DMT_OK ? node.SetLastChunk(chunk) : status;
     }},
    {"SetNextChunk", false,
     [](auto &, DmtNode &node, auto) {
         DmtDataChunk chunk;
         return node.SetNextChunk(chunk);
     }},
    {"Execute", false,
     [](auto &, DmtNode &node, auto) {
         DMString result;
         return node.Execute("plain", result);
     }},
    {"SetChildValuesMap", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DmtChildValuesMap values;
         tree.GetChildValuesMap(path, values);
         return tree.SetChildValuesMap(path, values);
     }},
    {"CreateLeafNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         Node node;
         return tree.CreateLeafNode(childPath(path, "Leaf").c_str(), node, plainValue);
     }},
    {"CreateLeafNode with a flag", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         Node node;
         return tree.CreateLeafNode(childPath(path, "Flagged").c_str(), node, plainValue, 0);
     }},
    {"CreateInteriorNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         Node node;
         return tree.CreateInteriorNode(childPath(path, "Interior").c_str(), node);
     }},
    {"Clone", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         return tree.Clone(path, (string(path) + "Clone").c_str());
     }},
    {"OnAdd", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DMVector<unsigned char> cookie;
         return tree.OnAdd(path, cookie);
     }},
    {"OnDelete", false,
     [](DmtPluginTree &tree, auto &, const char *path) { return tree.OnDelete(path); }},
    {"Synchronize", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         DMVector<DmtOverlayPluginSyncData> changes;
         return tree.Synchronize(path, changes);
     }},
    {"SetAddedNode", false,
     [](DmtPluginTree &tree, DmtNode &node, auto) { return tree.SetAddedNode(Node(&node)); }},
    {"RemoveAddedNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) { return tree.RemoveAddedNode(path); }},
    {"LogCommand", false,
     [](DmtPluginTree &tree, DmtNode &node, const char *path) {
         return tree.LogCommand(0, path, 0, &node);
     }},
    {"Begin", false, [](DmtPluginTree &tree, auto &, auto) { return tree.Begin(); }},
    {"Rollback", false, [](DmtPluginTree &tree, auto &, auto) { return tree.Rollback(); }},
    {"Flush", false, [](DmtPluginTree &tree, auto &, auto) { return tree.Flush(); }},
    {"Commit", false, [](DmtPluginTree &tree, auto &, auto) { return tree.Commit(); }},
    {"RenameNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) {
         return tree.RenameNode(path, "Renamed");
     }},
    {"DeleteNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) { return tree.DeleteNode(path); }},
    {"RemoveNode", false,
     [](DmtPluginTree &tree, auto &, const char *path) { return tree.RemoveNode(path); }},
};

} // namespace

std::span<const Operation> allOperations()
{
    return operations;
}
