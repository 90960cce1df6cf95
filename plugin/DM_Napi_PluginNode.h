// A node of a mounted profile tree: where a leaf's value lives and how it is read and written.
#pragma once

#include "dmnative/dmt_tree.h"
#include "napi.h"

#include <cstdint>

class DM_NAPI_PluginTree;

// ---- Fields of the profile record -------------------------------------------------------------

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

/// Whether the text is one of "GSM-GPRS", "GSM-CSD" and "GSM-CSD2".
bool IsBearer(const DMString &text);

/// Dotted-quad text of a 32-bit IPv4 number whose most significant byte is the first part.
DMString Ipv4ToText(std::uint32_t address);

/// Name of a value's type, for traces.
const char *DataTypeName(const DmtData &value);

/// Copies the text that starts at a field of a record: up to its NUL, beyond the field when the
/// field is full, and to the end of the record at the latest.
DMString RecordText(const NAP_PROFILE_S &record, const char *field);

// ---- The node ----------------------------------------------------------------------------------

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
};
