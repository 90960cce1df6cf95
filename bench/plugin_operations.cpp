#include "plugin_operations.h"

#include "codec.h"
#include "dmnative/dmt_plugin_api.h"
#include "management_tree.h"
#include "package.h"
#include "required_calls.h"
#include "temporary_handset.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

extern "C" DmtPluginGetTree DMT_PluginLib_Data_GetPluginTree;

namespace bench {

namespace {

using TreePtr = JemSmartPtr<DmtPluginTree>;
using Run = std::function<void(benchmark::State &)>;

TreePtr Mount(MappingFile::Kind kind)
{
    TreePtr tree;
    Require(DMT_PluginLib_Data_GetPluginTree(kind == MappingFile::Napdef
                                                 ? "./DevDetail/Ext/Conf/Conn/Profiles"
                                                 : "./DevDetail/Ext/Conf/IntProfs/Profiles",
                                             nullptr, tree) == DMT_OK,
            "mount");
    return tree;
}

JemSmartPtr<DmtNode> NodeAt(const TreePtr &tree, const std::string &path)
{
    JemSmartPtr<DmtNode> node;
    Require(tree->GetNode(path.c_str(), node) == DMT_OK, "GetNode " + path);
    return node;
}

/// The two trees of the handset, mounted once a size: reading and writing leaves does not need a
/// fresh mount.
struct MountedTrees {
    TreePtr conn = Mount(MappingFile::Napdef);
    TreePtr intProfs = Mount(MappingFile::Proxy);

    const TreePtr &Of(MappingFile::Kind kind) const
    {
        return kind == MappingFile::Napdef ? conn : intProfs;
    }
};
using Trees = std::shared_ptr<MountedTrees>;

/// A leaf of each class, and the value that is written to it.
struct LeafClass {
    const char *name;
    MappingFile::Kind kind;
    const char *profile;
    const char *leaf;
    DmtData value;
};

const LeafClass RECORD_LEAVES[] = {
    {"text", MappingFile::Napdef, PACKET_PROFILE, "Addr", DmtData("internet.example")},
    {"dns", MappingFile::Napdef, PACKET_PROFILE, "DNS1", DmtData("192.168.100.200")},
    {"number", MappingFile::Napdef, PACKET_PROFILE, "Linger", DmtData(60)},
    {"nested-text", MappingFile::Napdef, PACKET_PROFILE, "Auth/PAP/AuthPw", DmtData("secret")},
    {"speed", MappingFile::Napdef, MODEM_PROFILE, "Speed", DmtData(9600)},
    {"line-type", MappingFile::Napdef, MODEM_PROFILE, "LineType", DmtData("Isdn")},
    {"proxy-text", MappingFile::Proxy, PACKET_PROFILE, "Ph1/Addr", DmtData("proxy.example")},
    {"proxy-port", MappingFile::Proxy, PACKET_PROFILE, "Ph2/Port/PortNbr", DmtData(8080)},
    {"flag", MappingFile::Proxy, PACKET_PROFILE, "UserEditable", DmtData(true)},
};

class Registrar {
public:
    explicit Registrar(int profiles) : m_size("/" + std::to_string(profiles)) {}

