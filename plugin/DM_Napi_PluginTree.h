// The tree that the engine holds for one mounted root, and the map between node names and profiles.
#pragma once

#include "dmnative/dmt_tree.h"
#include "napi.h"

#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

enum class ChildKind : std::uint8_t; ///< how a child of a profile node is made
class NodePath;
class SETUP_SET_Manager;

/// Root paths that the plug-in serves. The first is the NAPDEF kind: one node per profile with the
/// settings of one bearer. The second is the PROXY kind: one node per profile with its proxy slots.
inline constexpr char CONN_ROOT_PATH[] = "./DevDetail/Ext/Conf/Conn/Profiles";
inline constexpr char INTPROFS_ROOT_PATH[] = "./DevDetail/Ext/Conf/IntProfs/Profiles";

/// One mapped profile.
struct ProfileInfo {
    /// ID key as the mapping file has it: the decimal profile ID, in the NAPDEF kind followed by
    /// the bearer suffix "Ph1DC1", "Ph2DC1" or "Ph3DC1".
    DMString sProfileID;
    bool bIsGPRS = false; ///< mapped with bearer "GSM-GPRS"
    bool bIsCSD = false;  ///< mapped with bearer "GSM-CSD"
    bool bIsCSD2 = false; ///< mapped with bearer "GSM-CSD2"
};

/// What became of the default that a connection reference starts with.
enum class ConnDefault { Stored, NotStored };

/// The mapped profiles of a tree by node name: the engine's two parallel vectors, and beside them
/// the place of each name, so that a look-up need not walk the names. It owns its values.
class ProfileMap {
public:
    ProfileMap() = default;
    ~ProfileMap() { freeValues(); }
    ProfileMap(const ProfileMap &) = delete;
    ProfileMap &operator=(const ProfileMap &) = delete;

    int size() const { return m_keys.size(); }
    const DMVector<DMString> &keys() const { return m_keys; }
    const DMVector<ProfileInfo *> &values() const { return m_values; }

    /// @return the index of the name, -1 when it is not mapped.
    int find(std::string_view nodeName) const;
    /// Makes room for so many profiles at once, as far as there is memory.
    void reserve(int profiles);
    /// Replaces and frees the value of a name, else appends the pair. @return its index; -1 when a
    /// vector cannot grow, which leaves the map as it was and frees info.
    int put(const DMString &nodeName, std::unique_ptr<ProfileInfo> info);
    /// Removes the pair and closes the gap. The index must be below size(). @return the value.
    std::unique_ptr<ProfileInfo> remove(int index);
    /// Frees every value; the names keep null.
    void freeValues();

private:
    /// Lets a look-up do without a copy of the name.
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept
        {
            return std::hash<std::string_view>()(text);
        }
    };

    DMVector<DMString> m_keys;
    DMVector<ProfileInfo *> m_values; // m_values[i] belongs to m_keys[i]
    // Names of its own, not views of the keys: a vector that grows may copy its elements.
    std::unordered_map<std::string, int, TextHash, std::equal_to<>> m_places;
};

class DM_NAPI_PluginTree final : public DmtRWPluginTree {
public:
    /// An empty tree of the kind that the root path names; LoadProfilesinDB fills it.
    explicit DM_NAPI_PluginTree(const char *rootPath);
    ~DM_NAPI_PluginTree() override;

