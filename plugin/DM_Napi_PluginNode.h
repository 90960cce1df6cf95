// A node of a mounted profile tree: where a leaf's value lives and how it is read and written.
#pragma once

#include "dmnative/dmt_tree.h"
#include "napi.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class DM_NAPI_PluginTree;
struct ProfileInfo;

// ---- Bearers and their parts of the profile record ----------------------------------------------

// Values of a "Bearer" leaf.
inline constexpr char GPRS_BEARER[] = "GSM-GPRS";
inline constexpr char CSD_BEARER[] = "GSM-CSD";
inline constexpr char CSD2_BEARER[] = "GSM-CSD2";

/// A profile whose bearer is not known counts as this one.
inline constexpr const char *DEFAULT_BEARER = CSD_BEARER;

/// Place of a text in a profile record.
struct TextField {
    std::size_t offset;
    std::size_t size; ///< bytes of the array; a text of that length has no terminator
};

/// One bearer: its names, its flag, and where its part of the record keeps its settings.
struct BearerPart {
    const char *bearer;          ///< value of a "Bearer" leaf
    const char *keySuffix;       ///< follows the ID in the mapping key of a profile with the bearer
    const char *phName;          ///< proxy slot of the bearer
    bool ProfileInfo::*isMapped; ///< whether a profile is mapped with the bearer
    TextField address;
    TextField authId;
    TextField authPassword;
    std::uint32_t NAP_PROFILE_S::*dns1;
    std::uint32_t NAP_PROFILE_S::*dns2;
    std::uint16_t NAP_PROFILE_S::*linger;
    std::uint8_t NAP_PROFILE_S::*speedCode; ///< null for packet data
};

/// The three bearers, in the order of their proxy slots.
inline constexpr int BEARER_COUNT = 3;
extern const BearerPart BEARER_PARTS[BEARER_COUNT];

/// @return the bearer of that name, or null.
const BearerPart *FindBearer(const DMString &bearer);

/// Bytes of the suffix of a mapping key.
inline constexpr std::size_t KEY_SUFFIX_LENGTH = 6;

/// Zeroes every setting of a bearer's part.
void ClearBearerPart(NAP_PROFILE_S *record, const BearerPart &part);

/// Copies the text that starts at a field of a record: up to its NUL, beyond the field when the
/// field is full, and to the end of the record at the latest.
DMString RecordText(const NAP_PROFILE_S &record, const char *field);

// ---- Conversions between record fields and leaf values ------------------------------------------

/// Whether the value of a leaf of this name lives in the profile record, as opposed to the node.
/// @param isNAPDEF  the tree's kind
bool IsFieldInRecord(const DMString &name, bool isNAPDEF);

/// Bit rate in bit/s of a circuit-switched speed code; 0 for an unknown code.
unsigned int SpeedCodeToBitRate(std::uint8_t code);

/// Line type of a circuit-switched speed code; "ANALOG-MODEM" for an unknown code. Two line types
/// share their codes, so "V.110" is never the answer.
DMString SpeedCodeToLineType(std::uint8_t code);

/// Speed code of a line type at a bit rate in bit/s. An unknown line type counts as "ANALOG-MODEM";
/// an unknown rate gives 0.
std::uint8_t LineTypeToSpeedCode(const DMString &lineType, unsigned int bitRate);

/// Whether a server may give a leaf "LineType" this text.
bool IsLineType(const DMString &text);

/// Whether a server may give a leaf "Speed" this bit rate.
bool IsBitRate(int bitRate);

/// Dotted-quad text of a 32-bit IPv4 number whose most significant byte is the first part.
DMString Ipv4ToText(std::uint32_t address);

/// Name of a value's type, for traces.
const char *DataTypeName(const DmtData &value);

// ---- Paths --------------------------------------------------------------------------------------

/// Path of a node while it is put together. One of the usual length takes nothing from the heap.
class NodePath {
public:
    explicit NodePath(std::string_view path) { Append(path); }