    void Add(const std::string &operation, const Run &plugin, const Run &floor) const
    {
        benchmark::RegisterBenchmark(("plugin/" + operation + m_size).c_str(), plugin);
        benchmark::RegisterBenchmark(("floor/" + operation + m_size).c_str(), floor);
    }

private:
    std::string m_size;
};

std::string PathOf(const char *profile, const char *leaf)
{
    return std::string(profile) + "/" + leaf;
}

// ---- Mounting -----------------------------------------------------------------------------------

void RegisterMounts(const Registrar &registrar)
{
    for (const auto kind : {MappingFile::Napdef, MappingFile::Proxy}) {
        registrar.Add(
            kind == MappingFile::Napdef ? "mount-conn" : "mount-intprofs",
            [kind](benchmark::State &state) {
                for (auto iteration : state) {
                    TreePtr tree = Mount(kind);
                    state.PauseTiming(); // the tree goes with the session, not with the mount
                    tree.reset();
                    state.ResumeTiming();
                }
            },
            [kind](benchmark::State &state) {
                for (auto iteration : state)
                    RequiredForMount(kind);
            });
    }
}

// ---- One leaf -----------------------------------------------------------------------------------

void RegisterLeafReads(const Registrar &registrar, const Trees &trees)
{
    for (const LeafClass &leaf : RECORD_LEAVES) {
        registrar.Add(
            std::string("get-") + leaf.name,
            [&leaf, trees](benchmark::State &state) {
                const auto node = NodeAt(trees->Of(leaf.kind), PathOf(leaf.profile, leaf.leaf));
                for (auto iteration : state) {
                    DmtData value;
                    Require(node->GetValue(value) == DMT_OK, "GetValue");
                }
            },
            [&leaf](benchmark::State &state) {
                const KnownProfile profile = LookUpProfile(leaf.profile, QString());
                for (auto iteration : state)
                    RequiredForReadingRecordLeaf(profile);
            });
    }
    // A leaf that the node keeps has no floor but the base class.
    registrar.Add(
        "get-kept",
        [trees](benchmark::State &state) {
            const auto node = NodeAt(trees->conn, PathOf(PACKET_PROFILE, "Bearer"));
            for (auto iteration : state) {
                DmtData value;
                Require(node->GetValue(value) == DMT_OK, "GetValue");
            }
        },
        [trees](benchmark::State &state) {
            const auto node = NodeAt(trees->conn, PathOf(PACKET_PROFILE, "Bearer"));
            auto &base = static_cast<DmtPluginNode &>(*node);
            for (auto iteration : state) {
                DMString name;
                DmtData value;
                Require(base.GetNodeName(name) == DMT_OK, "GetNodeName");
                Require(base.DmtPluginNode::GetValue(value) == DMT_OK, "GetValue");
            }
        });
}

void RegisterLeafWrites(const Registrar &registrar, const Trees &trees)
{
    for (const LeafClass &leaf : RECORD_LEAVES) {
        registrar.Add(
            std::string("set-") + leaf.name,
            [&leaf, trees](benchmark::State &state) {
                const auto node = NodeAt(trees->Of(leaf.kind), PathOf(leaf.profile, leaf.leaf));
                for (auto iteration : state)
                    Require(node->SetValue(leaf.value) == DMT_OK, "SetValue");
            },
            [&leaf](benchmark::State &state) {
                const KnownProfile profile = LookUpProfile(leaf.profile, QString());
                NAP_PROFILE_S record;
                Require(NAPI_ReadProfile(leaf.profile, &record, 0, 0) == 0, "NAPI_ReadProfile");
                for (auto iteration : state)
                    RequiredForWritingRecordLeaf(profile, record);
            });
    }
    registrar.Add(
        "set-conn",
        [trees](benchmark::State &state) {
            const auto node = NodeAt(trees->intProfs, PathOf(PACKET_PROFILE, "Ph1/Conn"));
            for (auto iteration : state)
                Require(node->SetValue(DmtData(PACKET_PROFILE)) == DMT_OK, "SetValue");
        },
        [](benchmark::State &state) {
            MappingFile file(MappingFile::Proxy);
            const KnownProfile profile = LookUpProfile(PACKET_PROFILE, QString());
            const QString key = profile.nodeName + QStringLiteral("/Ph1");
            for (auto iteration : state)
                RequiredForWritingConn(file, profile, key, profile.nodeName);
        });
    registrar.Add(
        "set-bearer",
        [trees](benchmark::State &state) {
            const auto node = NodeAt(trees->conn, PathOf(MODEM_PROFILE, "Bearer"));
            bool second = false;
            for (auto iteration : state) {
                second = !second;
                Require(node->SetValue(DmtData(second ? "GSM-CSD2" : "GSM-CSD")) == DMT_OK,
                        "SetValue");
            }
            if (second)
                Require(node->SetValue(DmtData("GSM-CSD")) == DMT_OK, "SetValue");
        },
        [](benchmark::State &state) {
            MappingFile file(MappingFile::Napdef);
            KnownProfile profile = LookUpProfile(MODEM_PROFILE, QStringLiteral("Ph2DC1"));
            NAP_PROFILE_S record;
            Require(NAPI_ReadProfile(MODEM_PROFILE, &record, 0, 0) == 0, "NAPI_ReadProfile");
            const QString first = profile.idKey;
            const QString other = QString::number(profile.id) + QStringLiteral("Ph3DC1");
            for (auto iteration : state)
                RequiredForWritingBearer(file, profile, profile.idKey == first ? other : first,
                                         record);
            if (profile.idKey != first)
                RequiredForWritingBearer(file, profile, first, record);
        });
}

// ---- One profile --------------------------------------------------------------------------------

constexpr char NEW_PROFILE[] = "Added by a server";

void RegisterProfileChanges(const Registrar &registrar, const Trees &trees)
{
    registrar.Add(
        "add-profile",
        [trees](benchmark::State &state) {
            for (auto iteration : state) {
                JemSmartPtr<DmtNode> node;
                Require(trees->conn->CreateInteriorNode(NEW_PROFILE, node) == DMT_OK, "add");
                state.PauseTiming();
                Require(trees->conn->DeleteNode(NEW_PROFILE) == DMT_OK, "delete");
                state.ResumeTiming();
            }
        },
        [](benchmark::State &state) {
            MappingFile file(MappingFile::Napdef);
            for (auto iteration : state) {
                const KnownProfile profile = RequiredForAddingProfile(file, NEW_PROFILE);
                state.PauseTiming();
                RequiredForDeletingProfile(file, profile);
                state.ResumeTiming();
            }
        });
    registrar.Add(
        "delete-profile",
        [trees](benchmark::State &state) {
            for (auto iteration : state) {
                state.PauseTiming();
                JemSmartPtr<DmtNode> node;
                Require(trees->conn->CreateInteriorNode(NEW_PROFILE, node) == DMT_OK, "add");
                node.reset();
                state.ResumeTiming();
                Require(trees->conn->DeleteNode(NEW_PROFILE) == DMT_OK, "delete");
            }
        },
        [](benchmark::State &state) {
            MappingFile file(MappingFile::Napdef);
            for (auto iteration : state) {
                state.PauseTiming();
                const KnownProfile profile = RequiredForAddingProfile(file, NEW_PROFILE);
                state.ResumeTiming();
                RequiredForDeletingProfile(file, profile);
            }
        });
    for (const auto kind : {MappingFile::Napdef, MappingFile::Proxy}) {
        registrar.Add(
            kind == MappingFile::Napdef ? "rename-conn" : "rename-intprofs",
            [kind, trees](benchmark::State &state) {
                const TreePtr &tree = trees->Of(kind);
                const char *name = PACKET_PROFILE;
                for (auto iteration : state) {
                    const char *const other = name == PACKET_PROFILE ? "Renamed" : PACKET_PROFILE;
                    Require(tree->RenameNode(name, other) == DMT_OK, "rename");
                    name = other;
                }
                if (name != PACKET_PROFILE)
                    Require(tree->RenameNode(name, PACKET_PROFILE) == DMT_OK, "rename");
            },
            [kind](benchmark::State &state) {
                MappingFile file(kind);
                KnownProfile profile = LookUpProfile(PACKET_PROFILE, kind == MappingFile::Napdef
                                                                         ? QStringLiteral("Ph1DC1")
                                                                         : QString());
                const QString first = profile.nodeName;
                const QString other = QStringLiteral("Renamed");
                for (auto iteration : state)
                    RequiredForRenamingProfile(file, profile,
                                               profile.nodeName == first ? other : first);
                if (profile.nodeName != first)
                    RequiredForRenamingProfile(file, profile, first);
            });
    }
}

// ---- All children -------------------------------------------------------------------------------

constexpr int RECORD_CHILDREN = 6; // the direct leaves of a Conn profile, less the kept "Bearer"

void RegisterBulkReads(const Registrar &registrar, const Trees &trees)
{
    const auto floor = [](int recordLeaves) {
        return [recordLeaves](benchmark::State &state) {
            const KnownProfile profile = LookUpProfile(PACKET_PROFILE, QString());
            for (auto iteration : state)
                for (int i = 0; i < recordLeaves; ++i)
                    RequiredForReadingRecordLeaf(profile);
        };
    };
    registrar.Add(
        "get-children-map",
        [trees](benchmark::State &state) {
            for (auto iteration : state) {
                DmtChildValuesMap values;
                Require(trees->conn->GetChildValuesMap(PACKET_PROFILE, values) == DMT_OK,
                        "GetChildValuesMap");
            }
        },
        floor(RECORD_CHILDREN));
    registrar.Add(
        "get-8-leaves",
        [trees](benchmark::State &state) {
            std::vector<std::string> paths;
            for (const char *leaf : {"Addr", "DNS1", "DNS2", "Linger", "LineType", "Speed",
                                     "Auth/PAP/AuthId", "Auth/PAP/AuthPw"})
                paths.push_back(PathOf(PACKET_PROFILE, leaf));
            for (auto iteration : state)
                for (const std::string &path : paths) {
                    DmtData value;
                    Require(NodeAt(trees->conn, path)->GetValue(value) == DMT_OK, "GetValue");
                }
        },
        floor(8));
}

// ---- Packages of a server -----------------------------------------------------------------------

constexpr const char *PACKAGE_LEAVES[] = {"Addr",   "DNS1",     "DNS2",  "Auth/PAP/AuthId",
                                          "Linger", "LineType", "Speed", "Auth/PAP/AuthPw"};

/// A package with one Get of this many Items, as a server sends it.
QByteArray GetPackage(int items)
{
    QByteArray xml = "<SyncML><SyncHdr><VerDTD>1.2</VerDTD><VerProto>DM/1.2</VerProto>"
                     "<SessionID>1</SessionID><MsgID>1</MsgID>"
                     "<Target><LocURI>urn:kub:bench</LocURI></Target>"
                     "<Source><LocURI>http://server.example</LocURI></Source></SyncHdr>"
                     "<SyncBody><Get><CmdID>1</CmdID>";
    for (int i = 0; i < items; ++i) {
        xml += "<Item><Target><LocURI>./DevDetail/Ext/Conf/Conn/Profiles/";
        xml += PACKET_PROFILE;
        xml += "/";
        xml += PACKAGE_LEAVES[static_cast<std::size_t>(i) % std::size(PACKAGE_LEAVES)];
        xml += "</LocURI></Target></Item>";
    }
    return xml + "</Get><Final/></SyncBody></SyncML>";
}

/// Decodes a package, carries it out and encodes the answer.
void Process(const QByteArray &package, client::ManagementTree &tree)
{
    const syncml::DecodeResult request = syncml::decode(package);
    Require(bool(request), "decode");
    const client::PackageAnswer answer =
        client::answerPackage(*request, tree, syncml::Encoding::Xml);
    Require(answer.allSucceeded && answer.message, "answerPackage");
    Require(bool(syncml::encode(*answer.message, syncml::Encoding::Xml)), "encode");
}

void RegisterPackages(const Registrar &registrar, const Trees &trees)
{
    const auto tree = std::make_shared<client::ManagementTree>(client::hostInfo("urn:kub:bench"));
    tree->mount(
        client::parseAddress(QStringLiteral("./DevDetail/Ext/Conf/Conn/Profiles"), {})->node,
        trees->conn);
    for (const int items : {1, 10, 100}) {
        registrar.Add(
            "process-get-" + std::to_string(items) + "-items",
            [tree, items](benchmark::State &state) {
                const QByteArray package = GetPackage(items);
                for (auto iteration : state)
                    Process(package, *tree);
            },
            [items](benchmark::State &state) {
                const KnownProfile profile = LookUpProfile(PACKET_PROFILE, QString());
                for (auto iteration : state)
                    for (int i = 0; i < items; ++i)
                        RequiredForReadingRecordLeaf(profile);
            });
    }
}

} // namespace

void RegisterOperations(int profiles)
{
    const Registrar registrar(profiles);
    RegisterMounts(registrar);
    const auto trees = std::make_shared<MountedTrees>();
    RegisterLeafReads(registrar, trees);
    RegisterLeafWrites(registrar, trees);
    RegisterProfileChanges(registrar, trees);
    RegisterBulkReads(registrar, trees);
    RegisterPackages(registrar, trees);
}

} // namespace bench