    // Engine overrides, in the order of their slots.
    int DeleteNode(const char *path) noexcept override;
    int RenameNode(const char *path, const char *newName) noexcept override;
    int GetChildValuesMap(const char *path, DmtChildValuesMap &values) noexcept override;
    int SetChildValuesMap(const char *path, const DmtChildValuesMap &values) noexcept override;
    int CreateLeafNodeForwarder(const char *path, JemSmartPtr<DmtNode> &node,
                                const DmtData &value) noexcept override;
    int CreateInteriorNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                                   const DMStringVector &childNames) noexcept override;
    int CreateLeafNodeInternal(const char *path, JemSmartPtr<DmtNode> &node,
                               const DmtData &value) noexcept override;

    bool IsNAPDEF() const { return m_isNAPDEF != 0; }

    // ---- Node paths -----------------------------------------------------------------------------

    /// Splits at the last "/" into what comes before and after it. Without one, the parent path is
    /// empty and the node name is the whole path.
    void ParseNodePath(const DMString &path, DMString &parentPath, DMString &nodeName) const;
    /// The part of a node name before "&&_", or the whole name.
    void ParseLogicalId(const DMString &nodeName, DMString &logicalId) const;
    /// Whether the path is empty or ends in "/".
    bool HasEmptyNodeName(const DMString &path) const;

    // ---- Map between node names and profiles ----------------------------------------------------

    /// Name in the profile service of a mapped node. @return 0, or 1 when the node is not mapped,
    /// its ID key has no number or the service does not know the ID; profileName is then as it was.
    int GetProfileName(const DMString &nodeName, DMString &profileName) const;
    /// A profile's name with its terminator.
    using NameBuffer = std::array<char, NAPI_NAME_SIZE + 1>;
    /// The same; on failure the buffer holds nothing of use.
    int GetProfileName(std::string_view nodeName, NameBuffer &profileName) const;
    /// Numeric part of an ID key. @return false, and 0 in id, when it is not an unsigned 32-bit
    /// decimal number.
    bool ExtractProfileID(const DMString &key, unsigned int &id) const;
    /// Discards and reopens the mapping file, and maps what it holds. @return 0 or 1.
    int LoadProfileMapCfgFile();
    /// Maps a profile found at mount; a taken node name or ID key is left as it is. @return 0, also
    /// when m_ProfileMaps cannot grow, which leaves the entry in the mapping file; 1 when the
    /// mapping file cannot be changed.
    int PutProfileMap(const DMString &nodeName, std::unique_ptr<ProfileInfo> info);
    /// Maps a profile that a server adds. @return 0, also when m_ProfileMaps cannot grow, which
    /// frees the record and leaves the entry in the mapping file; 1 when the node name or the ID
    /// key is taken or the mapping file cannot be changed.
    int AddProfileMap(const DMString &nodeName, std::unique_ptr<ProfileInfo> info);
    /// Unmaps a node. @return 0, or 1 when it is not mapped or the mapping file cannot be changed.
    int DeleteProfileMap(const DMString &nodeName);
    /// Maps a node's profile under a new name; what that name was mapped to is dropped. @return 0,
    /// or 1 when the node is not mapped or the mapping file cannot be changed.
    int RenameProfileMap(const DMString &oldName, const DMString &newName);
    /// Moves a node's ID key to the suffix of a bearer. @return 0; 1 when the node is not mapped,
    /// the bearer is not known, which leaves a bare ID, or the mapping file cannot be changed.
    int RenameProfileMapDB(const DMString &nodeName, const DMString &bearer);

    // ---- Questions about a profile --------------------------------------------------------------

    bool IsGPRS(const NAP_PROFILE_S *record) const;
    bool IsCSD(const NAP_PROFILE_S *record) const;
    bool IsCSD2(const NAP_PROFILE_S *record) const;
    /// Sets the flags of the bearers under which the NAPDEF mapping file has the profile.
    void GetBearFromNapCfg(ProfileInfo *const &info) const;
    /// Node name under which the NAPDEF mapping file has the profile with the bearer of a proxy
    /// slot; empty when it has none. A null profileID leaves napdefName as it was.
    void GetNapdefName(const DMString *profileID, const DMString &phName,
                       DMString &napdefName) const;

    // ---- Connection references ------------------------------------------------------------------

    /// The NAPDEF node that a proxy slot refers to: what the file has, else a default, which is
    /// stored. It is in connValue in every case, empty when the profile lacks the slot's bearer.
    /// @return NotStored when the file had a reference, when there is none, and when the file could
    /// not be changed. A tree without an open file keeps nothing and answers Stored.
    ConnDefault GetConnValue(const ProfileInfo *info, const DMString &profileNodeName,
                             const DMString &phName, DMString &connValue);
    /// Stores the reference of a proxy slot. @return 0 or 1.
    int SetConnValue(const DMString &profileNodeName, const DMString &phName,
                     const DMString &connValue);

    // ---- Mounting -------------------------------------------------------------------------------

    /// Fills the tree from the profile service. @return 0, or non-zero when the mount must be
    /// refused.
    int LoadProfilesinDB();
    /// Registers the nodes of one mapped profile. @return 0.
    int LoadSubTreeofProfile(const DMString &profileNodeName, const ProfileInfo *info);
    /// Registers one child of a profile node and everything beneath it. @return 0, or 1 when the
    /// mapping cannot follow the bearer; that child is then left out.
    int LoadChildrenofProfile(const DMString &profileNodeName, const ProfileInfo *info,
                              const DMString &childName);

    // ---- Deleting -------------------------------------------------------------------------------

    /// Deletes a profile that no tree maps any more, or clears the part of its record that the
    /// suffix names: a bearer suffix, or anything else for the proxy slots. @return 0 or 1.
    int DeleteProfileInDB(const DMString &profileName, const DMString &suffix);