    const char *text() const { return m_long.empty() ? m_room.data() : m_long.c_str(); }
    /// Goes down to a child. @return what Leave needs to come back.
    std::size_t Enter(std::string_view name)
    {
        const std::size_t above = m_length;
        Append("/");
        Append(name);
        return above;
    }
    /// Goes back up. @param above  what Enter answered
    void Leave(std::size_t above)
    {
        m_length = above;
        if (!m_long.empty())
            m_long.resize(above);
        if (m_long.empty()) // at the top of an empty path it is again
            m_room[above] = '\0';
    }

private:
    std::array<char, 128> m_room;
    std::size_t m_length = 0;
    std::string m_long; // the path, when there is no room for it

    void Append(std::string_view text)
    {
        const std::size_t length = m_length + text.size();
        if (m_long.empty() && length < m_room.size()) {
            text.copy(m_room.data() + m_length, text.size());
            m_room[length] = '\0';
        } else {
            if (m_long.empty())
                m_long.assign(m_room.data(), m_length);
            m_long += text;
        }
        m_length = length;
    }
};

// ---- The node -----------------------------------------------------------------------------------

class DM_NAPI_PluginNode final : public DmtRWPluginNode {
public:
    /// An interior node that lists the given children.
    DM_NAPI_PluginNode(const JemSmartPtr<DmtPluginTree> &tree, const char *path,
                       const DMStringVector &childNames);
    /// A leaf with its first value.
    DM_NAPI_PluginNode(const JemSmartPtr<DmtPluginTree> &tree, const char *path,
                       const DmtData &value);
    ~DM_NAPI_PluginNode() override;

    // Engine overrides, in the order of their slots.
    int GetValue(DmtData &value) noexcept override;
    int SetValue(const DmtData &value) noexcept override;
    DMString GetName() const noexcept override;
    std::uint8_t HasChunkedValue() const noexcept override;

    /// Validates a value and writes it where the leaf's value lives. A null value is nothing to
    /// write. @return 0, 1, or the status of the call that failed.
    int SetValueInternal(const DmtData *value);

    // Names taken from the node's path.
    DMString GetParentNodeName() const;
    DMString GetGrandParentNodeName() const;
    DMString GetProfileNodeName() const;

    // Leaf values in a record. The readers leave value as it was when they fail.
    int GetValueforNAPDEF(const DMString &name, const NAP_PROFILE_S *record, DmtData &value) const;
    int GetValueforPROXY(const DMString &name, const NAP_PROFILE_S *record, DmtData &value) const;
    int SetValueforNAPDEF(const DMString &name, NAP_PROFILE_S *record, const DmtData &value) const;
    int SetValueforPROXY(const DMString &name, NAP_PROFILE_S *record, const DmtData &value) const;

    /// Moves a profile's data from the record part of one bearer to that of another.
    static void MoveFieldInNAPI(NAP_PROFILE_S *record, const DMString &fromBearer,
                                const DMString &toBearer);

private:
    /// The owning tree; null once it is destroyed.
    JemSmartPtr<DM_NAPI_PluginTree> OwningTree() const;
    /// GetProfileNodeName for whoever has the tree, which may be null. @param fullPath  holds what
    /// the answer views, where that is not the node's path
    std::string_view ProfileNodeName(const DM_NAPI_PluginTree *tree, DMString &fullPath) const;
    /// GetValueforNAPDEF for whoever has the tree, which may be null.
    int ReadNapdefValue(DM_NAPI_PluginTree *tree, const DMString &name, const NAP_PROFILE_S *record,
                        DmtData &value) const;
    /// Writes the "Bearer" leaf: moves the settings within the record and the key in the mapping
    /// file, then stores the record and the value. @return 0, 1, or the status of the call that
    /// failed.
    int SetBearer(DM_NAPI_PluginTree &tree, const DMString &profileNodeName,
                  const DMString &profileName, NAP_PROFILE_S *record, const DmtData &value);
    /// Writes a "Conn" leaf: the reference to the mapping file, the value to the node. @return 0,
    /// 1, or the status of the call that failed.
    int SetConn(DM_NAPI_PluginTree &tree, const DMString &profileNodeName, const DmtData &value);
};