private:
    friend struct PluginTreeProbe; // lets the unit tests set up and look at the members

    QString m_groupName;            ///< group of this tree's entries in its mapping file
    std::int8_t m_ProfileCount = 0; ///< as the service listed them, cut to 8 bits; set by the mount
    std::unique_ptr<char[]> m_profileNameList; ///< slots of NAPI_NAME_SIZE bytes
    std::uint8_t m_isNAPDEF = 0;               ///< 1 for the NAPDEF kind, 0 for the PROXY kind
    std::unique_ptr<SETUP_SET_Manager> m_psetupManager; ///< the open mapping file
    ProfileMap m_ProfileMaps;

    JemSmartPtr<DmtPluginTree> Self() { return JemSmartPtr<DmtPluginTree>(this); }
    // Nodes of this tree, and their way into the engine's table.
    JemSmartPtr<DmtNode> NewInterior(const char *path, const DMStringVector &childNames);
    JemSmartPtr<DmtNode> NewLeaf(const char *path, const DmtData &value);
    void Register(const char *path, const JemSmartPtr<DmtNode> &node);

    /// What the nodes of every profile are made of; a mount makes it once.
    struct CommonParts;
    int LoadSubTree(const DMString &profileNodeName, const ProfileInfo *info,
                    const CommonParts &common);
    int LoadChild(NodePath &path, const DMString &profileNodeName, const ProfileInfo *info,
                  const DMString &childName, ChildKind kind, const CommonParts &common);
    int LoadBearer(const NodePath &path, const DMString &profileNodeName, const ProfileInfo *info,
                   const CommonParts &common);
    void LoadAuth(NodePath &path, const CommonParts &common);
    void LoadProxySlot(NodePath &path, const DMString &profileNodeName, const ProfileInfo *info,
                       const DMString &phName, const CommonParts &common);
    void LoadLeaf(const NodePath &path, const DmtData &value);
    void LoadLeafBeneath(NodePath &path, const char *name, const DmtData &value);

    /// Deletes the mapping file and opens a new one. @return false when memory is short.
    bool ReplaceMappingFile();
    /// Maps one entry of the mapping file, or removes it when it is stale. @return 0 or 1.
    int LoadMappedEntry(const QString &entryKey, const QString &entryValue);
    /// Removes the connection references of nodes that are not mapped. @return 0 or 1.
    int RemoveStaleReferences();

    /// Fills the name list and m_ProfileCount. @param count  receives the number of names
    /// @return 0 or 1.
    int ListProfiles(unsigned int &count);
    /// Maps one listed profile, or passes over one that cannot be read or has no bearer.
    /// @param namesBeyondAscii  counts the profiles that got a made-up node name
    /// @return 0, or 1 when the mount must be refused.
    int LoadListedProfile(const DMString &profileName, int &namesBeyondAscii);
    /// Maps a listed profile; a node name that is taken stays as it is. @return 0 or 1.
    int MapListedProfile(const DMString &nodeName, std::unique_ptr<ProfileInfo> info);
    /// Creates the profile of a new profile node, or adopts the one of that name, and maps it.
    /// @return 0 or 1; a failure leaves the created profile in the service.
    int CreateProfile(const DMString &nodeName, const DMString &profileName);
    /// SetConnValue for whoever has the slot's key.
    int StoreConnValue(const DMString &profileNodeName, const DMString &phName, const QString &key,
                       const DMString &connValue);
    /// Whether either tree's mapping file has the profile.
    bool IsMappedAnywhere(const DMString &idText) const;
};
